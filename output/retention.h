// Keeping the dump archives bounded.
#pragma once

// One retention pass over the output directory: removes uncompressed leftovers and, when the ".gz" dump
// archives together hold more than 10 MiB, the oldest one. Returns -1 when the directory cannot be opened,
// the status of the deleting command when an archive was deleted, and 0 otherwise. Keeps no state: passes
// under different locks may overlap.
int check_compress_file();
