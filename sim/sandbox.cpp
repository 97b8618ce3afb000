#include "sandbox.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tarn_wire.h"

namespace {

// Child side helpers: report and give up with the status of a command that could not start.
[[noreturn]] void fail(const std::string& what) {
    std::string msg = "tarn_sim: sandbox: " + what + ": " + strerror(errno) + "\n";
    tarn_wire::write_all(STDERR_FILENO, msg.data(), msg.size());
    _exit(127);
}

bool write_proc_file(const char* path, const std::string& text) {
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = tarn_wire::write_all(fd, text.data(), text.size());
    close(fd);
    return ok;
}

void enter_namespace() {
    uid_t uid = getuid();
    gid_t gid = getgid();
    if (uid == 0 && unshare(CLONE_NEWNS) == 0) return;
    // Without privileges a user namespace grants the mount rights, with ourselves as its root.
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) < 0) fail("cannot create a mount namespace");
    write_proc_file("/proc/self/setgroups", "deny");
    if (!write_proc_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !write_proc_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")) {
        fail("cannot map the user into its namespace");
    }
}

void bind(const std::string& src, const std::string& dst, bool recursive) {
    unsigned long flags = MS_BIND | (recursive ? MS_REC : 0);
    if (mount(src.c_str(), dst.c_str(), nullptr, flags, nullptr) < 0) {
        fail("cannot bind " + src + " on " + dst);
    }
}

// Makes a bind mount read-only. Flags locked by a user namespace (nosuid, nodev, ...) must be
// carried over, or the kernel refuses the remount.
void remount_readonly(const std::string& path) {
    struct statvfs vfs;
    unsigned long flags = MS_BIND | MS_REMOUNT | MS_RDONLY;
    if (statvfs(path.c_str(), &vfs) == 0) {
        if (vfs.f_flag & ST_NOSUID) flags |= MS_NOSUID;
        if (vfs.f_flag & ST_NODEV) flags |= MS_NODEV;
        if (vfs.f_flag & ST_NOEXEC) flags |= MS_NOEXEC;
        if (vfs.f_flag & ST_NOATIME) flags |= MS_NOATIME;
        if (vfs.f_flag & ST_NODIRATIME) flags |= MS_NODIRATIME;
        if (vfs.f_flag & ST_RELATIME) flags |= MS_RELATIME;
    }
    if (mount(nullptr, path.c_str(), nullptr, flags, nullptr) < 0) {
        fprintf(stderr, "tarn_sim: sandbox: %s stays writable: %s\n", path.c_str(), strerror(errno));
    }
}

bool under(const std::string& path, const std::string& dir) {
    return path == dir || (path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 &&
                           path[dir.size()] == '/');
}

// Host system directories that programs need: /usr, /bin, /sbin, /etc and every /lib*.
std::vector<std::string> system_dirs() {
    std::vector<std::string> dirs = {"/usr", "/bin", "/sbin", "/etc"};
    if (DIR* d = opendir("/")) {
        while (dirent* e = readdir(d)) {
            if (strncmp(e->d_name, "lib", 3) == 0) dirs.push_back(std::string("/") + e->d_name);
        }
        closedir(d);
    }
    return dirs;
}

void ensure_file(const std::string& path) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) close(fd);
}

}  // namespace

bool write_properties(const std::string& image, const std::string& root,
                      const std::vector<std::string>& props, std::string* err) {
    std::vector<std::string> lines;
    {
        std::ifstream in(join_path(image, "build.prop"));
        std::string line;
        while (std::getline(in, line)) lines.push_back(line);
    }
    for (const std::string& prop : props) {
        std::string key = prop.substr(0, prop.find('='));
        bool replaced = false;
        for (std::string& line : lines) {
            size_t start = line.find_first_not_of(" \t");
            if (start == std::string::npos || line[start] == '#') continue;
            size_t eq = line.find('=', start);
            if (eq == std::string::npos) continue;
            size_t end = line.find_last_not_of(" \t", eq - 1);
            if (end != std::string::npos && end >= start &&
                line.compare(start, end - start + 1, key) == 0 && end - start + 1 == key.size()) {
                line = replaced ? "# " + line : prop;  // later duplicates would win otherwise
                replaced = true;
            }
        }
        if (!replaced) lines.push_back(prop);
    }
    std::string path = root + kPropertiesFile;
    std::ofstream out(path, std::ios::trunc);
    for (const std::string& line : lines) out << line << '\n';
    out.close();
    if (!out) {
        *err = "cannot write " + path;
        return false;
    }
    return true;
}

