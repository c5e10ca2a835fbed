// The command line of `phone`.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "emulator/phone.h"

namespace phone {

// What the command line says.
struct Choices {
    std::string program;  // as it was called
    std::string command;  // one of "boot", "run" and so on
    std::string name;     // of the phone; empty when it says nothing
    bool commercial = false;
    std::string config;
    std::string data;
    uint64_t data_size = DATA_SIZE_DEFAULT;
    std::vector<std::string> binds;
    std::vector<std::string> words;  // operands of the command
};

// Whether the words of the command line run something in a phone.
bool runs_something(const std::vector<std::string>& words);

// Reads the words behind the program's name. Returns false when that was
// all there is to do: a help was asked for, and printed. Throws a Refusal that says what is right.
bool read_command_line(const std::string& program, const std::vector<std::string>& words, Choices* choices);

}  // namespace phone
