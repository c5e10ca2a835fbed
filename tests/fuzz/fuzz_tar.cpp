// Reads any bytes as an archive, through and into a scratch directory, and checks what came of it.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "emulator/control_client.h"
#include "platform/desk/log.h"
#include "platform/text.h"
#include "tar/tar_reader.h"
#include "tar/tar_writer.h"
#include "tar/ustar_header.h"
#include "tests/fuzz/entry_lines.h"

namespace fs = std::filesystem;

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace {

constexpr char SCRATCH[] = "/tmp/fuzz/in";
constexpr char REPEATED[] = "/tmp/repeated.tar";  // an archive of what was extracted

// What lies outside, and its status at start, whose ctime no change can hide.
const char* const CANARIES[] = {
    "/", "/tmp", "/tmp/fuzz", "/tmp/fuzz/dir", "/tmp/fuzz/dir/file", "/tmp/fuzz/canary"};
std::vector<struct stat> canary_status;

// Names that meet each other and the canaries; types, of which the terminator is one.
const char* const WORDS[] = {
    "a",   "a/",     "a/b", "a/b/c",     "l",      "l/",        "l/file", "a/l",   "a/l/new",      ".",
    "./a", "a//b/.", "..",  "../canary", "../dir", "../../dir", "a/../b", "//new", "/tmp/fuzz/dir"};
constexpr char TYPES[] = "0123456KL7";

std::vector<struct stat> status_of_canaries() {
    std::vector<struct stat> all;
    for (const char* const path : CANARIES) {
        require(lstat(path, &all.emplace_back()) == 0);
        all.back().st_atim = {};
    }
    return all;
}

template <size_t N>
std::string text_of(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

std::string bytes_of(const char* path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

// A pipe that brings the bytes in pieces of half a block.
UniqueFd pieces_of(const std::string& bytes) {
    constexpr size_t PIECE = TAR_BLOCK_SIZE / 2;
    int ends[2];
    require(pipe2(ends, O_DIRECT | O_NONBLOCK | O_CLOEXEC) == 0);
    const UniqueFd writing(ends[1]);
    require(fcntl(writing.get(), F_SETPIPE_SZ, (bytes.size() / PIECE + 1) * getpagesize()) > 0);
    for (size_t at = 0; at < bytes.size(); at += PIECE) {
        const std::string piece = bytes.substr(at, PIECE);
        require(write(writing.get(), piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()));
    }
    return UniqueFd(ends[0]);
}

// Reads the archive and checks what must hold whatever it is.
int read_checked(const UniqueFd& archive, int extract, char** patterns) {
    const int next_descriptor = file_of(nullptr, 0).get();
    const int result = read_tar_file(archive.get(), extract, patterns);
    require(result == 0 || result == 1);
    require(file_of(nullptr, 0).get() == next_descriptor);
    require(umask(022) == 022 && fs::current_path() == SCRATCH && (extract || fs::is_empty(".")));
    const std::vector<struct stat> now = status_of_canaries();
    require(memcmp(now.data(), canary_status.data(), now.size() * sizeof now[0]) == 0);
    return result;
}

// Empties the scratch directory. All in it has a name, and a target or bytes, that the given archive holds.
// Returns what an archive made of it is to bring back.
std::set<std::string> take_tree(const std::string& archive) {
    std::set<std::string> names;
    std::set<std::string> links;
    for (size_t at = 0; at + TAR_BLOCK_SIZE <= archive.size(); at += TAR_BLOCK_SIZE) {
        const auto* const header = reinterpret_cast<const ustar_header*>(archive.data() + at);
        const bool is_split = header->prefix[0] != '\0' && text_of(header->magic) == "ustar";
        const fs::path name = (is_split ? text_of(header->prefix) + "/" : "") + text_of(header->name);
        std::string path = ".";
        for (const fs::path& part : name.relative_path()) {
            if (!part.empty() && part != ".") {
                names.insert(path += "/" + part.string());
            }
        }
        links.insert(text_of(header->linkname));
    }
    std::set<std::string> tree;
    for (const fs::path& path : fs::recursive_directory_iterator(".")) {
        struct stat status;
        require(lstat(path.c_str(), &status) == 0 && names.count(path) == 1);
        const bool is_link = S_ISLNK(status.st_mode);
        const bool is_file = S_ISREG(status.st_mode);
        require(!is_link || links.count(fs::read_symlink(path)) == 1);
        require(!is_file || archive.find(bytes_of(path.c_str())) != std::string::npos);
        // The writer leaves out links, sockets and long names, has no room for all owners, and 32 bits for
        // times.
        if (!is_link && !S_ISSOCK(status.st_mode) && path.string().size() < sizeof ustar_header::name) {
            tree.insert(path.string() + " " + std::to_string(status.st_mode) + " " +
                        std::to_string(is_file ? status.st_size : 0) + " " +
                        std::to_string(static_cast<uint32_t>(status.st_mtime)));
        }
    }
    for (const fs::path& path : fs::directory_iterator(".")) {
        fs::remove_all(path);
    }
    require(chown(".", 0, 0) == 0 && chmod(".", 0755) == 0);  // "." may have been a member
    return tree;
}

}  // namespace

// Changes bytes or whole blocks. Then most headers get their right checksum, without which little is read.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
    std::minstd_rand random(seed);
    const size_t blocks = size / TAR_BLOCK_SIZE;
    uint8_t* const block = data + (blocks > 0 ? random() % blocks : 0) * TAR_BLOCK_SIZE;
    const size_t behind = data + size - block;
    auto* const changed = reinterpret_cast<ustar_header*>(block);
    const char* const word = WORDS[random() % std::size(WORDS)];
    const unsigned choice = blocks > 1 ? random() % 8 : 0;
    if (choice == 1) {
        copy_field(changed->name, word);
    } else if (choice == 2) {
        copy_field(changed->linkname, word);
    } else if (choice == 3) {
        changed->typeflag = TYPES[random() % sizeof TYPES];
    } else if (choice == 4 && size + TAR_BLOCK_SIZE <= max_size) {
        memmove(block + TAR_BLOCK_SIZE, block, behind);
        size += TAR_BLOCK_SIZE;
    } else if (choice == 5) {
        memmove(block, block + TAR_BLOCK_SIZE, behind - TAR_BLOCK_SIZE);
        size -= TAR_BLOCK_SIZE;
    } else {
        size = LLVMFuzzerMutate(data, size, max_size);
    }
    for (size_t at = 0; at + TAR_BLOCK_SIZE <= size && random() % 32 != 0; at += TAR_BLOCK_SIZE) {
        auto* const header = reinterpret_cast<ustar_header*>(data + at);
        if (ustar_checksum(*header) == sizeof header->chksum * ' ') {
            break;  // an end block
        }
        format_octal_field(header->chksum, sizeof header->chksum - 1, ustar_checksum(*header));
        const uint64_t data_size = parse_number_field(header->size, sizeof header->size);
        if (memchr("0KL", header->typeflag, 4) != nullptr && data_size <= size) {
            at += (data_size + TAR_BLOCK_SIZE - 1) / TAR_BLOCK_SIZE * TAR_BLOCK_SIZE;
        }
    }
    return size;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (getenv(phone::CONTROL_VARIABLE) == nullptr) {
        fputs("It extracts archives that try to get out, and runs in a phone only: phone run\n", stderr);
        exit(1);
    }
    // The messages are of no interest, but their texts must be readable to the end.
    desk_log_set_sink([](int, const char*, const char* text) { require(strlen(text) > 0); });
    fs::create_directories(SCRATCH);
    fs::create_directory("/tmp/fuzz/dir");
    for (const char* const file : {"/tmp/fuzz/dir/file", "/tmp/fuzz/canary", REPEATED}) {
        std::ofstream(file) << file;
    }
    canary_status = status_of_canaries();
    return chdir(SCRATCH);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string archive(reinterpret_cast<const char*>(data), size);
    char pattern[] = "a";
    char* patterns[] = {pattern, nullptr};
    const int whole = read_checked(file_of(data, size), 0, nullptr);
    const int selected = read_checked(pieces_of(archive), 0, patterns);

    require(read_checked(file_of(data, size), 1, patterns) <= selected);
    for (const fs::path& path : fs::directory_iterator(".")) {
        require(path == "./a");
    }
    take_tree(archive);

    require(read_checked(pieces_of(archive), 1, nullptr) <= whole);
    char here[] = ".";
    char* operands[] = {here, nullptr};
    write_tar_file(REPEATED, operands);
    const std::set<std::string> tree = take_tree(archive);
    const UniqueFd repeated(open(REPEATED, O_RDONLY | O_CLOEXEC));
    require(read_checked(repeated, 1, nullptr) == 1);
    require(take_tree(bytes_of(REPEATED)) == tree);
    return 0;
}
