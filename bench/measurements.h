// What is measured. Each adds its rows to the table; all run in one phone.
#pragma once

#include <string>

namespace bench {

// Writing and reading archives, beside the floor, GNU tar and bsdtar.
void measure_archives(int rounds);

// From a driver's report to the archive on a debug build, and reports a second on a commercial one.
void measure_roads(int rounds);

// From an error in the driver to the log, with ever more archives in the directory.
void measure_latency(int rounds);

// From the start of the process to its waiting for errors.
void measure_start(int rounds);

// What the waiting daemon takes in so many seconds. `rasdaemon` is the folder that it is unpacked in.
void measure_idle(unsigned seconds, const std::string& rasdaemon);

// What it holds with the largest configuration.
void measure_memory();

// The sizes of the stripped programs, desk and ARM.
void measure_size(const std::string& arm_program, const std::string& rasdaemon);

}  // namespace bench
