// The road of one error, with the daemon that ships: from a driver's report to a bug report on disk.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>

#include "tests/bring_up.h"
#include "tests/sanitized.h"

namespace {

std::string process_path(const DaemonProcess& dmd, const std::string& name) {
    return "/.phone/proc/" + std::to_string(dmd.pid()) + "/" + name;
}

// Times that the process's threads went to sleep or were taken off a processor.
std::string context_switches(const DaemonProcess& dmd) {
    std::string counts;
    for (const std::string& task : names_in(process_path(dmd, "task"))) {
        const std::string status = read_file(process_path(dmd, "task/" + task + "/status"));
        counts += status.substr(status.find("voluntary_ctxt_switches"));
    }
    return counts;
}

// Whether the main thread sleeps in pause and every other one until it has something to do.
bool all_threads_wait(const DaemonProcess& dmd) {
    for (const std::string& task : names_in(process_path(dmd, "task"))) {
        const std::string where = read_file(process_path(dmd, "task/" + task + "/wchan"));
        const char* const waits[] = {"pause", "select", "poll", "futex", "nanosleep"};
        if (std::none_of(std::begin(waits), std::end(waits),
                         [&](const char* wait) { return where.find(wait) != std::string::npos; })) {
            return false;
        }
    }
    return true;
}

}  // namespace

TEST(Road, DebugBuildLeavesRecordArchiveAndUpload) {
    output_of("mkdir /data/android_logs; echo kernel >/data/android_logs/kmsgcat-log");
    const DaemonProcess dmd({});
    ASSERT_TRUE(dmd.wait_for_log("Enter select"));
    report_error("dsm_tp", 20002, "touch controller does not answer\n");
    ASSERT_TRUE(dmd.wait_for_log("Enter select", 2));
    const std::string record = read_file(RECORD);
    EXPECT_EQ(1, count_of(record, "========Device Bugreport========\n"));
    EXPECT_EQ(
        1, count_of(record, "\n[Error no]:20002\n[Runing_test_switch]:on\n[Temperature]:null\n[Process]:\n"));
    EXPECT_EQ(record.size(), record.find("[Content]:\ntouch controller does not answer\n") + 11 + 33);

    std::string archive;
    for (const std::string& name : names_in(LOG_DIR)) {
        if (name.find("dmd_dump_20002_") == 0) {
            archive = std::string(LOG_DIR) + "/" + name;
        }
    }
    ASSERT_EQ(".tar.gz", archive.substr(archive.size() - 7));
    EXPECT_EQ("data/kvdx_logs/dmd_log/dmd_record_0.txt\ndata/android_logs/kmsgcat-log\n",
              output_of("tar -tzf " + archive));
    EXPECT_EQ(record + "kernel\n", output_of("tar -xzOf " + archive));
    EXPECT_NE(std::string::npos, read_file("/data/kvdx_logs/dmd_log/apr_info.txt").find("error_no\t20002\n"));
    EXPECT_NE(std::string::npos, read_file("/dev/log/exception").find("-i " + archive + " -d "));
}

TEST(Road, NoCommandInheritsADescriptor) {
    const DaemonProcess dmd({});
    ASSERT_TRUE(dmd.wait_for_log("dmd_key_event_detect_thread start!"));
    const UniqueFd connection = connect_to_commands();
    ASSERT_TRUE(send_bytes(connection, command_message("dsm_tp", 0, 1)));
    ASSERT_TRUE(dmd.wait_for_log("cmd_line:archive -i "));
    const std::vector<std::string> descriptors = names_in(process_path(dmd, "fdinfo"));
    EXPECT_LT(50U, descriptors.size());
    for (const std::string& fd : descriptors) {
        const std::string info = read_file(process_path(dmd, "fdinfo/" + fd));
        if (info.empty()) {
            continue;  // closed meanwhile
        }
        const long flags = strtol(info.c_str() + info.find("flags:") + 6, nullptr, 8);
        EXPECT_TRUE((flags & O_CLOEXEC) != 0 || fd == "0" || fd == "1" || fd == "2") << fd << "\n" << info;
    }
}

TEST(Road, TheIdleDaemonMakesNoSystemCall) {
    if (SANITIZED) {
        GTEST_SKIP() << "a sanitizer's own threads wake up by themselves";
    }
    set_commercial(false);
    write_file("/data/one.conf",
               "[touch]\nalgo_type listen\nclient_name dsm_tp\nnum_triggers 1\nerror_no 20002\n"
               "running_test_switch on\naction dsm_tp+0\n");
    const DaemonProcess dmd({"-d", "-c", "/data/one.conf"});
    ASSERT_TRUE(dmd.wait_for_log("dmd_key_event_detect_thread start!"));
    for (int errors = 1; errors <= 3; ++errors) {
        ASSERT_TRUE(dmd.wait_for_log("Enter select", errors));
        // A thread that makes a system call of its own accord goes to sleep again: its switches are counted.
        std::string before;
        ASSERT_TRUE(wait_until([&] {
            before = context_switches(dmd);
            return all_threads_wait(dmd) && before == context_switches(dmd);
        }));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_EQ(before, context_switches(dmd));
        report_error("dsm_tp", 20002, "wake up");
    }
    EXPECT_EQ(0, count_of(dmd.log(), "[D/poll_server] enter sleep")) << "nothing is polled";
}
