// Filling the page in.
#include "tools/report_page.h"

#include <cstddef>
#include <string_view>

#include "tools/report_json.h"

namespace tools {

// The page without its document, which CMakeLists.txt puts together of the files report_*.html, .css and .js.
extern const char REPORT_PAGE[];

std::string make_report_page(const nlohmann::json& document) {
    constexpr std::string_view NO_DOCUMENT = "{\"reports\":[]}";
    const std::string_view page = REPORT_PAGE;
    const size_t place = page.find(NO_DOCUMENT);
    std::string filled(page.substr(0, place));
    for (const char character : text_of(document)) {
        // It stands in a script element, which a "<" could end.
        if (character == '<') {
            filled += "\\u003c";
        } else {
            filled += character;
        }
    }
    filled += page.substr(place + NO_DOCUMENT.size());
    return filled;
}

}  // namespace tools
