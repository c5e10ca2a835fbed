// Memory running out wherever that is handled: the operation says so or does without, and works again
// afterwards.
#include <fcntl.h>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "config/config_parser.h"
#include "servers/listen_server.h"
#include "servers/poll_server.h"
#include "tar/lookup.h"
#include "tar/tar_reader.h"
#include "tar/tar_writer.h"
#include "tests/bring_up.h"
#include "triggers/key_detector.h"

// Which allocation of this thread fails, counted from now on; 0 for none, or when it has failed. The linker
// leads those of all that is linked into this binary here, but not the shared libraries'.
static thread_local int failing = 0;
#define MAY_FAIL(function, otherwise)                               \
    function {                                                      \
        return failing > 0 && --failing == 0 ? nullptr : otherwise; \
    }
extern "C" void *__real_malloc(size_t), *__real_calloc(size_t, size_t), *__real_realloc(void*, size_t);
MAY_FAIL(extern "C" void* __wrap_malloc(size_t size), __real_malloc(size))
MAY_FAIL(extern "C" void* __wrap_calloc(size_t count, size_t size), __real_calloc(count, size))
MAY_FAIL(extern "C" void* __wrap_realloc(void* block, size_t size), __real_realloc(block, size))

// Fails each allocation of the operation in turn, and lets it succeed after each. Expects all its results:
// with enough memory, ":", and without, each with "!" if a message came with it.
template <typename Operation>
static void sweep(const std::string& expected, Operation operation) {
    std::string results[2];
    for (int n = 1, unused = 0; unused == 0; n = n < 0 ? 1 - n : -n) {
        const LogCapture log;
        failing = std::max(n, 0);
        std::string result = " " + std::to_string(operation());
        unused = std::exchange(failing, 0);
        EXPECT_FALSE(log.has("dmd_tar_cmd") && log.has("(null)"));
        result += log.has("alloc") || log.has("Cannot create") || log.has("out of memory") ? "! " : " ";
        std::string& known = results[n > 0 && unused == 0];
        known += known.find(result) == known.npos ? result : "";
    }
    EXPECT_EQ(expected, results[0] + ":" + results[1]);
}

// Of a dump, named by its client and one digit, the slot: ten times its result, and 1 when it was recorded.
static void sweep_dump(const std::string& expected, const std::string& dump) {
    SCOPED_TRACE(dump);
    sweep(expected, [client = dump.substr(0, dump.size() - 1), slot = dump.back() - '0'] {
        static int error_no = 43000;  // archives are named after it
        report_error(client, ++error_no, "text");
        const std::string handed = phone_do({"handed", client});
        const int result = dmd_dump_error(get_client_by_name(client.c_str()), error_no, slot, "on");
        EXPECT_TRUE(result != -1 || phone_do({"handed", client}) == handed) << "the driver keeps it";
        return 10 * result + count_of(read_file(RECORD), "[Error no]:" + std::to_string(error_no));
    });
}

TEST(Allocation, MayFailOnACommercialBuild) {
    bring_up("", true);
    sweep_dump(" 1 : -10!  1! ", "dsm_tp0");
}

TEST(Allocation, MayFailOnADebugBuild) {
    const std::string fields = "\nclient_name dsm_tp\nnum_triggers 1\n" + trigger(1, "dsm_tp+0");
    bring_up("", false);
    sweep(" 0 : -1!  0! ", [&fields, name = std::string("[")]() mutable {
        name += "x";
        write_file("/data/c", name + "l]\nalgo_type listen" + fields + name + "p]\nalgo_type poll" + fields);
        return parse_config_file("/data/c");
    });
    sweep(" 2 : 1! ", [watched = fd_set(), known = open_descriptors("self")]() mutable {
        listen_client_init(&watched);
        poll_client_init();
        return open_descriptors("self") - std::exchange(known, open_descriptors("self"));
    });
    sweep(" 0 : -1! ", [] { return dmd_clear_error(get_client_by_name("dsm_tp"), 0); });
    const auto force = [panel = get_client_by_name("dsm_tp")](int slot) {
        return dmd_force_dump_error(panel, 1, slot, "on");
    };
    sweep(" 0 : -1!  0 ", [&] { return force(0); });
    sweep(" 0 : -1! ", [&] { return std::vector{force(1), force(1), force(2)}[1]; });
    output_of(
        "cd /data; mkdir -p ruvo_logs; cd ruvo_logs; mkdir -p memorydump/m hifi_log/m; cd memorydump/m;"
        "touch hifi3.bin zc8830_reg.bin ../../hifi_log/m/hifi.log");
    for (const std::string part : {"tp0", "charger0", "recovery0", "apcp0", "charge_monitor0", "anc_hs0",
                                   "audio4", "audio5", "audio6"}) {
        sweep_dump(" 1 : -10!  1 ", "dsm_" + part);
    }
    sweep_dump(" 1 : -10! ", "dsm_power_key1");
    sweep_dump(" 441 : -10!  441 ", "dsm_sensorhub0");
    output_of("mkdir /data/tree; touch /data/tree/a; ln /data/tree/a /data/tree/b");
    sweep(" 11 : 11  11!  1! ", [words = std::vector<std::string>{"/data/tree"}]() mutable {
        const int written = write_tar_file("/data/a.tar", pointers_to(&words).data());
        return 10 * written + read_tar_file(UniqueFd(open("/data/a.tar", O_RDONLY)).get(), 0, nullptr);
    });
    sweep(" 1 : 1 ", [] {
        output_of("rm -r /data/tree");
        const int result = read_tar_file(UniqueFd(open("/data/a.tar", O_RDONLY)).get(), 1, nullptr);
        return result - 10 * count_of(output_of("find /data/tree -type d -perm 700"), "\n");
    });
    write_file("/etc/group", std::string(300, 'z') + "\nseven:x:7:a,b\n");
    sweep(" 1 : 0 ", [] { return getgrgid(7) != nullptr ? 1 : 0; });
    phone_do({"keys", "event1"});  // so that no thread is started
    sweep(" -1 : -1! ", [] { return dmd_key_detect_sever_init(); });
    sweep(" 46 : 45! ", [first = dup(STDIN_FILENO), known = get_client_count()]() mutable {
        closefrom(first);
        dmd_client_init();
        return get_client_count() - std::exchange(known, get_client_count());
    });
}
