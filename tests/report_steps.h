// Reports whose every step can be looked at afterwards.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "tests/phone_test.h"

const std::string LOGS = std::string(LOG_DIR) + "/";

// What the driver tells with an error number. More than a page, so that a write of it can be cut.
std::string text_of(int number);

// The reports that stand there: by error number, whether each is whole, with its head, the process lines and
// exactly its text. A number that stands there again is negative, one that cannot be told is 0.
std::map<int, bool> reports_in(std::string_view bytes);
// Those in the record files.
std::map<int, bool> read_reports();

// Writes a report with the number and its text.
void report(int number);

// The steps of a report that have not brought what they should.
std::set<std::string> failed_steps(int number, bool commercial);
