// The form of requests and answers on a phone's control socket: a length, then a list of words that may hold
// any bytes. Both ends are on one machine, so numbers go in its own byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

using Words = std::vector<std::string>;

// Bytes of the length that stands before each message.
constexpr size_t WIRE_LENGTH_SIZE = sizeof(uint32_t);
// Longest message in bytes after its length: an error text of the largest client, and room to spare.
constexpr size_t WIRE_MESSAGE_MAX = 32 * 1024 * 1024;
// First word of an answer.
constexpr char WIRE_DONE[] = "done";
constexpr char WIRE_REFUSED[] = "refused";

// The whole message, its length included.
std::string encode_words(const Words& words);

// Takes a message without its length apart. False when it is not a word list.
bool decode_words(std::string_view message, Words* words);

// The length that the first WIRE_LENGTH_SIZE bytes of `data` announce.
uint32_t announced_length(std::string_view data);

}  // namespace phone
