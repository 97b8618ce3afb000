// Shared pieces of the power collector tests: a device tree under a temporary root on which the
// core starts, and capture of the records that one handler call uploads, through the local
// record file.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "collectors.h"
#include "common/capture.h"
#include "common/test_util.h"
#include "power_bigdata_core.h"
#include "tarn_log.h"

namespace power_test {

using tarn_test::at;
using V = std::vector<std::string>;

// Writes a node of the device tree.
inline void write_file(const std::string& device_path, const std::string& content) {
    tarn_test::write_file(at(device_path), content);
}

// Closes and reopens the node table, as after a restart of the CPU collector.
inline int32_t reopen_nodes() {
    collect_cpu_stats_exit();
    return collect_cpu_stats_init(tarn_test::device_root().c_str());
}

// The records of every handler call of the binary.
inline tarn_test::RecordCapture& capture() {
    static tarn_test::RecordCapture records;
    return records;
}

// Writes the least device on which the core starts the CPU collector, whose init opens the node
// table (a battery, the possible CPUs, one cpufreq policy, the CPU statistics), then builds the core,
// which runs the battery and CPU inits on the nodes written so far, and routes uploads into the capture.
inline void start_core() {
    write_file("/sys/class/power_supply/battery/uevent", "POWER_SUPPLY_CAPACITY=50\n");
    write_file("/sys/devices/system/cpu/possible", "0-7\n");
    write_file("/sys/devices/system/cpu/cpufreq/policy0/stats/time_in_state", "");
    write_file("/proc/stat", "cpu  0 0 0 0 0 0 0 0 0 0\n");
    g_debug_level = 7;  // formats every message's arguments
    PowerBigDataCore::setDeviceRoot(tarn_test::device_root().c_str());
    PowerBigDataCore::getInstance();
    capture();
}

struct Call {
    int32_t ret;
    std::vector<std::string> records;  // record texts, without header and application name
};

// Calls `hndl` once with `flag` and returns its result and the records it uploaded.
template <typename Hndl>
Call call(Hndl hndl, uint64_t flag = 0) {
    capture().lines();
    int32_t ret = hndl(flag);
    return Call{ret, capture().records()};
}

// The one record of a call of `hndl`, or the call's result when it reported none.
template <typename Hndl>
std::string sample(Hndl hndl) {
    Call c = call(hndl);
    return c.records.size() == 1 ? c.records[0] : std::to_string(c.ret);
}

}  // namespace power_test
