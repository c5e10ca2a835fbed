// The least that makes a report on a commercial build: the writes and the flushes that it takes and the list
// of processes that stands in its head. Arguments: the folder, the number of reports, the bytes of a text.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

constexpr int RECORD_SIZE_LIMIT = 512 * 1024, RECORD_FILES = 4;

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 1;
    }
    const std::string folder = argv[1], text(strtoul(argv[3], nullptr, 10), 'x');
    int file = -1;
    for (int i = 0, index = 0; i < atoi(argv[2]); ++i) {
        if (file < 0 || lseek(file, 0, SEEK_CUR) >= RECORD_SIZE_LIMIT) {
            close(file);
            const std::string path = folder + "/record_" + std::to_string(index++ % RECORD_FILES);
            file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        }
        const time_t now = time(nullptr);
        tm when;
        localtime_r(&now, &when);
        char head[256];
        const int length = snprintf(
            head, sizeof head,
            "\n========Device Bugreport========\n[Date]:%4d-%02d-%02d\n[Time]:%02d:%02d:%02d\n[Device]:unit\n"
            "[Error no]:20000\n[Runing_test_switch]:on\n[Temperature]:null\n[Process]:\n",
            when.tm_year + 1900, when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
        bool done = write(file, head, static_cast<size_t>(length)) == length;
        FILE* const top = popen("top -m 5 -n 1", "r");
        char line[256];
        while (fgets(line, sizeof line, top) != nullptr) {
            done = done && (line[0] == '\n' || write(file, line, strlen(line)) > 0);
        }
        done = pclose(top) == 0 && done && write(file, "[Content]:\n", 11) == 11 && fsync(file) == 0 &&
               write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(file) == 0;
        if (!done) {
            perror(folder.c_str());
            return 1;
        }
    }
    return 0;
}
