/* Mutexes of the PAL core. A mutex is not recursive: the owner locking it again gets
 * MUTEX_ERROR_RECURSIVE instead of a deadlock, and a thread that does not own it
 * gets MUTEX_ERROR_SIGNAL_FAILED from Morvex_PAL_MutexSignal. */
#ifndef MORVEX_PAL_MUTEX_H
#define MORVEX_PAL_MUTEX_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef enum eMorvex_PAL_MutexError {
    MUTEX_OK = 0,
    MUTEX_WOULD_BLOCK = 1,
    MUTEX_ERROR_INV_POINTER = 2,   /* a NULL handle pointer */
    MUTEX_ERROR_INV_HANDLE = 3,    /* a NULL handle */
    MUTEX_ERROR_CREATE_FAILED = 4,
    MUTEX_ERROR_WAIT_FAILED = 5,
    MUTEX_ERROR_SIGNAL_FAILED = 6, /* also: released by a thread that does not own it */
    MUTEX_ERROR_DEINIT_FAILED = 7, /* also: destroyed while locked; the handle stays */
    MUTEX_ERROR_RECURSIVE = 8,     /* the owner locked it again */
    MUTEX_ERROR_INTERNAL = 9,
    MUTEX_ERROR_INV_VALUE = 10
} eMorvex_PAL_MutexError;

typedef struct sMorvex_PAL_Mutex sMorvex_PAL_Mutex;

/* Creates an unlocked mutex and stores its handle in *handle (left unchanged on failure). */
MORVEX_API eMorvex_PAL_MutexError Morvex_PAL_MutexInit(sMorvex_PAL_Mutex** handle);
/* Destroys the mutex and sets *handle to NULL; a locked mutex is refused and kept. */
MORVEX_API eMorvex_PAL_MutexError Morvex_PAL_MutexDeInit(sMorvex_PAL_Mutex** handle);
/* Blocks until the calling thread owns the mutex. */
MORVEX_API eMorvex_PAL_MutexError Morvex_PAL_MutexWait(sMorvex_PAL_Mutex* handle);
/* Releases a mutex the calling thread owns. */
MORVEX_API eMorvex_PAL_MutexError Morvex_PAL_MutexSignal(sMorvex_PAL_Mutex* handle);

MORVEX_END_DECLS

#endif
