// The upload helper: puts the record header and the application name in front of a record and
// sends the line through the telemetry SDK and, when one is open, into the local record file.
#pragma once

#include <stdint.h>
#include <vmk_sdk/zel.h>

#define TARN_STATS_VERSION "tarn-stats-v2.1"
#define TARN_STATS_DATA_DIR "/data/vendor/tarn_stats"

// Handle returned by zel_register, or null.
extern zel_hndl_t g_zel_hndl;

class PowerZELHelper {
public:
    static PowerZELHelper* getInstance();
    ~PowerZELHelper();

    // Uploads the NUL-terminated record `data` under `kpi_id`. `len` is informative only.
    void log_blob(uint32_t kpi_id, const char* data, uint32_t len);

private:
    PowerZELHelper();
};

// Writes `line` and a newline to the local record file, starting the file afresh once it has
// reached 4 GiB. Shared by record and file uploads.
void write_local_record(const char* line);
