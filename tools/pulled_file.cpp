// Files and archives, as much of them as can be read.
#include "tools/pulled_file.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tools {
namespace {

constexpr size_t PIECE = 128 * 1024;
constexpr std::string_view GZIP_MARK = "\x1f\x8b";
constexpr char TOO_LONG[] = "is read no further than its first GiB";
constexpr size_t TAR_BLOCK = 512;
constexpr size_t TAR_MARK_AT = 257;
constexpr std::string_view TAR_MARK = "ustar";

// Bytes of a member's name that are kept.
constexpr size_t NAME_MAX_BYTES = 4096;

bool is_zero(std::string_view bytes) {
    return bytes.find_first_not_of('\0') == std::string_view::npos;
}

std::string after_bytes(uint64_t count) {
    return " after " + std::to_string(count) + " bytes";
}

std::string error_of(archive* reader) {
    const char* const text = archive_error_string(reader);
    return text == nullptr ? "it cannot be read" : text;
}

}  // namespace

PulledFile::PulledFile(const std::string& path) {
    struct stat status;
    // What is no file is not even opened: that alone could do something.
    if (stat(path.c_str(), &status) != 0) {
        throw Unreadable(strerror(errno));
    }
    if (S_ISREG(status.st_mode)) {
        fd_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!fd_.valid() || fstat(fd_.get(), &status) != 0) {
            throw Unreadable(strerror(errno));
        }
    }
    if (!S_ISREG(status.st_mode)) {
        throw Unreadable("is no regular file");
    }
    input_.resize(PIECE);
    refill();
    is_empty_ = input_size_ == 0;
    if (is_over_ && is_empty_) {
        throw Unreadable(damage_);
    }
    is_gzip_ = std::string_view(input_.data(), input_size_).substr(0, GZIP_MARK.size()) == GZIP_MARK;
    if (is_gzip_) {
        output_.resize(PIECE);
        constexpr int GZIP_ONLY = 16;
        if (inflateInit2(&stream_, MAX_WBITS + GZIP_ONLY) != Z_OK) {
            throw std::bad_alloc();
        }
        inflateGetHeader(&stream_, &header_);
        stream_.next_in = reinterpret_cast<Bytef*>(input_.data());
        stream_.avail_in = static_cast<uInt>(input_size_);
    }
}

PulledFile::~PulledFile() {
    inflateEnd(&stream_);
}

// Reads from the file until the input is full or the file ends.
void PulledFile::refill() {
    input_size_ = 0;
    ssize_t got = 1;
    while (got > 0 && input_size_ < input_.size()) {
        got = ::read(fd_.get(), input_.data() + input_size_, input_.size() - input_size_);
        input_size_ += got > 0 ? static_cast<size_t>(got) : 0;
    }
    input_read_ += input_size_;
    if (input_read_ > FILE_MAX) {
        give_up(TOO_LONG, true);
    } else if (got < 0) {
        give_up(std::string("could be read only in part: ") + strerror(errno), true);
    }
    stream_.next_in = reinterpret_cast<Bytef*>(input_.data());
    stream_.avail_in = static_cast<uInt>(input_size_);
}

void PulledFile::give_up(const std::string& damage, bool is_cut) {
    is_over_ = true;
    if (damage_.empty()) {
        damage_ = damage;
        is_cut_ = is_cut;
    }
}

std::string_view PulledFile::peek() {
    if (!is_peeked_) {
        piece_ = read();
        is_peeked_ = true;
    }
    return piece_;
}

std::string_view PulledFile::read() {
    if (is_peeked_) {
        is_peeked_ = false;
        return piece_;
    }
    std::string_view piece;
    if (is_gzip_) {
        piece = inflate_piece();
    } else {
        // The constructor has read the first one.
        if (bytes_read_ > 0 && !is_over_) {
            refill();
        }
        piece = std::string_view(input_.data(), input_size_);
        input_size_ = 0;
    }
    if (piece.size() > FILE_MAX - bytes_read_) {
        piece = piece.substr(0, FILE_MAX - bytes_read_);
        give_up(TOO_LONG, true);
    }
    bytes_read_ += piece.size();
    return piece;
}

