// The upload helper: puts the record header and the application name in front of a record and
// sends the line through the telemetry SDK and, when one is open, into the local record file.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <vmk_sdk/zel.h>

#include <atomic>

#define TARN_STATS_VERSION "tarn-stats-v2.1"
#define TARN_STATS_DATA_DIR "/data/vendor/tarn_stats"

// Handle returned by zel_register, or null. Written once at start-up, read by the uploads.
extern std::atomic<zel_hndl_t> g_zel_hndl;

class PowerZELHelper {
  public:
    static PowerZELHelper* getInstance();
    ~PowerZELHelper();

    // Uploads the NUL-terminated record `data` under `kpi_id`. `len` is informative only.
    void log_blob(uint32_t kpi_id, const char* data, uint32_t len);

  private:
    PowerZELHelper();
};

// Formats the record header (version, manufacturer, model, serial number, build id, each followed
// by a comma) at the start of `buf`. Returns its length, at most size - 1.
uint32_t format_record_header(char* buf, size_t size);

// Writes `line` and a newline to the local record file, starting the file afresh once it has
// reached 4 GiB. Shared by record and file uploads.
void write_local_record(const char* line);