std::string self_dir() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return "";
    buf[n] = '\0';
    std::string path(buf);
    size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string find_checkout() {
    std::string dir = self_dir();
    while (!dir.empty() && dir != "/") {
        if (access((dir + "/CMakeLists.txt").c_str(), F_OK) == 0) return dir;
        dir = dir.substr(0, dir.rfind('/'));
    }
    return "";
}

void exec_in_sandbox(const SandboxConfig& cfg) {
    const std::string& root = cfg.root;
    enter_namespace();
    // Nothing mounted from here on may leak back into the host's namespace.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0) {
        fail("cannot make the mounts private");
    }

    // A private /tmp first, so that host directories below /tmp can be bound inside it.
    make_dirs(root + "/tmp");
    if (mount("tmpfs", (root + "/tmp").c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") < 0) {
        fail("cannot mount /tmp");
    }

    std::vector<std::string> sys = system_dirs();
    for (const std::string& dir : sys) {
        struct stat st;
        if (lstat(dir.c_str(), &st) < 0) continue;
        std::string target = root + dir;
        if (S_ISLNK(st.st_mode)) {
            // Merged-/usr hosts: /bin -> usr/bin and the like stay links to the bound /usr.
            char link[PATH_MAX];
            ssize_t n = readlink(dir.c_str(), link, sizeof(link) - 1);
            struct stat existing;
            if (n > 0 && lstat(target.c_str(), &existing) < 0) {
                link[n] = '\0';
                if (symlink(link, target.c_str()) < 0) fail("cannot link " + target);
            }
            continue;
        }
        if (!S_ISDIR(st.st_mode)) continue;
        if (!make_dirs(target)) fail("cannot create " + target);
        bind(dir, target, true);
        remount_readonly(target);
    }

    for (const std::string& dir : cfg.host_dirs) {
        bool visible = false;
        for (const std::string& s : sys) visible = visible || under(dir, s);
        if (visible || dir.empty() || dir == "/") continue;
        std::string target = root + dir;
        if (!make_dirs(target)) fail("cannot create " + target);
        bind(dir, target, false);
    }

    // /proc: a real one, with the image's own files (proc/stat) mounted over their live
    // counterparts. Keep hold of those files before procfs hides them.
    std::vector<std::pair<std::string, int>> proc_files;
    if (DIR* d = opendir((root + "/proc").c_str())) {
        while (dirent* e = readdir(d)) {
            std::string path = root + "/proc/" + e->d_name;
            struct stat st;
            if (lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
                int fd = open(path.c_str(), O_PATH | O_CLOEXEC);
                if (fd >= 0) proc_files.emplace_back(e->d_name, fd);
            }
        }
        closedir(d);
    }
    make_dirs(root + "/proc");
    if (mount("proc", (root + "/proc").c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) <
        0) {
        bind("/proc", root + "/proc", true);  // no procfs of our own (user namespace): the host's
    }
    for (const auto& file : proc_files) {
        std::string target = root + "/proc/" + file.first;
        if (access(target.c_str(), F_OK) == 0) {
            bind("/proc/self/fd/" + std::to_string(file.second), target, false);
        } else {
            fprintf(stderr, "tarn_sim: sandbox: /proc/%s has no live counterpart, not mounted\n",
                    file.first.c_str());
        }
        close(file.second);
    }

    // /dev: the harmless character devices, the service sockets (created by tarn_sim in
    // dev/socket of the root) and the usual links into /proc.
    make_dirs(root + "/dev/socket");
    for (const char* node : {"null", "zero", "random", "urandom"}) {
        std::string target = root + "/dev/" + node;
        ensure_file(target);
        bind(std::string("/dev/") + node, target, false);
    }
    const char* links[][2] = {{"fd", "/proc/self/fd"},
                              {"stdin", "/proc/self/fd/0"},
                              {"stdout", "/proc/self/fd/1"},
                              {"stderr", "/proc/self/fd/2"}};
    for (const auto& link : links) {
        std::string target = root + "/dev/" + link[0];
        struct stat st;
        if (lstat(target.c_str(), &st) < 0 && symlink(link[1], target.c_str()) < 0) {
            fail("cannot link " + target);
        }
    }

    if (chdir(root.c_str()) < 0 || chroot(".") < 0) fail("cannot enter " + root);
    if (cfg.cwd.empty() || chdir(cfg.cwd.c_str()) < 0) {
        if (chdir("/") < 0) fail("cannot change to /");
    }
    setenv("TARN_HOST_PROPERTIES", kPropertiesFile, 1);
    setenv("TMPDIR", "/tmp", 1);

    std::vector<char*> argv;
    for (const std::string& arg : cfg.command) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    fail("cannot run " + cfg.command[0]);
}
