// The edit distance between words.
#include "desk/near_word.h"

#include <strings.h>

#include <algorithm>
#include <numeric>

namespace desk {
namespace {

// How many characters are inserted, left out or exchanged between the two.
size_t distance(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const bool same = strncasecmp(&from[i], &to[j], 1) == 0;
            const size_t exchanged = diagonal + (same ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, exchanged});
        }
    }
    return row[to.size()];
}

}  // namespace

std::string near_word(const std::string& word, const std::vector<std::string>& known) {
    std::string nearest;
    size_t least = std::max<size_t>(word.size() / 3, 1) + 1;
    for (const std::string& other : known) {
        const bool is_beginning =
            word.size() > other.size() / 2 && strncasecmp(other.c_str(), word.c_str(), word.size()) == 0;
        const size_t between = is_beginning ? 1 : distance(word, other);
        if (between < least && between < other.size()) {
            least = between;
            nearest = other;
        }
    }
    return nearest;
}

std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
    const std::string near = near_word(word, known);
    return near.empty() ? "" : "; did you mean " + near + "?";
}

}  // namespace desk
