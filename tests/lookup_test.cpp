// User and group lookup, and dirname.
#include "tar/lookup.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/owned.h"
#include "tests/phone_test.h"

namespace {

UniqueFd file_of(const std::string& text) {
    UniqueFd file(memfd_create("text", MFD_CLOEXEC));
    EXPECT_EQ(static_cast<ssize_t>(text.size()), write(file.get(), text.data(), text.size()));
    EXPECT_EQ(0, lseek(file.get(), 0, SEEK_SET));
    return file;
}

// Each entry in one line with "|" between its fields.
std::string users_in(const std::string& text) {
    const UniqueFd file = file_of(text);
    std::string users;
    while (const passwd* const user = __getpwent(file.get())) {
        users += std::string(user->pw_name) + "|" + user->pw_passwd + "|" + std::to_string(user->pw_uid) +
                 "|" + std::to_string(user->pw_gid) + "|" + user->pw_gecos + "|" + user->pw_dir + "|" +
                 user->pw_shell + "\n";
    }
    return users;
}

std::string groups_in(const std::string& text) {
    const UniqueFd file = file_of(text);
    std::string groups;
    while (const group* const entry = read_group_entry(file.get())) {
        groups +=
            std::string(entry->gr_name) + "|" + entry->gr_passwd + "|" + std::to_string(entry->gr_gid) + "|";
        for (char** member = entry->gr_mem; *member != nullptr; ++member) {
            groups += std::string("<") + *member + ">";
        }
        groups += "\n";
    }
    return groups;
}

struct TextCase {
    std::string text, entries;
};

// A line of `size` bytes, line feed included.
std::string line_of(const std::string& head, size_t size) {
    return head + std::string(size - head.size() - 1, 'z') + "\n";
}

}  // namespace

TEST(Lookup, ReadsUsers) {
    const std::string good = "ok:x:1:2:g:/d:/s\n";
    const std::string ok = "ok|x|1|2|g|/d|/s\n";
    const std::string zs = std::string(255 - 14, 'z');
    const TextCase cases[] = {
        {"", ""},
        {"shell:x:2000:2000::/:/system/bin/sh\n" + good, "shell|x|2000|2000||/|/system/bin/sh\n" + ok},
        {"a:x:1:1::/\nb:x:20x:1::/:s\nc:x:1:2 ::/:s\nd:x:-1:1::/:s\ne:x::1::/:s\n" + good, ok},
        {"big:x:4294967295:4294967295::/:s\nhuge:x:4294967296:1::/:s\nh:x:1:99999999999999999999::/:s\n",
         "big|x|4294967295|4294967295||/|s\n"},
        {"# c:x:1:1::/:s\n b:x:1:1::/:s\n\tt:x:1:1::/:s\n\n" + good, ok},
        {"m:x:1:1::/:/s:more:of it\n", "m|x|1|1||/|/s:more:of it\n"},
        {std::string("n\0:x:1:1::/:/s\n", 15) + good, ok},
        {line_of("fits:x:1:1::/:", 256) + good, "fits|x|1|1||/|" + zs + "\n" + ok},
        {line_of("long:x:1:1::/:", 257) + good, ok},
        {line_of("long:x:1:1::/:", 300) + good, ok},
        {line_of("long:x:1:1::/:", 512) + line_of("long:x:1:1::/:", 5000) + good, ok},
        {good + "last:x:1:1::/:s", ok},
        {good + line_of("last:x:1:1::/:", 300) + std::string(300, 'z'), ok},
    };
    for (const TextCase& c : cases) {
        EXPECT_EQ(c.entries, users_in(c.text)) << c.text;
    }
    const UniqueFd file = file_of(good + good);
    __getpwent(file.get());
    EXPECT_EQ(static_cast<off_t>(good.size()), lseek(file.get(), 0, SEEK_CUR));
    EXPECT_EQ(nullptr, __getpwent(-1));
}

TEST(Lookup, ReadsGroups) {
    std::string members = "first";
    while (members.size() < 1000) {
        members += ",member" + std::to_string(members.size());
    }
    const std::string long_line = "long:x:5:" + members + "\n";
    std::string split = "<" + members + ">";
    for (size_t at; (at = split.find(',')) != std::string::npos;) {
        split.replace(at, 1, "><");
    }
    const std::string ok = "ok|x|1|\n";
    const std::string widest = line_of("w:x:6:", 32767);
    const TextCase cases[] = {
        {"inet:x:3003:system,shell\nempty:x:1:\n", "inet|x|3003|<system><shell>\nempty|x|1|\n"},
        {"t:x:1:a,\nu:x:1:,a\nv:x:1:a,,b\nw:x:1:,\n", "t|x|1|<a>\nu|x|1|<><a>\nv|x|1|<a><><b>\nw|x|1|<>\n"},
        {"three:x:1\nbad:x:1x:a\nnone:x::a\n#c:x:1:\n ok:x:1:\n\nok:x:1:\n", ok},
        {long_line + "ok:x:1:\n" + long_line, "long|x|5|" + split + "\n" + ok + "long|x|5|" + split + "\n"},
        {widest + "ok:x:1:\n", "w|x|6|<" + std::string(32767 - 7, 'z') + ">\n" + ok},
        {line_of("over:x:6:", 32768) + "ok:x:1:\n" + line_of("over:x:6:", 100000) + "ok:x:1:\n", ok + ok},
        {"ok:x:1:\nlast:x:2:a", ok},
    };
    for (const TextCase& c : cases) {
        EXPECT_EQ(c.entries, groups_in(c.text)) << c.text.substr(0, 200);
    }
}

TEST(Lookup, FindsIdsInThePhonesFiles) {
    write_file("/etc/passwd",
               line_of("long:x:7:7::/:", 300) + "one:x:7:7::/:s\ntwo:x:7:7::/:s\nthree:x:8:8::/:s\n");
    write_file("/etc/group", "one:x:7:a,b\ntwo:x:7:\nthree:x:8:c\n");
    ASSERT_NE(nullptr, getpwuid(7));
    EXPECT_STREQ("one", getpwuid(7)->pw_name);
    EXPECT_STREQ("three", getpwuid(8)->pw_name);
    EXPECT_EQ(nullptr, getpwuid(9));
    ASSERT_NE(nullptr, getgrgid(7));
    EXPECT_STREQ("b", getgrgid(7)->gr_mem[1]);
    EXPECT_STREQ("c", getgrgid(8)->gr_mem[0]);
    EXPECT_EQ(nullptr, getgrgid(0));
    ASSERT_EQ(0, unlink("/etc/passwd"));
    ASSERT_EQ(0, unlink("/etc/group"));
    EXPECT_EQ(nullptr, getpwuid(7));
    EXPECT_EQ(nullptr, getgrgid(7));
}

TEST(Lookup, CutsThePathInPlace) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"a/b", "a"}, {"a/b/", "a"}, {"/a", "/"},       {"/", "/"},   {"a", "."},   {"", "."},
        {"a/", "."},  {"//", "/"},   {"//a//b", "//a"}, {"/a/", "/"}, {"a//", "."}, {"a//b//", "a"},
    };
    for (const auto& [path, expected] : cases) {
        std::string text = path;
        EXPECT_EQ(expected, dirname(text.data())) << path;
    }
}
