// Filling the page's document in.
#include "tools/report_page.h"

#include "tools/report_page_text.h"

namespace tools {

std::string make_report_page(const nlohmann::json& document) {
    // A "<" in the document could end the script that holds it.
    std::string text;
    for (const char character : document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) {
        if (character == '<') {
            text += "\\u003c";
        } else {
            text += character;
        }
    }
    std::string page = REPORT_PAGE;
    const std::string mark = "{\"reports\":[]}";
    page.replace(page.find(mark), mark.size(), text);
    return page;
}

}  // namespace tools
