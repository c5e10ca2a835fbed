// Bringing parts of the daemon up inside the test's own process.
#pragma once

#include <string>
#include <vector>

#include "platform/owned.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"

constexpr char RECORD[] = "/data/kvdx_logs/dmd_log/dmd_record_0.txt";

// A section of the configuration; `server` is "listen" or "poll".
std::string section_text(const std::string& server, const std::string& client, const std::string& fields);
// A trigger of a section, with test switch "on".
std::string trigger(int error_no, const std::string& actions);

// Builds the registry and the settings. On a commercial build no archives are made.
void bring_up(const std::string& configuration, bool commercial = true);

// Gives a client the name of a device, as its driver would.
void name_device(const char* client, const char* device_name);

// The messages that the operation has logged, without its name.
std::vector<std::string> messages_of(const std::string& operation, const LogCapture& log);

// Has the next report choose the record file, like the first one after a start.
void forget_record_file();

// The text of each report in all record files, head and all.
std::vector<std::string> reports_on_disk();

// The names in the archive that a report has left, sorted, without the record file's; removes the archive.
std::vector<std::string> take_archived_beside_record();

// A connection to the command socket; invalid when there was none to be had.
UniqueFd connect_to_commands();
// Connects that socket. False when it could not be.
bool connect_to_commands(const UniqueFd& socket);
// The message that asks for a dump: 40 bytes.
std::string command_message(const std::string& client, uint32_t test_switch_type, int32_t error_no);
// Writes all bytes in one piece. False when the connection did not take them.
bool send_bytes(const UniqueFd& connection, const std::string& bytes);
