/* Counting semaphores of the PAL core. Timeouts are in milliseconds, measured on a
 * monotonic clock. */
#ifndef MORVEX_PAL_SEMA_H
#define MORVEX_PAL_SEMA_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef enum eMorvex_PAL_SemaError {
    SEMA_OK = 0,
    SEMA_WOULD_BLOCK = 1,          /* try wait: the count was 0 */
    SEMA_ERROR_TIMEOUT = 2,        /* timed wait: the time ran out */
    SEMA_ERROR_INV_POINTER = 3,
    SEMA_ERROR_INV_HANDLE = 4,
    SEMA_ERROR_CREATE_FAILED = 5,
    SEMA_ERROR_OVERFLOW = 6,       /* signal: the count is already 0xFFFFFFFF */
    SEMA_ERROR_INTERNAL = 7
} eMorvex_PAL_SemaError;

typedef struct sMorvex_PAL_Sema sMorvex_PAL_Sema;

MORVEX_API eMorvex_PAL_SemaError Morvex_PAL_SemaInit(sMorvex_PAL_Sema** handle, unsigned int initialCount);
/* Destroys the semaphore and sets *handle to NULL. No thread may still wait on it. */
MORVEX_API eMorvex_PAL_SemaError Morvex_PAL_SemaDeInit(sMorvex_PAL_Sema** handle);
/* Raises the count by one, waking one waiter. */
MORVEX_API eMorvex_PAL_SemaError Morvex_PAL_SemaSignal(sMorvex_PAL_Sema* handle);
/* Blocks until the count is positive, then lowers it. */
MORVEX_API eMorvex_PAL_SemaError Morvex_PAL_SemaWait(sMorvex_PAL_Sema* handle);
/* As Morvex_PAL_SemaWait, giving up with SEMA_ERROR_TIMEOUT after `timeoutMs` milliseconds. */
MORVEX_API eMorvex_PAL_SemaError Morvex_PAL_SemaTimedWait(sMorvex_PAL_Sema* handle, unsigned int timeoutMs);
/* Lowers a positive count, or returns SEMA_WOULD_BLOCK (1) at once. */
MORVEX_API eMorvex_PAL_SemaError Morvex_PAL_SemaTryWait(sMorvex_PAL_Sema* handle);

MORVEX_END_DECLS

#endif
