// Finding the phones' files where a person says they are.
#pragma once

#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

struct FoundPhone {
    std::string name;
    std::vector<FoundFile>
        files;  // records first: reports of one second so keep the order they were written in
};

struct FoundPhones {
    std::vector<FoundPhone> phones;  // by name
    std::vector<Problem> problems;   // what cannot be searched
};

// Where a path below a PATH has the phone's name, in a pattern.
constexpr char PHONE_MARK[] = "{phone}";

// Finds the files that the paths name, and of folders and packed pulls all below them that have a name of the
// phone's. A file that is named twice is there once. Files of packed pulls are unpacked into one file without
// a name in TMPDIR, or in /var/tmp, which ends with the last FoundFile.
//
// A path that holds such files itself, or only in one folder below, is one phone. Otherwise the first
// folders, or packed pulls, that hold some are the phones. If `phone_from` is not empty, it is a pattern for
// the folders below each path, "day-*/{phone}" say, and names the phone instead. Two pulls whose phones have
// one name are of one phone.
FoundPhones find_phones(const std::vector<std::string>& paths, const std::string& phone_from);

}  // namespace tools
