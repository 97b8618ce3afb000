// Telemetry SDK (libvmk_sdk): collector registration and record upload.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct zel_collector;
typedef struct zel_client* zel_hndl_t;

typedef int32_t (*zel_start_campaign_fn)(struct zel_collector* collector, const uint8_t* data,
                                         uint32_t size);
typedef int32_t (*zel_stop_campaign_fn)(struct zel_collector* collector);

// Registration record. Packed, little-endian, 8-byte pointers; 72 bytes in all.
typedef struct __attribute__((packed)) zel_collector {
    const char* name;                      // 0
    uint32_t type;                         // 8: always 1
    const char* data_dir;                  // 12
    zel_start_campaign_fn start_campaign;  // 20
    zel_stop_campaign_fn stop_campaign;    // 28
    uint32_t mode;                         // 36: always 1
    uint8_t reserved[32];                  // 40
} zel_collector;

#ifdef __cplusplus
static_assert(offsetof(zel_collector, name) == 0, "zel_collector layout");
static_assert(offsetof(zel_collector, type) == 8, "zel_collector layout");
static_assert(offsetof(zel_collector, data_dir) == 12, "zel_collector layout");
static_assert(offsetof(zel_collector, start_campaign) == 20, "zel_collector layout");
static_assert(offsetof(zel_collector, stop_campaign) == 28, "zel_collector layout");
static_assert(offsetof(zel_collector, mode) == 36, "zel_collector layout");
static_assert(sizeof(zel_collector) == 72, "zel_collector layout");
#endif

// Registers `collector` with the telemetry service. Returns null when the service is not there.
// Once registered, the SDK calls the record's campaign handlers on a thread of its own.
zel_hndl_t zel_register(zel_collector* collector);

// Uploads `size` bytes of `data` under `kpi_id`. Returns 0 on success, a negative errno otherwise.
int32_t zel_log_blob(zel_hndl_t hndl, uint32_t kpi_id, const uint8_t* data, uint32_t size);

int32_t zel_deregister(zel_hndl_t hndl);

#ifdef __cplusplus
}
#endif
