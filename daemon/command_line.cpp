// The command line.
#include "daemon/command_line.h"

#include <getopt.h>

#include <cstdio>

#include "platform/log.h"

const char* config_file_path = nullptr;

int parse_commandline(int argc, char** argv) {
    static const option long_options[] = {
        {"config-file", required_argument, nullptr, 'c'},
        {"debug", no_argument, nullptr, 'd'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    int letter;
    while ((letter = getopt_long(argc, argv, "c:dh", long_options, nullptr)) != -1) {
        switch (letter) {
            case 'c':
                LOG_M("Using config file '%s'\n", optarg);
                config_file_path = optarg;
                break;
            case 'd':
                LOG_M("Debug output enabled\n");
                debug_output_enabled = 1;
                break;
            default:
                return 0;
        }
    }
    if (optind < argc) {
        LOG_M("Too many arguments\n");
        return 0;
    }
    return 1;
}

void print_usage() {
    puts("\nQelvan device monitor daemon");
    puts("Optional arguments:");
    puts("  --config-file/-c <file>        config file");
    puts("  --debug/-d                     debug output");
    puts("  --help/-h                      this help screen");
}
