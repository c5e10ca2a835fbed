// What a misspelt word of a configuration may have been meant to be.
#pragma once

#include <string>

namespace tools {

std::string quoted(const std::string& text);

// Why a word is no keyword and which one to write, when it looks like one; or "".
std::string correct_keyword(const std::string& word);

}  // namespace tools
