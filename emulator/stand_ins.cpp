// The commands of /system/bin.
#include "emulator/stand_ins.h"

#include <string>

#include "emulator/files.h"

namespace phone {

// `gzip`, `rm`, `cat` and the shell are the desk's own.
const StandIn STAND_INS[] = {
    // Asked for its state, the graphics service dumps the frames that it has been told to: bitmaps of one
    // pixel, whose blue is the number of the frame.
    {"dumpsys", R"sh(echo "DUMP OF SERVICE ${1:-all}:"
echo '  state: running'
property() { value=; read -r value 2>/dev/null </dev/__properties__/$1; }
property debug.frame_dump_enable
[ "$1$value" = SurfaceFlinger1 ] && [ -d /data/hwcdump ] || exit 0
property debug.composed_frame_dump_count
z='\000\000\000' i=0
while [ $i -lt "${value:-1}" ]; do
    header="BM:$z\000${z}6$z($z\001$z\001$z\001\000\030\000\000$z\004$z\000$z\000$z\000$z\000$z"
    printf "$header\\$(printf %03o $((i % 256)))$z" >/data/hwcdump/hwc_frame_$i.bmp
    i=$((i + 1))
done
cd /dev/__properties__ && echo 0 >.dumpsys.$$ && mv .dumpsys.$$ debug.frame_dump_enable
)sh"},
    {"settings", "[ \"$1\" != get ] || echo 1\n"},
    // A picture of one pixel, to the file named last or to standard output.
    {"screencap",
     "for file; do :; done\n"
     "case ${file:--p} in -*) file=/dev/stdout ;; esac\n"
     "printf "
     "'\\211PNG\\r\\n\\032\\n\\000\\000\\000\\rIHDR\\000\\000\\000\\001\\000\\000\\000\\001\\010\\000\\000\\0"
     "00"
     "\\000:~\\233U\\000\\000\\000\\nIDATx\\234c`"
     "\\000\\000\\000\\002\\000\\001H\\257\\244q\\000\\000\\000\\000IEND"
     "\\256B`\\202' >\"$file\"\n"},
    {"debuggerd",
     "for pid; do :; done\n"
     "echo \"----- pid $pid at 2015-01-01 00:00:00 -----\"\n"
     "echo 'Cmd line: stand-in'\n"
     "echo \"----- end $pid -----\"\n"},
    {"top",
     "echo '  PID PR CPU% S  #THR     VSS     RSS PCY UID      Name'\n"
     "echo\n"
     "for row in '  201  0   4% S    12  98304K  20480K  fg system   surfaceflinger' \\\n"
     "           '  305  0   3% S    78 917504K  81920K  fg system   system_server' \\\n"
     "           '  202  1   2% S     9  65536K  12288K  fg media    mediaserver' \\\n"
     "           '  410  0   1% S    31 851968K  61440K  bg radio    com.android.phone' \\\n"
     "           '    1  0   0% S     1    948K    704K  fg root     /init'; do\n"
     "    echo \"$row\"\n"
     "done\n"},
    {nullptr, nullptr},
};

void make_stand_ins() {
    for (const StandIn* row = STAND_INS; row->name != nullptr; ++row) {
        const std::string name = row->name;
        write_file("/system/bin/" + name,
                   "#!/bin/sh\n"
                   "echo \"" +
                       name + "${*:+ $*}\" 2>/dev/null >>/data/commands.log\n" + row->body,
                   0755);
    }
}

}  // namespace phone
