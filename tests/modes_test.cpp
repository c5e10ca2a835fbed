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

namespace {

// The bits that a path had right after it was bound, or when they were about to be changed.
std::map<std::string, mode_t> seen;
bool looking = false;

void look_at(const char* path) {
    struct stat status = {};
    if (looking && lstat(path, &status) == 0) {
        seen[path] |= status.st_mode & 07777;
    }
}

void expect_never_wider_than_now() {
    for (const auto& [path, mode] : seen) {
        const mode_t in_the_end = exists(path) ? mode_of(path) : 0644;
        EXPECT_EQ(in_the_end, in_the_end | mode) << path;
    }
}

}  // namespace

extern "C" {
int __real_chmod(const char*, mode_t);
int __real_fchmod(int, mode_t);
int __real_bind(int, const sockaddr*, socklen_t);

int __wrap_chmod(const char* path, mode_t mode) {
    look_at(path);
    return __real_chmod(path, mode);
}

int __wrap_fchmod(int fd, mode_t mode) {
    char path[100] = {};  // of a socket it is none
    (void)!readlink(("/.phone/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1);
    look_at(path);
    return __real_fchmod(fd, mode);
}

int __wrap_bind(int socket, const sockaddr* address, socklen_t size) {
    const int result = __real_bind(socket, address, size);
    look_at(address->sa_data);
    return result;
}
}

TEST(Modes, TheCommandSocketIsForItsGroup) {
    umask(0);
    looking = true;
    ASSERT_EQ(0, dmd_command_sever_init());
    EXPECT_EQ(0660U, mode_of(DMD_COMMAND_SOCKET));
    EXPECT_EQ(1U, seen.size());
    expect_never_wider_than_now();
}

TEST(Modes, ExtractedFilesGetTheirOwn) {
    ASSERT_EQ(0, chdir("/data"));
    output_of("mkdir -m 750 d; touch d/f d/s; chmod 640 d/f; chmod 4711 d/s; tar -cf a d; rm -r d");
    umask(0);
    looking = true;
    const UniqueFd archive(open("a", O_RDONLY));
    EXPECT_EQ(1, read_tar_file(archive.get(), 1, nullptr));
    EXPECT_EQ(0750U, mode_of("d"));
    EXPECT_EQ(0640U, mode_of("d/f"));
    EXPECT_EQ(04711U, mode_of("d/s"));
    EXPECT_EQ(3U, seen.size());
    expect_never_wider_than_now();
}

TEST(Modes, OutputIsForAllToReadOnBothBuilds) {
    bring_up("", false);
    umask(0);
    looking = true;
    for (const bool commercial : {false, false, true, true}) {
        set_commercial(commercial);
        report_error("dsm_tp", 1, "text");
        dmd_dump_error(get_client_by_name("dsm_tp"), 1, 0, "on");
        dmd_force_dump_error(get_client_by_name("dsm_tp"), 2, 1, "on");
        dmd_dump_error(get_client_by_name("dsm_audio"), 1, 0, "on");
        dmd_dump_error(get_client_by_name("dsm_audio"), 1, 2, "on");
        unlink(RECORD);  // then the daemon asks anew what it runs on
    }
    expect_never_wider_than_now();
    EXPECT_EQ(0775U, mode_of("/data/kvdx_logs"));
    EXPECT_EQ(0775U, mode_of(LOG_DIR));
    int files = 0;
    for (const std::string& name : names_in(LOG_DIR)) {
        EXPECT_EQ(name == "apr_info.txt" ? 0660U : 0644U, mode_of(std::string(LOG_DIR) + "/" + name)) << name;
        ++files;
    }
    EXPECT_EQ(4, files) << "two dumps, a screenshot, the upload's description";
    for (const char* const log : {"zc8830dump", "audio_policy", "audio_flinger", "audio", "mediadump"}) {
        EXPECT_EQ(0644U, mode_of(std::string("/data/") + log + ".log")) << log;
    }
}
