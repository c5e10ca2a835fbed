// Searching folders and packed pulls.
#include "tools/found_phones.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

#include "tools/archive_reader.h"
#include "tools/dump_name.h"
#include "tools/pulled_file.h"
#include "tools/spool.h"
#include "tools/terminal.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr char NO_FILE[] = "holds no file named dmd_record_N.txt, dmd_commercial_record.txt or dmd_dump_*";

// Bytes, uncompressed, after which no more of a packed pull is read.
constexpr uint64_t PULL_MAX = uint64_t{64} << 30;

// A file of one of the paths.
struct Candidate {
    FoundFile file;
    std::string identity;              // the same for one file found twice
    std::vector<std::string> folders;  // between the path and it
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

// Whether the folder can tell a phone from others: not if it is one of the phone's own, or names a day.
bool can_name_a_phone(const std::string& folder) {
    static const std::regex others(
        "|/|\\.|\\.\\.|data|kvdx_logs|dmd_log|20[0-9]{2}-[0-9]{2}(-[0-9]{2}([ T_].*)?)?");
    return !std::regex_match(folder, others);
}

std::string identity_of(const struct stat& status) {
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

class Search {
  public:
    Search(std::vector<Problem>* problems, const std::function<void(const std::string&)>& unpacking)
        : problems_(problems), unpacking_(unpacking) {}

    // Returns what the path names or holds.
    std::vector<Candidate> path(const std::string& path);

  private:
    void folder(const std::string& folder);
    void file(const std::string& path, const struct stat& status);
    void named_file(const std::string& path, const struct stat& status);
    void pull(const std::string& path, const struct stat& status);
    void member(const std::string& pull, const std::string& identity, ArchiveReader* archive);
    FoundFile spooled(ArchiveReader* archive);
    void note(const std::string& file, const std::string& text) { problems_->push_back({"", file, text}); }

    std::vector<Problem>* problems_;
    const std::function<void(const std::string&)>& unpacking_;
    Spool spool_;
    std::map<std::string, FoundFile> members_;  // of the pull at hand, for hard links to them
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
        } else if (S_ISLNK(status.st_mode)) {
            if (is_ours(name) || fs::is_directory(path, error)) {
                note(path, "is a symbolic link, which is not followed");
            }
        } else if (is_ours(name)) {
            file(path, status);
        } else if (!stem.empty() && S_ISREG(status.st_mode)) {
            folders_.push_back(stem);
            pull(path, status);
            folders_.pop_back();
        }
    }
}

void Search::file(const std::string& path, const struct stat& status) {
    found_any_ = true;
    found_.push_back({{path}, identity_of(status), folders_});
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
    if (is_packed) {
        pull(path, status);
    } else {
        file(path, status);
    }
}

