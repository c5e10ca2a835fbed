// dmd-driver-check: tries on a phone whether the driver behind /dev/dsm does what dmd needs of it.
#include <fcntl.h>
#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clients/client_table.h"
#include "driver_check/client_check.h"
#include "platform/owned.h"

namespace {

enum exit_status { CONFORMING = 0, DEVIATING = 1, UNUSABLE = 2 };

constexpr char PROGRAM[] = "dmd-driver-check";

constexpr char HELP[] =
    "Usage: dmd-driver-check [OPTIONS] [CLIENT...]\n"
    "Tries whether the driver behind /dev/dsm does what dmd needs of it, for all clients or for some.\n"
    "\n"
    "  --drain          read what is pending, which dmd then does not get\n"
    "  --force NUMBER   force a dump of that error of each client\n"
    "  --clients        print the clients\n"
    "  --version        print the version\n"
    "  -h, --help       print this\n"
    "\n"
    "It ends with 0 if the driver conforms, with 1 if it deviates, and with 2 if it could not be tried.\n";

struct summary {
    int clients, deviating, missing, pending;
    bool driver_deviates;
};

bool is_number(const char* text) {
    char* end;
    strtol(text, &end, 10);
    return end != text && *end == '\0';
}

const dmd_client_info* find_row(const char* name) {
    for (const dmd_client_info& row : default_clients) {
        if (strcmp(row.name, name) == 0) {
            return &row;
        }
    }
    return nullptr;
}

void count_client(const driver_check& options, const dmd_client_info& row, summary* sum) {
    driver_check check = options;
    check.name = row.name;
    check.row = &row;
    const check_findings findings = watch(check, check_client);
    ++sum->clients;
    sum->deviating += findings.warnings > 0 ? 1 : 0;
    sum->missing += findings.missing ? 1 : 0;
    sum->pending += findings.seen_pending ? 1 : 0;
}

void print_summary(const driver_check& options, const summary& sum) {
    if (sum.missing == sum.clients) {
        puts("driver: warning: has none of these clients: dmd watches none");
    }
    if (sum.pending == 0) {
        puts("not tried: what the driver does while an error is pending; there was none");
    } else if (!options.drain) {
        puts("not tried: reading pending errors, because dmd would not get them (--drain)");
    }
    if (options.force == nullptr) {
        puts("not tried: forced dumps, because they may disturb the hardware (--force NUMBER)");
    }
    printf("conforming: %d, deviating: %d, not there: %d\n", sum.clients - sum.deviating - sum.missing,
           sum.deviating, sum.missing);
}

int check_driver(const driver_check& options, char** names) {
    const UniqueFd device(open(DSM_DEVICE, O_RDWR | O_CLOEXEC));
    if (!device.valid()) {
        fprintf(stderr, "%s: cannot open %s - %s\n", PROGRAM, DSM_DEVICE, strerror(errno));
        return UNUSABLE;
    }
    summary sum = {};
    driver_check unknown_names = options;
    unknown_names.name = "driver";
    sum.driver_deviates = watch(unknown_names, check_unknown_names).warnings > 0;
    if (*names == nullptr) {
        for (const dmd_client_info& row : default_clients) {
            count_client(options, row, &sum);
        }
    }
    for (; *names != nullptr; ++names) {
        count_client(options, *find_row(*names), &sum);
    }
    print_summary(options, sum);
    const bool deviates = sum.driver_deviates || sum.deviating > 0 || sum.missing == sum.clients;
    return deviates ? DEVIATING : CONFORMING;
}

// One line about a wrong command line.
int refuse(const char* what, const char* word, const char* hint) {
    fprintf(stderr, "%s: %s %s%s\n", PROGRAM, what, word, hint);
    return UNUSABLE;
}

int run(int argc, char** argv) {
    static const option long_options[] = {
        {"drain", no_argument, nullptr, 'd'},   {"force", required_argument, nullptr, 'f'},
        {"clients", no_argument, nullptr, 'c'}, {"version", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},    {nullptr, 0, nullptr, 0},
    };
    driver_check options = {};
    int letter;
    while ((letter = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        switch (letter) {
            case 'd':
                options.drain = true;
                break;
            case 'f':
                if (!is_number(optarg)) {
                    return refuse("--force takes an error number, not", optarg, "");
                }
                options.force = optarg;
                break;
            case 'c':
                for (const dmd_client_info& row : default_clients) {
                    puts(row.name);
                }
                return CONFORMING;
            case 'v':
                printf("%s %s\n", PROGRAM, DMD_VERSION);
                return CONFORMING;
            case 'h':
                fputs(HELP, stdout);
                return CONFORMING;
            default:  // getopt_long has said what is wrong
                return UNUSABLE;
        }
    }
    for (int i = optind; i < argc; ++i) {
        if (find_row(argv[i]) == nullptr) {
            return refuse("no client", argv[i], "; --clients prints them");
        }
    }
    return check_driver(options, argv + optind);
}

}  // namespace

int main(int argc, char** argv) {
    // What a check has found stays said when its process is killed.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const int status = run(argc, argv);
    return fflush(stdout) == 0 ? status : UNUSABLE;
}
