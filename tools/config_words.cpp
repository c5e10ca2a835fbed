// Looking for the keyword, client or server that somebody meant.
#include "tools/config_words.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

#include "config/section_fields.h"
#include "desk/near_word.h"

namespace tools {
namespace {

// So many first characters also tell which keyword is meant, as those of "client" and "error_number".
constexpr size_t BEGINNING = 6;

// The letters of a word in the order of the alphabet.
std::string letters_of(const std::string& word) {
    std::string letters;
    for (const char character : word) {
        if (isalpha(static_cast<unsigned char>(character)) != 0) {
            letters += static_cast<char>(tolower(static_cast<unsigned char>(character)));
        }
    }
    std::sort(letters.begin(), letters.end());
    return letters;
}

// Whether most letters of the keyword make up the word, as in "errno" and "trigger_num".
bool is_made_of(const std::string& word, const std::string& keyword) {
    const std::string few = letters_of(word);
    const std::string all = letters_of(keyword);
    return 2 * few.size() > all.size() && std::includes(all.begin(), all.end(), few.begin(), few.end());
}

}  // namespace

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

std::string correct_keyword(const std::string& word) {
    std::vector<std::string> keywords = {"algo_type"};
    for (const config_field& field : config_field_table) {
        keywords.emplace_back(field.keyword);
    }
    // Other files have "keyword: value" and "keyword=value".
    const size_t sign = word.find_first_of(":=");
    const std::string name = word.substr(0, sign);
    std::string keyword = desk::near_word(name, keywords);
    if (keyword.empty()) {
        const auto is_like = [&](const std::string& known) {
            return strncasecmp(known.c_str(), name.c_str(), BEGINNING) == 0 || is_made_of(name, known);
        };
        const auto known = std::find_if(keywords.begin(), keywords.end(), is_like);
        keyword = known != keywords.end() ? *known : "";
    }
    if (keyword.empty()) {
        return "";
    }
    const std::string fault = quoted(word) + " is no keyword; ";
    if (strcasecmp(name.c_str(), keyword.c_str()) != 0) {
        return fault + "did you mean " + keyword + "?";
    }
    if (sign == std::string::npos) {
        return "";  // it is one
    }
    if (sign + 1 < word.size()) {
        return fault + "write " + quoted(keyword + " " + word.substr(sign + 1));
    }
    return fault + "write " + quoted(keyword) + " without the " + (word[sign] == ':' ? "colon" : "'='");
}

}  // namespace tools
