// The spool is a file, since a fleet's pulls may be larger than the memory.
#include "tools/spool.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/report.h"
#include "tools/write_all.h"

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
    if (!write_all(fd_->get(), bytes)) {
        const int error = errno;
        lseek(fd_->get(), static_cast<off_t>(size_), SEEK_SET);  // what was written of them does not count
        throw Unreadable(std::string("cannot be unpacked (TMPDIR says where): ") + strerror(error));
    }
    size_ += bytes.size();
}

}  // namespace tools
