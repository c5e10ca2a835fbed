// Showing what is longer than the terminal page by page.
#pragma once

#include <cstdio>

namespace tools {

// While it lives, what is written to standard output goes through the pager that PAGER names, or less.
class Pager {
  public:
    Pager();
    // Waits until the reader has left the pager. Standard output must have been flushed.
    ~Pager();
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

  private:
    FILE* pipe_;  // null when no pager could be started
};

}  // namespace tools
