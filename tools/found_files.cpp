// Searching folders.
#include "tools/found_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "tools/dump_name.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

class Search {
  public:
    Search(std::vector<std::string>* files, std::vector<Problem>* problems)
        : files_(files), problems_(problems) {}

    void path(const std::string& path);

  private:
    void folder(const std::string& folder);
    void file(const std::string& path, const struct stat& status);

    std::vector<std::string>* files_;
    std::vector<Problem>* problems_;
    std::set<std::pair<dev_t, ino_t>> seen_;
    bool found_any_ = false;
};

void Search::path(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        problems_->push_back({path, strerror(errno)});
        return;
    }
    if (!S_ISDIR(status.st_mode)) {
        file(path, status);
        return;
    }
    const size_t problems_before = problems_->size();
    found_any_ = false;
    folder(path);
    if (!found_any_ && problems_->size() == problems_before) {
        problems_->push_back(
            {path, "holds no file named dmd_record_N.txt, dmd_commercial_record.txt or dmd_dump_*"});
    }
}

void Search::folder(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); entry != fs::directory_iterator();
         entry.increment(error)) {
        names.push_back(entry->path().filename());
    }
    if (error) {
        problems_->push_back({folder, error.message()});
    }
    std::sort(names.begin(), names.end());
    std::stable_partition(names.begin(), names.end(), is_record_name);
    for (const std::string& name : names) {
        const std::string path = fs::path(folder) / name;
        const bool is_ours = is_record_name(name) || parse_dump_name(name).has_value();
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) {
            problems_->push_back({path, strerror(errno)});
        } else if (S_ISDIR(status.st_mode)) {
            this->folder(path);
        } else if (is_ours && S_ISLNK(status.st_mode)) {
            problems_->push_back({path, "is a symbolic link, which is not followed"});
        } else if (is_ours) {
            file(path, status);
        }
    }
}

void Search::file(const std::string& path, const struct stat& status) {
    found_any_ = true;
    if (seen_.insert({status.st_dev, status.st_ino}).second) {
        files_->push_back(path);
    }
}

}  // namespace

std::vector<std::string> find_files(const std::vector<std::string>& paths, std::vector<Problem>* problems) {
    std::vector<std::string> files;
    Search search(&files, problems);
    for (const std::string& path : paths) {
        search.path(path);
    }
    return files;
}

}  // namespace tools
