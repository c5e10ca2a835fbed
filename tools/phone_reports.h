// All reports and dumps in the files pulled from phones.
#pragma once

#include <deque>
#include <functional>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/found_phones.h"
#include "tools/report.h"

namespace tools {

// What was found on one phone. A report that stands in several of its files is one.
struct PhoneReports {
    std::string phone;
    std::vector<Report> reports;  // by date and time; those whose date is not known come last
    std::vector<Problem> problems;
    size_t files = 0;  // that were read
};

PhoneReports read_phone(const FoundPhone& phone);

// Reads the phones, a few at a time so that no processor waits, and does the work with each, both in threads
// of their own. Hands what came of it over in the phones' order, in the caller's thread. Throws what any of
// it throws.
template <class Result>
void read_phones(const std::vector<FoundPhone>& phones, const std::function<Result(PhoneReports)>& work,
                 const std::function<void(Result)>& take) {
    const size_t at_a_time = std::thread::hardware_concurrency() + 1;
    std::deque<std::future<Result>> reading;
    size_t next = 0;
    while (next < phones.size() || !reading.empty()) {
        if (next < phones.size() && reading.size() < at_a_time) {
            reading.push_back(std::async(std::launch::async,
                                         [&work, &phone = phones[next]] { return work(read_phone(phone)); }));
            ++next;
        } else {
            take(reading.front().get());
            reading.pop_front();
        }
    }
}

// The reports of all phones, by date and time and then by phone, numbered; those without a date come last.
std::vector<Report> all_by_time(std::vector<PhoneReports> phones);

// Gives the bytes of a dump that is no archive, piece by piece, until `take` returns false. Throws
// Unreadable.
void read_dump(const Report& dump, const std::function<bool(std::string_view)>& take);

// Whether the dump is an archive, whose bytes are those of its attachments.
bool is_archive(const Report& dump);

}  // namespace tools
