// A page is written beside its place and then put there.
#include "tools/page_file.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "platform/owned.h"
#include "tools/write_all.h"

namespace tools {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw std::runtime_error("cannot write " + path + ": " + why);
}

void require_page(const std::string& path) {
    constexpr std::string_view BEGINNING = "<!DOCTYPE html>\n<!-- The page of dmd-report";
    char bytes[BEGINNING.size()] = "";
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid() || read(fd.get(), bytes, sizeof bytes) != static_cast<ssize_t>(sizeof bytes) ||
        std::string_view(bytes, sizeof bytes) != BEGINNING) {
        fail(path, "it is there and is no page");
    }
}

// Where the page is to be: at the end of the links, if the path is one.
std::string place_of(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        return path;
    }
    if (!S_ISREG(status.st_mode)) {
        fail(path, "it is there and is no regular file");  // a device, say, is not to become one
    }
    if (status.st_size > 0) {
        require_page(path);
    }
    char real[PATH_MAX];
    return realpath(path.c_str(), real) == nullptr ? path : real;
}

}  // namespace

void write_page(const std::string& path, const std::string& page) {
    const std::string place = place_of(path);
    std::string temporary = place + ".XXXXXX";
    UniqueFd fd(mkostemp(temporary.data(), O_CLOEXEC));
    if (!fd.valid()) {
        fail(place, strerror(errno));
    }
    const mode_t mask = umask(0);
    umask(mask);
    const bool is_done = fchmod(fd.get(), 0666 & ~mask) == 0 && write_all(fd.get(), page) &&
                         fsync(fd.get()) == 0 && fd.reset() == 0 &&
                         rename(temporary.c_str(), place.c_str()) == 0;
    if (!is_done) {
        const int error = errno;
        unlink(temporary.c_str());
        fail(place, strerror(error));
    }
}

}  // namespace tools
