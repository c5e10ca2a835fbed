#include "tests/phone_test.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "emulator/control_client.h"
#include "platform/owned.h"
#include "platform/properties.h"
#include "platform/text.h"
#include "tests/log_capture.h"

namespace {

constexpr char DAEMON_LOG[] = "/tmp/dmd.log";

}  // namespace

std::string phone_do(const std::vector<std::string>& words) {
    std::string answer;
    EXPECT_TRUE(phone::request("", words, &answer)) << words[0] << ": " << answer;
    return answer;
}

void report_error(const std::string& client, int error_no, const std::string& text) {
    phone_do({"report", client, std::to_string(error_no), text});
}

void write_file(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    ASSERT_TRUE(file.good()) << path;
}

std::string read_file(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

struct stat status_of(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status;
}

mode_t mode_of(const std::string& path) {
    return status_of(path).st_mode & 07777;
}

void set_file_time(const std::string& path, time_t seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0)) << path;
}

std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    const UniqueDir dir(opendir(directory.c_str()));
    while (const dirent* const entry = dir ? readdir(dir.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void make_sparse_file(const std::string& path, off_t size) {
    write_file(path, "");
    ASSERT_EQ(0, truncate(path.c_str(), size)) << path;
}

void replace_command(const std::string& name, const std::string& script) {
    const std::string path = "/system/bin/" + name;
    write_file(path, "#!/bin/sh\n" + script + "\n");
    ASSERT_EQ(0, chmod(path.c_str(), 0755));
}

std::string record_path(int index) {
    return std::string(LOG_DIR) + "/dmd_record_" + std::to_string(index) + ".txt";
}

void make_output_files(const std::vector<output_file>& files) {
    for (const output_file& file : files) {
        const std::string path = std::string(LOG_DIR) + "/" + file.name;
        make_sparse_file(path, file.size);
        set_file_time(path, file.time, file.nanoseconds);
    }
}

std::vector<char*> pointers_to(std::vector<std::string>* words) {
    std::vector<char*> pointers;
    for (std::string& word : *words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

int count_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

std::string output_of(const std::string& command) {
    std::string output;
    FILE* const stream = popen(command.c_str(), "r");
    char piece[4096];
    for (size_t got; (got = fread(piece, 1, sizeof piece, stream)) > 0;) {
        output.append(piece, got);
    }
    EXPECT_EQ(0, pclose(stream)) << command;
    return output;
}

bool wait_until_true(bool (*holds)(void*), void* context) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(PATIENCE_MS);
    while (!holds(context)) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::string listing_of(const std::string& directory) {
    return output_of("cd " + directory +
                     R"( && find . -type l -printf '%p %y %U %G %l\n' -o -printf '%p %y %U %G %m %Ts %n\n')"
                     " | sort && find . -type f -exec cksum {} + | sort");
}

int open_descriptors(const std::string& process) {
    return static_cast<int>(names_in("/.phone/proc/" + process + "/fd").size());
}

void set_commercial(bool commercial) {
    ASSERT_EQ(0, property_set("persist.sys.qelvan.debug.on", commercial ? "0" : "1"));
}

dmd_error_info make_error_info(int error_no, int32_t time) {
    dmd_error_info info = {};
    copy_text(info.device_name, "tpdev");
    copy_field(info.ic_name, "syn");
    copy_field(info.module_name, "ofl");
    copy_field(info.running_test_switch, "on");
    info.time = time;
    info.error_no = error_no;
    return info;
}

DaemonProcess::DaemonProcess(const std::vector<std::string>& arguments, const std::string& redirections) {
    char self[4096] = {};
    EXPECT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    std::string path = self;
    path.replace(path.rfind('/'), std::string::npos, "/dmd");
    std::vector<std::string> words = {"sh", "-c", "exec \"$0\" \"$@\" " + redirections, path};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const std::vector<char*> argv = pointers_to(&words);
    write_file(DAEMON_LOG, "");  // nobody may take an earlier daemon's messages for this one's
    pid_ = fork();
    if (pid_ == 0) {
        const int input = open("/dev/zero", O_RDONLY);
        const int log = open(DAEMON_LOG, O_WRONLY | O_APPEND);
        dup2(input, STDIN_FILENO);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        closefrom(STDERR_FILENO + 1);
        // A leak check at the daemon's exit looks its threads up there.
        const std::string number = std::to_string(getpid());
        (void)!symlink(("/.phone/proc/" + number).c_str(), ("/proc/" + number).c_str());
        execv("/bin/sh", argv.data());
        _exit(127);
    }
}

DaemonProcess::~DaemonProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        wait_for_exit();
    }
}

std::string DaemonProcess::log() const {
    return read_file(DAEMON_LOG);
}

bool DaemonProcess::wait_for_log(const std::string& part, int times) const {
    return wait_until([&] { return count_of(log(), part) >= times; });
}

int DaemonProcess::wait_for_exit() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
