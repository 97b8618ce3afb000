// Host stand-in for <cutils/properties.h>.
#pragma once

#include <sys/system_properties.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX PROP_VALUE_MAX

// Copies the value of `key` into `value` (at most PROPERTY_VALUE_MAX bytes with the NUL), or
// `default_value` when the property is unset or empty. Returns the length of what was copied.
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
