// The spool is a file, since a fleet's pulls may be larger than the memory.
#include "tools/spool.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/report.h"

namespace tools {
namespace {

UniqueFd open_without_a_name() {
    const char* const folder = getenv("TMPDIR");
    std::string path = folder == nullptr || *folder == '\0' ? "/var/tmp" : folder;
    path += "/dmd-report.XXXXXX";
    UniqueFd fd(mkostemp(path.data(), O_CLOEXEC));
    if (!fd.valid()) {
        throw Unreadable("cannot be unpacked (TMPDIR says where): " + path + ": " + strerror(errno));
    }
    unlink(path.c_str());
    return fd;
}

}  // namespace

void Spool::add(std::string_view bytes) {
    if (!fd_) {
        fd_ = std::make_shared<UniqueFd>(open_without_a_name());
    }
    while (!bytes.empty()) {
        const ssize_t written = write(fd_->get(), bytes.data(), bytes.size());
        if (written < 0) {
            throw Unreadable(std::string("cannot be unpacked (TMPDIR says where): ") + strerror(errno));
        }
        bytes.remove_prefix(static_cast<size_t>(written));
        size_ += static_cast<size_t>(written);
    }
}

}  // namespace tools
