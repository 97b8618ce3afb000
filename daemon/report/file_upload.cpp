// Upload of crash and status files. The stability collector calls set_for_blob once per directory
// and prefix on each of its ticks; each call ships at most one file, which is then renamed with
// the suffix "_readed" so that it is never sent twice. The line carries the same record header as
// every other upload, then the application name, the file's path and its content.
#define TARN_LOG_TAG TAG_STABILITY

#include "file_upload.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tarn_log.h"
#include "zel_helper.h"

std::atomic<bool> g_stability_ready{false};

namespace {

// Depth below which a searched directory's subdirectories are searched in turn: the top
// directory's subdirectories, and the names their subdirectories have relative to the top.
constexpr int kMaxSearchDepth = 2;

// Opens a directory without following a symbolic link in its place.
constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The file buffer: the path, a comma, then the file's content. Used only by set_for_blob on the
// sampling thread; static so that a 128 KiB array does not sit on the worker's stack.
char g_file_buf[kFileBufSize];

// One search of a crash directory. Every directory below the top is opened relative to the top's
// descriptor by its bare name, never through a path or the working directory, so that neither a
// link nor a directory renamed during the walk can lead it elsewhere.
struct Search {
    const char* top;  // the crash directory as named; found paths start with it
    int top_fd;
    const char* prefix;
    size_t prefix_len;
    char* path_out;
    FoundFile* found;
};

// Lists the directory open on `fd` (which it takes over) as `dir` names it: the top directory
// itself or the bare name of a directory below it.
int32_t search_dir(Search* s, int fd, const char* dir, int depth) {
    DIR* dp = fdopendir(fd);
    if (dp == nullptr) {
        close(fd);
        TLOGW_FN("getFileName", "open %s failed \n", dir);
        return -EINVAL;
    }

    int32_t ret = 0;
    struct dirent* entry;
    while ((entry = readdir(dp)) != nullptr) {
        const char* name = entry->d_name;
        if (entry->d_type == DT_DIR) {
            if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
            // Names below the first level are taken relative to the top directory too, so a name
            // can lead back to a directory already on the way (top/a/a reopens top/a):
            // descending stops there to keep the search finite.
            if (depth >= kMaxSearchDepth) continue;
            int sub = openat(s->top_fd, name, kDirFlags);
            if (sub < 0) {
                TLOGW_FN("getFileName", "open %s failed \n", name);
                ret = -EINVAL;
                continue;
            }
            ret = search_dir(s, sub, name, depth + 1);
            if (ret > 0) {
                closedir(dp);
                return ret;
            }
        } else if (entry->d_type == DT_REG && file_name_qualifies(name, s->prefix, s->prefix_len)) {
            // A path that does not fit is never handed out cut: the file is passed over and
            // the search goes on.
            if (!compose_found_path(s->top, dir, name, s->path_out)) {
                TLOGW_FN("getFileName", "path of %s in %s too long, skipped\n", name, dir);
                continue;
            }
            if (s->found != nullptr) {
                s->found->dir_fd = fcntl(dirfd(dp), F_DUPFD_CLOEXEC, 0);
                (void)snprintf(s->found->name, sizeof(s->found->name), "%s", name);
            }
            TLOGD_FN("getFileName", "found file: %s\n", s->path_out);
            closedir(dp);
            return 1;
        }
    }
    closedir(dp);
    return ret;
}

}  // namespace

bool file_name_qualifies(const char* name, const char* prefix, size_t prefix_len) {
    return strncmp(name, prefix, prefix_len) == 0 && strstr(name, FILE_READED_SUFFIX) == nullptr &&
           strstr(name, ".pb") == nullptr;
}

bool compose_found_path(const char* top, const char* dir, const char* name, char* path_out) {
    int n;
    if (strncmp(dir, top, strlen(top)) == 0) {
        n = snprintf(path_out, kFilePathSize, "%s/%s", top, name);
    } else {
        n = snprintf(path_out, kFilePathSize, "%s/%s/%s", top, dir, name);
    }
    // One byte for the comma appended before upload, one for the NUL.
    if (n < 0 || static_cast<size_t>(n) + 2 > kFilePathSize) {
        memset(path_out, 0, kFilePathSize);
        return false;
    }
    return true;
}

