// Upload of crash and status files. The stability collector calls set_for_blob once per directory
// and prefix on each of its ticks; each call ships at most one file, which is then renamed with
// the suffix "_readed" so that it is never sent twice. The line carries the same record header as
// every other upload, then the application name, the file's path and its content.
#include "report/file_upload.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "collectors/collectors.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"
#include "report/zel_helper.h"

namespace {

// Depth below which a searched directory's subdirectories are searched in turn: the top
// directory's subdirectories, and the names their subdirectories have relative to the top.
constexpr int kMaxSearchDepth = 2;

// The file buffer: the path, a comma, then the file's content. Used only by set_for_blob on the
// sampling thread; static so that a 128 KiB array does not sit on the worker's stack.
char g_file_buf[kFileBufSize];

// The line of a file upload: record header (written once), application name, file buffer.
char g_file_record[kFileBufSize];
uint32_t g_file_header_len = 0;

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

// Frames the file buffer's first `len` bytes as one line and uploads it under `kpi_id`; also
// appends it to the local record file. Returns the SDK's status, or the line's size when there is
// no SDK handle.
int32_t log_file(int32_t kpi_id, const char* data, uint32_t len) {
    if (g_file_header_len == 0) {
        g_file_header_len = format_record_header(g_file_record, sizeof(g_file_record));
        TLOGW(TAG_HELP, "%s() %d: First Start [%s] usesize:%d", g_file_record,
              static_cast<int>(g_file_header_len));
    }
    const std::string app = PowerBigDataCore::getInstance()->getAppName();
    uint32_t write = 0;
    const uint32_t size =
        frame_file_line(g_file_record, g_file_header_len, app.c_str(), data, len, &write);

    TLOGD(TAG_HELP, "%s() %d: kpi_id:%u [%s] size:%d write size:%u\n",
          static_cast<uint32_t>(kpi_id), g_file_record, static_cast<int>(size), write);

    int32_t ret;
    zel_hndl_t hndl = g_zel_hndl;
    if (hndl != nullptr) {
        ret = zel_log_blob(hndl, static_cast<uint32_t>(kpi_id),
                           reinterpret_cast<const uint8_t*>(g_file_record), size);
    } else {
        ret = static_cast<int32_t>(size);
    }
    write_local_record(g_file_record);

    TLOGD(TAG_HELP, "%s() %d: zel_log_blob() ret:%d", ret);
    return ret;
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

uint32_t frame_file_line(char* line, uint32_t header_len, const char* app, const char* data,
                         uint32_t len, uint32_t* written) {
    memset(line + header_len, 0, kFileBufSize - header_len);
    const size_t room = kFileBufSize - header_len;
    int n = snprintf(line + header_len, room, "%s,", app);
    size_t app_len = n < 0 ? 0 : static_cast<size_t>(n);
    if (app_len >= room) app_len = room - 1;
    const uint32_t head = header_len + static_cast<uint32_t>(app_len);

    // Keep one byte of the line for the NUL that ends the local copy.
    uint32_t write = len;
    if (kFileBufSize - head <= write) write = static_cast<uint32_t>(kFileBufSize - head - 1);
    memcpy(line + head, data, write);
    *written = write;
    return head + write;
}

FILE* open_regular_file(const char* path) {
    // O_NONBLOCK keeps an open of a FIFO from waiting for a writer; O_NOFOLLOW refuses a symlink
    // put in place of the file after the directory was read.
    int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return nullptr;
    }
    FILE* fp = fdopen(fd, "r");
    if (fp == nullptr) close(fd);
    return fp;
}

int32_t getFileName(const char* dir, const char* prefix, size_t prefix_len, char* path_out,
                    int depth) {
    DIR* dp = opendir(dir);
    if (dp == nullptr) {
        TLOGW(TAG_STABILITY, "%s() %d: open %s failed \n", dir);
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
                TLOGW(TAG_STABILITY, "%s() %d: path of %s in %s too long, skipped\n", name, dir);
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
    TLOGD(TAG_STABILITY, "%s() %d: found file: %s\n", path_out);
    closedir(dp);
    return 1;
}

int32_t set_for_blob(const char* dir, const char* prefix, int32_t kpi_id) {
    if (!stability_ready()) {
        TLOGW(TAG_STABILITY, "%s() %d: no need to collect data.\n");
        return -1;
    }

    char path[kFilePathSize];
    memset(g_file_buf, 0, sizeof(g_file_buf));
    memset(path, 0, sizeof(path));
    // A failed chdir shows up as a failed opendir or open below.
    int cd = chdir(dir);
    (void)cd;

    int32_t status = getFileName(dir, prefix, strlen(prefix), path);
    TLOGD(TAG_STABILITY, "%s() %d: retrieve file: %s of status: %d\n", path, status);
    if (status != 1) {
        TLOGW(TAG_STABILITY, "%s() %d: no qualified %s log founded, so skip.\n", prefix);
        return -1;
    }

    FILE* fp = open_regular_file(path);
    if (fp == nullptr) {
        TLOGW(TAG_STABILITY, "%s() %d: ERROR: %s file not exist !\n", path);
        return -1;
    }

    // The search guarantees room for the comma and the NUL.
    size_t path_len = strlen(path);
    path[path_len++] = ',';
    memcpy(g_file_buf, path, path_len);
    size_t nread = fread(g_file_buf + path_len, 1, kFileBufSize - path_len - kFileReadReserve, fp);
    TLOGW(TAG_STABILITY, "%s() %d: file read: %d bytes\n", static_cast<int>(nread));
    fclose(fp);

    PowerZELHelper::getInstance();
    int32_t ret = log_file(kpi_id, g_file_buf, static_cast<uint32_t>(path_len + nread));
    TLOGW(TAG_STABILITY, "%s() %d: upload status = %d\n", ret);

    // Mark the file as reported. The new name is bounded like every found path. When the suffix
    // is cut, the new name is at least kFilePathSize - 1 characters long, too long for the search
    // to hand out, so the file is still never sent again.
    path[--path_len] = '\0';
    char readed[kFilePathSize];
    snprintf(readed, sizeof(readed), "%s" FILE_READED_SUFFIX, path);
    // When the rename fails the file stays unreported and is found again on the next call.
    rename(path, readed);
    TLOGD(TAG_STABILITY, "%s() %d: copy = %s\n", readed);
    return ret;
}
