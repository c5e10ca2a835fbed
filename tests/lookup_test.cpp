// Finding users and groups by their ids, which lines are entries, and dirname.
#include "tar/lookup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/owned.h"
#include "tests/phone_test.h"

namespace {

struct Line {
    const char* fault;
    std::string text;
};

// Faults that both kinds of lines can have.
const Line NO_ENTRIES[] = {{"empty", ""},
                           {"comment", "#a:x:1:1::/:s"},
                           {"blank", " a:x:1:1::/:s"},
                           {"tab", "\ta:x:1:1::/:s"},
                           {"one field", "a"},
                           {"id missing", "a:x::1::/:s"},
                           {"id with a letter", "a:x:1x:1::/:s"},
                           {"id in hexadecimal", "a:x:0x1:1::/:s"},
                           {"sign", "a:x:-1:1::/:s"},
                           {"blank before the id", "a:x: 1:1::/:s"},
                           {"id of 33 bits", "a:x:4294967296:1::/:s"},
                           {"id that wraps", "a:x:18446744073709551617:1::/:s"}};

const Line NO_USERS[] = {{"six fields", "a:x:1:1:g:/"},
                         {"group with a letter", "a:x:1:1x::/:s"},
                         {"256 characters", "a:x:1:1::/:" + std::string(245, 's')},
                         {"512 characters", "a:x:1:1::/:" + std::string(501, 's')},
                         {"5000 characters", "a:x:1:1::/:" + std::string(4989, 's')}};

const Line NO_GROUPS[] = {{"three fields", "a:x:1"},
                          {"32767 characters", "a:x:1:" + std::string(32761, 'm')},
                          {"100000 characters", "a:x:1:" + std::string(99994, 'm')}};

UniqueFd file_of(const std::string& text) {
    write_file("/data/lines", text);
    return UniqueFd(open("/data/lines", O_RDONLY | O_CLOEXEC));
}

std::vector<std::string> members_of(const std::string& list) {
    const group* const entry = read_group_entry(file_of("g:x:7:" + list + "\n").get());
    std::vector<std::string> members;
    for (char** member = entry->gr_mem; *member != nullptr; ++member) {
        members.emplace_back(*member);
    }
    return members;
}

}  // namespace

TEST(Lookup, FindsIdsInThePhonesFiles) {
    write_file("/etc/passwd", "one:x:7:7::/:s\ntwo:x:7:7::/:s\nthree:x:4294967295:8::/:s\nlast:x:9:9::/:s");
    write_file("/etc/group", "one:x:7:a,b\ntwo:x:7:\nthree:x:4294967295:c\nlast:x:9:");
    ASSERT_NE(nullptr, getpwuid(7));
    EXPECT_STREQ("one", getpwuid(7)->pw_name);
    EXPECT_STREQ("three", getpwuid(4294967295)->pw_name);
    EXPECT_EQ(nullptr, getpwuid(9)) << "the last line has no end";
    ASSERT_NE(nullptr, getgrgid(7));
    EXPECT_STREQ("one", getgrgid(7)->gr_name);
    EXPECT_STREQ("three", getgrgid(4294967295)->gr_name);
    EXPECT_EQ(nullptr, getgrgid(9)) << "the last line has no end";
    ASSERT_EQ(0, unlink("/etc/passwd"));
    ASSERT_EQ(0, unlink("/etc/group"));
    EXPECT_EQ(nullptr, getpwuid(7));
    EXPECT_EQ(nullptr, getgrgid(7));
}

TEST(Lookup, SkipsLinesThatAreNoUsers) {
    std::vector<Line> lines(std::begin(NO_ENTRIES), std::end(NO_ENTRIES));
    lines.insert(lines.end(), std::begin(NO_USERS), std::end(NO_USERS));
    for (const Line& line : lines) {
        SCOPED_TRACE(line.fault);
        const std::string up_to_next = line.text + "\nshell:x:2000:2001:g:/:/system/bin/sh:s\n";
        const UniqueFd file = file_of(up_to_next + "next:x:1:1::/:s\n");
        const passwd* const user = __getpwent(file.get());
        ASSERT_NE(nullptr, user);
        EXPECT_STREQ("shell", user->pw_name);
        EXPECT_EQ(2000U, user->pw_uid);
        EXPECT_EQ(2001U, user->pw_gid);
        EXPECT_STREQ("x", user->pw_passwd);
        EXPECT_STREQ("/", user->pw_dir);
        EXPECT_STREQ("/system/bin/sh:s", user->pw_shell);
        EXPECT_EQ(static_cast<off_t>(up_to_next.size()), lseek(file.get(), 0, SEEK_CUR));
    }
    EXPECT_EQ(nullptr, __getpwent(file_of(std::string(300, 'z')).get()));
    const std::string longest = "a:x:1:1::/:" + std::string(244, 's');
    ASSERT_NE(nullptr, __getpwent(file_of(longest + "\n").get())) << "255 characters";
}

TEST(Lookup, SkipsLinesThatAreNoGroups) {
    std::vector<Line> lines(std::begin(NO_ENTRIES), std::end(NO_ENTRIES));
    lines.insert(lines.end(), std::begin(NO_GROUPS), std::end(NO_GROUPS));
    for (const Line& line : lines) {
        SCOPED_TRACE(line.fault);
        const std::string up_to_next = line.text + "\ninet:x:3003:system,shell\n";
        const UniqueFd file = file_of(up_to_next + "next:x:1:\n");
        const group* const entry = read_group_entry(file.get());
        ASSERT_NE(nullptr, entry);
        EXPECT_STREQ("inet", entry->gr_name);
        EXPECT_STREQ("x", entry->gr_passwd);
        EXPECT_EQ(3003U, entry->gr_gid);
        EXPECT_EQ(static_cast<off_t>(up_to_next.size()), lseek(file.get(), 0, SEEK_CUR));
    }
}

TEST(Lookup, SplitsAGroupsMembers) {
    using Members = std::vector<std::string>;
    EXPECT_EQ(Members{}, members_of(""));
    EXPECT_EQ((Members{"system", "shell"}), members_of("system,shell"));
    EXPECT_EQ((Members{"", "a", "", "b"}), members_of(",a,,b,")) << "a comma at the end adds none";
    const std::string longest(32766 - sizeof "g:x:7:" + 1, 'm');
    EXPECT_EQ(Members{longest}, members_of(longest));
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
