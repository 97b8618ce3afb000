// Host stand-in for the binder NDK status API.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t binder_status_t;
typedef int32_t binder_exception_t;

enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_DEAD_OBJECT = -32,
    STATUS_UNEXPECTED_NULL = -22 - 1000,
};

enum {
    EX_NONE = 0,
    EX_TRANSACTION_FAILED = -129,
};

typedef struct AStatus AStatus;

AStatus* AStatus_newOk(void);
AStatus* AStatus_fromStatus(binder_status_t status);
bool AStatus_isOk(const AStatus* status);
binder_status_t AStatus_getStatus(const AStatus* status);
void AStatus_delete(AStatus* status);

#ifdef __cplusplus
}
#endif
