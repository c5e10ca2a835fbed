#include "tests/report_steps.h"

#include <cstdlib>
#include <ctime>

#include "output/record.h"
#include "tests/bring_up.h"
#include "tests/recorded_report.h"

std::string text_of(int number) {
    return std::to_string(number) + std::string(6000, static_cast<char>('a' + number % 26)) + "end";
}

std::map<int, bool> reports_in(std::string_view bytes) {
    static const std::string processes = output_of("top -m 5 -n 1 | grep -v '^$'");
    std::map<int, bool> found;
    while (!bytes.empty()) {
        const recorded_report report = take_report(&bytes);
        const int number = atoi(std::string(report.error_no).c_str());
        found[found.count(number) == 0 ? number : -number] =
            report.has_full_head && report.test_switch == "on" && report.processes == processes &&
            report.text == text_of(number);
    }
    return found;
}

std::map<int, bool> read_reports() {
    std::map<int, bool> found;
    for (int index = 0; index < 4; ++index) {
        for (const auto& [number, whole] : reports_in(read_file(record_path(index)))) {
            found[found.count(number) == 0 ? number : -number] = whole;
        }
    }
    return found;
}

void report(int number) {
    dmd_error_info info = make_error_info(number, static_cast<int32_t>(time(nullptr)));
    const std::string text = text_of(number);
    EXPECT_EQ(0, dmd_direct_output(text.data(), static_cast<int>(text.size()), &info, nullptr, 4));
}

std::set<std::string> failed_steps(int number, bool commercial) {
    const std::string dump = "dmd_dump_" + std::to_string(number) + "_";
    std::set<std::string> failed;
    if (!read_reports()[number]) {
        failed.insert("record");
    }
    if (!commercial) {
        const std::string name = output_of("cd " + LOGS + "; ls | grep ^" + dump + " || :");
        if (count_of(name, ".gz") == 0) {
            failed.insert("compression");
        }
        if (read_file(RECORD) != output_of("cd " + LOGS + "; tar -xOf " + dump + "* 2>/dev/null || :")) {
            failed.insert("archive");
        }
    }
    if (exists(LOGS + "dmd_commercial_record.txt")) {
        failed.insert("commercial record");
    } else {
        const std::string description = "error_no\t" + std::to_string(number);
        const std::string request = "-i " + LOGS + (commercial ? "dmd_commercial_record.txt" : dump);
        if (count_of(read_file(LOGS + "apr_info.txt"), description) == 0 ||
            count_of(read_file("/dev/log/exception"), request) == 0) {
            failed.insert("upload");
        }
    }
    write_file("/dev/log/exception", "");
    return failed;
}
