// Memory running out wherever that is handled: the operation says so or does without, and works again
// afterwards.
#include <fcntl.h>

#include <set>

#include "clients/client_table.h"
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

namespace {

// Which allocation of this thread fails, counted from now on; 0 for none, or when it has failed.
thread_local int failing = 0;

bool fails() {
    return failing > 0 && --failing == 0;
}

using outcomes = std::set<std::string>;

// Fails each allocation of the operation in turn, and lets it succeed after each. The operation tells in
// words what it came to; ", told" is added where a message said that memory was missing.
template <typename Operation>
void expect_outcomes(Operation operation, const std::string& with_memory, const outcomes& without) {
    const auto run = [&](int failing_allocation) {
        const LogCapture log;
        failing = failing_allocation;
        const std::string outcome = operation();
        EXPECT_FALSE(log.has("dmd_tar_cmd") && log.has("(null)"));
        const bool told = log.has("alloc") || log.has("Cannot create") || log.has("out of memory");
        return outcome + (told ? ", told" : "");
    };
    outcomes seen_with, seen_without;
    for (int allocation = 1;; ++allocation) {
        const std::string outcome = run(allocation);
        const bool has_failed = std::exchange(failing, 0) == 0;
        (has_failed ? seen_without : seen_with).insert(outcome);
        if (!has_failed) {
            break;
        }
        seen_with.insert(run(0));
    }
    EXPECT_EQ(outcomes{with_memory}, seen_with);
    EXPECT_EQ(without, seen_without);
}

// Has a driver report an error and dumps it.
std::string dump(const std::string& client, int slot) {
    static int error_no = 43000;  // archives are named after it
    report_error(client, ++error_no, "text");
    const std::string handed = phone_do({"handed", client});
    const int result = dmd_dump_error(get_client_by_name(client.c_str()), error_no, slot, "on");
    EXPECT_TRUE(result != -1 || phone_do({"handed", client}) == handed) << "the driver keeps it";
    const int reports = count_of(read_file(RECORD), "[Error no]:" + std::to_string(error_no));
    return std::string(result == -1 ? "refused, " : "") + std::to_string(reports) + " recorded";
}

void expect_dump_outcomes(const std::string& client, int slot, const outcomes& without) {
    SCOPED_TRACE(client + " " + std::to_string(slot));
    expect_outcomes([&] { return dump(client, slot); }, "1 recorded", without);
}

std::string force_dump(int slot) {
    return dmd_force_dump_error(get_client_by_name("dsm_tp"), 1, slot, "on") == 0 ? "dumped" : "refused";
}

}  // namespace

// The linker leads the allocations of all that is linked into this binary here, but not the shared
// libraries'.
extern "C" {
void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __real_realloc(void*, size_t);

void* __wrap_malloc(size_t size) {
    return fails() ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return fails() ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* block, size_t size) {
    return fails() ? nullptr : __real_realloc(block, size);
}
}

TEST(Allocation, MayFailForClientsThatAreBound) {
    const int first = dup(STDIN_FILENO);
    const auto bind = [first] {
        closefrom(first);  // else the descriptors would run out
        const int known = get_client_count();
        dmd_client_init();
        return std::to_string(get_client_count() - known) + " bound";
    };
    const int rows = default_clients.count;
    expect_outcomes(bind, std::to_string(rows) + " bound", {std::to_string(rows - 1) + " bound, told"});
}

TEST(Allocation, MayFailInAConfiguration) {
    const std::string fields = "\nclient_name dsm_tp\nnum_triggers 1\n" + trigger(1, "dsm_tp+0");
    std::string name = "[";
    const auto parse = [&] {
        name += "x";  // new sections each time
        write_file("/data/c", name + "l]\nalgo_type listen" + fields + name + "p]\nalgo_type poll" + fields);
        return parse_config_file("/data/c") == 0 ? "read" : "refused";
    };
    expect_outcomes(parse, "read", {"refused, told", "read, told"});
}

