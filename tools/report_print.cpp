// The table's columns, and what --show says of a report.
#include "tools/report_print.h"

#include <algorithm>
#include <set>

#include "tools/phone_reports.h"
#include "tools/report_summary.h"

namespace tools {
namespace {

constexpr size_t PLACES_MOST = 3;  // that are named unasked

// What the columns before do not tell.
std::string note_of(const Report& report) {
    std::string note = report.kind == ReportKind::DUMP ? "dump" : "";
    note += report.cut ? (note.empty() ? "cut" : " cut") : "";
    note += report.damaged ? (note.empty() ? "damaged" : " damaged") : "";
    return note;
}

// How many bytes of all the paths are the folders that they have in common.
size_t common_folders(const std::vector<const Report*>& reports) {
    std::string common = reports.empty() ? "" : reports[0]->places[0].file;
    for (const Report* const report : reports) {
        const std::string& path = report->places[0].file;
        const auto [end, other] = std::mismatch(common.begin(), common.end(), path.begin(), path.end());
        common.erase(end, common.end());
    }
    return common.rfind('/') + 1;  // 0 without a slash
}

std::string text_of(const ReportPlace& place) {
    return one_line(place.file) + (place.member.empty() ? "" : " (" + one_line(place.member) + ")");
}

std::string or_unknown(const std::string& text) {
    return text.empty() ? "not known" : one_line(text);
}

// The lines behind the content.
std::string description_of(const Terminal& terminal, const Report& report, bool all_places) {
    const bool is_dump = report.kind == ReportKind::DUMP;
    std::string text;
    const auto line = [&](const std::string& title, const std::string& value) {
        text += paint(terminal, Colour::BOLD, title) + std::string(14 - title.size(), ' ') + value + "\n";
    };
    line("Phone:", or_unknown(report.phone));
    line("Date:", or_unknown(report.date));
    line("Time:", or_unknown(report.time));
    if (!is_dump) {
        line("Device:", or_unknown(report.device));
    }
    line("Error:", or_unknown(error_text(report)) +
                       (report.error_name.empty() ? "" : ", " + one_line(report.error_name)));
    if (!is_dump) {
        line("Test switch:", or_unknown(report.test_switch));
    }
    line("Bytes:", std::to_string(report.bytes));
    if (report.places.size() > PLACES_MOST && !all_places) {
        line("Stands in:", std::to_string(report.places.size()) + " places, the first " +
                               text_of(report.places[0]) + " (--places names all)");
    } else {
        for (const ReportPlace& place : report.places) {
            line(&place == &report.places[0] ? "Stands in:" : "and in:",
                 text_of(place) + (place.damaged ? ", which is damaged" : ""));
        }
    }
    if (!report.archive.empty()) {
        line("Archive:", one_line(report.archive));
    }
    for (const Attachment& attachment : report.attachments) {
        line(&attachment == &report.attachments[0] ? (is_dump ? "Holds:" : "with:") : "",
             one_line(attachment.name) + ", " + std::to_string(attachment.bytes) + " bytes");
    }
    return text;
}

std::string title_of(const Terminal& terminal, const Report& report) {
    std::string title = (report.kind == ReportKind::DUMP ? "Dump " : "Report ") +
                        std::to_string(report.number) + ": " + one_line(report.device) +
                        (report.device.empty() ? "" : " ") + error_text(report) +
                        (report.error_name.empty() ? "" : " (" + one_line(report.error_name) + ")") + " on " +
                        one_line(report.phone);
    title = paint(terminal, Colour::BOLD, title) + "\n";
    if (report.cut) {
        title += paint(terminal, Colour::YELLOW, "Cut: its end, or a part of its head, is missing") + "\n";
    }
    if (report.damaged) {
        title += paint(terminal, Colour::YELLOW, "Damaged: it was found in damaged files only") + "\n";
    }
    return title;
}

// Gives the content to `put`, with a line end behind it. Returns false when there is none but the
// attachments.
bool put_content(const Terminal& terminal, const Report& report,
                 const std::function<void(std::string_view)>& put) {
    if (report.kind == ReportKind::DUMP && is_archive(report)) {
        return false;
    }
    char last = '\n';
    const auto put_piece = [&](std::string_view piece) {
        if (!piece.empty()) {
            last = piece.back();
            put(terminal.is_terminal ? without_controls(std::string(piece)) : piece);
        }
        return true;
    };
    if (report.kind == ReportKind::DUMP) {
        read_dump(report, put_piece);
    } else {
        put_piece(report.content);
    }
    if (last != '\n') {
        put("\n");
    }
    return true;
}

}  // namespace

Table report_table(const Terminal& terminal, const std::vector<const Report*>& reports) {
    std::set<std::string_view> phones;
    for (const Report* const report : reports) {
        phones.insert(report->phone);
    }
    const bool is_short = terminal.is_terminal;
    const size_t folders = is_short ? common_folders(reports) : 0;
    Table table = {{{"N", Holds::NUMBER},
                    {"DATE"},
                    {"TIME"},
                    {"PHONE", Holds::TEXT, Fit::CUT},
                    {"DEVICE", Holds::TEXT, Fit::CUT},
                    {"ERROR", Holds::NUMBER},
                    {"SWITCH", Holds::TEXT, Fit::DROPPED},
                    {"BYTES", Holds::COUNT, Fit::DROPPED},
                    {"FILE", Holds::TEXT, Fit::DROPPED},
                    {"NOTE"},
                    {"NAME", Holds::TEXT, Fit::CUT},
                    {"TEXT", Holds::TEXT, Fit::CUT}},
                   {}};
    table.rows.reserve(reports.size());
    for (const Report* const report : reports) {
        table.rows.push_back(
            {{std::to_string(report->number), report->date, report->time,
              is_short && phones.size() < 2 ? "" : report->phone, report->device, error_text(*report),
              report->test_switch, std::to_string(report->bytes), report->places[0].file.substr(folders),
              note_of(*report), report->error_name, first_line(*report)},
             report->cut ? Colour::YELLOW : Colour::NONE});
    }
    return table;
}

void show_report(const Terminal& terminal, const Report& report, bool all_places,
                 const std::function<void(std::string_view)>& put) {
    const auto heading = [&](const std::string& text) {
        return "\n" + paint(terminal, Colour::BOLD, text) + "\n";
    };
    put(title_of(terminal, report));
    put(heading("Content:"));
    if (!put_content(terminal, report, put)) {
        put("An archive, which holds what is named below.\n");
    }
    put("\n" + description_of(terminal, report, all_places));
    if (!report.processes.empty()) {
        put(heading("Processes:") + without_controls(report.processes));
    }
}

}  // namespace tools
