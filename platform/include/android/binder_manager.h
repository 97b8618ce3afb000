// Host stand-in for the binder NDK service manager API.
#pragma once

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif

// Returns a strong reference to the service registered as `instance`, or null at once when no
// such service is running (it never waits).
AIBinder* AServiceManager_checkService(const char* instance);

#ifdef __cplusplus
}
#endif
