// What the walk over a tree passes to its actions, in which order, and what it makes of their results.
#include "tar/directory_walker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/phone_test.h"

namespace {

// What the actions saw, and the one path at which they return something else than true.
struct Seen {
    std::vector<std::string> paths;
    std::string odd_path;
    int odd_result;

    int add(const std::string& kind, const char* path) {
        paths.push_back(kind + " " + path);
        return path == odd_path ? odd_result : 1;
    }
};

int see_file(const char* path, const struct stat* status, void* seen) {
    EXPECT_FALSE(S_ISDIR(status->st_mode)) << path;
    return static_cast<Seen*>(seen)->add("file", path);
}

int see_directory(const char* path, const struct stat* status, void* seen) {
    EXPECT_TRUE(S_ISDIR(status->st_mode)) << path;
    return static_cast<Seen*>(seen)->add("directory", path);
}

struct Walk {
    const char* what;
    std::string path;
    bool recurse = true;
    bool follow_links = false;
    bool depth_first = false;
    std::string odd_path = "";
    int odd_result = 1;
    bool succeeds = true;
    std::vector<std::string> seen;
};

}  // namespace

TEST(DirectoryWalker, FollowsItsOptionsAndItsActions) {
    ASSERT_EQ(0, chdir("/data"));
    output_of("mkdir -p t/d; touch t/d/f; ln -s t link; ln -s none dangling");
    const std::vector<std::string> nothing;
    const Walk walks[] = {
        {.what = "a directory before its contents",
         .path = "t",
         .seen = {"directory t", "directory t/d", "file t/d/f"}},
        {.what = "a directory after its contents",
         .path = "t",
         .depth_first = true,
         .seen = {"file t/d/f", "directory t/d", "directory t"}},
        {.what = "no contents", .path = "t", .recurse = false, .seen = {"directory t"}},
        {.what = "a file", .path = "t/d/f", .seen = {"file t/d/f"}},
        {.what = "a link itself", .path = "link", .seen = {"file link"}},
        {.what = "a link's target",
         .path = "link",
         .follow_links = true,
         .seen = {"directory link", "directory link/d", "file link/d/f"}},
        {.what = "a link that leads nowhere", .path = "dangling", .seen = {"file dangling"}},
        {.what = "the target of a link that leads nowhere",
         .path = "dangling",
         .follow_links = true,
         .succeeds = false,
         .seen = nothing},
        {.what = "the directory action skips the contents",
         .path = "t",
         .odd_path = "t/d",
         .odd_result = WALK_SKIP_CONTENTS,
         .seen = {"directory t", "directory t/d"}},
        {.what = "the directory action fails",
         .path = "t",
         .odd_path = "t/d",
         .odd_result = 0,
         .succeeds = false,
         .seen = {"directory t", "directory t/d"}},
        {.what = "the directory action fails behind the contents",
         .path = "t",
         .depth_first = true,
         .odd_path = "t/d",
         .odd_result = 0,
         .succeeds = false,
         .seen = {"file t/d/f", "directory t/d", "directory t"}},
        {.what = "the file action fails",
         .path = "t",
         .depth_first = true,
         .odd_path = "t/d/f",
         .odd_result = 0,
         .succeeds = false,
         .seen = {"file t/d/f", "directory t/d", "directory t"}},
    };
    for (const Walk& walk : walks) {
        SCOPED_TRACE(walk.what);
        Seen seen = {{}, walk.odd_path, walk.odd_result};
        EXPECT_EQ(walk.succeeds, recursive_action(walk.path.c_str(), walk.recurse, walk.follow_links,
                                                  walk.depth_first, see_file, see_directory, &seen) != 0);
        EXPECT_EQ(walk.seen, seen.paths);
    }
}

TEST(DirectoryWalker, GoesOnBehindAFailureAndMeetsEveryEntryOnce) {
    std::vector<std::string> expected = {"directory /data/t/"};
    output_of("mkdir /data/t; cd /data/t; seq 2000 | xargs touch");
    for (const std::string& name : names_in("/data/t")) {
        expected.push_back("file /data/t/" + name);
    }
    Seen seen = {{}, "/data/t/1", 0};
    const int before = open_descriptors("self");
    EXPECT_EQ(0, recursive_action("/data/t/", 1, 0, 0, see_file, see_directory, &seen));
    EXPECT_EQ(before, open_descriptors("self"));
    std::sort(seen.paths.begin(), seen.paths.end());
    EXPECT_EQ(expected, seen.paths);
}
