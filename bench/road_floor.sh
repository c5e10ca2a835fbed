#!/bin/sh
# The least that takes a driver's text to a compressed archive that outlives a power cut: appended to a record and packed
# with the system's logs.
# Arguments: the file with the text, the record, the archive without its ".gz", the logs.
set -e
text=$1 record=$2 archive=$3
shift 3
cat "$text" >> "$record"
sync "$record"
tar -cf "$archive" "$record" "$@"
gzip "$archive"
sync "$archive.gz" "${archive%/*}"
