// The daemon under faults: killed, its waits interrupted, short of room or descriptors, its directory or its
// commands taken away. What is once written stays, and the report after the fault is whole.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "output/output_dir.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"
#include "tests/report_steps.h"
#include "tests/sanitized.h"

namespace {

// Whether every error has been reported to the end.
bool is_idle(const DaemonProcess& dmd) {
    const bool none_pending = phone_do({"pending", "dsm_ext4"}) == "0";
    const std::string log = dmd.log();
    return none_pending && count_of(log, "Enter select\n") == count_of(log, ") reported\n") + 1;
}

// Signals that are ignored by default, and stopping, can end a wait all the same.
bool disturb(pid_t pid) {
    const std::string tasks = "/.phone/proc/" + std::to_string(pid) + "/task/";
    for (const int number : {SIGCHLD, SIGURG, SIGWINCH, SIGSTOP, SIGCONT}) {
        for (const std::string& thread : names_in(tasks)) {
            const int command = atoi(read_file(tasks + thread + "/children").c_str());
            syscall(SYS_tgkill, pid, atoi(thread.c_str()), number);
            kill(command > 0 ? command : pid, number);
        }
    }
    kill(pid, SIGSTOP);
    waitpid(pid, nullptr, WUNTRACED);
    return kill(pid, SIGCONT) == 0;
}

}  // namespace

TEST(Faults, KilledAtAnyMomentTheDaemonLosesNoMoreThanTheReportInHand) {
    const int first = 10000, last = first + (SANITIZED ? 22 : 250), old_archives = 10 + (last - first) / 2;
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1));  // the commands that a killed daemon leaves come here
    ASSERT_EQ(0, mkdir_parent());
    for (int i = 0; i < old_archives; ++i) {
        make_output_files({{"dmd_dump_" + std::to_string(20000 + i) + "_000000.tar.gz", 1 << 20, 100 + i}});
    }
    std::string triggers = "num_triggers 300\n";
    for (int number = first; number <= last; ++number) {
        triggers += trigger(number, "dsm_ext4+0");
    }
    write_file("/data/conf",
               section_text("listen", "dsm_ext4", triggers) + section_text("poll", "dsm_hall", ""));
    std::chrono::steady_clock::duration length{0};
    std::map<int, bool> found;
    int passes = 0;
    bool idle = true;  // when it was killed
    for (int number = first; number <= last; ++number) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", report " + std::to_string(number));
        DaemonProcess dmd({"-c", "/data/conf"});
        ASSERT_TRUE(dmd.wait_for_log("detect_thread start!") && wait_until([&] { return is_idle(dmd); }))
            << dmd.log();
        const std::map<int, bool> before = std::exchange(found, read_reports());
        EXPECT_TRUE(std::includes(found.begin(), found.end(), before.begin(), before.end())) << "one is lost";
        const int again = count_of(dmd.log(), ") reported"), count = static_cast<int>(found.size());
        const int newest = count > 0 ? found.rbegin()->first : first;
        EXPECT_TRUE(count == 0 || (found.begin()->first >= first && newest < number));
        const bool whole = found.count(number - 1) > 0 && found[number - 1];
        EXPECT_TRUE(number == first || !(idle || again > 0) || whole) << "it was not in hand";
        int gone = old_archives, total_kib = 0;
        for (const std::string& name : names_in(LOG_DIR)) {
            const bool archive = name.find(".gz") != std::string::npos;
            struct stat status = {};  // a command of the killed daemon may remove it now
            lstat((LOGS + name).c_str(), &status);
            total_kib += archive ? static_cast<int>(status.st_size / 1024) : 0;
            gone -= archive && name.find("dmd_dump_2") == 0 ? 1 : 0;
            EXPECT_TRUE(archive || name.find("dmd_dump_") != 0 || atoi(name.c_str() + 9) >= newest) << name;
        }
        EXPECT_LE(gone, passes + again);
        EXPECT_TRUE(gone >= count || total_kib < 11 * 1024) << gone << " of " << count;
        const auto begin = std::chrono::steady_clock::now();
        report_error("dsm_ext4", number, text_of(number));
        if (const bool disturbed = number % 10 == 5; disturbed || number % 10 == 0) {
            ASSERT_TRUE(wait_until([&] { return (!disturbed || disturb(dmd.pid())) && is_idle(dmd); }));
            length = disturbed ? length : std::chrono::steady_clock::now() - begin;
            EXPECT_LE(5U, names_in("/.phone/proc/" + std::to_string(dmd.pid()) + "/task").size());
        } else {
            std::this_thread::sleep_for(length * (random() % 1000) / 1000);
        }
        kill(dmd.pid(), SIGKILL);
        dmd.wait_for_exit();
        idle = is_idle(dmd);
        passes += count_of(dmd.log(), ") reported");
        const bool end_commands = number % 2 == 0;
        do {
            std::istringstream left(read_file("/.phone/proc/thread-self/children"));
            for (pid_t child; end_commands && left >> child;) {
                kill(child, SIGKILL);
            }
        } while (waitpid(-1, nullptr, end_commands ? 0 : WNOHANG) > 0);
    }
}

