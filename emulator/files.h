// Making the files, folders and links of the private root. All throw Refusal.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace phone {

// Makes the folder and those above it, mode 0755, as far as they are missing.
void make_folder(const std::string& path);

// Makes a folder with exactly this mode.
void make_folder(const std::string& path, mode_t mode);

// Makes a file with this content and exactly this mode.
void write_file(const std::string& path, const std::string& content, mode_t mode);

// Writes `content` in one piece to a file that exists, as the kernel's own files want it.
void write_existing(const std::string& path, const std::string& content);

void make_link(const std::string& target, const std::string& path);

// The names of the entries of a folder but "." and "..".
std::vector<std::string> names_in(const std::string& folder);

// The content of a file of at most `limit` bytes.
std::string read_file(const std::string& path, size_t limit);

}  // namespace phone
