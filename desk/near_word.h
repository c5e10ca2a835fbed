// What somebody may have meant by a word that is none.
#pragma once

#include <string>
#include <vector>

namespace desk {

// The known word that is nearest to `word`, in capitals or not, within a third of its length; "" when none
// is.
std::string near_word(const std::string& word, const std::vector<std::string>& known);

// "; did you mean WORD?" with that word, or "".
std::string did_you_mean(const std::string& word, const std::vector<std::string>& known);

}  // namespace desk
