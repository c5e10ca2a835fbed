// The command server's thread and its socket: which dumps the messages of applications start, and that no
// application can keep it from serving the others.
#include "triggers/command_server.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <utility>

#include "clients/client_table.h"
#include "servers/listen_server.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"
#include "triggers/command_message.h"

#ifndef SO_PASSRIGHTS
#define SO_PASSRIGHTS 83
#endif

namespace {

void start_serving() {
    bring_up("");
    ASSERT_EQ(0, dmd_command_sever_init());
}

// Waits until the daemon has closed its end.
bool is_closed(const UniqueFd& connection) {
    char byte;
    return recv(connection.get(), &byte, 1, 0) <= 0;
}

// Whether a message is taken. Its client has nothing to dump.
bool is_served(const LogCapture& log, const UniqueFd& connection, int error_no) {
    return send_bytes(connection, command_message("dsm_recovery", DMD_TEST_SWITCH_ON, error_no)) &&
           log.wait_for("Received msg - name:dsm_recovery data:" + std::to_string(error_no));
}

// Sections of the first clients for both servers; the first one listened to has a trigger.
std::string sections_text(int clients) {
    std::string text;
    for (int i = 0; i < clients; ++i) {
        text += section_text("listen", default_clients[i].name,
                             i == 0 ? "num_triggers 1\n" + trigger(7, "dsm_tp+0") : "");
        text += section_text("poll", default_clients[i].name, "");
    }
    return text;
}

}  // namespace

TEST(CommandServer, EachMessageForcesItsDump) {
    struct {
        std::string bytes;
        std::vector<std::string> messages;
        std::string report;  // of the record file
    } const cases[] = {
        {command_message("dsm_tp", 0, 20002),
         {"Received msg - name:dsm_tp data:20002"},
         "[Error no]:20002\n[Runing_test_switch]:on\n"},
        {command_message("DSM_Lcd", 1, -5),
         {"Received msg - name:DSM_Lcd data:-5"},
         "[Error no]:-5\n[Runing_test_switch]:off\n"},
        {command_message("dsm_tp", 2, 4),
         {"Received msg - name:dsm_tp data:4", "unkown runnig test switch type."},
         ""},
        {command_message("dsm_nobody", 2, 6),
         {"Received msg - name:dsm_nobody data:6", "dsm_nobody is not found in dmd client list"},
         ""},
        {command_message("a_name_of_32_bytes_and_no_zero_xx", 0, 7),
         {"Received msg - name:a_name_of_32_bytes_and_no_zero_ data:7",
          "a_name_of_32_bytes_and_no_zero_ is not found in dmd client list"},
         ""},
        {command_message("dsm_tp", 0, 9).substr(0, 39), {"Recv command length not match"}, ""},
        {command_message("dsm_tp", 0, 10) + "x",
         {"Received msg - name:dsm_tp data:10", "Recv command length not match"},
         "[Error no]:10\n[Runing_test_switch]:on\n"},
        {command_message("dsm_tp", 0, 11) + command_message("dsm_tp", 1, 12),
         {"Received msg - name:dsm_tp data:11", "Received msg - name:dsm_tp data:12"},
         "[Error no]:12\n[Runing_test_switch]:off\n"},
    };
    LogCapture log;
    start_serving();
    EXPECT_TRUE(log.has("[M/dmd_command_sever_init] command server init success, fd - "));
    const UniqueFd connection = connect_to_commands();
    for (const auto& c : cases) {
        log.clear();
        ASSERT_TRUE(send_bytes(connection, c.bytes));
        ASSERT_TRUE(log.wait_for("[M/dmd_recv_cmd_from_apk] " + c.messages.back())) << c.messages.back();
        EXPECT_EQ(c.messages, messages_of("dmd_recv_cmd_from_apk", log));
        if (!c.report.empty()) {
            EXPECT_TRUE(wait_until([&] { return count_of(read_file(RECORD), c.report) == 1; })) << c.report;
        }
    }
    EXPECT_TRUE(
        wait_until([] { return count_of(read_file(RECORD), "[Content]:\nforced dump of error ") == 5; }));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Device]:dsm_lcd\n"));
    EXPECT_FALSE(log.has("Removing client"));
}

TEST(CommandServer, NoNameForgesALineOfTheLog) {
    LogCapture log;
    start_serving();
    const UniqueFd connection = connect_to_commands();
    ASSERT_TRUE(send_bytes(connection, command_message("\033[1mx\x7f\n[M/main] f\303\274r\302\233", 0, 1)));
    ASSERT_TRUE(log.wait_for("is not found"));
    EXPECT_EQ((std::vector<std::string>{
                  "Received msg - name:\\x1b[1mx\\x7f\\x0a[M/main] f\303\274r\\x9b data:1",
                  "\\x1b[1mx\\x7f\\x0a[M/main] f\303\274r\\x9b is not found in dmd client list"}),
              messages_of("dmd_recv_cmd_from_apk", log));
}

