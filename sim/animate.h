// Device model of `tarn_sim run --animate`: once a second each area moves its dynamic nodes in
// the simulated root, writing in place (never by rename) because the daemon keeps nodes open.
#pragma once

#include <string>

// `root` is the simulated device's root directory as seen from outside; `tick` counts from 1.
void animate_power(const std::string& root, unsigned tick);    // battery, CPU, GPU, DDR, display
void animate_lpm(const std::string& root, unsigned tick);      // idle states, sleep stats, WLAN
void animate_thermal(const std::string& root, unsigned tick);  // thermal zones, cooling devices
