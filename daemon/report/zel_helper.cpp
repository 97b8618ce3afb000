#define TARN_LOG_TAG TAG_HELP

#include "report/zel_helper.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/device_properties.h"
#include "core/power_bigdata_core.h"
#include "core/tarn_log.h"

#define RECORD_BUF_SIZE 4096
// Past this size the local record file is emptied and started again.
#define LOCAL_FILE_LIMIT 0xFFFFFFFFUL

std::atomic<zel_hndl_t> g_zel_hndl{nullptr};

namespace {

// The header is formatted into the start of the buffer once; each upload rewrites what follows.
// Only the sampling thread uploads, so the buffer needs no lock.
char sRecord[RECORD_BUF_SIZE];
uint32_t sHeaderLen = 0;

}  // namespace

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

uint32_t format_record_header(char* buf, size_t size) {
    DeviceProperties* props = DeviceProperties::getInstance();
    const std::string& build_id = props->mVersionInfo["Meta_Build_ID"];
    int n = snprintf(buf, size, "%s,%s,%s,%s,%s,", TARN_STATS_VERSION, props->mManufacturer.c_str(),
                     props->mModel.c_str(), props->mSerialNo.c_str(), build_id.c_str());
    if (n < 0) return 0;
    return static_cast<size_t>(n) < size ? static_cast<uint32_t>(n)
                                         : static_cast<uint32_t>(size - 1);
}

void PowerZELHelper::log_blob(uint32_t kpi_id, const char* data, uint32_t /*len*/) {
    if (sHeaderLen == 0) {
        sHeaderLen = format_record_header(sRecord, sizeof(sRecord));
        TLOGW("First Start [%s] usesize:%d", sRecord, static_cast<int>(sHeaderLen));
    }
    size_t room = sizeof(sRecord) - sHeaderLen;
    memset(sRecord + sHeaderLen, 0, room);

    std::string app = PowerBigDataCore::getInstance()->getAppName();
    int n = snprintf(sRecord + sHeaderLen, room, "%s,%s", app.c_str(), data != nullptr ? data : "");
    uint32_t size = sHeaderLen;
    if (n > 0) size += static_cast<size_t>(n) < room ? n : room - 1;

    int32_t ret = 0;
    zel_hndl_t hndl = g_zel_hndl;
    if (hndl != nullptr) {
        TLOGD("kpi_id:%u sndsize:%d ret:%d [%s] ", kpi_id, static_cast<int>(size), 0, sRecord);
        ret = zel_log_blob(hndl, kpi_id, reinterpret_cast<const uint8_t*>(sRecord), size);
    }
    write_local_record(sRecord);
    TLOGD("zel_log_blob() ret:%d", ret);
}

void write_local_record(const char* line) {
    FILE* fp = g_local_file;
    if (fp == nullptr) return;
    // A failed ftell reads as a huge position and also starts the file afresh. The stream appends,
    // so a rewind alone would not shrink it: flush what is buffered, then empty the file.
    unsigned long pos = static_cast<unsigned long>(ftell(fp));
    if (pos >= LOCAL_FILE_LIMIT) {
        fflush(fp);
        if (ftruncate(fileno(fp), 0) != 0) {
            // Not a regular file: nothing to empty; the rewind below is all that can be done.
        }
        fseek(fp, 0, SEEK_SET);
    }
    fprintf(fp, "%s\n", line);
}
