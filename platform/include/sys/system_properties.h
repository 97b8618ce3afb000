// Host stand-in for the bionic <sys/system_properties.h>.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VALUE_MAX 92

// Copies the value of `name` into `value` (PROP_VALUE_MAX bytes) and returns its length; an unset
// property gives an empty value and 0.
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
