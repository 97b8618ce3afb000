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

// The file buffer: the path, a comma, then the file's content. Used only by set_for_blob on the
// sampling thread; static so that a 128 KiB array does not sit on the worker's stack.
char g_file_buf[kFileBufSize];

// Composes the full path of `name`, found while searching `dir`, from the working directory.
bool compose_path(const char* dir, const char* name, char* path_out) {
    char cwd[kFilePathSize];
    memset(cwd, 0, sizeof(cwd));
    if (getcwd(cwd, sizeof(cwd)) == nullptr) {
        memset(path_out, 0, kFilePathSize);
        return false;
    }
    return compose_found_path(cwd, dir, name, path_out);
}

}  // namespace

bool file_name_qualifies(const char* name, const char* prefix, size_t prefix_len) {
    return strncmp(name, prefix, prefix_len) == 0 && strstr(name, FILE_READED_SUFFIX) == nullptr &&
           strstr(name, ".pb") == nullptr;
}

bool compose_found_path(const char* cwd, const char* dir, const char* name, char* path_out) {
    int n;
    if (strncmp(dir, cwd, strlen(cwd)) == 0) {
        n = snprintf(path_out, kFilePathSize, "%s/%s", cwd, name);
    } else {
        n = snprintf(path_out, kFilePathSize, "%s/%s/%s", cwd, dir, name);
    }
    // One byte for the comma appended before upload, one for the NUL.
    if (n < 0 || static_cast<size_t>(n) + 2 > kFilePathSize) {
        memset(path_out, 0, kFilePathSize);
        return false;
    }
    return true;
}

int open_regular_file(const char* path) {
    // O_NONBLOCK keeps an open of a FIFO from waiting for a writer; O_NOFOLLOW refuses a symlink
    // put in place of the file after the directory was read.
    int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -1;
    }
    return fd;
}

int32_t getFileName(const char* dir, const char* prefix, size_t prefix_len, char* path_out,
                    int depth) {
    DIR* dp = opendir(dir);
    if (dp == nullptr) {
        TLOGW("open %s failed \n", dir);
        return -EINVAL;
    }

    int32_t ret = 0;
    const char* found = nullptr;
    struct dirent* entry;
    while ((entry = readdir(dp)) != nullptr) {
        const char* name = entry->d_name;
        if (entry->d_type == DT_DIR) {
            if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
            // Subdirectories are opened by their bare names relative to the top directory, so
            // below the first level a name can lead back to a directory already on the way
            // (top/a/a reopens top/a): descending stops there to keep the search finite.
            if (depth >= kMaxSearchDepth) continue;
            ret = getFileName(name, prefix, prefix_len, path_out, depth + 1);
            if (ret > 0) {
                closedir(dp);
                return ret;
            }
        } else if (entry->d_type == DT_REG && file_name_qualifies(name, prefix, prefix_len)) {
            // A path that does not fit is never handed out cut: the file is passed over and
            // the search goes on.
            if (!compose_path(dir, name, path_out)) {
                TLOGW("path of %s in %s too long, skipped\n", name, dir);
                continue;
            }
            found = name;
            break;
        }
    }

    if (found == nullptr) {
        closedir(dp);
        return ret;
    }
    TLOGD("found file: %s\n", path_out);
    closedir(dp);
    return 1;
}

int32_t set_for_blob(const char* dir, const char* prefix, int32_t kpi_id) {
    if (!g_stability_ready.load(std::memory_order_acquire)) {
        TLOGW("no need to collect data.\n");
        return -1;
    }

    char path[kFilePathSize];
    memset(g_file_buf, 0, sizeof(g_file_buf));
    memset(path, 0, sizeof(path));
    // A failed chdir shows up as a failed opendir or open below.
    int cd = chdir(dir);
    (void)cd;

    int32_t status = getFileName(dir, prefix, strlen(prefix), path);
    TLOGD("retrieve file: %s of status: %d\n", path, status);
    if (status != 1) {
        TLOGW("no qualified %s log founded, so skip.\n", prefix);
        return -1;
    }

    int fd = open_regular_file(path);
    if (fd < 0) {
        TLOGW("ERROR: %s file not exist !\n", path);
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
    // When the rename fails the file stays unreported and is found again on the next call.
    (void)rename(path, readed);
    TLOGD("copy = %s\n", readed);
    return ret;
}
