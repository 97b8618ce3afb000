// Identity of the device and its software, read once: five system properties and the firmware
// version-information file. Every uploaded record starts with a header built from these values.
#pragma once

#include <stdio.h>

#include <map>
#include <string>

#define TARN_VERSION_INFO_FILE "/vendor/firmware_mnt/verinfo/ver_info.txt"
#define TARN_DEBUG_LEVEL_PROP "rw.debug.tarn.stats.enabled"
// The same level under the daemon's vendor property namespace, which a vendor image can label and
// the shell can set; it is read only when TARN_DEBUG_LEVEL_PROP leaves the level alone.
#define TARN_DEBUG_LEVEL_VENDOR_PROP "vendor.tarn_stats.debug_level"

class DeviceProperties {
  public:
    // The first call builds the singleton; it is destroyed at process exit.
    static DeviceProperties* getInstance();
    ~DeviceProperties();

    std::map<std::string, std::string> mVersionInfo;
    std::string mSerialNo;
    std::string mManufacturer;
    std::string mOdmManufacturer;
    std::string mVendorManufacturer;
    std::string mModel;

  private:
    DeviceProperties();
    void VersionInfoInit();
};

// Reads `key` into `value` (PROPERTY_VALUE_MAX bytes, zeroed first), falling back to
// `default_value` when the property is unset or empty, and writes the property trace to the log.
// Returns the length of the value.
int property_get_traced(const char* key, char* value, const char* default_value);

// Parses version-information text line by line into `info`. A line holding a brace is skipped; the
// key is the text between the line's first two double quotes; the value runs from the first double
// quote after the line's first colon to the line's last double quote. The first occurrence of a key
// wins. Lines without that shape are skipped.
void parse_version_info(FILE* fp, std::map<std::string, std::string>* info);

// Base-10 value of a debug-level property. Anything but an optionally signed decimal number that
// fits 32 bits reads as 0, which leaves the level alone.
int parse_debug_level(const char* text);
