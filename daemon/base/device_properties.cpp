#define TARN_LOG_TAG TAG_TARN_STATS

#include "device_properties.h"

#include <cutils/properties.h>
#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "tarn_log.h"

int property_get_traced(const char* key, char* value, const char* default_value) {
    memset(value, 0, PROPERTY_VALUE_MAX);
    int len = property_get(key, value, default_value);
    value[PROPERTY_VALUE_MAX - 1] = '\0';
    __android_log_print(ANDROID_LOG_DEBUG, TAG_TARN_STATS, "getprop key:%s value:%s default:%s",
                        key, value, default_value);
    return len;
}

int parse_debug_level(const char* text) {
    if (text == nullptr) return 0;
    errno = 0;
    char* end = nullptr;
    long v = strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || v < INT32_MIN || v > INT32_MAX) return 0;
    return static_cast<int>(v);
}

static void parse_version_line(const char* line, size_t len,
                               std::map<std::string, std::string>* info) {
    if (memchr(line, '{', len) != nullptr || memchr(line, '}', len) != nullptr) return;

    const char* end = line + len;
    const char* q1 = static_cast<const char*>(memchr(line, '"', len));
    if (q1 == nullptr) return;
    const char* q2 = static_cast<const char*>(memchr(q1 + 1, '"', end - q1 - 1));
    const char* key_end = q2 != nullptr ? q2 : end;

    const char* colon = static_cast<const char*>(memchr(line, ':', len));
    if (colon == nullptr) return;
    const char* vq = static_cast<const char*>(memchr(colon, '"', end - colon));
    if (vq == nullptr) return;
    const char* last = vq;
    for (const char* p = end; p > vq + 1;) {
        if (*--p == '"') {
            last = p;
            break;
        }
    }
    // The value's opening quote is the last quote of the line: no closing quote, no value.
    if (last == vq) return;

    info->emplace(std::string(q1 + 1, key_end), std::string(vq + 1, last));
}

void parse_version_info(FILE* fp, std::map<std::string, std::string>* info) {
    char* line = nullptr;
    size_t cap = 0;
    ssize_t n;
    while ((n = getline(&line, &cap, fp)) >= 0) {
        size_t len = static_cast<size_t>(n);
        if (len > 0 && line[len - 1] == '\n') --len;
        parse_version_line(line, len, info);
    }
    free(line);
}

DeviceProperties* DeviceProperties::getInstance() {
    static DeviceProperties instance;
    return &instance;
}

DeviceProperties::DeviceProperties() {
    char value[PROPERTY_VALUE_MAX];

    property_get_traced("ro.boot.serialno", value, "dummyDevice");
    mSerialNo = value;
    property_get_traced("ro.product.manufacturer", value, "dummymanufacturer");
    mManufacturer = value;
    property_get_traced("ro.product.odm.manufacturer", value, "dummyodmmanufacturer");
    mOdmManufacturer = value;
    property_get_traced("ro.product.vendor.manufacturer", value, "dummyvendormanufacturer");
    mVendorManufacturer = value;
    property_get_traced("ro.product.model", value, "dummyplatform");
    mModel = value;

    property_get_traced(TARN_DEBUG_LEVEL_PROP, value, "0");
    int level = parse_debug_level(value);
    if (level == 0) {
        property_get_traced(TARN_DEBUG_LEVEL_VENDOR_PROP, value, "0");
        level = parse_debug_level(value);
    }
    if (level != 0) g_debug_level = level;

    VersionInfoInit();
}

DeviceProperties::~DeviceProperties() = default;

void DeviceProperties::VersionInfoInit() {
    FILE* fp = fopen(TARN_VERSION_INFO_FILE, "re");
    int err = errno;
    TLOGW("Open file [%s]", TARN_VERSION_INFO_FILE);
    if (fp == nullptr) {
        TLOGE("Open file failed [%s] errno:%s", TARN_VERSION_INFO_FILE, strerror(err));
        mVersionInfo["Meta_Build_ID"] = "dummyVersion";
        return;
    }
    parse_version_info(fp, &mVersionInfo);
    (void)fclose(fp);
}
