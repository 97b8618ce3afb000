#define TARN_LOG_TAG TAG_HELP

#include "zel_helper.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <string>

#include "device_properties.h"
#include "tarn_log.h"

#define RECORD_BUF_SIZE 4096
// Past this size the local record file is emptied and started again.
#define LOCAL_FILE_LIMIT 0xFFFFFFFFUL

FILE* g_local_file = nullptr;
std::atomic<zel_hndl_t> g_zel_hndl{nullptr};

namespace {

// A line buffer of one kind of upload. The record header is formatted into its start on the
// first upload and kept; each upload rewrites what follows. Only the sampling thread uploads, so
// the buffers need no lock.
struct UploadBuffer {
    char* buf;
    size_t size;
    uint32_t header_len;
    const char* step;  // the routine the messages of this kind of upload name
    bool whole_file;   // a file's path and content rather than a collector's record
};

char sRecord[RECORD_BUF_SIZE];
char sFileRecord[kFileBufSize];
UploadBuffer sRecordUpload{sRecord, sizeof(sRecord), 0, "log_blob", false};
UploadBuffer sFileUpload{sFileRecord, sizeof(sFileRecord), 0, "log_file", true};

std::atomic<AppNameProvider> sAppNameProvider{nullptr};

// Formats the record header (version, manufacturer, model, serial number, build id, each followed
// by a comma) at the start of `buf`. Returns its length, at most size - 1.
uint32_t format_record_header(char* buf, size_t size) {
    DeviceProperties* props = DeviceProperties::getInstance();
    const std::string& build_id = props->mVersionInfo["Meta_Build_ID"];
    int n = snprintf(buf, size, "%s,%s,%s,%s,%s,", TARN_STATS_VERSION, props->mManufacturer.c_str(),
                     props->mModel.c_str(), props->mSerialNo.c_str(), build_id.c_str());
    if (n < 0) return 0;
    return static_cast<size_t>(n) < size ? static_cast<uint32_t>(n)
                                         : static_cast<uint32_t>(size - 1);
}

// Appends `line` and a newline to the local record file, starting the file afresh once it has
// reached 4 GiB. This is the one place a local line is written. The line goes out in one write,
// not through the stream's buffer, so each line is in the file whole before the next record is
// built and a kill loses at most the line under way.
void write_local_record(const char* line) {
    FILE* fp = g_local_file;
    if (fp == nullptr) return;
    const int fd = fileno(fp);
    // Appending leaves the offset at the end of the file. A failed lseek (a FIFO) reads as a huge
    // position and also starts the file afresh, which on a FIFO changes nothing.
    off_t pos = lseek(fd, 0, SEEK_CUR);
    if (pos < 0 || static_cast<unsigned long long>(pos) >= LOCAL_FILE_LIMIT) {
        if (ftruncate(fd, 0) != 0) {
            // Not a regular file: nothing to empty; the rewind below is all that can be done.
        }
        (void)lseek(fd, 0, SEEK_SET);
    }
    char newline[] = "\n";
    struct iovec iov[2] = {{const_cast<char*>(line), strlen(line)}, {newline, 1}};
    // Write errors (a FIFO whose reader has gone, the file-size limit) are not acted on: the line
    // has gone to the SDK already and the next line tries again.
    while (iov[1].iov_len != 0) {
        ssize_t n = writev(fd, iov[0].iov_len != 0 ? iov : iov + 1, iov[0].iov_len != 0 ? 2 : 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        size_t done = static_cast<size_t>(n);
        size_t head = done < iov[0].iov_len ? done : iov[0].iov_len;
        iov[0].iov_base = static_cast<char*>(iov[0].iov_base) + head;
        iov[0].iov_len -= head;
        if (done > head) iov[1].iov_len = 0;
    }
}

// Frames one line in `ub` (the header, written on first use, then frame_line's part). Sends the
// line under `kpi_id` when the SDK handle is set and appends it to the local record file. Returns
// the SDK's status; without a handle 0 for a record, the line's size for a file.
int32_t upload_line(UploadBuffer* ub, uint32_t kpi_id, const char* data, size_t len) {
    const char* step = ub->step;
    char* line = ub->buf;
    if (ub->header_len == 0) {
        ub->header_len = format_record_header(line, ub->size);
        TLOGW_FN(step, "First Start [%s] usesize:%d", line, static_cast<int>(ub->header_len));
    }
    const AppNameProvider provider = sAppNameProvider.load(std::memory_order_acquire);
    const std::string app = provider != nullptr ? provider() : std::string(DEFAULT_APP_NAME);
    size_t write = 0;
    const uint32_t size = frame_line(line, ub->size, ub->header_len, app.c_str(), data, len, &write);

    zel_hndl_t hndl = g_zel_hndl;
    if (ub->whole_file) {
        TLOGD_FN(step, "kpi_id:%u [%s] size:%d write size:%u\n", kpi_id, line,
                 static_cast<int>(size), static_cast<uint32_t>(write));
    } else if (hndl != nullptr) {
        TLOGD_FN(step, "kpi_id:%u sndsize:%d ret:%d [%s] ", kpi_id, static_cast<int>(size), 0, line);
    }
    int32_t ret = ub->whole_file ? static_cast<int32_t>(size) : 0;
    if (hndl != nullptr)
        ret = zel_log_blob(hndl, kpi_id, reinterpret_cast<const uint8_t*>(line), size);
    write_local_record(line);
    TLOGD_FN(step, "zel_log_blob() ret:%d", ret);
    return ret;
}

}  // namespace

uint32_t frame_line(char* line, size_t size, uint32_t header_len, const char* app, const char* data,
                    size_t len, size_t* written) {
    const size_t room = size - header_len;
    memset(line + header_len, 0, room);
    int n = snprintf(line + header_len, room, "%s,", app);
    size_t head = header_len;
    if (n > 0) head += static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room - 1;
    // One byte of the line stays free for the NUL that ends the local copy.
    const size_t write = len < size - head - 1 ? len : size - head - 1;
    memcpy(line + head, data, write);
    *written = write;
    return static_cast<uint32_t>(head + write);
}

void set_app_name_provider(AppNameProvider provider) {
    sAppNameProvider.store(provider, std::memory_order_release);
}

PowerZELHelper* PowerZELHelper::getInstance() {
    static PowerZELHelper instance;
    return &instance;
}

PowerZELHelper::PowerZELHelper() {
    // The header reads the device properties: build them first so that they outlive the helper.
    DeviceProperties::getInstance();
    g_zel_hndl = nullptr;
    if (access(TARN_STATS_DATA_DIR, F_OK) != 0) mkdir(TARN_STATS_DATA_DIR, 0666);
}

PowerZELHelper::~PowerZELHelper() {
    TLOGW("PowerZELHelper() do zel_deregister()");
    zel_hndl_t hndl = g_zel_hndl.exchange(nullptr);
    if (hndl != nullptr) zel_deregister(hndl);
}

void PowerZELHelper::log_blob(uint32_t kpi_id, const char* data, uint32_t /*len*/) {
    if (data == nullptr) data = "";
    upload_line(&sRecordUpload, kpi_id, data, strlen(data));
}

int32_t PowerZELHelper::log_file(int32_t kpi_id, const char* data, uint32_t len) {
    return upload_line(&sFileUpload, static_cast<uint32_t>(kpi_id), data, len);
}
