// Composing and writing the head of a bug report.
#include "output/bug_head.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "output/output_dir.h"
#include "output/shell_command.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr size_t HEAD_SIZE = 256;  // bytes; what does not fit is cut off

// Also accepted as a record; the daemon does not use it.
constexpr unsigned int HEAD_OTHER_RECORD = 0x40000;

constexpr char PROCESS_COMMAND[] = "top -m 5 -n 1";

// Short: the driver's text, already read, waits to be written.
constexpr int PROCESS_LIMIT_SECONDS = 10;

}  // namespace

void process_stat_write(int fd, const char* path) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        LOG_M("process stat write failed, ignored...\n");
        return;
    }
    UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);
    // The pipe has room for far more than such a list. A command that prints even more blocks until its
    // limit, and its list is cut.
    const int status = run_command(PROCESS_COMMAND, PROCESS_LIMIT_SECONDS, write_end.get());
    write_end.reset();
    // A process that left the command's group may hold the other end open.
    fcntl(read_end.get(), F_SETFL, O_NONBLOCK);
    const UniqueFile list(status >= 0 ? fdopen(read_end.get(), "r") : nullptr);
    if (list == nullptr) {
        LOG_M("process stat write failed, ignored...\n");
        return;
    }
    read_end.release();
    int total = 0;
    bool is_cut = false;
    char piece[HEAD_SIZE];
    while (!is_cut && fgets(piece, sizeof piece, list.get()) != nullptr) {
        if (piece[0] == '\n') {
            continue;
        }
        LOG_D("[fgets] %s", piece);
        const int length = static_cast<int>(strlen(piece));
        is_cut = write_fully(fd, piece, length) != length;
        total += is_cut ? 0 : length;
    }
    // An end that somebody else holds open gives EAGAIN after the whole list.
    if (is_cut || (ferror(list.get()) != 0 && errno != EAGAIN)) {
        tell_lost(path, "the list of processes");
    }
    LOG_D("process stat total %dbytes\n", total);
}

int bug_head_write(int fd, const dmd_error_info* info, unsigned int kind, const char* path) {
    LOG_D("device name:%s, error_no:%d\n", info->device_name, info->error_no);
    const tm when = local_time(info->time);
    char head[HEAD_SIZE];
    copy_text(head, HEAD_TITLE);
    append_text(head, sizeof head, "%s%4d-%02d-%02d\n", HEAD_DATE, when.tm_year + 1900, when.tm_mon + 1,
                when.tm_mday);
    append_text(head, sizeof head, "%s%02d:%02d:%02d\n", HEAD_TIME, when.tm_hour, when.tm_min, when.tm_sec);
    append_text(head, sizeof head, "%s%s\n", HEAD_DEVICE, info->device_name);
    append_text(head, sizeof head, "%s%02d\n", HEAD_ERROR_NO, info->error_no);
    append_text(head, sizeof head, "%s%.4s\n", HEAD_TEST_SWITCH, info->running_test_switch);
    constexpr char PART[] = "the head of a report";
    int length = static_cast<int>(strlen(head));
    int written = 0;
    switch (kind & 0xffff) {
        case HEAD_SHORT:
            written = write_part(fd, path, PART, head, length);
            break;
        case HEAD_FULL:
            length = static_cast<int>(append_text(head, sizeof head, "%s", HEAD_PROCESSES));
            written = write_part(fd, path, PART, head, length);
            process_stat_write(fd, path);
            break;
        default:
            break;
    }
    int needed = length;
    switch (kind & ~0xffffU) {
        case HEAD_COMMERCIAL_RECORD:
        case HEAD_ROLLING_RECORD:
        case HEAD_OTHER_RECORD:
            needed = static_cast<int>(strlen(HEAD_CONTENT));
            written += write_part(fd, path, "\"[Content]:\"", HEAD_CONTENT, needed);
            break;
        default:
            break;
    }
    LOG_D("bughead need write %dbytes, actual write %dbytes\n", needed, written);
    sync_file(fd, path);
    return 0;
}