class FaultsOn : public testing::TestWithParam<bool> {};

// Reports with ever more of something left, from nothing on until one is whole; after each, one with plenty.
TEST_P(FaultsOn, ShortOfRoomOrDescriptorsAtAnyStep) {
    const bool commercial = GetParam();
    set_commercial(commercial);
    ASSERT_EQ(0, mkdir("/data/kvdx_logs", 0755));
    ASSERT_EQ(0, mount("none", "/data/kvdx_logs", "tmpfs", 0, "size=1m"));
    report(10000);
    const std::string before = read_file(RECORD), kept = "cd " + LOGS + "; cksum dmd_dump_1* || :";
    const std::string archive = output_of(kept);
    while (open("/dev/null", O_RDONLY | O_CLOEXEC) < 63) {
    }
    const int descriptors = open_descriptors("self");
    int number = 20000;
    const std::set<std::string> none;
    bool commercial_record_failed = false;
    const auto sweep = [&](auto leave_only, auto give_back) {
        std::set<std::string> failed = {"none yet"};
        for (int left = 0; !failed.empty(); ++left) {
            SCOPED_TRACE(left);
            ASSERT_LT(left, 100);
            output_of("cd " + LOGS + " && rm -f dmd_dump_2* apr_info.txt");
            ASSERT_EQ(0, truncate(RECORD, static_cast<off_t>(before.size())));
            leave_only(left);
            const LogCapture log;
            report(++number);
            give_back();
            const int messages = static_cast<int>(log.lines().size());
            failed = failed_steps(number, commercial);
            EXPECT_TRUE(left > 0 || failed.count("record") == 1) << "nothing fits into nothing";
            const int routine = log.count("cmd_line:") + log.count("dmd_tar_cmd:") +
                                log.count("Removing leading") + log.count("file /data/android_logs/");
            // Nobody is told of a commercial record that could not be written.
            const size_t untold = failed.count("commercial record");
            EXPECT_GE(messages - routine, static_cast<int>(failed.size() - untold));
            commercial_record_failed |= untold > 0;
            EXPECT_EQ(before, read_file(RECORD).substr(0, before.size()));
            EXPECT_EQ(archive, output_of(kept));
            report(++number);
            EXPECT_EQ(none, failed_steps(number, commercial));
            EXPECT_EQ(descriptors, open_descriptors("self"));
        }
    };
    sweep(
        [](int pages) {
            output_of("cd /data/kvdx_logs; fallocate -l $((($(stat -fc %a .) - " + std::to_string(pages) +
                      ") * $(stat -fc %S .))) filler");
        },
        [] { ASSERT_EQ(0, unlink("/data/kvdx_logs/filler")); });
    EXPECT_EQ(commercial, commercial_record_failed) << "a cut one is not announced";
    rlimit limit;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    rlimit few = limit;
    sweep(
        [&few](int left) {
            few.rlim_cur = 64 + static_cast<rlim_t>(left);
            setrlimit(RLIMIT_NOFILE, &few);
        },
        [&limit] { setrlimit(RLIMIT_NOFILE, &limit); });
}

