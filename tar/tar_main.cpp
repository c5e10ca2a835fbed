// The archive tool's command, called with the words of a command line.
#include "tar/tar_main.h"

#include "daemon/log.h"
#include "tar/tar_writer.h"

namespace {

constexpr int ERROR_TOO_FEW_WORDS = -22;

// The words that come before any operand: the command and the letters.
constexpr int FIRST_OPERAND = 2;

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
    if (create) {
        // More 'f' letters than words leave no operand.
        char* no_operands[] = {nullptr};
        return write_tar_file(archive_name, first_operand < argc ? argv + first_operand : no_operands);
    }
    return -1;  // nothing chosen, or 'x': this tool does not read archives yet
}
