// The modes of what the daemon makes, with the umask 0 of its later life: at no moment wider than intended.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "tar/tar_reader.h"
#include "tests/bring_up.h"
#include "triggers/command_message.h"
#include "triggers/command_server.h"

// The bits that a path had right after it was bound, or when they were about to be changed.
static std::map<std::string, mode_t> seen;
static bool looking = false;
static void look_at(const char* path) {
    struct stat status = {};
    if (looking && lstat(path, &status) == 0) {
        seen[path] |= status.st_mode & 07777;
    }
}
extern "C" int __real_chmod(const char*, mode_t), __real_fchmod(int, mode_t),
    __real_bind(int, const sockaddr*, socklen_t);
extern "C" int __wrap_chmod(const char* path, mode_t mode) {
    look_at(path);
    return __real_chmod(path, mode);
}
extern "C" int __wrap_fchmod(int fd, mode_t mode) {
    char path[100] = {};  // of a socket it is none
    static_cast<void>(
        !readlink(("/.phone/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1));
    look_at(path);
    return __real_fchmod(fd, mode);
}
extern "C" int __wrap_bind(int socket, const sockaddr* address, socklen_t size) {
    const int result = __real_bind(socket, address, size);
    look_at(address->sa_data);
    return result;
}

TEST(Modes, AreNeverWiderThanIntended) {
    bring_up("", false);
    ASSERT_EQ(0, chdir("/data"));
    output_of("mkdir -m 750 d; >d/f; chmod 640 d/f; >d/s; chmod 4711 d/s; tar -cf a d; rm -r d");
    umask(0);
    looking = true;
    ASSERT_EQ(0, dmd_command_sever_init());
    EXPECT_EQ(1, read_tar_file(UniqueFd(open("a", O_RDONLY)).get(), 1, nullptr));
    for (const char* const is_debug : {"1", "1", "0", "0"}) {
        phone_do({"property", "persist.sys.qelvan.debug.on", is_debug});
        report_error("dsm_tp", 1, "text");
        dmd_dump_error(get_client_by_name("dsm_tp"), 1, 0, "on");
        dmd_force_dump_error(get_client_by_name("dsm_tp"), 2, 1, "on");
        dmd_dump_error(get_client_by_name("dsm_audio"), 1, 0, "on");
        dmd_dump_error(get_client_by_name("dsm_audio"), 1, 2, "on");
        output_of("rm -f kvdx_logs/dmd_log/dmd_record_*");  // then the daemon asks anew what it runs on
    }
    for (const auto& [path, mode] : seen) {
        const mode_t in_the_end = exists(path) ? status_of(path).st_mode & 07777 : 0644;
        EXPECT_EQ(in_the_end, in_the_end | mode) << path;
    }
    EXPECT_EQ(11U, seen.size());
    EXPECT_EQ(0660U, status_of(DMD_COMMAND_SOCKET).st_mode & 07777U);
    EXPECT_EQ("750\n640\n4711\n775\n775\n660\n", output_of("stat -c %a d d/* k*s k*s/d* k*s/d*/apr*"));
    EXPECT_EQ("     11 644\n",
              output_of("find k*s *.log *.txt -type f ! -name apr* -printf '%m\n' | uniq -c"));
}
