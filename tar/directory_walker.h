// Walking a path and everything below it.
#pragma once

#include <sys/stat.h>

// What is done with one path. Returns true (1) or false (0); a directory action that is called before the
// directory's contents may return WALK_SKIP_CONTENTS.
using walk_action = int (*)(const char* path, const struct stat* status, void* user_data);

// From a directory action: leave out what the directory holds.
constexpr int WALK_SKIP_CONTENTS = 2;

// Runs the actions on `path` and, with `recurse`, on everything below it, entries in the directory's own
// order: the directory action for directories (after their contents with depth_first, otherwise before), the
// file action for everything else. Symbolic links are followed only with follow_links. Each level holds a
// descriptor and a few hundred bytes of stack. A directory action that is called before the contents can
// bound the depth; with depth_first nothing does.
//
// Returns true when every status call and every action succeeded; after a failed entry the walk goes on.
int recursive_action(const char* path, int recurse, int follow_links, int depth_first,
                     walk_action file_action, walk_action directory_action, void* user_data);

// Joins a directory path (null counts as empty) and an entry name, whose leading "/" are dropped. Returns the
// new text, to be freed with free(), or null without memory.
char* concat_path_file(const char* path, const char* name);

// The last character of `path` when it is "/", otherwise null; also for a null or empty path.
const char* ends_with_slash(const char* path);