int open_regular_at(int dir_fd, const char* name) {
    // O_NONBLOCK keeps an open of a FIFO from waiting for a writer; O_NOFOLLOW refuses a symlink
    // put in place of the file after the directory was read. What is shipped is what this
    // descriptor reads, so the check is made on the descriptor, not on the name.
    int fd = openat(dir_fd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -1;
    }
    return fd;
}

int32_t getFileName(const char* dir, const char* prefix, size_t prefix_len, char* path_out,
                    FoundFile* found) {
    if (found != nullptr) found->dir_fd = -1;
    int fd = open(dir, kDirFlags);
    if (fd < 0) {
        TLOGW("open %s failed \n", dir);
        return -EINVAL;
    }
    Search s{dir, fd, prefix, prefix_len, path_out, found};
    // search_dir takes the descriptor over; the top's stays valid for the opens below it while
    // its listing is under way.
    int32_t ret = search_dir(&s, fd, dir, 0);
    if (ret == 1 && found != nullptr && found->dir_fd < 0) {
        memset(path_out, 0, kFilePathSize);  // no descriptor to ship it through
        ret = 0;
    }
    return ret;
}

int32_t set_for_blob(const char* dir, const char* prefix, int32_t kpi_id) {
    if (!g_stability_ready.load(std::memory_order_acquire)) {
        TLOGW("no need to collect data.\n");
        return -1;
    }

    char path[kFilePathSize];
    memset(g_file_buf, 0, sizeof(g_file_buf));
    memset(path, 0, sizeof(path));

    FoundFile found;
    int32_t status = getFileName(dir, prefix, strlen(prefix), path, &found);
    TLOGD("retrieve file: %s of status: %d\n", path, status);
    if (status != 1) {
        TLOGW("no qualified %s log founded, so skip.\n", prefix);
        return -1;
    }

    int fd = open_regular_at(found.dir_fd, found.name);
    if (fd < 0) {
        TLOGW("ERROR: %s file not exist !\n", path);
        close(found.dir_fd);
        return -1;
    }

    // The search guarantees room for the comma and the NUL.
    size_t path_len = strlen(path);
    path[path_len++] = ',';
    // The path and its comma open the buffer; the content follows, so no NUL goes after the comma.
    memcpy(g_file_buf, path, path_len);  // NOLINT(bugprone-not-null-terminated-result)
    // Reads until the end of the file or until the room is full; a read error keeps what was read
    // before it.
    const size_t room = kFileBufSize - path_len - kFileReadReserve;
    size_t nread = 0;
    while (nread < room) {
        ssize_t n = read(fd, g_file_buf + path_len + nread, room - nread);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        nread += static_cast<size_t>(n);
    }
    TLOGW("file read: %d bytes\n", static_cast<int>(nread));
    close(fd);

    int32_t ret = PowerZELHelper::getInstance()->log_file(kpi_id, g_file_buf,
                                                          static_cast<uint32_t>(path_len + nread));
    TLOGW("upload status = %d\n", ret);

    // Mark the file as reported. The new name is bounded like every found path. When the suffix
    // is cut, the new name is at least kFilePathSize - 1 characters long, too long for the search
    // to hand out, so the file is still never sent again.
    path[--path_len] = '\0';
    char readed[kFilePathSize];
    (void)snprintf(readed, sizeof(readed), "%s" FILE_READED_SUFFIX, path);
    // The rename happens in the directory the file was read from; the new name is the last
    // component of the new path (the path ends with the file's name).
    const char* new_name = readed + (path_len - strlen(found.name));
    // When the rename fails the file stays unreported and is found again on the next call.
    (void)renameat(found.dir_fd, found.name, found.dir_fd, new_name);
    close(found.dir_fd);
    TLOGD("copy = %s\n", readed);
    return ret;
}