TEST(CommandServer, AFolderInThePlaceOfTheSocketIsReported) {
    ASSERT_EQ(0, mkdir(DMD_COMMAND_SOCKET, 0755));
    const LogCapture log;
    EXPECT_EQ(-22, dmd_command_sever_init());
    EXPECT_EQ(std::vector<std::string>{"Recv socket: bind error - Address already in use"},
              messages_of("dmd_command_sever_init", log));
}

TEST(CommandServer, TheSocketReplacesAnEarlierDaemonsWhateverTheUmask) {
    write_file(DMD_COMMAND_SOCKET, "");
    umask(077);
    ASSERT_EQ(0, dmd_command_sever_init());
    EXPECT_EQ(S_IFSOCK | 0660U, status_of(DMD_COMMAND_SOCKET).st_mode);
}

TEST(CommandServer, NoApplicationStopsTheOthers) {
    LogCapture log;
    start_serving();
    const int descriptors = open_descriptors("self");
    {
        const UniqueFd idle = connect_to_commands();
        const UniqueFd half = connect_to_commands();
        ASSERT_TRUE(send_bytes(half, command_message("dsm_tp", 0, 1).substr(0, 20)));
        // An urgent byte is received like any other, as a message that is too short.
        const UniqueFd urgent = connect_to_commands();
        send(urgent.get(), "!", 1, MSG_OOB);
        const UniqueFd no_more = connect_to_commands();
        ASSERT_EQ(0, shutdown(no_more.get(), SHUT_WR));
        EXPECT_TRUE(is_closed(no_more));
        const UniqueFd deaf = connect_to_commands();
        ASSERT_EQ(0, shutdown(deaf.get(), SHUT_RD));
        const UniqueFd flood = connect_to_commands();
        std::atomic<bool> flooding{true};
        std::thread flooder([&] {
            while (flooding) {
                send_bytes(flood, std::string(1000, 'x'));
            }
        });
        const UniqueFd good = connect_to_commands();
        for (int i = 0; i < 5; ++i) {
            EXPECT_TRUE(is_served(log, good, 100 + i));
        }
        EXPECT_TRUE(is_served(log, deaf, 200));
        EXPECT_TRUE(is_served(log, idle, 201));
        EXPECT_TRUE(is_served(log, half, 202)) << "its half is not taken for the beginning of this";
        EXPECT_TRUE(is_served(log, urgent, 203));
        flooding = false;
        flooder.join();
    }
    EXPECT_TRUE(log.wait_for("[M/dmd_cmd_thread] Removing client on fd ", 7));
    EXPECT_FALSE(log.has("Recv command failed")) << "a closed connection is no failed message";
    EXPECT_EQ(descriptors, open_descriptors("self"));
}

TEST(CommandServer, TakesNoDescriptors) {
    const LogCapture log;
    start_serving();
    const UniqueFd connection = connect_to_commands();
    int passes = 0;
    socklen_t size = sizeof passes;
    if (getsockopt(connection.get(), SOL_SOCKET, SO_PASSRIGHTS, &passes, &size) != 0) {
        GTEST_SKIP() << "this kernel cannot refuse them";
    }
    char byte = 'x';
    iovec data = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    *CMSG_FIRSTHDR(&message) = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};  // of descriptor 0
    EXPECT_EQ(-1, sendmsg(connection.get(), &message, MSG_NOSIGNAL));
    EXPECT_EQ(EPERM, errno);
    EXPECT_TRUE(is_served(log, connection, 1));
}

