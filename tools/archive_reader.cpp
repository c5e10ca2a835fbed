// Archives, as much of them as can be read.
#include "tools/archive_reader.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cstring>

namespace tools {
namespace {

constexpr size_t TAR_BLOCK = 512;
constexpr size_t TAR_MARK_AT = 257;
constexpr std::string_view TAR_MARK = "ustar";
constexpr std::string_view XZ_MARK =
    "\xfd"
    "7zXZ";
constexpr std::string_view ZIP_MARK = "PK\x03\x04";

// Bytes of a member's name that are kept.
constexpr size_t NAME_MAX_BYTES = 4096;

constexpr char NO_NAME[] = "(a name that cannot be read)";

// Bytes after which no more of the members is read.
constexpr uint64_t MEMBERS_BYTES_MAX = uint64_t{64} << 30;

bool is_zero(std::string_view bytes) {
    return bytes.find_first_not_of('\0') == std::string_view::npos;
}

std::string error_of(archive* reader) {
    const char* const text = archive_error_string(reader);
    return text == nullptr ? "it cannot be read" : text;
}

}  // namespace

bool is_tar(std::string_view beginning) {
    return beginning.size() >= TAR_BLOCK && beginning.substr(TAR_MARK_AT, TAR_MARK.size()) == TAR_MARK;
}

bool is_pull(std::string_view beginning) {
    const auto begins = [&](std::string_view mark) { return beginning.substr(0, mark.size()) == mark; };
    return is_tar(beginning) || begins(XZ_MARK) || begins(ZIP_MARK);
}

ArchiveReader::ArchiveReader(PulledFile* file)
    : file_(file), is_tar_(is_tar(file->peek())), archive_(archive_read_new(), archive_read_free) {
    const auto read_piece = [](archive*, void* context, const void** bytes) -> la_ssize_t {
        auto* const self = static_cast<ArchiveReader*>(context);
        self->piece_ = self->file_->read();
        *bytes = self->piece_.data();
        return static_cast<la_ssize_t>(self->piece_.size());
    };
    if (archive_ == nullptr || archive_read_support_format_tar(archive_.get()) != ARCHIVE_OK) {
        throw std::bad_alloc();
    }
    if (!is_tar_) {
        archive_read_support_filter_xz(archive_.get());
        archive_read_support_format_zip(archive_.get());
        archive_read_set_option(archive_.get(), "tar", "read_concatenated_archives", "1");
    }
    if (archive_read_open(archive_.get(), this, nullptr, read_piece, nullptr) != ARCHIVE_OK) {
        throw Unreadable(error_of(archive_.get()));
    }
}

bool ArchiveReader::next() {
    while (!is_over_ && !read().empty()) {
        // What was not asked for is passed over piece by piece, and so within the file's limit.
    }
    is_cut_ = false;
    member_bytes_ = 0;
    int64_t position = -1;
    while (!is_over_) {
        const int result = archive_read_next_header(archive_.get(), &entry_);
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
            if (name() == NO_NAME) {
                note("holds a member whose name cannot be read");
            }
            return true;
        }
        const int64_t read_to = archive_filter_bytes(archive_.get(), 0);
        if (result == ARCHIVE_EOF) {
            const bool is_tar =
                (archive_format(archive_.get()) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_TAR;
            if (is_tar && read_to == archive_read_header_position(archive_.get())) {
                note("is cut: the archive has no end");
            }
            is_complete_ = damage_.empty();
            finish();
        } else {
            note("is damaged after " + std::to_string(read_to) + " bytes: " + error_of(archive_.get()));
            // What stands behind a damaged header may be readable.
            is_over_ = result != ARCHIVE_RETRY || read_to <= position;
            position = read_to;
        }
    }
    return false;
}

std::string ArchiveReader::name() const {
    const char* name = archive_entry_pathname(entry_);
    if (name == nullptr) {
        name = archive_entry_pathname_utf8(entry_);
    }
    return name == nullptr ? NO_NAME : std::string(name, strnlen(name, NAME_MAX_BYTES));
}

bool ArchiveReader::is_file() const {
    return archive_entry_filetype(entry_) == AE_IFREG;
}

bool ArchiveReader::is_folder() const {
    return archive_entry_filetype(entry_) == AE_IFDIR;
}

std::string ArchiveReader::hard_link() const {
    const char* const name = archive_entry_hardlink(entry_);
    return name == nullptr ? "" : name;
}

int64_t ArchiveReader::time() const {
    return archive_entry_mtime_is_set(entry_) != 0 ? archive_entry_mtime(entry_) : 0;
}

std::string_view ArchiveReader::read() {
    const void* bytes = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int result = entry_ == nullptr ? ARCHIVE_EOF : ARCHIVE_OK;
    while (result == ARCHIVE_OK && size == 0) {
        result = archive_read_data_block(archive_.get(), &bytes, &size, &offset);
    }
    if (size > 0 && static_cast<uint64_t>(offset) != member_bytes_) {
        note("has a member with holes, which are left out: " + name());
    }
    member_bytes_ = static_cast<uint64_t>(offset) + size;
    bytes_read_ += size;
    if (bytes_read_ > MEMBERS_BYTES_MAX) {
        note("is read no further than its first 64 GiB");
        is_cut_ = true;
        is_over_ = true;
        entry_ = nullptr;
        return {};
    }
    if (result == ARCHIVE_OK) {
        return {static_cast<const char*>(bytes), size};
    }
    if (result != ARCHIVE_EOF && result != ARCHIVE_FATAL && size > 0) {
        // Its last bytes come with the news that its checksum is wrong.
        note("is damaged in " + name() + ": " + error_of(archive_.get()));
        entry_ = nullptr;
        return {static_cast<const char*>(bytes), size};
    }
    if (result != ARCHIVE_EOF) {
        is_cut_ = true;
        is_over_ = result == ARCHIVE_FATAL;
        note(is_tar_ ? "is cut within " + name()
                     : "cannot be read to the end of " + name() + ": " + error_of(archive_.get()));
    }
    entry_ = nullptr;
    return {};
}

// What is wrong with the file below says more.
void ArchiveReader::note(const std::string& damage) {
    if (damage_.empty()) {
        damage_ = file_->damage().empty() ? damage : file_->damage();
    }
}

// Reads the file to its end, where its checksum stands.
void ArchiveReader::finish() {
    is_over_ = true;
    // libarchive has stopped within the last piece.
    const auto behind = file_->bytes_read() - static_cast<uint64_t>(archive_filter_bytes(archive_.get(), 0));
    std::string_view piece = piece_.substr(piece_.size() - std::min<uint64_t>(behind, piece_.size()));
    while (!piece.empty()) {
        if (is_tar_ && !is_zero(piece)) {
            note("has bytes behind the end of the archive, which are not read");
        }
        piece = file_->read();
    }
    if (!file_->damage().empty()) {
        note(file_->damage());
    }
}

}  // namespace tools
