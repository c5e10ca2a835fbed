// The private root: a small file system in memory, with the desk's programs bound into it read-only and
// everything else as a phone has it.
#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "emulator/driver_fuse.h"
#include "emulator/files.h"
#include "emulator/kernel_files.h"
#include "emulator/phone.h"
#include "emulator/properties.h"
#include "emulator/refusal.h"
#include "emulator/stand_ins.h"
#include "platform/owned.h"

namespace phone {

namespace {

// What is no phone's business stands in one folder: the desk's root while the phone is being built, the real
// process and device information, the driver's file system, the folder of `phone`.
const std::string DESK = "/.phone/desk";
const std::string REAL_PROC = "/.phone/proc";
const std::string REAL_SYS = "/.phone/sys";
const std::string DRIVER = "/.phone/driver";

// Where the graphics service puts the frames that it dumps.
constexpr char FRAME_DUMPS[] = "/data/hwcdump";

constexpr char ROOT_MOUNT_OPTIONS[] = "mode=0755,size=256m";

constexpr const char* DESK_DEVICES[] = {"null", "zero", "full", "random", "urandom", "tty"};
// What the desk's programs and its loader need of /etc.
constexpr const char* DESK_ETC[] = {"alternatives", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "localtime"};

constexpr char PASSWD[] =
    "root:x:0:0:root:/data:/bin/sh\n"
    "system:x:1000:1000:system:/data:/bin/sh\n"
    "radio:x:1001:1001:radio:/data:/bin/sh\n"
    "bluetooth:x:1002:1002:bluetooth:/data:/bin/sh\n"
    "graphics:x:1003:1003:graphics:/data:/bin/sh\n"
    "input:x:1004:1004:input:/data:/bin/sh\n"
    "audio:x:1005:1005:audio:/data:/bin/sh\n"
    "camera:x:1006:1006:camera:/data:/bin/sh\n"
    "log:x:1007:1007:log:/data:/bin/sh\n"
    "media:x:1013:1013:media:/data:/bin/sh\n"
    "shell:x:2000:2000:shell:/data:/bin/sh\n";

constexpr char GROUP[] =
    "root:x:0:\n"
    "system:x:1000:\n"
    "radio:x:1001:\n"
    "bluetooth:x:1002:\n"
    "graphics:x:1003:\n"
    "input:x:1004:\n"
    "audio:x:1005:\n"
    "camera:x:1006:\n"
    "log:x:1007:system\n"
    "media:x:1013:\n"
    "shell:x:2000:\n";

void mount_or_refuse(const char* source, const std::string& target, const char* type, unsigned long flags,
                     const char* options, const std::string& advice = "") {
    if (mount(source, target.c_str(), type, flags, options) != 0) {
        throw refusal_errno("cannot mount " + std::string(type != nullptr ? type : source) + " at " + target +
                            advice);
    }
}

// Makes everything mounted at `target` and below read-only.
void protect(const std::string& target) {
    mount_attr attributes = {};
    attributes.attr_set = MOUNT_ATTR_RDONLY | MOUNT_ATTR_NOSUID;
    if (mount_setattr(AT_FDCWD, target.c_str(), AT_RECURSIVE, &attributes, sizeof(attributes)) != 0) {
        throw refusal_errno("cannot make " + target + " read-only (this needs Linux 5.12 or later)");
    }
}

// Shows something of the desk, a folder with all below it or a file, at `target`.
void bind(const std::string& source, const std::string& target) {
    struct stat info = {};
    if (stat(source.c_str(), &info) != 0) {
        throw refusal_errno("cannot show " + target + " in the phone");
    }
    if (S_ISDIR(info.st_mode)) {
        make_folder(target);
    } else {
        write_file(target, "", 0644);
    }
    mount_or_refuse(source.c_str(), target, nullptr, MS_BIND | MS_REC, nullptr);
}

// Shows the desk's `path` in the same place read-only, or copies it when it is a symbolic link. What the desk
// does not have the phone does not have either.
void show_as_on_desk(const std::string& path) {
    const std::string source = DESK + path;
    struct stat info = {};
    if (lstat(source.c_str(), &info) != 0) {
        return;
    }
    if (!S_ISLNK(info.st_mode)) {
        bind(source, path);
        protect(path);
        return;
    }
    char target[PATH_MAX] = {};
    if (readlink(source.c_str(), target, sizeof(target) - 1) < 0) {
        throw refusal_errno("cannot read the link " + path);
    }
    make_link(target, path);
}

// Makes a fresh file system in memory the root, with what the caller sees as its root at DESK, and lets go of
// all else. The desk may be a chroot, whose root need not be a mount, so the old root that goes is the whole
// machine's: to join a mount namespace, also the own one, leads there. The desk's /tmp is only where the file
// system in memory is mounted until then; at DESK it is not covered.
void change_root() {
    const UniqueFd desk(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd self(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
    if (!desk.valid() || setns(self.get(), CLONE_NEWNS) != 0 || fchdir(desk.get()) != 0) {
        throw refusal_errno("cannot find the root of all mounts (this needs Linux 5.8 or later)");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw refusal_errno("cannot make the mounts of the phone private");
    }
    const UniqueFd tree(open_tree(AT_FDCWD, ".", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE));
    if (!tree.valid()) {
        throw refusal_errno("cannot copy the mounts of the desk");
    }
    mount_or_refuse("phone", "tmp", "tmpfs", MS_NOSUID | MS_NODEV, ROOT_MOUNT_OPTIONS,
                    " (where the desk restricts unprivileged user namespaces, run phone as root)");
    make_folder("tmp/.phone/desk");
    // The old root comes to lie on the new one, and goes from there.
    if (move_mount(tree.get(), "", AT_FDCWD, "tmp/.phone/desk", MOVE_MOUNT_F_EMPTY_PATH) != 0 ||
        chdir("tmp") != 0 || syscall(SYS_pivot_root, ".", ".") != 0 || umount2(".", MNT_DETACH) != 0 ||
        chdir("/") != 0) {
        throw refusal_errno("cannot change to the private root (an initramfs as root cannot be exchanged)");
    }
}

void make_system(const PhoneOptions& options) {
    for (const std::string& name : names_in(DESK)) {
        if (name == "usr" || name == "bin" || name == "sbin" || name.rfind("lib", 0) == 0) {
            show_as_on_desk("/" + name);
        }
    }
    make_folder("/etc");
    for (const char* name : DESK_ETC) {
        show_as_on_desk(std::string("/etc/") + name);
    }
    write_file("/etc/passwd", PASSWD, 0644);
    write_file("/etc/group", GROUP, 0644);
    make_folder("/tmp", 01777);
    make_folder("/system/etc");
    make_folder("/system/bin");
    make_stand_ins();
    write_file("/system/etc/device_state_monitor.conf", options.config, 0644);
}

void make_dev(const PhoneOptions& options) {
    make_folder("/dev/socket");
    make_folder("/dev/__properties__");
    make_folder("/dev/log");
    make_folder("/dev/shm", 01777);
    for (const char* name : DESK_DEVICES) {
        const std::string path = std::string("/dev/") + name;
        bind(DESK + path, path);
        // Takes nothing from who writes to it; its mode and its owner stay the desk's.
        protect(path);
    }
    make_link("/proc/self/fd", "/dev/fd");
    make_link("/proc/self/fd/0", "/dev/stdin");
    make_link("/proc/self/fd/1", "/dev/stdout");
    make_link("/proc/self/fd/2", "/dev/stderr");
    write_property("persist.sys.qelvan.debug.on", options.commercial ? "0" : "1");
    write_property("dev.bootcomplete", "1");
}

void make_proc_and_sys() {
    make_folder(REAL_PROC);
    // Read-only: as root, a process of the phone could set the desk's kernel otherwise.
    mount_or_refuse("proc", REAL_PROC, "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr,
                    " (a container that hides parts of /proc forbids this: run phone outside of it or as its "
                    "privileged root)");
    link_entries(REAL_PROC, "/proc");
    bind(DESK + "/sys", REAL_SYS);
    protect(REAL_SYS);
    link_entries(REAL_SYS, "/sys");
    make_kernel_files();
}

void make_data(const PhoneOptions& options) {
    make_folder("/data", 0771);
    if (!options.data_dir.empty()) {
        mount_or_refuse((DESK + options.data_dir).c_str(), "/data", nullptr, MS_BIND | MS_REC, nullptr);
    } else {
        const std::string size = "mode=0771,size=" + std::to_string(options.data_size);
        mount_or_refuse("data", "/data", "tmpfs", MS_NOSUID | MS_NODEV, size.c_str());
    }
    // One that a folder of the desk has already stays as it is.
    if (mkdir(FRAME_DUMPS, 0775) != 0 && errno != EEXIST) {
        throw refusal_errno(std::string("cannot make the folder ") + FRAME_DUMPS);
    }
}

void show_programs(const PhoneOptions& options) {
    bind(DESK + options.build_dir, BUILD_DIR);
    protect(BUILD_DIR);
}

bool is_below(const std::string& folder, const std::string& place) {
    return folder.compare(0, place.size() + 1, place + "/") == 0;
}

// Shows a folder of the desk read-only at its own place, unless it is there already.
void show_folder(const PhoneOptions& options, const std::string& folder) {
    struct stat here = {};
    struct stat desk = {};
    const bool taken = stat(folder.c_str(), &here) == 0;
    if (taken && stat((DESK + folder).c_str(), &desk) == 0 && here.st_dev == desk.st_dev &&
        here.st_ino == desk.st_ino) {
        return;
    }
    // Below a bound /data the place for it would be made on the desk.
    if (taken || is_below(folder, "/dev") || is_below(folder, "/proc") || is_below(folder, "/sys") ||
        is_below(folder, "/.phone") || (!options.data_dir.empty() && is_below(folder, "/data"))) {
        throw Refusal("--bind cannot show " + folder + ": the phone has something of its own there");
    }
    bind(DESK + folder, folder);
    protect(folder);
}

UniqueFd mount_driver() {
    UniqueFd fd(open((DESK + "/dev/fuse").c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!fd.valid()) {
        throw refusal_errno(
            "cannot open /dev/fuse, which stands in for the phone's driver (load it with 'modprobe fuse'; it "
            "must "
            "be readable and writable for who runs phone)");
    }
    make_folder(DRIVER);
    const std::string options = "fd=" + std::to_string(fd.get()) +
                                ",rootmode=40000,user_id=" + std::to_string(geteuid()) +
                                ",group_id=" + std::to_string(getegid()) + ",default_permissions,allow_other";
    mount_or_refuse("phone-driver", DRIVER, "fuse", MS_NOSUID | MS_NODEV, options.c_str());
    return fd;
}

}  // namespace

UniqueFd enter_private_root(const PhoneOptions& options) {
    umask(0);
    change_root();
    make_system(options);
    make_dev(options);
    make_proc_and_sys();
    make_data(options);
    show_programs(options);
    for (const std::string& folder : options.binds) {
        show_folder(options, folder);
    }
    UniqueFd fuse_fd = mount_driver();
    if (umount2(DESK.c_str(), MNT_DETACH) != 0 || rmdir(DESK.c_str()) != 0) {
        throw refusal_errno("cannot let go of the desk's root");
    }
    umask(022);
    return fuse_fd;
}

void place_devices() {
    for (const Device& device : DEVICES) {
        const std::string file = DRIVER + "/" + device.file;
        const std::string path = device.path;
        make_folder(path.substr(0, path.rfind('/')));
        if (device.is_link) {
            make_link(file, path);
        } else {
            bind(file, path);
        }
    }
}

void hide_from_proc(pid_t pid) {
    std::error_code gone;
    std::filesystem::remove_all("/proc/" + std::to_string(pid), gone);
}

void show_in_proc(pid_t pid) {
    const std::string number = std::to_string(pid);
    // A folder, as programs look for one: they may pass a link over.
    link_entries(REAL_PROC + "/" + number, "/proc/" + number);
}

}  // namespace phone