TEST(CommandServer, ConnectionsLeaveServersAndReportsTheirDescriptors) {
    const int clients = default_clients.count;
    const auto of_clients = static_cast<rlim_t>(3 * clients);  // with those of both servers
    const struct {
        const char* what;
        rlim_t limit;  // of the daemon's descriptors
        int sections;  // of each server
        int served_least, served_most;
    } cases[] = {
        {"few, and all clients listened to and polled", of_clients + 122, clients, 40, 60},
        {"as many as usual", 1024, 3, 800, 960},
        {"more than select can watch", 4096, 3, 800, 960},
    };
    rlimit own = {4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &own) != 0) {
        GTEST_SKIP() << "this user may not open as many descriptors";
    }
    set_commercial(true);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        write_file("/data/conf", sections_text(c.sections));
        own.rlim_cur = c.limit;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &own));
        const DaemonProcess dmd({"-d", "-c", "/data/conf"});
        own.rlim_cur = own.rlim_max;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &own));
        ASSERT_TRUE(dmd.wait_for_log("Enter select") && dmd.wait_for_log("enter sleep, clock tick 0") &&
                    dmd.wait_for_log("command server init success"))
            << dmd.log();
        std::vector<UniqueFd> served;
        for (bool room = true; room;) {
            served.push_back(connect_to_commands());
            send_bytes(served.back(), command_message("dsm_recovery", 0, 0));
            ASSERT_TRUE(wait_until([&] {
                room = count_of(dmd.log(), "no room for a client") == 0;
                return !room || count_of(dmd.log(), "Received msg") == static_cast<int>(served.size());
            }));
        }
        EXPECT_TRUE(is_closed(served.back()));
        EXPECT_LE(c.served_least, static_cast<int>(served.size()) - 1);
        EXPECT_GE(c.served_most, static_cast<int>(served.size()) - 1);
        report_error("dsm_tp", 7, std::string(c.what) + "\n");
        EXPECT_TRUE(dmd.wait_for_log("cmd_line:archive -i ")) << dmd.log();
        EXPECT_EQ(1, count_of(read_file(RECORD), std::string("[Content]:\n") + c.what));
        served.pop_back();
        served.pop_back();
        EXPECT_TRUE(dmd.wait_for_log("Removing client on fd "));
        served.push_back(connect_to_commands());
        const int before = count_of(dmd.log(), "Received msg");
        send_bytes(served.back(), command_message("dsm_recovery", 0, 0));
        EXPECT_TRUE(dmd.wait_for_log("Received msg", before + 1)) << "there is room again";
    }
}

TEST(CommandServer, RefusedConnectionsAreToldOfOnceAMinute) {
    LogCapture log;
    hold_clock(1000);
    start_serving();
    rlimit own = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &own));
    own.rlim_cur = 100;  // those above the clients' are kept for reports
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &own));
    const auto refuse = [](int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(is_closed(connect_to_commands()));
        }
    };
    refuse(500);
    hold_clock(60999);
    refuse(3);
    hold_clock(61000);
    refuse(2);
    hold_clock(121000);
    refuse(1);
    EXPECT_EQ(
        (std::vector<std::string>{"no room for a client, 1 refused", "no room for a client, 503 refused",
                                  "no room for a client, 2 refused"}),
        messages_of("dmd_cmd_thread", log));
}

TEST(CommandServer, ConnectionsLeaveDescriptorsToServersThatStillBind) {
    const int clients = default_clients.count;
    write_file("/data/conf", sections_text(clients));
    rlimit own = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &own));
    const rlim_t before = std::exchange(own.rlim_cur, static_cast<rlim_t>(3 * clients) + 42);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &own));
    const DaemonProcess dmd({"-c", "/data/conf"});
    own.rlim_cur = before;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &own));
    std::vector<UniqueFd> connections;
    ASSERT_TRUE(wait_until([&] {
        connections.push_back(connect_to_commands());
        return connections.back().valid();
    }));
    while (connections.size() < 300) {
        connections.push_back(connect_to_commands());
    }
    EXPECT_TRUE(dmd.wait_for_log("lclient ", clients)) << dmd.log();
    EXPECT_TRUE(dmd.wait_for_log("pclient ", clients)) << dmd.log();
    EXPECT_EQ(0, count_of(dmd.log(), "can't "));
}

TEST(CommandServer, WaitsForADescriptorWithoutSpinning) {
    LogCapture log;
    start_serving();
    const UniqueFd known = connect_to_commands();
    ASSERT_TRUE(is_served(log, known, 1));
    const UniqueFd waiting(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const rlimit limit = {256, 256};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    std::vector<UniqueFd> taken(1);
    do {
        taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    } while (taken.back().valid());
    EXPECT_EQ(0U, seconds_slept());
    ASSERT_TRUE(connect_to_commands(waiting));
    EXPECT_TRUE(wait_until([] { return seconds_slept() >= 3; }));
    EXPECT_TRUE(is_served(log, known, 2));
    taken.clear();
    EXPECT_TRUE(is_served(log, waiting, 3));
}

TEST(CommandServer, EndsAloneWhenItCannotWait) {
    LogCapture log;
    bring_up(section_text("listen", "dsm_tp", "num_triggers 1\n" + trigger(1, "dsm_tp+0")));
    ASSERT_EQ(0, dmd_listen_server_init());
    ASSERT_EQ(0, dmd_command_sever_init());
    const UniqueFd connection = connect_to_commands();
    ASSERT_TRUE(is_served(log, connection, 1));
    const size_t threads = names_in("/.phone/proc/self/task").size();
    fail_next_select();
    ASSERT_TRUE(send_bytes(connection, command_message("dsm_recovery", 0, 2)));
    EXPECT_TRUE(wait_until([&] { return names_in("/.phone/proc/self/task").size() == threads - 1; }));
    EXPECT_EQ(std::vector<std::string>{"Command-Server select error"}, messages_of("dmd_cmd_thread", log));
    report_error("dsm_tp", 1, "text");
    EXPECT_TRUE(log.wait_for("dsm_tp finish dump"));
}