// What goes wrong on a phone for a while.
struct trouble {
    std::string breaks;   // shell commands, run in the output directory
    int written;          // of two reports meanwhile
    std::string message;  // of theirs
    std::string mends;
};

// Two reports while something is broken, and a whole one when it is mended.
void expect_to_survive(const std::vector<trouble>& troubles, bool commercial) {
    static int number = 20000;
    set_commercial(commercial);
    report(++number);
    const int descriptors = open_descriptors("self");
    for (const trouble& t : troubles) {
        SCOPED_TRACE(t.breaks);
        output_of("cd " + LOGS + "; touch dmd_dump_00001_000000.tar; " + t.breaks);
        const LogCapture log;
        int written = 0;
        for (int i = 0; i < 2; ++i) {
            report(++number);
            written += count_of(read_file(RECORD), "[Content]:\n" + text_of(number));
        }
        EXPECT_EQ(t.written, written);
        EXPECT_TRUE(log.has(t.message)) << t.message;
        output_of("PATH=/bin:/usr/bin; " + t.mends);
        report(++number);
        EXPECT_EQ(std::set<std::string>{}, failed_steps(number, commercial));
        EXPECT_FALSE(exists(LOGS + "dmd_dump_00001_000000.tar")) << "the next report removes it";
        EXPECT_EQ(descriptors, open_descriptors("self"));
    }
}

TEST_P(FaultsOn, WithoutItsDirectoryOrFiles) {
    const std::string dir = LOG_DIR;
    expect_to_survive(
        {
            {"rm -r " + dir, 1, "dmd_record_0.txt's information failed", "true"},
            {"rm -r " + dir + "; touch " + dir, 0, "unable to open " + dir + " -Not a directory",
             "rm " + dir},
            {"mount -B . .; mount -o remount,bind,ro " + dir, 2, "Read-only file system", "umount " + dir},
            {"cp -p dmd_record_0.txt x; mv x dmd_record_0.txt", 2, "dmd_record_0.txt is another file now",
             "true"},
            {"rm apr_info.txt; mkfifo apr_info.txt", 2,
             "apr_info.txt is not a plain file of this daemon - removed", "true"},
        },
        GetParam());
}

TEST_P(FaultsOn, WithCommandsThatFailOrHang) {
    const bool commercial = GetParam();
    const std::string mends = "cd /system/bin; rm -f gzip rm; cp -p /data/top .";
    const auto replace = [](const std::string& command, const std::string& script) {
        const std::string file = "/system/bin/" + command;
        return "printf '#!/bin/sh\\n" + script + "' >" + file + "; chmod 755 " + file;
    };
    std::vector<trouble> troubles = {
        {replace("top", "touch /data/hangs; exec yes"), 2, "ended after 10 seconds: top", mends}};
    for (const std::string command : {"top", "rm", "gzip"}) {
        const bool runs = command != "gzip" || !commercial;
        const std::string seconds = command == "top" ? "10" : "300";
        troubles.push_back({replace(command, "sleep 1000 & exit 1"), 2, "", mends});
        troubles.push_back({replace(command, "kill -9 $$"), 2, "", mends});
        troubles.push_back({replace(command, "touch /data/hangs; sleep 1000"), 2,
                            runs ? "ended after " + seconds + " seconds: " + command : "", mends});
    }
    output_of("cp -p /system/bin/top /data");
    expect_to_survive(troubles, commercial);
}

TEST_P(FaultsOn, WithoutAnyCommand) {
    set_commercial(GetParam());
    setenv("PATH", "/nowhere", 1);
    report(20000);
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Content]:\n" + text_of(20000)));
}

INSTANTIATE_TEST_SUITE_P(Commercial, FaultsOn, testing::Bool(), testing::PrintToStringParamName());
