// The reports found on a phone, each once: which of them are the same, and in which order they are told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/dump_name.h"
#include "tools/report.h"

namespace tools {

// Holds no more of a phone than fits into a desk's memory: what adds to it throws Unreadable beyond that.
class FoundReports {
  public:
    // Adds a report, or one more place of it when there is the same with that key. Returns its index.
    size_t add(Report report, const ReportPlace& place, uint64_t key);
    // Adds the reports of a record, in their order. Returns the index of each.
    std::vector<size_t> add_record(std::vector<Report> reports, const ReportPlace& place);
    // Tells that an archive of that name has a record with these reports, and what it holds beside.
    void add_archive(const std::string& path, const DumpName& name, const std::vector<size_t>& reports,
                     std::vector<Attachment> attachments);
    // Tells that a file, of which something was added, is damaged.
    void add_damage(const std::string& path);

    // Gives all away, by date and time; those whose date is not known come last. A copy that is cut counts as
    // a place of the whole report, when that is there.
    std::vector<Report> take();

  private:
    using ByBytes = std::multimap<std::string, size_t>;  // indices of reports

    void make_room(size_t bytes);
    std::optional<size_t> find_longer(const ByBytes& by_bytes, size_t index) const;
    void join_cut_copies();

    std::vector<Report> reports_;
    std::unordered_map<uint64_t, size_t> index_by_key_;
    // By folder: how often its rolling files hold the report of a hash.
    std::unordered_map<std::string, std::unordered_map<uint64_t, size_t>> rolling_;
    size_t bytes_ = 0;
    size_t places_ = 0;
};

// By date and time; those whose date is not known come last, and those of one second keep their order.
void sort_by_time(std::vector<Report>* reports);

}  // namespace tools
