// The upload helper: puts the record header and the application name in front of a record and
// sends the line through the telemetry SDK and, when one is open, into the local record file.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <vmk_sdk/zel.h>

#include <atomic>
#include <string>

#define TARN_STATS_VERSION "tarn-stats-v2.1"
#define TARN_STATS_DATA_DIR "/data/vendor/tarn_stats"
// The application named in every line until the first activity hint.
#define DEFAULT_APP_NAME "com.android.launcher3"

// Size of the buffer a file upload's line is framed in, and of the buffer the file is read into.
constexpr size_t kFileBufSize = 131072;

// Local record file opened by --local, or null: every uploaded line is appended to it.
extern FILE* g_local_file;

// Handle returned by zel_register, or null. Written once at start-up, read by the uploads.
extern std::atomic<zel_hndl_t> g_zel_hndl;

// Frames an upload line in `line` (`size` bytes) whose first `header_len` bytes hold the record
// header: the application name and a comma, then the first `len` bytes of `data`, cut so that the
// line keeps a NUL at its end; the rest of the line is zeroed. Returns the line's size and the
// count of `data` bytes taken in *written.
uint32_t frame_line(char* line, size_t size, uint32_t header_len, const char* app, const char* data,
                    size_t len, size_t* written);

// The foreground application's name, as the line of every upload gives it. Set once at start-up,
// before the first upload; without one the lines carry DEFAULT_APP_NAME.
using AppNameProvider = std::string (*)();
void set_app_name_provider(AppNameProvider provider);

class PowerZELHelper {
  public:
    static PowerZELHelper* getInstance();
    ~PowerZELHelper();

    // Uploads the NUL-terminated record `data` under `kpi_id`. `len` is informative only.
    void log_blob(uint32_t kpi_id, const char* data, uint32_t len);
    // Uploads the first `len` bytes of `data` (a file's path, a comma and its content, which may
    // hold NUL bytes) under `kpi_id`, framed like a record. Returns the SDK's status, or the
    // line's size when there is no SDK handle.
    int32_t log_file(int32_t kpi_id, const char* data, uint32_t len);

  private:
    PowerZELHelper();
};
