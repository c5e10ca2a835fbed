// Archives made by hand, block by block, and what became of them.
#pragma once

#include <string>
#include <vector>

// A block with its right checksum.
std::string sealed(std::string block);

// A header block, modified at second 64; the fields that are not given are zero.
std::string header(const std::string& name, char type = '0', const std::string& size = "0",
                   const std::string& link = "", const std::string& mode = "0100644",
                   const std::string& major = "", const std::string& minor = "");

// The block with a wrong checksum.
std::string damaged(std::string block);

// A file's header and data.
std::string file(const std::string& name, std::string content = "");

const std::string END(1024, '\0');

// Messages.
const std::string BAD = "[M/read_tar_file] Bad tar header, skipping";
const std::string DELAYED = "[M/read_tar_file] Error exit delayed from previous errors";
const std::string NO_END = "[M/read_tar_file] No end of archive found: end of file";
const std::string EARLY = "[M/tar_extract_regular_file] Unexpected EOF in archive";

// Reads the bytes as an archive.
int read_archive(const std::string& bytes, int extract, std::vector<std::string> patterns = {});

// Runs the archive tool with the words behind its name.
int archive_command(std::vector<std::string> words);

// Makes a directory and changes into it.
void enter_new(const std::string& directory);

// The names of all below the current directory, with the types, or a link's target, or a file's size.
std::string made();
