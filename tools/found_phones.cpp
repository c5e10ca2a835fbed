// Searching folders and packed pulls.
#include "tools/found_phones.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

#include "tools/archive_reader.h"
#include "tools/dump_name.h"
#include "tools/pulled_file.h"
#include "tools/spool.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr char NO_FILE[] = "holds no file named dmd_record_N.txt, dmd_commercial_record.txt or dmd_dump_*";

// Bytes, uncompressed, after which no more of a packed pull is read.
constexpr uint64_t PULL_MAX = uint64_t{64} << 30;

// Folders of the phone's own: they tell no phone from another.
const std::set<std::string> OWN_FOLDERS = {"data", "kvdx_logs", "dmd_log", ".", ""};

// A file of one of the paths, and the folders between the path and it.
struct Candidate {
    FoundFile file;
    std::vector<std::string> folders;
};

bool is_ours(const std::string& name) {
    return is_record_name(name) || parse_dump_name(name).has_value();
}

// The name of a packed pull without what says how it is packed; empty when it is none by its name.
std::string stem_of(const std::string& name) {
    static const std::regex form("(.+)\\.(?:zip|tar|tgz|txz|tar\\.gz|tar\\.xz)", std::regex::icase);
    std::smatch parts;
    return std::regex_match(name, parts, form) && !parse_dump_name(name) ? parts[1].str() : "";
}

class Search {
  public:
    explicit Search(std::vector<Problem>* problems) : problems_(problems) {}

    // Returns what the path names or holds.
    std::vector<Candidate> path(const std::string& path);

  private:
    void folder(const std::string& folder);
    void file(const std::string& path, const struct stat& status);
    void named_file(const std::string& path, const struct stat& status);
    void pull(const std::string& path);
    void note(const std::string& file, const std::string& text) { problems_->push_back({"", file, text}); }

    std::vector<Problem>* problems_;
    std::set<std::pair<dev_t, ino_t>> seen_;
    Spool spool_;
    // Of the path at hand.
    std::vector<Candidate> found_;
    std::vector<std::string> folders_;
    bool found_any_ = false;  // also what was found before
};

std::vector<Candidate> Search::path(const std::string& path) {
    found_.clear();
    found_any_ = false;
    const size_t problems_before = problems_->size();
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        note(path, strerror(errno));
    } else if (S_ISDIR(status.st_mode)) {
        folder(path);
    } else {
        named_file(path, status);
    }
    if (!found_any_ && problems_->size() == problems_before) {
        note(path, NO_FILE);
    }
    return std::move(found_);
}

void Search::folder(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); entry != fs::directory_iterator();
         entry.increment(error)) {
        names.push_back(entry->path().filename());
    }
    if (error) {
        note(folder, error.message());
    }
    std::sort(names.begin(), names.end());
    std::stable_partition(names.begin(), names.end(), is_record_name);
    for (const std::string& name : names) {
        const std::string path = fs::path(folder) / name;
        const std::string stem = stem_of(name);
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) {
            note(path, strerror(errno));
        } else if (S_ISDIR(status.st_mode)) {
            folders_.push_back(name);
            this->folder(path);
            folders_.pop_back();
        } else if (!is_ours(name) && (stem.empty() || S_ISLNK(status.st_mode))) {
            continue;
        } else if (S_ISLNK(status.st_mode)) {
            note(path, "is a symbolic link, which is not followed");
        } else if (is_ours(name)) {
            file(path, status);
        } else if (S_ISREG(status.st_mode) && seen_.insert({status.st_dev, status.st_ino}).second) {
            folders_.push_back(stem);
            pull(path);
            folders_.pop_back();
        }
    }
}

void Search::file(const std::string& path, const struct stat& status) {
    found_any_ = true;
    if (seen_.insert({status.st_dev, status.st_ino}).second) {
        found_.push_back({{path}, folders_});
    }
}

// What is named may have any name: its bytes tell whether it is a packed pull.
void Search::named_file(const std::string& path, const struct stat& status) {
    bool is_packed = false;
    if (S_ISREG(status.st_mode) && !is_ours(path)) {
        try {
            is_packed = is_pull(PulledFile({path}).peek());
        } catch (const Unreadable&) {
            // It is said when the file is read.
        }
    }
    if (!is_packed) {
        file(path, status);
    } else if (seen_.insert({status.st_dev, status.st_ino}).second) {
        pull(path);
    } else {
        found_any_ = true;
    }
}

