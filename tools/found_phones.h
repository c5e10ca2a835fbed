// Finding the phones' files where a person says they are.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

struct FoundPhone {
    std::string name;
    std::vector<FoundFile> files;  // of a folder records first: so reports of one second keep their order
};

struct FoundPhones {
    std::vector<FoundPhone> phones;  // by name
    std::vector<Problem> problems;   // what cannot be searched
};

// Where a path has the phone's name, in a pattern.
constexpr char PHONE_MARK[] = "{phone}";

// Finds the files that the paths name, and of folders and packed pulls all below them that have a name of the
// phone's. A phone has a file once, however often that is named. Files of packed pulls are unpacked into one
// file without a name in TMPDIR, or in /var/tmp, which ends with the last FoundFile; `unpacking` is told of
// each pull before.
//
// The phones are the first folders below a path that hold such files, if they are several; a packed pull is
// like a folder. A folder that holds all the rest, the phone's own folders (data, kvdx_logs, dmd_log) and
// those that name a day do not count. A path with such files in none of these folders is one phone, named
// after its folder or as the packed pull. If `phone_from` is not empty, it is a pattern for the paths as they
// are shown, "pulls/*/{phone}" say, and names the phone instead. Files whose phones have one name are of one
// phone.
FoundPhones find_phones(
    const std::vector<std::string>& paths, const std::string& phone_from,
    const std::function<void(const std::string&)>& unpacking = [](const std::string&) {});

}  // namespace tools
