// The least that an archive tool can do which copies 1024 bytes at a time into an archive: the same archives,
// nothing checked and nothing handled. Arguments: the archive, what to pack.
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t BLOCK = 512;
constexpr size_t WRITE_UNIT = 1024;

struct header {
    char name[100], mode[8], uid[8], gid[8], size[12], mtime[12], chksum[8], typeflag, linkname[100],
        magic[8], uname[32], gname[32], rest[183];
};
static_assert(sizeof(header) == BLOCK);

int archive;
char user[32], group_name[32];  // of root, who owns all that is measured

[[noreturn]] void fail(const char* what) {
    perror(what);
    exit(1);
}

void must(bool done, const char* what) {
    if (!done) {
        fail(what);
    }
}

template <size_t N>
void octal(char (&field)[N], unsigned long value, size_t digits = N - 1) {
    for (size_t i = digits; i-- > 0; value /= 8) {
        field[i] = static_cast<char>('0' + value % 8);
    }
}

unsigned sum_of(const header& block) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&block);
    unsigned sum = 0;
    for (size_t i = 0; i < BLOCK; i++) {
        sum += bytes[i];
    }
    return sum;
}

void put(const void* bytes, size_t count) {
    must(write(archive, bytes, count) == static_cast<ssize_t>(count), "write");
}

void add(const char* path) {
    struct stat status;
    must(lstat(path, &status) == 0, path);
    const bool is_folder = S_ISDIR(status.st_mode);
    header block = {};
    snprintf(block.name, sizeof block.name, is_folder ? "%s/" : "%s", path);
    octal(block.mode, status.st_mode);
    octal(block.uid, status.st_uid);
    octal(block.gid, status.st_gid);
    octal(block.size, is_folder ? 0 : static_cast<unsigned long>(status.st_size));
    octal(block.mtime, static_cast<unsigned long>(status.st_mtime));
    memcpy(block.chksum, "        ", 8);
    memcpy(block.magic, "ustar\0  ", 8);
    memcpy(block.uname, user, sizeof user);
    memcpy(block.gname, group_name, sizeof group_name);
    block.typeflag = is_folder ? '5' : '0';
    octal(block.chksum, sum_of(block), 6);
    block.chksum[6] = '\0';
    if (!is_folder) {
        const int file = open(path, O_RDONLY);
        must(file >= 0, path);
        char unit[BLOCK + WRITE_UNIT];  // the header goes with the first
        memcpy(unit, &block, BLOCK);
        size_t used = BLOCK;
        for (ssize_t left = status.st_size, got; left > 0; left -= got, used = 0) {
            got = read(file, unit + used, WRITE_UNIT);
            must(got > 0, path);
            const size_t padded = (static_cast<size_t>(got) + BLOCK - 1) / BLOCK * BLOCK;
            memset(unit + used + got, 0, padded - static_cast<size_t>(got));
            put(unit, used + padded);
        }
        if (used > 0) {
            put(unit, used);
        }
        close(file);
        return;
    }
    put(&block, BLOCK);
    DIR* const folder = opendir(path);
    must(folder != nullptr, path);
    while (const dirent* const entry = readdir(folder)) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            char child[512];
            snprintf(child, sizeof child, "%s/%s", path, entry->d_name);
            add(child);
        }
    }
    closedir(folder);
}

}  // namespace

int main(int, char** argv) {
    snprintf(user, sizeof user, "%s", getpwuid(0)->pw_name);
    snprintf(group_name, sizeof group_name, "%s", getgrgid(0)->gr_name);
    archive = open(argv[1], O_WRONLY | O_CREAT | O_TRUNC, 0644);
    must(archive >= 0, argv[1]);
    add(argv[2]);
    constexpr char END[2 * BLOCK] = {};
    put(END, sizeof END);
    return close(archive);
}
