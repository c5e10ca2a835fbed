// The archive tool's command, called with the words of a command line.
#include "tar/tar_main.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/log.h"
#include "platform/owned.h"
#include "tar/tar_reader.h"
#include "tar/tar_writer.h"

namespace {

constexpr int ERROR_TOO_FEW_WORDS = -22;

// The words that come before any operand: the command and the letters.
constexpr int FIRST_OPERAND = 2;

// Opens an archive to read. The standard input stays open for the process: a file that is opened later would
// get its number. A FIFO is not waited for: without a writer it is an empty archive.
UniqueFd open_archive(const char* name) {
    if (strcmp(name, "-") == 0) {
        return UniqueFd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    }
    UniqueFd archive(open(name, O_RDONLY | O_LARGEFILE | O_NONBLOCK | O_CLOEXEC));
    if (archive.valid() && fcntl(archive.get(), F_SETFL, 0) != 0) {
        archive.reset();
    }
    return archive;
}

}  // namespace

int dmd_tar_main(int argc, char** argv) {
    if (argc <= FIRST_OPERAND) {
        LOG_M("arg count less than expected!");
        return ERROR_TOO_FEW_WORDS;
    }
    const char* archive_name = "-";
    int first_operand = FIRST_OPERAND;
    bool create = false;
    bool extract = false;
    // The group may begin with "-", which is as much without effect as any other letter.
    for (const char* letter = argv[1]; *letter != '\0'; letter++) {
        switch (*letter) {
            case 'c':
                if (extract) {
                    return -1;
                }
                create = true;
                break;
            case 'x':
                if (create) {
                    return -1;
                }
                extract = true;
                break;
            case 'f':
                if (archive_name[0] != '-') {
                    LOG_M("Only one 'f' option allowed");
                }
                archive_name = argv[2];
                first_operand++;
                break;
            default:
                break;
        }
    }
    // More 'f' letters than words leave no operand.
    char* no_operands[] = {nullptr};
    char** const operands = first_operand < argc ? argv + first_operand : no_operands;
    if (create) {
        return write_tar_file(archive_name, operands);
    }
    if (!extract) {
        return -1;
    }
    const UniqueFd archive = open_archive(archive_name);
    if (!archive.valid()) {
        LOG_M("Error opening '%s', error info:%s.\n", archive_name, strerror(errno));
        return -1;
    }
    return read_tar_file(archive.get(), 1, *operands != nullptr ? operands : nullptr);
}
