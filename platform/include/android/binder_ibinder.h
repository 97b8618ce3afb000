// Host stand-in for the binder NDK object API.
#pragma once

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AIBinder AIBinder;

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

#ifdef __cplusplus
}
#endif
