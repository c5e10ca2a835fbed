// The client table, the registry, binding, dispatch and the generic operations, against the driver.
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <set>

#include "clients/client_table.h"
#include "clients/dispatch.h"
#include "clients/dsm_device.h"
#include "clients/generic_dump.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "tests/bring_up.h"

namespace {

int calls = 0;

int counting_operation(dmd_client* /*client*/, int error_no, const char* RT_switch) {
    ++calls;
    return error_no + static_cast<int>(strlen(RT_switch));
}

int counting_clear(dmd_client* /*client*/, int argument) {
    ++calls;
    return argument;
}

dmd_client* bound_client(const char* name) {
    EXPECT_EQ(0, dmd_client_init());
    return get_client_by_name(name);
}

}  // namespace

// That the driver knows the names is seen where all are bound, and each dump of a client's own in its own
// test. Rows that a product adds are its own.
TEST(ClientTable, RowsDifferFromTheUsualOneAsTheHardwareDoes) {
    constexpr int REQUIRED_ROWS = 46;
    const std::map<std::string, uint32_t> buffer_sizes = {
        {"dsm_extisp", 256}, {"dsm_flash", 256},     {"dsm_csi", 256},           {"dsm_audio", 4096},
        {"dsm_ext4", 16384}, {"dsm_ovisp23", 30000}, {"dsm_camera_user", 30000}, {"dsm_sensorhub", 10485760},
    };
    const std::set<std::string> second_type = {"dsm_camera_user",   "dsm_flash",  "dsm_csi",
                                               "dsm_sensorhub",     "dsm_anc_hs", "dsm_audio",
                                               "dsm_charge_monitor"};
    const std::set<std::string> never_forced = {"dsm_anc_hs", "dsm_recovery", "dsm_charge_monitor"};
    std::set<std::string> names;
    ASSERT_LE(REQUIRED_ROWS, default_clients.count);
    for (int i = 0; i < REQUIRED_ROWS; ++i) {
        const dmd_client_info& row = default_clients[i];
        const auto size = buffer_sizes.find(row.name);
        EXPECT_EQ(size != buffer_sizes.end() ? size->second : 1024, row.buffer_size) << row.name;
        EXPECT_EQ(second_type.count(row.name) == 1 ? 2 : 1, row.type) << row.name;
        EXPECT_EQ(never_forced.count(row.name) == 1, row.force_dump[0] == nullptr) << row.name;
    }
    for (const dmd_client_info& row : default_clients) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name << " stands there twice";
    }
    EXPECT_STREQ("dsm_cpu_buck", default_clients[REQUIRED_ROWS - 1].name);
}

TEST(Registry, HoldsWhatCouldBeBound) {
    phone_do({"answer", "dsm_pmu_ocp", "bind", "-22"});
    const int descriptors = open_descriptors("self");
    const int rows = default_clients.count;
    const LogCapture log;
    EXPECT_EQ(0, dmd_client_init());
    EXPECT_EQ(rows - 1, get_client_count());
    EXPECT_EQ(descriptors + rows - 1, open_descriptors("self"));
    EXPECT_TRUE(log.has("[M/dmd_client_init] default-client total: " + std::to_string(rows) + " ret = 0"));
    EXPECT_EQ(1U, log.lines().size());

    EXPECT_STREQ("dsm_charger", get_client_by_index(3)->info->name);
    EXPECT_EQ(44, get_client_by_name("dsm_cpu_buck")->index);
    EXPECT_EQ(nullptr, get_client_by_index(-1));
    EXPECT_EQ(nullptr, get_client_by_index(rows - 1));
    EXPECT_EQ(get_client_by_index(0), get_client_by_name("DSM_TP"));
    EXPECT_EQ(nullptr, get_client_by_name("dsm_pmu_ocp"));
    EXPECT_EQ(nullptr, get_client_by_name("dsm_t"));
    EXPECT_EQ(nullptr, get_client_by_name(nullptr));
}

TEST(Registry, IsEmptyWithoutTheDriver) {
    ASSERT_EQ(0, umount2(DSM_DEVICE, MNT_DETACH));
    ASSERT_EQ(0, unlink(DSM_DEVICE));
    const LogCapture log;
    EXPECT_EQ(0, dmd_client_init());
    EXPECT_EQ(0, get_client_count());
    EXPECT_EQ(default_clients.count, log.count("[M/dsm_client_init] can't open /dev/dsm "));
    EXPECT_TRUE(log.has("default-client total: " + std::to_string(default_clients.count) + " ret = -1"));
}

