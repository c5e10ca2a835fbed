// Room for the files of packed pulls.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/owned.h"

namespace tools {

// One file on disk without a name: it ends with the last who holds its descriptor, however the program ends.
class Spool {
  public:
    // Adds the bytes to its end. Throws Unreadable when there is no room.
    void add(std::string_view bytes);

    uint64_t size() const { return size_; }
    const std::shared_ptr<const UniqueFd>& fd() const { return fd_; }  // null while nothing was added

  private:
    std::shared_ptr<const UniqueFd> fd_;
    uint64_t size_ = 0;
};

}  // namespace tools
