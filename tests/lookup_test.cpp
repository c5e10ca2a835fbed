// Finding users and groups by their ids, and dirname. What makes a line an entry is held to a model by the
// fuzz targets and their seeds.
#include "tar/lookup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/phone_test.h"

TEST(Lookup, FindsIdsInThePhonesFiles) {
    write_file("/etc/passwd", "long:x:7:7::/:" + std::string(300, 'z') +
                                  "\none:x:7:7::/:s\ntwo:x:7:7::/:s\nthree:x:8:8::/:s\n");
    write_file("/etc/group", "one:x:7:a,b\ntwo:x:7:\nthree:x:8:c\n");
    ASSERT_NE(nullptr, getpwuid(7));
    EXPECT_STREQ("one", getpwuid(7)->pw_name);
    EXPECT_STREQ("three", getpwuid(8)->pw_name);
    EXPECT_EQ(nullptr, getpwuid(9));
    EXPECT_EQ(nullptr, __getpwent(-1));
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
