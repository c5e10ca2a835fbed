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
    bool no_wait = false;
    unsigned count = 1;     // of reports
    unsigned every_ms = 0;  // between two of them
    bool follow = false;
    std::string client;              // that the log is about; empty: all
    std::vector<std::string> words;  // operands of the command
};

// Whether the words of the command line run something in a phone.
bool runs_something(const std::vector<std::string>& words);

// Reads the words behind the program's name. Returns false when that was all there is to do: a help or the
// like was asked for, and printed. Throws desk::WrongUsage.
bool read_command_line(const std::string& program, const std::vector<std::string>& words, Choices* choices);

}  // namespace phone