TEST(Binding, RefusalsKeepNoDescriptor) {
    const int descriptors = open_descriptors("self");
    const LogCapture log;
    EXPECT_LT(bind_client_fd("dsm_nobody"), 0);
    EXPECT_TRUE(log.has("[M/bind_client_fd] can't bind client dsm_nobody"));
    phone_do({"answer", "dsm_tp", "bind", "7"});
    EXPECT_LT(bind_client_fd("dsm_tp"), 0) << "a positive refusal is no descriptor";
    EXPECT_EQ(descriptors, open_descriptors("self"));
}

TEST(Dispatch, RunsOnlyWhatASlotHolds) {
    dmd_client client = {};
    client.info = &default_clients[0];
    client.dump[9] = counting_operation;
    client.force_dump[0] = counting_operation;
    debug_output_enabled = 1;
    const LogCapture log;
    EXPECT_EQ(7, dmd_dump_error(&client, 5, 9, "on"));
    EXPECT_EQ(8, dmd_force_dump_error(&client, 5, 0, "off"));
    for (const int slot : {-1, 0, 10, 0x7fffffff, -0x7fffffff - 1}) {
        EXPECT_EQ(0, dmd_dump_error(&client, 5, slot, "on")) << slot;
    }
    EXPECT_EQ(0, dmd_force_dump_error(&client, 5, 9, "on"));
    EXPECT_EQ(0, dmd_dump_error(nullptr, 5, 9, "on"));
    EXPECT_EQ(0, dmd_clear_error(nullptr, 3));
    EXPECT_EQ(0, dmd_clear_error(&client, 3));
    EXPECT_EQ(2, calls);
    client.clear = counting_clear;
    EXPECT_EQ(3, dmd_clear_error(&client, 3));
    EXPECT_EQ((std::vector<std::string>{"[D/dmd_dump_error] dump dsm_tp error 5 return 7",
                                        "[D/dmd_force_dump_error] dump dsm_tp error 5 return 8",
                                        "[D/dmd_clear_error] clear dsm_tp error return 3"}),
              log.lines());
}

TEST(ClearError, DropsOneTextAndShowsItInDebug) {
    dmd_client* const client = bound_client("dsm_tp");
    ASSERT_NE(nullptr, client);
    report_error("dsm_tp", 20002, std::string(2000, 'x'));
    report_error("dsm_tp", 20003, "second");
    LogCapture log;
    EXPECT_EQ(0, dsm_clear_error(client, 0));
    EXPECT_EQ((std::vector<std::string>{"[M/dsm_clear_error] dsm_tp finish clear"}), log.lines());
    EXPECT_EQ("1", phone_do({"pending", "dsm_tp"}));

    debug_output_enabled = 1;
    log.clear();
    EXPECT_EQ(0, dsm_clear_error(client, 0));
    EXPECT_TRUE(log.has("[D/dsm_clear_error] [BUFFER CONTENTS]:\nsecond"));
    EXPECT_EQ(0, dsm_clear_error(client, 0)) << "nothing pending";
    EXPECT_EQ(2, log.count("dsm_tp finish clear"));
}

TEST(GenericDump, ForceDumpReportsUnderTheClientsName) {
    set_commercial(true);
    dmd_client* const client = bound_client("dsm_lcd");
    ASSERT_NE(nullptr, client);
    name_device("dsm_lcd", "panel");
    const LogCapture log;
    EXPECT_EQ(0, dsm_force_dump_error(client, -5, "on"));
    const std::string record = read_file(RECORD);
    EXPECT_EQ(1, count_of(record, "[Device]:dsm_lcd\n[Error no]:-5\n"));
    EXPECT_EQ(1, count_of(record, "-5 of dsm_lcd")) << "the number reaches the driver with its sign";

    phone_do({"answer", "dsm_lcd", "force", "3"});
    EXPECT_EQ(3, dsm_force_dump_error(client, 7, "on"));
    EXPECT_TRUE(log.has("[M/dsm_force_dump_error] force dump dsm_lcd failed 3"));
    phone_do({"answer", "dsm_lcd", "force", "0"});
    phone_do({"answer", "dsm_lcd", "read", "-5"});
    EXPECT_EQ(0, dsm_force_dump_error(client, 7, "on")) << "accepted by the driver, then the read failed";
    EXPECT_TRUE(log.has("[M/dsm_force_dump_error] read dsm_lcd return -1 - "));
    EXPECT_EQ(record, read_file(RECORD));
}
