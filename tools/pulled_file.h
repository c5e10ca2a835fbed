// Reading one file of those pulled from a phone, uncompressed.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owned.h"
#include "tools/report.h"

namespace tools {

// Bytes, uncompressed, after which no more of a file is read: what a phone leaves is far smaller.
constexpr uint64_t FILE_MAX = uint64_t{1} << 30;

// The bytes of a pulled file; of a file that begins as gzip does the uncompressed ones. Uses zlib:
// libarchive passes over wrong checksums, and drops the last 64 KiB before the place where a file is cut.
class PulledFile {
  public:
    // Throws Unreadable, also for what is no regular file: nothing here waits for a writer.
    explicit PulledFile(const FoundFile& file, uint64_t bytes_max = FILE_MAX);
    ~PulledFile();
    PulledFile(const PulledFile&) = delete;
    PulledFile& operator=(const PulledFile&) = delete;

    // The next bytes, valid until the next call. None at the end, and where no more can be read.
    std::string_view read();
    // What the next call of read returns.
    std::string_view peek();

    bool is_empty() const { return is_empty_; }  // the file itself
    bool is_gzip() const { return is_gzip_; }
    int64_t gzip_time() const { return static_cast<int64_t>(header_.time); }  // 0: none in its header
    uint64_t bytes_read() const { return bytes_read_; }
    // After the end: why it was not the right one, or what else is wrong; empty when nothing is.
    const std::string& damage() const { return damage_; }
    bool is_cut() const { return is_cut_; }  // bytes are missing at the end

  private:
    void refill();
    std::string_view inflate_piece();
    void give_up(const std::string& damage, bool is_cut);
    std::string too_long() const;

    const uint64_t bytes_max_;
    UniqueFd fd_;                            // of a file of the disk
    std::shared_ptr<const UniqueFd> spool_;  // of any other
    uint64_t position_;
    uint64_t end_;
    std::vector<char> input_;
    size_t input_size_ = 0;
    uint64_t input_read_ = 0;
    std::vector<char> output_;
    z_stream stream_ = {};
    int streams_ = 0;  // that have ended
    gz_header header_ = {};
    bool is_empty_ = false;
    bool is_gzip_ = false;
    bool is_over_ = false;
    std::string_view peeked_;
    uint64_t bytes_read_ = 0;
    std::string damage_;
    bool is_cut_ = false;
};

}  // namespace tools
