// The daemon's command line.
#pragma once

// The configuration file named on the command line, or null for the default one. Points into argv; written
// by parse_commandline before any thread exists, read-only afterwards.
extern const char* config_file_path;

// Reads the options into debug_output_enabled and config_file_path. Returns 1 to go on with start-up, 0 to
// print the usage text and exit.
int parse_commandline(int argc, char** argv);

// Writes the usage text to standard output.
void print_usage();