// Fills the output, as far as that goes.
std::string_view PulledFile::inflate_piece() {
    stream_.next_out = reinterpret_cast<Bytef*>(output_.data());
    stream_.avail_out = static_cast<uInt>(output_.size());
    const auto produced = [this] { return output_.size() - stream_.avail_out; };
    const auto all_read = [&] { return after_bytes(bytes_read_ + produced()); };
    while (!is_over_ && stream_.avail_out > 0) {
        if (stream_.avail_in == 0) {
            refill();
        }
        // Behind compressed data may stand more of it, or nothing.
        const bool is_behind = streams_ > 0 && stream_.total_in == 0;
        if (stream_.avail_in == 0) {
            give_up(is_behind ? "" : "is cut: its compressed data ends too early," + all_read(), !is_behind);
            break;
        }
        const int result = inflate(&stream_, Z_NO_FLUSH);
        const std::string why = stream_.msg == nullptr ? "" : stream_.msg;
        if (result == Z_STREAM_END) {
            ++streams_;
            inflateReset(&stream_);
        } else if (result == Z_OK || result == Z_BUF_ERROR) {
            continue;
        } else if (is_behind) {
            give_up("has bytes behind its compressed data, which are not read", false);
        } else if (why == "incorrect data check" || why == "incorrect length check") {
            give_up("has a wrong checksum: what it holds may be damaged", false);
        } else {
            give_up("is damaged: its compressed data is wrong" + all_read() + " (" + why + ")", true);
        }
    }
    return {output_.data(), produced()};
}

bool is_tar(std::string_view beginning) {
    return beginning.size() >= TAR_BLOCK && beginning.substr(TAR_MARK_AT, TAR_MARK.size()) == TAR_MARK;
}

ArchiveReader::ArchiveReader(PulledFile* file)
    : file_(file), archive_(archive_read_new(), archive_read_free) {
    const auto read_piece = [](archive*, void* context, const void** bytes) -> la_ssize_t {
        const std::string_view piece = static_cast<PulledFile*>(context)->read();
        *bytes = piece.data();
        return static_cast<la_ssize_t>(piece.size());
    };
    if (archive_ == nullptr || archive_read_support_format_tar(archive_.get()) != ARCHIVE_OK) {
        throw std::bad_alloc();
    }
    if (archive_read_open(archive_.get(), file, nullptr, read_piece, nullptr) != ARCHIVE_OK) {
        throw Unreadable(error_of(archive_.get()));
    }
}

bool ArchiveReader::next() {
    while (!is_over_ && !read().empty()) {
        // What was not asked for is passed over piece by piece, and so within the file's limit.
    }
    is_cut_ = false;
    int64_t position = -1;
    while (!is_over_) {
        const int result = archive_read_next_header(archive_.get(), &entry_);
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
            return true;
        }
        const int64_t read_to = archive_filter_bytes(archive_.get(), 0);
        if (result == ARCHIVE_EOF) {
            if (read_to == archive_read_header_position(archive_.get())) {
                note("is cut: the archive has no end");
            }
            is_complete_ = damage_.empty();
            finish();
        } else {
            note(std::string("is damaged") + after_bytes(static_cast<uint64_t>(read_to)) + ": " +
                 error_of(archive_.get()));
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
    return name == nullptr ? "(a name that cannot be read)"
                           : std::string(name, strnlen(name, NAME_MAX_BYTES));
}

bool ArchiveReader::is_file() const {
    return archive_entry_filetype(entry_) == AE_IFREG;
}

bool ArchiveReader::is_folder() const {
    return archive_entry_filetype(entry_) == AE_IFDIR;
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
    if (result == ARCHIVE_OK) {
        return {static_cast<const char*>(bytes), size};
    }
    if (result != ARCHIVE_EOF) {
        is_cut_ = true;
        is_over_ = true;
        note("is cut within " + name());
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
    for (std::string_view piece = file_->read(); !piece.empty(); piece = file_->read()) {
        if (!is_zero(piece)) {
            note("has bytes behind the end of the archive, which are not read");
        }
    }
    if (!file_->damage().empty()) {
        note(file_->damage());
    }
}

}  // namespace tools
