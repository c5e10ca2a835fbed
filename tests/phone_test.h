// What the tests share: playing the drivers' part, and looking at what the daemon left on the phone.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "clients/client.h"
#include "output/error_info.h"

constexpr char LOG_DIR[] = "/data/kvdx_logs/dmd_log";

// Sends a request to the phone that the test runs in; the test fails when the phone refuses. Returns the
// answer.
std::string phone_do(const std::vector<std::string>& words);

// A driver reports an error.
void report_error(const std::string& client, int error_no, const std::string& text);

void write_file(const std::string& path, const std::string& content);
// The whole file; the empty text when there is none.
std::string read_file(const std::string& path);
bool exists(const std::string& path);
struct stat status_of(const std::string& path);
// The permission bits of what is there, no link followed.
mode_t mode_of(const std::string& path);
void set_file_time(const std::string& path, time_t seconds, long nanoseconds = 0);
// Names in a directory, sorted; none when there is no such directory.
std::vector<std::string> names_in(const std::string& directory);
// Creates a file that has the size but takes no room.
void make_sparse_file(const std::string& path, off_t size);

// Puts a shell script in the place of a command of the phone.
void replace_command(const std::string& name, const std::string& script);

// The path of a record file, numbered from 0.
std::string record_path(int index);

// Files of the output directory: their names, sizes in bytes and modification times.
struct output_file {
    std::string name;
    off_t size;
    time_t time;
    long nanoseconds = 0;
};
void make_output_files(const std::vector<output_file>& files);

// Pointers to the words, a null behind them. The words stay the caller's.
std::vector<char*> pointers_to(std::vector<std::string>* words);

// The number of places where `part` stands in `text`.
int count_of(const std::string& text, const std::string& part);

// Runs a shell command and returns what it printed on standard output; the test fails when its status is not
// 0.
std::string output_of(const std::string& command);

// Names, types, owners and modes of everything in a directory, its links' targets, and all else's times,
// numbers of names and contents.
std::string listing_of(const std::string& directory);

// Waits until the condition holds, at most PATIENCE_MS. Returns whether it did.
template <typename Condition>
bool wait_until(Condition holds);

// Number of descriptors that a process ("self" or a number) has open.
int open_descriptors(const std::string& process);

// Marks the phone as a debug or a commercial build.
void set_commercial(bool commercial);

// A description of an error in the device "tpdev" with IC "syn" and module "ofl", switch "on".
dmd_error_info make_error_info(int error_no, int32_t time);

// A command of the phone, running in the background with its log in a file.
class DaemonProcess {
  public:
    // Starts build/dmd with the arguments and the shell's redirections.
    explicit DaemonProcess(const std::vector<std::string>& arguments, const std::string& redirections = "");
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    pid_t pid() const { return pid_; }
    std::string log() const;
    // Waits until the log holds `part` at least `times` times.
    bool wait_for_log(const std::string& part, int times = 1) const;
    // Waits for its end. Returns its exit status, or 128 and the signal that ended it.
    int wait_for_exit();

  private:
    pid_t pid_ = -1;
};

bool wait_until_true(bool (*holds)(void*), void* context);

template <typename Condition>
bool wait_until(Condition holds) {
    return wait_until_true([](void* context) { return (*static_cast<Condition*>(context))(); }, &holds);
}
