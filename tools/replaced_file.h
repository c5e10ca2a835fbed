// Writing a file that is there whole or not at all.
#pragma once

#include <stdexcept>
#include <string>

namespace tools {

// Output that could not be written; its text says where and why.
class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Writes the bytes to the path, in place of a file that is there. Throws OutputError, and then what was there
// still is.
void replace_file(const std::string& path, const std::string& bytes);

}  // namespace tools
