// The document's form.
#include "tools/report_json.h"

#include "tools/terminal.h"

namespace tools {
namespace {

using nlohmann::json;

json or_null(const std::string& text) {
    return text.empty() ? json() : json(text);
}

}  // namespace

json json_of(const Report& report) {
    const bool is_dump = report.kind == ReportKind::DUMP;
    json places = json::array();
    for (const ReportPlace& place : report.places) {
        places.push_back(
            {{"file", place.file}, {"member", or_null(place.member)}, {"damaged", place.damaged}});
    }
    return {
        {"number", report.number},
        {"phone", report.phone},
        {"key", report.key},
        {"kind", is_dump ? "dump" : "report"},
        {"date", or_null(report.date)},
        {"time", or_null(report.time)},
        {"device", has_device(report) ? json(report.device) : json()},
        {"error", report.has_error_no ? json(report.error_no) : json()},
        {"name", or_null(report.error_name)},
        {"test_switch", or_null(report.test_switch)},
        {"bytes", report.bytes},
        {"cut", report.cut},
        {"damaged", report.damaged},
        {"file", report.places[0].file},
        {"member", or_null(report.places[0].member)},
        {"places", std::move(places)},
        {"archive", or_null(report.archive)},
        {"attachments", json_of(report.attachments)},
        {"processes", report.processes},
        {"content", is_dump ? json() : json(report.content)},
        {"content_is_exact", is_utf8(report.content) && is_utf8(report.processes) && is_utf8(report.device) &&
                                 is_utf8(report.test_switch)},
    };
}

json json_of(const std::vector<Attachment>& attachments) {
    json list = json::array();
    for (const Attachment& attachment : attachments) {
        list.push_back({{"name", attachment.name}, {"bytes", attachment.bytes}});
    }
    return list;
}

json json_of(const std::vector<Problem>& problems) {
    json list = json::array();
    for (const Problem& problem : problems) {
        list.push_back({{"phone", or_null(problem.phone)}, {"file", problem.file}, {"text", problem.text}});
    }
    return list;
}

std::string line_of(const Report& report) {
    json object = json_of(report);
    object.erase("number");  // which it has only among all
    return text_of(object) + "\n";
}

std::string text_of(const json& document) {
    constexpr bool is_ascii = true;
    return document.dump(-1, ' ', is_ascii, json::error_handler_t::replace);
}

}  // namespace tools
