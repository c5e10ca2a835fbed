// A file is written beside its place and then put there.
#include "tools/replaced_file.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/owned.h"

namespace tools {
namespace {

// A file without its final name; it goes with its owner.
class TemporaryFile {
  public:
    // Beside the path, which is for messages.
    explicit TemporaryFile(const std::string& path) : target_(path), name_(path + ".XXXXXX") {
        fd_.reset(mkostemp(name_.data(), O_CLOEXEC));
        if (!fd_.valid()) {
            name_.clear();
            fail();
        }
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(fd_.get(), 0666 & ~mask) != 0) {
            fail();
        }
    }
    ~TemporaryFile() {
        if (!name_.empty()) {
            unlink(name_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(const std::string& bytes) {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t written = ::write(fd_.get(), bytes.data() + at, bytes.size() - at);
            if (written < 0) {
                fail();
            }
            at += static_cast<size_t>(written);
        }
    }
    void put_in_place() {
        if (fsync(fd_.get()) != 0 || fd_.reset() != 0 || rename(name_.c_str(), target_.c_str()) != 0) {
            fail();
        }
        name_.clear();
    }

  private:
    [[noreturn]] void fail() const { throw OutputError("cannot write " + target_ + ": " + strerror(errno)); }

    std::string target_;
    std::string name_;
    UniqueFd fd_;
};

}  // namespace

void replace_file(const std::string& path, const std::string& bytes) {
    struct stat status;
    std::string target = path;
    if (stat(path.c_str(), &status) == 0) {
        // A device, say, is not to become a file.
        if (!S_ISREG(status.st_mode)) {
            throw OutputError("cannot write " + path + ": it is there and is no regular file");
        }
        char real[PATH_MAX];
        target = realpath(path.c_str(), real) == nullptr ? path : real;
    }
    TemporaryFile file(target);
    file.write(bytes);
    file.put_in_place();
}

}  // namespace tools
