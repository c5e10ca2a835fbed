// What is measured. Each adds its rows to the table; all run in one phone.
#pragma once

namespace bench {

// A client whose errors are only read and reported, and of which the daemon reads 30,000 bytes; and its error
// number that has a trigger.
constexpr char CLIENT[] = "dsm_camera_user";
constexpr int ERROR_NUMBER = 20000;

// Writing and reading archives, beside the floor, GNU tar and bsdtar.
void measure_archives(int rounds);

// From a driver's report to the archive on a debug build, and reports a second on a commercial one.
void measure_roads(int rounds);

// From an error in the driver to the log, with an empty directory and with many archives in it.
void measure_latency(int rounds);

// What the waiting daemon takes in so many seconds, and what it holds.
void measure_idle(unsigned seconds);

}  // namespace bench
