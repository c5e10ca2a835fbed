// Filling the page in.
#include "tools/report_page.h"

#include <string>

#include "tools/report_page_text.h"

namespace tools {
namespace {

// The document as a text that stands in a script element: a "<" could end that.
std::string document_text(const nlohmann::json& document) {
    std::string text;
    for (const char character : document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) {
        if (character == '<') {
            text += "\\u003c";
        } else {
            text += character;
        }
    }
    return text;
}

}  // namespace

std::string make_report_page(const nlohmann::json& document) {
    // The document comes last: no mark is looked for in its texts.
    const struct {
        std::string mark;
        std::string text;
    } parts[] = {
        {"/*report_page.css*/", REPORT_PAGE_CSS},      {"/*report_timeline.js*/", REPORT_TIMELINE_JS},
        {"/*report_table.js*/", REPORT_TABLE_JS},      {"/*report_page.js*/", REPORT_PAGE_JS},
        {"{\"reports\":[]}", document_text(document)},
    };
    std::string page = REPORT_PAGE_HTML;
    for (const auto& part : parts) {
        page.replace(page.find(part.mark), part.mark.size(), part.text);
    }
    return page;
}

}  // namespace tools
