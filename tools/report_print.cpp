// The table's columns, and what --show says of a report.
#include "tools/report_print.h"

#include "tools/report_collection.h"

namespace tools {
namespace {

// What the columns before do not tell: "cut", "dump" or both.
std::string note_of(const Report& report) {
    const std::string kind = report.kind == ReportKind::DUMP ? "dump" : "";
    const std::string end = report.cut ? "cut" : "";
    return kind + (kind.empty() || end.empty() ? "" : " ") + end;
}

std::string text_of(const ReportPlace& place) {
    return one_line(place.file) + (place.member.empty() ? "" : " (" + one_line(place.member) + ")");
}

std::string or_unknown(const std::string& text) {
    return text.empty() ? "not known" : one_line(text);
}

std::string error_of(const Report& report) {
    return report.has_error_no ? std::to_string(report.error_no) : "";
}

// The lines before the process list and the content.
std::string description_of(const Terminal& terminal, const Report& report) {
    const bool is_dump = report.kind == ReportKind::DUMP;
    std::string text;
    const auto line = [&](const std::string& title, const std::string& value) {
        text += paint(terminal, Colour::BOLD, title) + std::string(14 - title.size(), ' ') + value + "\n";
    };
    line(is_dump ? "Dump:" : "Report:", std::to_string(report.number));
    if (report.cut) {
        line("Cut:", paint(terminal, Colour::YELLOW, "its end, or a part of its head, is missing"));
    }
    line("Date:", or_unknown(report.date));
    line("Time:", or_unknown(report.time));
    if (!is_dump) {
        line("Device:", or_unknown(report.device));
    }
    line("Error:", or_unknown(error_of(report)));
    if (!is_dump) {
        line("Test switch:", or_unknown(report.test_switch));
    }
    line("Bytes:", std::to_string(report.bytes));
    for (const ReportPlace& place : report.places) {
        line(&place == &report.places[0] ? "Stands in:" : "and in:", text_of(place));
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

}  // namespace

std::string report_table(const Terminal& terminal, const std::vector<const Report*>& reports) {
    const std::vector<Column> columns = {{"N", true},       {"DATE", false}, {"TIME", false},
                                         {"DEVICE", false}, {"ERROR", true}, {"SWITCH", false},
                                         {"BYTES", true},   {"FILE", false}, {"NOTE", false}};
    std::vector<Row> rows;
    rows.reserve(reports.size());
    for (const Report* const report : reports) {
        rows.push_back(
            {{std::to_string(report->number), report->date, report->time, report->device, error_of(*report),
              report->test_switch, std::to_string(report->bytes), report->places[0].file, note_of(*report)},
             report->cut ? Colour::YELLOW : Colour::NONE});
    }
    return format_table(terminal, columns, rows);
}

void show_report(const Terminal& terminal, const Report& report,
                 const std::function<void(std::string_view)>& put) {
    put(description_of(terminal, report));
    if (!report.processes.empty()) {
        put("\n" + paint(terminal, Colour::BOLD, "Processes:") + "\n" + without_controls(report.processes));
    }
    if (report.kind == ReportKind::DUMP && is_archive(report)) {
        return;
    }
    put("\n" + paint(terminal, Colour::BOLD, "Content:") + "\n");
    char last = '\n';
    const auto put_content = [&](std::string_view piece) {
        if (!piece.empty()) {
            last = piece.back();
            put(terminal.is_terminal ? without_controls(std::string(piece)) : piece);
        }
        return true;
    };
    if (report.kind == ReportKind::DUMP) {
        read_dump(report, put_content);
    } else {
        put_content(report.content);
    }
    if (terminal.is_terminal && last != '\n') {
        put("\n");
    }
}

}  // namespace tools
