// dmd-driver-check: tries on a phone whether the driver behind /dev/dsm does what dmd needs of it.
#include <getopt.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clients/client_table.h"
#include "driver_check/client_check.h"

namespace {

enum exit_status { CONFORMING = 0, DEVIATING = 1, UNUSABLE = 2 };

// Seconds to wait for an error, at most.
constexpr int WAIT_MAX = 3600;

constexpr char PROGRAM[] = "dmd-driver-check";

constexpr char HELP[] =
    "Usage: dmd-driver-check [OPTIONS] [CLIENT...]\n"
    "Tries whether the driver behind /dev/dsm does what dmd needs of it, for all clients or for some.\n"
    "\n"
    "  --drain          read what is pending, which dmd then does not get\n"
    "  --force NUMBER   force a dump of that error of each client\n"
    "  --wait SECONDS   wait for an error of the one client, which somebody makes the driver report\n"
    "  --clients        print the clients\n"
    "  --version        print the version\n"
    "  -h, --help       print this\n"
    "\n"
    "It ends with 0 if the driver conforms, with 1 if it deviates, and with 2 if it could not be tried.\n";

struct summary {
    int clients, deviating, missing, bound, pending;
};

// Whether it is a number of 32 bits and nothing else.
bool is_number(const char* text) {
    const char* const digits = text + (*text == '-' ? 1 : 0);
    char* end;
    errno = 0;
    const long long number = strtoll(text, &end, 10);
    return isdigit(static_cast<unsigned char>(*digits)) != 0 && *end == '\0' && errno == 0 &&
           number >= INT32_MIN && number <= INT32_MAX;
}

// Whether the client is among the names; all are if there are none.
bool is_asked_for(const char* client, char** names) {
    bool found = *names == nullptr;
    for (; *names != nullptr; ++names) {
        found = found || strcmp(*names, client) == 0;
    }
    return found;
}

void count_client(const driver_check& options, const dmd_client_info& row, summary* sum) {
    driver_check check = options;
    check.name = row.name;
    check.row = &row;
    const check_findings findings = watch(check, check_client);
    ++sum->clients;
    sum->deviating += findings.warnings > 0 ? 1 : 0;
    sum->missing += findings.missing ? 1 : 0;
    sum->bound += findings.bound ? 1 : 0;
    sum->pending += findings.seen_pending ? 1 : 0;
}

void print_summary(const driver_check& options, const summary& sum) {
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
    driver_check driver = options;
    driver.name = "driver";
    const check_findings device = watch(driver, check_device);
    if (device.open_errno != 0) {
        fprintf(stderr, "%s: cannot open %s - %s\n", PROGRAM, DSM_DEVICE, strerror(device.open_errno));
        return UNUSABLE;
    }
    if (device.hung) {
        return DEVIATING;
    }
    int deviations = device.warnings;
    summary sum = {};
    for (const dmd_client_info& row : default_clients) {
        if (is_asked_for(row.name, names)) {
            count_client(options, row, &sum);
        }
    }
    if (*names == nullptr && sum.missing == sum.clients) {
        puts("driver: warning: has no client: dmd watches none");
        ++deviations;
    } else if (*names == nullptr) {
        driver.bound = sum.bound;
        deviations += watch(driver, check_all_together).warnings;
    }
    print_summary(options, sum);
    return deviations > 0 || sum.deviating > 0 ? DEVIATING : CONFORMING;
}

// One line about a wrong command line.
int refuse(const char* what, const char* word, const char* hint) {
    fprintf(stderr, "%s: %s %s%s\n", PROGRAM, what, word, hint);
    return UNUSABLE;
}

int run(int argc, char** argv) {
    static const option long_options[] = {
        {"drain", no_argument, nullptr, 'd'},
        {"force", required_argument, nullptr, 'f'},
        {"wait", required_argument, nullptr, 'w'},
        {"clients", no_argument, nullptr, 'c'},
        {"version", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
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
            case 'w':
                options.wait_seconds = is_number(optarg) ? atoi(optarg) : 0;
                if (options.wait_seconds < 1 || options.wait_seconds > WAIT_MAX) {
                    return refuse("--wait takes 1 to 3600 seconds, not", optarg, "");
                }
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
        if (!is_client(argv[i])) {
            return refuse("no client", argv[i], "; --clients prints them");
        }
    }
    if (options.wait_seconds > 0 && argc - optind != 1) {
        return refuse("--wait takes", "the name of one client", "");
    }
    return check_driver(options, argv + optind);
}

}  // namespace

int main(int argc, char** argv) {
    // What a check has found stays said when its process is killed.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const int status = run(argc, argv);
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        fprintf(stderr, "%s: cannot write what was found\n", PROGRAM);
        return UNUSABLE;
    }
    return status;
}
