// Campaigns from the telemetry SDK: the registration record with its start and stop handlers, and
// the mapping of a decoded campaign onto the collector table's interval structures. The handlers
// decode; what a campaign does to the sampling is the sink's business, set at start-up.
#pragma once

#include <stdint.h>
#include <vmk_sdk/zel.h>

#include "interval_cfg.h"

class BigDataCampaignConfig;

#define TARN_COLLECTOR_NAME "core.pst.product_bigdata"

// A decoded campaign's periods and flags.
struct CampaignIntervals {
    PowerIntervalCfg power;
    ThermalIntervalCfg thermal;
    StabilityIntervalCfg stability;
};

// What the daemon does with campaigns. start applies the periods and flags and opens the start
// gate, and returns false when nothing can take them (the process is exiting); stop closes the
// gate. Both are called on the SDK's threads.
struct CampaignSink {
    bool (*start)(const CampaignIntervals& intervals);
    void (*stop)();
};
// Set once at start-up, before the collector registers with the SDK. Without a sink every
// campaign is refused.
void set_campaign_sink(CampaignSink sink);

// Decodes `size` bytes of a BigDataCampaignConfig, applies it and starts sampling. 0 when the
// campaign was taken; -1 for zero bytes or bytes that do not decode, and nothing changes.
int32_t start_campaign_handler(zel_collector* collector, const uint8_t* data, uint32_t size);
// Closes the start gate; periods, flags and counts stay. Always 0.
int32_t stop_campaign_handler(zel_collector* collector);

// A campaign's periods and flags as interval structures: every flag is the low 32 bits of the
// campaign's flag, every unsigned period is taken as a signed one (2^31 and more turn a row off).
void campaign_to_intervals(const BigDataCampaignConfig& cfg, PowerIntervalCfg* power,
                           ThermalIntervalCfg* thermal, StabilityIntervalCfg* stability);

// Registers the daemon's collector record with the SDK and keeps the handle in g_zel_hndl.
// 0 on success, -1 when the SDK refuses.
int32_t registerCollector();

// The registration record handed to zel_register.
extern zel_collector g_zel_collector;
