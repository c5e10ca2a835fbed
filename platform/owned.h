// Owners of descriptors, streams and blocks of memory. Each releases what it holds at the end of its scope.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// Owns a descriptor; negative when it holds none.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Gives the descriptor to the caller.
    int release() { return std::exchange(fd_, -1); }
    // Closes what it holds and takes over `fd`. Returns what close returned, 0 when it held none.
    int reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        return old >= 0 ? close(old) : 0;
    }

  private:
    int fd_ = -1;
};

struct DirCloser {
    void operator()(DIR* stream) const { closedir(stream); }
};

// Owns a directory stream; null when it holds none.
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

struct FileCloser {
    void operator()(FILE* stream) const { fclose(stream); }
};

// Owns a stream of the C library; null when it holds none.
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

struct BlockFreer {
    void operator()(void* block) const { free(block); }
};

// Owns a block of malloc's; null when it holds none.
template <typename T>
using UniqueBlock = std::unique_ptr<T, BlockFreer>;
using UniqueBuffer = UniqueBlock<char[]>;

// A new T, all zero but for members with initialisers; null when there is no memory.
template <typename T>
UniqueBlock<T> allocate() {
    static_assert(std::is_trivially_destructible<T>::value, "freeing it is all that ends it");
    void* const block = malloc(sizeof(T));
    return UniqueBlock<T>(block != nullptr ? new (block) T() : nullptr);
}

// A zero-filled buffer of `size` bytes; null when there is no memory. A large one takes memory only as it is
// written.
inline UniqueBuffer allocate_zeroed(size_t size) {
    return UniqueBuffer(static_cast<char*>(calloc(size, 1)));
}
