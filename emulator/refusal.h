// How the emulator gives up: one line that says what is missing and, where it helps, how to get it.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace phone {

// Exit status of `phone` when there was no phone to run the command in.
constexpr int STATUS_NO_PHONE = 125;

// Thrown anywhere in the emulator; the main of each of its processes prints the line and ends.
class Refusal : public std::runtime_error {
  public:
    explicit Refusal(const std::string& line) : std::runtime_error(line) {}
};

// A refusal that ends in the reason that errno gives.
inline Refusal refusal_errno(const std::string& what) {
    return Refusal(what + ": " + strerror(errno));
}

// Prints the line on standard error in one piece, with '?' for control characters.
void print_refusal(const char* line);

}  // namespace phone
