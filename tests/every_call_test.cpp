// Each system call of a report fails once. Earlier reports stay as they are, the log tells what is missing of
// this one, and the next one is whole.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iostream>

#include "output/record_file.h"
#include "tests/bring_up.h"
#include "tests/failing_calls.h"
#include "tests/report_steps.h"
#include "tests/sanitized.h"

namespace {

constexpr char ANNOUNCED[] = "/data/announced";  // a commercial record, as it was when it was removed

// What may fail without a line in the log: nobody is told of a commercial record that cannot be written or
// removed.
const std::set<std::string> UNTOLD = {"commercial record"};

// Where calls are slow, only every third one fails.
constexpr size_t STEP = SANITIZED || sizeof(void*) == 4 ? 3 : 1;

enum class RecordFile { OPEN, FULL, CLOSED, NO_DIRECTORY };

struct situation {
    const char* name;
    bool commercial;
    RecordFile record_file;  // when the report begins
};

void PrintTo(const situation& s, std::ostream* out) {
    *out << s.name;
}

// Makes the situation anew. `kept` is an earlier archive.
void prepare(const situation& at, const std::string& record_text, const std::string& kept) {
    const bool no_directory = at.record_file == RecordFile::NO_DIRECTORY;
    for (const std::string& name : names_in(LOG_DIR)) {
        if (no_directory || LOGS + name != kept) {
            unlink((LOGS + name).c_str());
        }
    }
    const MutexLock lock(output_lock);
    record.fd.reset();
    if (no_directory) {
        rmdir(LOG_DIR);
        return;
    }
    if (at.record_file != RecordFile::CLOSED) {
        find_recently_file();
    }
    write_file(RECORD, record_text);
    if (at.record_file == RecordFile::FULL) {
        set_file_time(RECORD, time(nullptr) + 3600);  // the report dates it back, however long it takes
    }
}

std::set<std::string> failed_steps_of(int number, const situation& at) {
    std::set<std::string> failed = failed_steps(number, at.commercial);
    const bool is_gone = failed.count("commercial record") == 0;
    if (at.commercial && is_gone && !reports_in(read_file(ANNOUNCED))[number]) {
        failed.insert("announced record");
    }
    return failed;
}

// What the log says, without numbers.
std::set<std::string> lines_of(const LogCapture& log) {
    std::set<std::string> lines;
    for (std::string line : log.lines()) {
        line.erase(std::remove_if(line.begin(), line.end(), isdigit), line.end());
        lines.insert(line);
    }
    return lines;
}

class EveryCall : public testing::TestWithParam<situation> {};

}  // namespace

TEST_P(EveryCall, FailsOnce) {
    const situation at = GetParam();
    LogCapture log;
    set_commercial(at.commercial);
    replace_command("rm", "cat \"$1\" >" + std::string(ANNOUNCED) + "; /bin/rm \"$1\"");
    int number = 10000;
    report(number);
    const std::string kept = LOGS + output_of("cd " + LOGS + "; printf %s dmd_dump_*");
    const std::string archive = read_file(kept);
    const std::string record_text =
        std::string(at.record_file == RecordFile::FULL ? 512 * 1024 : 0, '\n') + read_file(RECORD);
    const int descriptors = open_descriptors("self");
    const std::set<std::string> none;
    std::set<std::string> lines;
    const auto report_with = [&](size_t failing, int error) {
        prepare(at, record_text, kept);
        log.clear();
        ++number;
        std::vector<const failing_call*> calls =
            run_with_failing_call([&] { report(number); }, failing, error);
        lines = lines_of(log);
        return calls;
    };

    const std::vector<const failing_call*> calls = report_with(SIZE_MAX, 0);
    if (calls.empty()) {
        GTEST_SKIP() << "this kernel lets nobody answer calls";
    }
    EXPECT_EQ(none, failed_steps_of(number, at));
    const std::set<std::string> routine = lines;
    std::set<std::string> all_lines;
    int faults = 0;
    for (size_t i = 0; i < calls.size(); i += STEP) {
        for (const int error : calls[i]->errors) {
            SCOPED_TRACE(std::to_string(i) + " " + calls[i]->name + ": " + strerror(error));
            ++faults;
            const std::vector<const failing_call*> made = report_with(i, error);
            ASSERT_LT(i, made.size());
            EXPECT_STREQ(calls[i]->name, made[i]->name) << "not the same call";
            const std::set<std::string> failed = failed_steps_of(number, at);
            const bool told = !std::includes(routine.begin(), routine.end(), lines.begin(), lines.end());
            // No step shows a flush that has failed.
            const bool must_be_told =
                calls[i]->name == std::string("fsync") ||
                !std::includes(UNTOLD.begin(), UNTOLD.end(), failed.begin(), failed.end());
            EXPECT_TRUE(told || !must_be_told) << testing::PrintToString(failed);
            const auto expect_earlier_ones = [&] {
                if (at.record_file != RecordFile::NO_DIRECTORY) {
                    EXPECT_EQ(record_text, read_file(RECORD).substr(0, record_text.size()));
                    EXPECT_EQ(archive, read_file(kept));
                }
            };
            expect_earlier_ones();
            all_lines.insert(lines.begin(), lines.end());
            report(++number);
            EXPECT_EQ(none, failed_steps_of(number, at)) << "the next report";
            expect_earlier_ones();
            EXPECT_EQ(descriptors, open_descriptors("self"));
            EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a command is left";
        }
    }
    const std::string file = LOGS + "dmd_record_.txt";
    for (const std::string part :
         {"the head of a report", "the list of processes", "\"[Content]:\"", "the report"}) {
        const auto is_told = [&](const std::string& line) {
            return line.find(part + " in " + file + " is cut or lost") != std::string::npos;
        };
        EXPECT_TRUE(STEP > 1 || std::any_of(all_lines.begin(), all_lines.end(), is_told)) << part;
    }
    std::cout << at.name << ": " << calls.size() << " calls, " << faults << " faults\n";
}

INSTANTIATE_TEST_SUITE_P(Situations, EveryCall,
                         testing::Values(situation{"Commercial", true, RecordFile::OPEN},
                                         situation{"CommercialNextFile", true, RecordFile::FULL},
                                         situation{"CommercialFirst", true, RecordFile::CLOSED},
                                         situation{"CommercialNoDirectory", true, RecordFile::NO_DIRECTORY},
                                         situation{"Debug", false, RecordFile::OPEN}),
                         [](const auto& at) { return std::string(at.param.name); });
