// Small file operations that fail with a line.
#include "emulator/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "emulator/refusal.h"
#include "platform/owned.h"

namespace phone {

void make_folder(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
            throw refusal_errno("cannot make the folder " + part);
        }
        if (end == std::string::npos) {
            return;
        }
    }
}

void make_folder(const std::string& path, mode_t mode) {
    make_folder(path);
    if (chmod(path.c_str(), mode) != 0) {
        throw refusal_errno("cannot set the mode of " + path);
    }
}

void write_file(const std::string& path, const std::string& content, mode_t mode) {
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd.valid() || fchmod(fd.get(), mode) != 0) {
        throw refusal_errno("cannot make " + path);
    }
    write_existing(path, content);
}

void write_existing(const std::string& path, const std::string& content) {
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.valid() ||
        write(fd.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        throw refusal_errno("cannot write " + path);
    }
}

void make_link(const std::string& target, const std::string& path) {
    if (symlink(target.c_str(), path.c_str()) != 0) {
        throw refusal_errno("cannot make the link " + path);
    }
}

std::vector<std::string> names_in(const std::string& folder) {
    const UniqueDir stream(opendir(folder.c_str()));
    if (stream == nullptr) {
        throw refusal_errno("cannot list " + folder);
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(stream.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}

std::string read_file(const std::string& path, size_t limit) {
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        throw refusal_errno("cannot open " + path);
    }
    std::string content;
    char piece[65536];
    for (;;) {
        const ssize_t count = read(fd.get(), piece, sizeof(piece));
        if (count < 0) {
            throw refusal_errno("cannot read " + path);
        }
        if (count == 0) {
            return content;
        }
        content.append(piece, static_cast<size_t>(count));
        if (content.size() > limit) {
            throw Refusal(path + " is larger than " + std::to_string(limit) + " bytes");
        }
    }
}

}  // namespace phone