TEST(Allocation, MayFailForClientsThatAreWatched) {
    bring_up(section_text("listen", "dsm_tp", "") + section_text("poll", "dsm_tp", ""));
    const auto watch = [] {
        fd_set watched;
        const int known = open_descriptors("self");
        listen_client_init(&watched);
        poll_client_init();
        return std::to_string(open_descriptors("self") - known) + " watched";
    };
    expect_outcomes(watch, "2 watched", {"1 watched, told"});
}

TEST(Allocation, MayFailInADumpOnACommercialBuild) {
    bring_up("", true);
    expect_dump_outcomes("dsm_tp", 0, {"refused, 0 recorded, told", "1 recorded, told"});
}

TEST(Allocation, MayFailInADumpOnADebugBuild) {
    bring_up("", false);
    output_of("mkdir -p /data/ruvo_logs/memorydump/m; touch /data/ruvo_logs/memorydump/m/hifi3.bin");
    const struct {
        const char* client;
        int slot;
    } archived[] = {{"dsm_tp", 0}, {"dsm_anc_hs", 0}, {"dsm_audio", 5}, {"dsm_sensorhub", 0}};
    for (const auto& dump : archived) {
        expect_dump_outcomes(dump.client, dump.slot, {"refused, 0 recorded, told", "1 recorded"});
    }
    expect_dump_outcomes("dsm_power_key", 1, {"refused, 0 recorded, told"});
}

TEST(Allocation, MayFailInOtherOperationsOfAClient) {
    bring_up("", false);
    expect_outcomes([] { return force_dump(0); }, "dumped", {"refused, told", "dumped"});
    const auto collect_from_panel = [] {
        force_dump(1);
        const std::string collected = force_dump(1);
        force_dump(2);
        return collected;
    };
    expect_outcomes(collect_from_panel, "dumped", {"refused, told"});
    const auto clear = [] {
        return dmd_clear_error(get_client_by_name("dsm_tp"), 0) == 0 ? "cleared" : "refused";
    };
    expect_outcomes(clear, "cleared", {"refused, told"});
}

TEST(Allocation, MayFailInAnArchive) {
    output_of("mkdir /data/tree; touch /data/tree/a; ln /data/tree/a /data/tree/b");
    std::vector<std::string> operands = {"/data/tree"};
    const auto write = [&] {
        const int written = write_tar_file("/data/a.tar", pointers_to(&operands).data());
        const UniqueFd archive(open("/data/a.tar", O_RDONLY));
        EXPECT_EQ(1, read_tar_file(archive.get(), 0, nullptr)) << "what is there has an end";
        return written == 1 ? "complete" : "incomplete";
    };
    expect_outcomes(write, "complete", {"complete", "complete, told", "incomplete, told"});
    const auto extract = [] {
        output_of("rm -r /data/tree");
        const UniqueFd archive(open("/data/a.tar", O_RDONLY));
        const bool whole = read_tar_file(archive.get(), 1, nullptr) == 1;
        EXPECT_EQ("", output_of("find /data/tree -type d -perm 700")) << "the mode that it has for a while";
        return whole ? "extracted" : "incomplete";
    };
    expect_outcomes(extract, "extracted", {"extracted"});
}

TEST(Allocation, MayFailInALookup) {
    write_file("/etc/group", std::string(300, 'z') + "\nseven:x:7:a,b\n");
    expect_outcomes([] { return getgrgid(7) != nullptr ? "found" : "not found"; }, "found", {"not found"});
}

TEST(Allocation, MayFailForTheKeyDetector) {
    set_commercial(false);
    phone_do({"keys", "event1"});  // so that no thread is started
    const auto start = [] { return dmd_key_detect_sever_init() == -1 ? "refused" : "started"; };
    expect_outcomes(start, "refused", {"refused, told"});
}
