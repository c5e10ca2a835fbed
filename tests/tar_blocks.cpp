#include "tests/tar_blocks.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/owned.h"
#include "tar/tar_main.h"
#include "tar/tar_reader.h"
#include "tests/phone_test.h"

std::string sealed(std::string block) {
    block.replace(148, 8, "        ");
    unsigned int sum = 0;
    for (const char byte : block) {
        sum += static_cast<unsigned char>(byte);
    }
    char checksum[8];
    snprintf(checksum, sizeof checksum, "%06o", sum & 0777777);
    return block.replace(148, 7, checksum, 7);
}

std::string header(const std::string& name, char type, const std::string& size, const std::string& link,
                   const std::string& mode, const std::string& major, const std::string& minor) {
    std::string block(512, '\0');
    const struct {
        size_t offset;
        std::string text;
    } fields[] = {{0, name},
                  {100, mode},
                  {108, "0000000"},
                  {116, "0000000"},
                  {124, size},
                  {136, "00000000100"},
                  {156, std::string(1, type)},
                  {157, link},
                  {257, std::string("ustar\00000", 8)},
                  {329, major},
                  {337, minor}};
    for (const auto& field : fields) {
        block.replace(field.offset, field.text.size(), field.text);
    }
    return sealed(block);
}

std::string damaged(std::string block) {
    block[511] = 'x';
    return block;
}

std::string file(const std::string& name, std::string content) {
    char size[12];
    snprintf(size, sizeof size, "%011zo", content.size());
    content.resize((content.size() + 511) / 512 * 512, '\0');
    return header(name, '0', size) + content;
}

int read_archive(const std::string& bytes, int extract, std::vector<std::string> patterns) {
    write_file("/data/a.tar", bytes);
    const UniqueFd archive(open("/data/a.tar", O_RDONLY | O_CLOEXEC));
    return read_tar_file(archive.get(), extract, patterns.empty() ? nullptr : pointers_to(&patterns).data());
}

int archive_command(std::vector<std::string> words) {
    words.insert(words.begin(), "dmd_tar");
    return dmd_tar_main(static_cast<int>(words.size()), pointers_to(&words).data());
}

void enter_new(const std::string& directory) {
    ASSERT_EQ(0, mkdir(directory.c_str(), 0755));
    ASSERT_EQ(0, chdir(directory.c_str()));
}

std::string made() {
    return output_of(R"(find . -mindepth 1 -type l -printf '%P>%l ' -o -mindepth 1 -type f -printf '%P=%s ')"
                     R"( -o -mindepth 1 -printf '%P:%y ' | tr ' ' '\n' | sort | tr '\n' ' ')");
}
