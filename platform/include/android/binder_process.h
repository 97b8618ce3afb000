// Host stand-in for the binder NDK thread pool API.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Starts the thread pool that delivers incoming calls (callbacks) to local binder objects.
void ABinderProcess_startThreadPool(void);

// Makes the calling thread serve the pool. Returns when the service side closes the process's
// binder connection.
void ABinderProcess_joinThreadPool(void);

#ifdef __cplusplus
}
#endif
