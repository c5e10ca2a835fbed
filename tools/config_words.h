// What a misspelt word of a configuration may have been meant to be.
#pragma once

#include <string>
#include <vector>

namespace tools {

std::string quoted(const std::string& text);

// "; did you mean WORD?" with the nearest of the known words, or "" when none is near.
std::string did_you_mean(const std::string& word, const std::vector<std::string>& known);

// Why a word is no keyword and which one to write, when it looks like one; or "".
std::string correct_keyword(const std::string& word);

}  // namespace tools
