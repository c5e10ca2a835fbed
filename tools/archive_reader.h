// Reading the members of an archive that was pulled from a phone.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tools/pulled_file.h"

struct archive;
struct archive_entry;

namespace tools {

// Whether the bytes begin a tar archive.
bool is_tar(std::string_view beginning);

// Whether the bytes begin what a pull may be packed in: a tar archive, one that xz compressed, or a zip
// archive.
bool is_pull(std::string_view beginning);

// The members of an archive, one after the other.
class ArchiveReader {
  public:
    // The file, of which is_tar or is_pull is true, must outlive the reader. Throws Unreadable when it cannot
    // be opened.
    explicit ArchiveReader(PulledFile* file);

    // Goes to the next member. False at the end, and where no more can be read.
    bool next();
    // Of the member at hand.
    std::string name() const;
    bool is_file() const;
    bool is_folder() const;
    std::string hard_link() const;  // the member that it is another name of; empty: none
    int64_t time() const;           // 0: none
    // The next bytes of the member, valid until the next call. None at its end.
    std::string_view read();
    bool is_cut() const { return is_cut_; }  // bytes of the member are missing

    // After the last member, as PulledFile's.
    const std::string& damage() const { return damage_; }
    // Whether it was read from its first member to its end.
    bool is_complete() const { return is_complete_; }

  private:
    void note(const std::string& damage);
    void finish();

    PulledFile* file_;
    std::string_view piece_;  // of the file, the last one read
    const bool is_tar_;       // of which libarchive says what stands where
    std::unique_ptr<archive, int (*)(archive*)> archive_;
    archive_entry* entry_ = nullptr;
    uint64_t member_bytes_ = 0;  // of the member at hand, as far as it is read
    uint64_t bytes_read_ = 0;    // of all
    bool is_over_ = false;
    bool is_cut_ = false;
    bool is_complete_ = false;
    std::string damage_;
};

}  // namespace tools
