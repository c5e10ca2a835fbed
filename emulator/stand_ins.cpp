// The commands of /system/bin.
#include "emulator/stand_ins.h"

#include <string>

#include "emulator/files.h"

namespace phone {

namespace {

// Each command's shell lines, which print something of its shape. `gzip`, `rm`, `cat` and the shell are the
// desk's own.
constexpr struct {
    const char* name;
    const char* body;
} STAND_INS[] = {
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
    {"settings", R"sh([ "$1" != get ] || echo 1
)sh"},
    // A picture of one pixel, to the file named last or to standard output.
    {"screencap", R"sh(for file; do :; done
case ${file:--p} in -*) file=/dev/stdout ;; esac
printf '\211PNG\r\n\032\n\000\000\000\rIHDR\000\000\000\001\000\000\000\001\010\000\000\000\000:~\233U'\
'\000\000\000\nIDATx\234c`\000\000\000\002\000\001H\257\244q\000\000\000\000IEND\256B`\202' >"$file"
)sh"},
    {"debuggerd", R"sh(for pid; do :; done
echo "----- pid $pid at 2015-01-01 00:00:00 -----"
echo 'Cmd line: stand-in'
echo "----- end $pid -----"
)sh"},
    {"top", R"sh(echo '  PID PR CPU% S  #THR     VSS     RSS PCY UID      Name

  201  0   4% S    12  98304K  20480K  fg system   surfaceflinger
  305  0   3% S    78 917504K  81920K  fg system   system_server
  202  1   2% S     9  65536K  12288K  fg media    mediaserver
  410  0   1% S    31 851968K  61440K  bg radio    com.android.phone
    1  0   0% S     1    948K    704K  fg root     /init'
)sh"},
};

}  // namespace

void make_stand_ins() {
    for (const auto& row : STAND_INS) {
        const std::string name = row.name;
        write_file("/system/bin/" + name,
                   "#!/bin/sh\necho \"" + name + "${*:+ $*}\" 2>/dev/null >>/data/commands.log\n" + row.body,
                   0755);
    }
}

}  // namespace phone
