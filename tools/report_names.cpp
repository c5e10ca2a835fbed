// The file of names.
#include "tools/report_names.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace tools {
namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";  // some editors begin a file with it

std::string trim(const std::string& text) {
    constexpr char BLANKS[] = " \t\r";
    const size_t begin = text.find_first_not_of(BLANKS);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(BLANKS) - begin + 1);
}

}  // namespace

ReportNames::ReportNames(const std::string& path, std::vector<Problem>* problems) {
    std::ifstream file(path);
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (number == 1 && line.compare(0, BYTE_ORDER_MARK.size(), BYTE_ORDER_MARK) == 0) {
            line.erase(0, BYTE_ORDER_MARK.size());
        }
        if (!take_line(trim(line))) {
            problems->push_back({"", path + ":" + std::to_string(number),
                                 "is neither \"20002 name of the error\" nor \"device = other name, ...\""});
        }
    }
    if (!file.eof()) {
        throw std::runtime_error("cannot read " + path + ": " + strerror(errno));
    }
}

bool ReportNames::take_line(const std::string& line) {
    if (line.empty() || line[0] == '#') {
        return true;
    }
    int32_t error_no = 0;
    const char* const end = line.data() + line.size();
    const auto [behind, error] = std::from_chars(line.data(), end, error_no);
    const bool is_number = error == std::errc() && behind != end && (*behind == ' ' || *behind == '\t');
    if (is_number && trim(behind)[0] != '=') {
        errors_[error_no] = trim(behind);
        return true;
    }
    const size_t equals = line.find('=');
    const std::string device = trim(line.substr(0, equals));
    if (equals == std::string::npos || device.empty()) {
        return false;
    }
    for (size_t at = equals; at < line.size();) {
        const size_t comma = std::min(line.find(',', at + 1), line.size());
        const std::string other = trim(line.substr(at + 1, comma - at - 1));
        if (other.empty()) {
            return false;
        }
        devices_[other] = device;
        at = comma;
    }
    return true;
}

void ReportNames::apply(std::vector<Report>* reports) const {
    for (Report& report : *reports) {
        const auto device = devices_.find(report.device);
        if (device != devices_.end()) {
            report.device = device->second;
        }
        const auto error = errors_.find(report.error_no);
        if (report.has_error_no && error != errors_.end()) {
            report.error_name = error->second;
        }
    }
}

}  // namespace tools
