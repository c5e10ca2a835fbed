// Files, as much of them as can be read.
#include "tools/pulled_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tools {
namespace {

constexpr size_t PIECE = 128 * 1024;
constexpr std::string_view GZIP_MARK = "\x1f\x8b";

UniqueFd open_file(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        throw Unreadable(strerror(errno));
    }
    // What is no file is not even opened: that alone could do something.
    if (!S_ISREG(status.st_mode)) {
        throw Unreadable("is no regular file");
    }
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd.valid()) {
        throw Unreadable(strerror(errno));
    }
    return fd;
}

}  // namespace

PulledFile::PulledFile(const FoundFile& file, uint64_t bytes_max)
    : bytes_max_(bytes_max),
      spool_(file.spool),
      position_(file.begin),
      end_(file.spool ? file.end : UINT64_MAX),
      is_cut_(file.cut) {
    if (!spool_) {
        fd_ = open_file(file.path);
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
    }
}

PulledFile::~PulledFile() {
    inflateEnd(&stream_);
}

// Reads from the file until the input is full or the file ends.
void PulledFile::refill() {
    const int fd = spool_ ? spool_->get() : fd_.get();
    input_size_ = 0;
    ssize_t got = 1;
    while (got > 0 && input_size_ < input_.size()) {
        const size_t room = std::min<uint64_t>(input_.size() - input_size_, end_ - position_);
        got = pread(fd, input_.data() + input_size_, room, static_cast<off_t>(position_));
        if (got > 0) {
            input_size_ += static_cast<size_t>(got);
            position_ += static_cast<size_t>(got);
        }
    }
    input_read_ += input_size_;
    if (input_read_ > bytes_max_) {
        give_up(too_long(), true);
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
        is_cut_ = is_cut_ || is_cut;
    }
}

std::string PulledFile::too_long() const {
    const uint64_t gibs = bytes_max_ >> 30;
    return "is read no further than its first " + (gibs == 1 ? "" : std::to_string(gibs) + " ") + "GiB";
}

std::string_view PulledFile::peek() {
    if (peeked_.empty()) {
        peeked_ = read();
    }
    return peeked_;
}

std::string_view PulledFile::read() {
    if (!peeked_.empty()) {
        return std::exchange(peeked_, {});
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
    if (piece.size() > bytes_max_ - bytes_read_) {
        piece = piece.substr(0, bytes_max_ - bytes_read_);
        give_up(too_long(), true);
    }
    bytes_read_ += piece.size();
    return piece;
}

// Fills the output, as far as that goes.
std::string_view PulledFile::inflate_piece() {
    stream_.next_out = reinterpret_cast<Bytef*>(output_.data());
    stream_.avail_out = static_cast<uInt>(output_.size());
    const auto produced = [this] { return output_.size() - stream_.avail_out; };
    const auto after_bytes = [&] { return " after " + std::to_string(bytes_read_ + produced()) + " bytes"; };
    while (!is_over_ && stream_.avail_out > 0) {
        if (stream_.avail_in == 0) {
            refill();
        }
        // Behind compressed data may stand more of it, or nothing.
        const bool is_behind = streams_ > 0 && stream_.total_in == 0;
        if (stream_.avail_in == 0) {
            give_up(is_behind ? "" : "is cut: its compressed data ends too early," + after_bytes(),
                    !is_behind);
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
            give_up("is damaged: its compressed data is wrong" + after_bytes() + " (" + why + ")", true);
        }
    }
    return {output_.data(), produced()};
}

}  // namespace tools
