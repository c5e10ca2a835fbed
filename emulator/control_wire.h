// The form of requests and answers on a phone's control socket: a list of words that may hold any bytes. It
// ends where its sender shuts the connection down. Both ends are on one machine, so numbers go in its own
// byte order.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

using Words = std::vector<std::string>;

// Longest message in bytes: an error text of the largest client, and room to spare.
constexpr size_t WIRE_MESSAGE_MAX = 32 * 1024 * 1024;
// First word of an answer; the second is what the phone says.
constexpr char WIRE_DONE[] = "done";
constexpr char WIRE_REFUSED[] = "refused";

std::string encode_words(const Words& words);

// Takes a message apart. False when it is not a word list.
bool decode_words(std::string_view message, Words* words);

}  // namespace phone
