// Owner of a descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace phone {

// Closes what it holds at its end of scope; negative when it holds none.
class OwnedFd {
  public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : fd_(fd) {}
    OwnedFd(OwnedFd&& other) noexcept : fd_(other.release()) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;
    ~OwnedFd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            close(old);
        }
    }

  private:
    int fd_ = -1;
};

}  // namespace phone