// Unpacks the phone's files.
void Search::pull(const std::string& path, const struct stat& status) {
    unpacking_(path);
    const size_t found_before = found_.size();
    members_.clear();
    std::string damage;
    try {
        PulledFile file({path}, PULL_MAX);
        ArchiveReader archive(&file);
        while (archive.next()) {
            member(path, identity_of(status), &archive);
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

// Takes a member of a pull, if it is one of the phone's files.
void Search::member(const std::string& pull, const std::string& identity, ArchiveReader* archive) {
    const std::string member_name = archive->name();
    const fs::path path = fs::path("/" + member_name).lexically_normal().relative_path();
    const std::string name = path.filename();
    const std::string shown = fs::path(pull) / path;
    const auto linked = members_.find(archive->hard_link());
    FoundFile file;
    if (!is_ours(name)) {
        if (archive->is_file() && !stem_of(name).empty()) {
            note(shown, "is packed twice, and is read only when " + pull + " is unpacked");
        }
        return;
    }
    if (linked != members_.end()) {
        file = linked->second;
    } else if (archive->is_file()) {
        file = spooled(archive);
        if (file.cut && file.end - file.begin == FILE_MAX) {
            note(shown, "is read no further than its first GiB");
        }
    } else {
        note(shown, "is no regular file");
        return;
    }
    file.path = shown;
    members_[member_name] = file;
    std::vector<std::string> folders = folders_;
    for (const fs::path& folder : path.parent_path()) {
        folders.push_back(folder);
    }
    found_.push_back({file, identity + "/" + path.string(), folders});
}

FoundFile Search::spooled(ArchiveReader* archive) {
    FoundFile file;
    file.begin = spool_.size();
    spool_.add("");
    for (std::string_view piece = archive->read(); !piece.empty(); piece = archive->read()) {
        const uint64_t room = FILE_MAX - (spool_.size() - file.begin);
        file.cut = file.cut || piece.size() > room;
        spool_.add(piece.substr(0, room));
    }
    file.spool = spool_.fd();
    file.end = spool_.size();
    file.cut = file.cut || archive->is_cut();
    return file;
}

// The name of the phone that a path itself is.
std::string name_of(const std::string& path) {
    std::error_code error;
    fs::path whole = fs::canonical(path, error);
    std::string stem = fs::is_directory(whole, error) ? "" : stem_of(whole.filename());
    if (can_name_a_phone(stem)) {
        return stem;
    }
    while (!can_name_a_phone(whole.filename()) || !fs::is_directory(whole, error)) {
        if (whole == whole.parent_path()) {
            return "phone";
        }
        whole = whole.parent_path();
    }
    return whole.filename();
}

// Gives each candidate of the path its phone's name.
std::vector<std::string> name_phones(const std::string& path, const std::vector<Candidate>& candidates) {
    std::vector<std::vector<std::string>> folders(candidates.size());
    for (size_t i = 0; i < candidates.size(); ++i) {
        std::copy_if(candidates[i].folders.begin(), candidates[i].folders.end(),
                     std::back_inserter(folders[i]), can_name_a_phone);
    }
    // A folder that holds all the rest tells none from another.
    size_t depth = 0;
    const auto goes_on = [&](const auto& own) { return own.size() > depth; };
    const auto is_shared = [&](const auto& own) { return own[depth] == folders[0][depth]; };
    bool are_several = std::all_of(folders.begin(), folders.end(), goes_on);
    while (!folders.empty() && are_several && std::all_of(folders.begin(), folders.end(), is_shared)) {
        ++depth;
        are_several = std::all_of(folders.begin(), folders.end(), goes_on);
    }
    std::vector<std::string> names(folders.size(), are_several ? "" : name_of(path));
    for (size_t i = 0; are_several && i < folders.size(); ++i) {
        names[i] = folders[i][depth];
    }
    return names;
}

std::string normal(const std::string& path) {
    const std::string normal = fs::path(path).lexically_normal();
    return normal.size() > 1 && normal.back() == '/' ? normal.substr(0, normal.size() - 1) : normal;
}

// The pattern as an expression that fits a path below it.
std::regex expression_of(const std::string& given) {
    const std::string pattern = normal(given);
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
    return std::regex("(?:" + expression + ")/.*");
}

}  // namespace

FoundPhones find_phones(const std::vector<std::string>& paths, const std::string& phone_from,
                        const std::function<void(const std::string&)>& unpacking) {
    FoundPhones found;
    Search search(&found.problems, unpacking);
    std::map<std::string, std::vector<FoundFile>> files;
    std::map<std::pair<std::string, std::string>, size_t> seen;  // by name and identity: which of its files
    const std::regex expression = expression_of(phone_from);
    for (const std::string& path : paths) {
        std::vector<Candidate> candidates = search.path(path);
        std::vector<std::string> names = name_phones(path, candidates);
        for (size_t i = 0; i < candidates.size(); ++i) {
            auto& [file, identity, folders] = candidates[i];
            const std::string shown = normal(file.path);
            std::smatch parts;
            if (!phone_from.empty() && std::regex_match(shown, parts, expression) &&
                can_name_a_phone(parts[1])) {
                const std::string stem = stem_of(parts[1]);
                names[i] = stem.empty() ? parts[1].str() : stem;
            } else if (!phone_from.empty()) {
                found.problems.push_back(
                    {names[i], file.path, "is not below a folder that --phone-from names"});
            }
            if (!is_utf8(names[i])) {
                names[i] = one_line(names[i]);  // or two names could look the same
            }
            std::vector<FoundFile>& own = files[names[i]];
            const auto [known, is_new] = seen.try_emplace({names[i], identity}, own.size());
            if (is_new) {
                own.push_back(std::move(file));
            } else if (!file.cut) {
                own[known->second] = std::move(file);  // a pull may have a newer copy at its end
            }
        }
    }
    for (auto& [name, list] : files) {
        found.phones.push_back({name, std::move(list)});
    }
    return found;
}

}  // namespace tools
