// User and group names from the phone's text files, and the directory part of a path.
#include "tar/lookup.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/io.h"
#include "platform/owned.h"

Mutex lookup_mutex;

namespace {

// Step in bytes in which lines are read and a group's line grows; a user's line never does.
constexpr int LINE_STEP = 256;

// Longest group line in bytes, line feed included.
constexpr int MAX_GROUP_LINE = INT16_MAX;

// The last line read. Serves one kind of entry; kept for the life of the process.
struct LineBuffer {
    char* text;  // allocated where it can grow, `size` bytes
    int size;
    int limit;  // of size
};

char user_line_text[LINE_STEP];
LineBuffer user_line = {user_line_text, LINE_STEP, LINE_STEP};
LineBuffer group_line = {nullptr, 0, MAX_GROUP_LINE};

passwd user_entry;
group group_entry;
char** group_members = nullptr;  // of the last group entry, allocated

bool resize(LineBuffer* line, int size) {
    if (size != line->size) {
        char* const resized = static_cast<char*>(realloc(line->text, size));
        if (resized == nullptr) {
            return false;
        }
        line->text = resized;
        line->size = size;
    }
    return true;
}

// Reads the next line that ends with a line feed, begins like an entry and fits; others are skipped. Returns
// its text, or null when there is none, on an error or without memory. The offset of `fd` then stands at the
// line after it.
char* next_line(int fd, LineBuffer* line) {
    int used = 0;
    bool fits = true;
    for (;;) {
        if (used == line->limit) {
            fits = false;  // only its end is looked for
            used = 0;
        }
        const int size = std::min(used + LINE_STEP, line->limit);
        if (!resize(line, size)) {
            return nullptr;
        }
        const int got = read_fully(fd, line->text + used, size - used);
        if (got <= 0) {
            return nullptr;
        }
        char* const feed = static_cast<char*>(memchr(line->text + used, '\n', got));
        used += got;
        if (feed == nullptr) {
            continue;
        }
        const auto beyond = static_cast<off_t>(line->text + used - (feed + 1));
        if (lseek(fd, -beyond, SEEK_CUR) < 0) {
            return nullptr;
        }
        *feed = '\0';
        if (fits && strchr("# \t", line->text[0]) == nullptr) {  // also finds the terminator of an empty line
            return line->text;
        }
        used = 0;
        fits = true;
    }
}

// Splits a line at its first N - 1 colons; the last field is the rest. False when it has fewer.
template <int N>
bool split_fields(char* line, char* (&fields)[N]) {
    for (int i = 0; i < N - 1; i++) {
        fields[i] = line;
        line = strchr(line, ':');
        if (line == nullptr) {
            return false;
        }
        *line++ = '\0';
    }
    fields[N - 1] = line;
    return true;
}

// Sets the field where this C library's record has it: that of old 32-bit phones does not.
template <typename User>
auto set_gecos(User* user, char* text) -> decltype(user->pw_gecos = text) {
    return user->pw_gecos = text;
}
template <typename User>
void set_gecos(User* /*user*/, ...) {}

// Reads an id: decimal digits and nothing else, in 32 bits. (strtoull alone would take blanks, signs and an
// empty field, which would name root.)
bool parse_id(const char* text, uint32_t* id) {
    const size_t digits = strspn(text, "0123456789");
    const unsigned long long value = strtoull(text, nullptr, 10);
    *id = static_cast<uint32_t>(value);
    return digits > 0 && text[digits] == '\0' && value <= UINT32_MAX;
}

// Splits a list at its commas into a newly allocated array that ends with null; null without memory.
char** split_members(char* list) {
    size_t count = 1;
    for (const char* at = list; *at != '\0'; at++) {
        count += *at == ',';
    }
    char** const members = static_cast<char**>(calloc(count + 1, sizeof(char*)));
    for (char** member = members; member != nullptr && *list != '\0'; member++) {
        *member = list;
        list += strcspn(list, ",");
        if (*list == ',') {
            *list++ = '\0';
        }
    }
    return members;
}

}  // namespace

struct passwd* __getpwent(int fd) {
    char* line;
    while ((line = next_line(fd, &user_line)) != nullptr) {
        char* fields[7];
        uint32_t uid;
        uint32_t gid;
        if (!split_fields(line, fields) || !parse_id(fields[3], &gid) || !parse_id(fields[2], &uid)) {
            continue;
        }
        user_entry.pw_name = fields[0];
        user_entry.pw_uid = uid;
        user_entry.pw_gid = gid;
        set_gecos(&user_entry, fields[4]);  // before pw_passwd: on newer 32-bit phones both are one
        user_entry.pw_passwd = fields[1];
        user_entry.pw_dir = fields[5];
        user_entry.pw_shell = fields[6];
        return &user_entry;
    }
    return nullptr;
}

struct group* read_group_entry(int fd) {
    char* line;
    while ((line = next_line(fd, &group_line)) != nullptr) {
        char* fields[4];
        uint32_t gid;
        if (!split_fields(line, fields) || !parse_id(fields[2], &gid)) {
            continue;
        }
        free(group_members);
        group_members = split_members(fields[3]);
        if (group_members == nullptr) {
            return nullptr;
        }
        group_entry.gr_name = fields[0];
        group_entry.gr_passwd = fields[1];
        group_entry.gr_gid = gid;
        group_entry.gr_mem = group_members;
        return &group_entry;
    }
    return nullptr;
}

struct passwd* getpwuid(uid_t uid) {
    const UniqueFd file(open("/etc/passwd", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    passwd* entry;
    do {
        entry = __getpwent(file.get());
    } while (entry != nullptr && entry->pw_uid != uid);
    return entry;
}

struct group* getgrgid(gid_t gid) {
    const UniqueFd file(open("/etc/group", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    group* entry;
    do {
        entry = read_group_entry(file.get());
    } while (entry != nullptr && entry->gr_gid != gid);
    return entry;
}

char* dirname(char* path) noexcept {
    static char here[] = ".";
    if (path == nullptr || *path == '\0') {
        return here;
    }
    char* last = path + strlen(path) - 1;
    while (last > path && *last == '/') {
        last--;
    }
    while (last > path && *last != '/') {
        last--;
    }
    if (*last != '/') {
        return here;
    }
    while (last > path && *last == '/') {
        last--;
    }
    last[1] = '\0';
    return path;
}
