// The power is cut right after a report. What ext4 had on its disk by then is all that there is.
#include <sys/mount.h>

#include "output/record.h"
#include "tests/bring_up.h"

namespace {

const std::string DUMP = "dmd_log/dmd_dump_20834_101112.tar.gz";

// A file that is a disk, mounted without a commit of its own in the next minutes.
std::string mounting(const std::string& disk, const std::string& folder) {
    return "mkdir -p " + folder + " && mount -o loop,commit=600 " + disk + " " + folder + " 2>/dev/null; ";
}

}  // namespace

TEST(PowerCut, LeavesEachReportThatWasAnnounced) {
    setenv("TZ", "UTC", 1);
    // The devices that make a disk of a file; a phone has none for whoever is not root on the machine.
    const std::string devices =
        "mount -o remount,dev / && mknod /dev/loop-control c 10 237 && "
        "for i in 0 1 2 3 4 5 6 7; do mknod /dev/loop$i b 7 $i; done && ";
    const std::string disk = "truncate -s 16M /data/disk && /sbin/mkfs.ext4 -q /data/disk && ";
    if (system((devices + disk + mounting("/data/disk", "/data/kvdx_logs") + "mountpoint -q /data/kvdx_logs")
                   .c_str()) != 0) {
        GTEST_SKIP() << "no loop devices here";
    }
    set_commercial(false);
    dmd_error_info info = make_error_info(20834, 1433153472);
    ASSERT_EQ(0, dmd_direct_output("text", 4, &info, nullptr, DMD_OUTPUT_FULL));
    ASSERT_EQ(1, count_of(read_file("/dev/log/exception"), DUMP));
    output_of("cp /data/disk /data/disk_after; " + mounting("/data/disk_after", "/data/after"));
    EXPECT_EQ(read_file(RECORD), read_file("/data/after/dmd_log/dmd_record_0.txt"));
    EXPECT_EQ(1, count_of(output_of("tar -xzOf /data/after/" + DUMP), "[Content]:\ntext"));
}
