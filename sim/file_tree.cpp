#include "file_tree.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tarn_wire.h"

namespace {

bool copy_file(const std::string& src, const std::string& dst, mode_t mode, std::string* err) {
    int in = open(src.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
        *err = "cannot read " + src + ": " + strerror(errno);
        return false;
    }
    int out = open(dst.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        *err = "cannot create " + dst + ": " + strerror(errno);
        close(in);
        return false;
    }
    char buf[65536];
    bool ok = true;
    for (;;) {
        ssize_t n = read(in, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 || (n > 0 && !tarn_wire::write_all(out, buf, static_cast<size_t>(n)))) {
            *err = "cannot copy " + src + ": " + strerror(errno);
            ok = false;
            break;
        }
        if (n == 0) break;
    }
    if (ok && fchmod(out, mode & 07777) < 0) {
        *err = "cannot set the mode of " + dst + ": " + strerror(errno);
        ok = false;
    }
    close(in);
    close(out);
    return ok;
}

bool copy_entry(const std::string& src, const std::string& dst, std::string* err) {
    struct stat st;
    if (lstat(src.c_str(), &st) < 0) {
        *err = "cannot stat " + src + ": " + strerror(errno);
        return false;
    }
    if (S_ISLNK(st.st_mode)) {
        char target[PATH_MAX];
        ssize_t n = readlink(src.c_str(), target, sizeof(target) - 1);
        if (n < 0) {
            *err = "cannot read link " + src + ": " + strerror(errno);
            return false;
        }
        target[n] = '\0';
        if (symlink(target, dst.c_str()) < 0) {
            *err = "cannot create link " + dst + ": " + strerror(errno);
            return false;
        }
        return true;
    }
    if (S_ISREG(st.st_mode)) return copy_file(src, dst, st.st_mode, err);
    if (S_ISDIR(st.st_mode)) {
        if (mkdir(dst.c_str(), 0700) < 0) {
            *err = "cannot create " + dst + ": " + strerror(errno);
            return false;
        }
        if (!copy_tree(src, dst, err)) return false;
        if (chmod(dst.c_str(), st.st_mode & 07777) < 0) {
            *err = "cannot set the mode of " + dst + ": " + strerror(errno);
            return false;
        }
        return true;
    }
    fprintf(stderr, "tarn_sim: skipping %s: not a file, directory or symlink\n", src.c_str());
    return true;
}

int remove_entry(const char* path, const struct stat*, int type, struct FTW*) {
    if (type == FTW_DP) {
        rmdir(path);
    } else {
        unlink(path);
    }
    return 0;
}

}  // namespace

std::string join_path(const std::string& a, const std::string& b) {
    if (a.empty() || a.back() != '/') return a + "/" + b;
    return a + b;
}

bool copy_tree(const std::string& src, const std::string& dst, std::string* err) {
    DIR* d = opendir(src.c_str());
    if (d == nullptr) {
        *err = "cannot read " + src + ": " + strerror(errno);
        return false;
    }
    bool ok = true;
    while (dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
        if (!copy_entry(join_path(src, e->d_name), join_path(dst, e->d_name), err)) {
            ok = false;
            break;
        }
    }
    closedir(d);
    return ok;
}

void remove_tree(const std::string& path) {
    nftw(path.c_str(), remove_entry, 32, FTW_DEPTH | FTW_PHYS | FTW_MOUNT);
}

bool make_dirs(const std::string& path, unsigned mode) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos == path.size() || path[pos] == '/') {
            std::string part = path.substr(0, pos);
            if (mkdir(part.c_str(), mode) < 0 && errno != EEXIST) return false;
        }
    }
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool is_empty_dir(const std::string& path) {
    DIR* d = opendir(path.c_str());
    if (d == nullptr) return false;
    bool empty = true;
    while (dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) {
            empty = false;
            break;
        }
    }
    closedir(d);
    return empty;
}