// Unpacks the phone's files.
void Search::pull(const std::string& path) {
    const size_t found_before = found_.size();
    std::string damage;
    try {
        PulledFile file({path}, PULL_MAX);
        ArchiveReader archive(&file);
        while (archive.next()) {
            const fs::path member = fs::path("/" + archive.name()).lexically_normal().relative_path();
            const std::string name = member.filename();
            const std::string shown = fs::path(path) / member;
            if (!archive.is_file()) {
                continue;
            }
            if (!is_ours(name)) {
                if (!stem_of(name).empty()) {
                    note(shown, "is packed twice, and is read only when " + path + " is unpacked");
                }
                continue;
            }
            const uint64_t begin = spool_.size();
            for (std::string_view piece = archive.read(); !piece.empty(); piece = archive.read()) {
                spool_.add(piece);
            }
            std::vector<std::string> folders = folders_;
            for (const fs::path& folder : member.parent_path()) {
                folders.push_back(folder);
            }
            if (spool_.fd()) {
                found_.push_back({{shown, spool_.fd(), begin, spool_.size(), archive.is_cut()}, folders});
            }
        }
        damage = archive.damage();
    } catch (const Unreadable& error) {
        damage = error.what();
    }
    found_any_ = found_any_ || found_.size() > found_before;
    if (!damage.empty()) {
        note(path, damage);
        for (size_t i = found_before; i < found_.size(); ++i) {
            found_[i].file.damaged = true;
        }
    }
    // As in a folder.
    const auto order = [](const Candidate& candidate) {
        return std::make_tuple(std::cref(candidate.folders), !is_record_name(candidate.file.path),
                               std::cref(candidate.file.path));
    };
    std::stable_sort(
        found_.begin() + static_cast<ptrdiff_t>(found_before), found_.end(),
        [&](const Candidate& left, const Candidate& right) { return order(left) < order(right); });
}

// The last of the names that is not one of the phone's own; empty when all are.
std::string telling_name(const std::vector<std::string>& names) {
    const auto found = std::find_if(names.rbegin(), names.rend(),
                                    [](const std::string& name) { return OWN_FOLDERS.count(name) == 0; });
    return found == names.rend() ? "" : *found;
}

// The name of the phone that a path itself is.
std::string name_of(const std::string& path) {
    std::error_code error;
    fs::path whole = fs::canonical(path, error);
    if (error) {
        whole = path;
    }
    std::vector<std::string> folders;
    for (const fs::path& folder : fs::is_directory(whole, error) ? whole : whole.parent_path()) {
        folders.push_back(folder);
    }
    const std::string stem = fs::is_directory(whole, error) ? "" : stem_of(whole.filename());
    const std::string name = stem.empty() ? telling_name(folders) : stem;
    return name.empty() || name == "/" ? "phone" : name;
}

// Gives each candidate of the path its phone's name.
std::vector<std::string> name_phones(const std::string& path, const std::vector<Candidate>& candidates) {
    // A folder that all are in tells none from another.
    size_t depth = 0;
    const auto all_share = [&] {
        return std::all_of(candidates.begin(), candidates.end(), [&](const Candidate& candidate) {
            return candidate.folders.size() > depth &&
                   candidate.folders[depth] == candidates[0].folders[depth];
        });
    };
    while (!candidates.empty() && all_share()) {
        ++depth;
    }
    const bool is_one = std::any_of(candidates.begin(), candidates.end(), [&](const Candidate& candidate) {
        return candidate.folders.size() == depth;
    });
    std::vector<std::string> names;
    for (const Candidate& candidate : candidates) {
        names.push_back(is_one ? "" : candidate.folders[depth]);
    }
    if (is_one) {
        const auto begin = candidates[0].folders.begin();
        const std::string shared = telling_name({begin, begin + static_cast<ptrdiff_t>(depth)});
        names.assign(names.size(), shared.empty() ? name_of(path) : shared);
    }
    return names;
}

// The pattern as an expression that fits the beginning of a path, whole folders.
std::regex expression_of(const std::string& pattern) {
    std::string expression;
    for (size_t at = 0; at < pattern.size(); ++at) {
        if (pattern.compare(at, strlen(PHONE_MARK), PHONE_MARK) == 0) {
            expression += "([^/]+?)";
            at += strlen(PHONE_MARK) - 1;
        } else if (pattern[at] == '*') {
            expression += "[^/]*";
        } else if (pattern[at] == '?') {
            expression += "[^/]";
        } else {
            expression += std::string("\\^$.|+()[]{}").find(pattern[at]) == std::string::npos ? "" : "\\";
            expression += pattern[at];
        }
    }
    return std::regex("(?:" + expression + ")(?:/.*)?");
}

std::optional<std::string> name_from(const std::regex& expression, const Candidate& candidate) {
    std::string folders;
    for (const std::string& folder : candidate.folders) {
        folders += (folders.empty() ? "" : "/") + folder;
    }
    std::smatch parts;
    return std::regex_match(folders, parts, expression) ? std::optional(parts[1].str()) : std::nullopt;
}

}  // namespace

FoundPhones find_phones(const std::vector<std::string>& paths, const std::string& phone_from) {
    FoundPhones found;
    Search search(&found.problems);
    std::map<std::string, std::vector<FoundFile>> files;
    const std::regex expression = expression_of(phone_from);
    for (const std::string& path : paths) {
        std::vector<Candidate> candidates = search.path(path);
        std::vector<std::string> names = name_phones(path, candidates);
        for (size_t i = 0; i < candidates.size(); ++i) {
            if (!phone_from.empty()) {
                const std::optional<std::string> name = name_from(expression, candidates[i]);
                if (name) {
                    names[i] = *name;
                } else {
                    found.problems.push_back({names[i], candidates[i].file.path,
                                              "no folder names its phone as --phone-from says"});
                }
            }
            files[names[i]].push_back(std::move(candidates[i].file));
        }
    }
    for (auto& [name, list] : files) {
        found.phones.push_back({name, std::move(list)});
    }
    return found;
}

}  // namespace tools
