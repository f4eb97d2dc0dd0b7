/* Threads of the PAL core.
 *
 * Morvex_PAL_ThreadInit prepares a named thread object that does not run yet;
 * Morvex_PAL_ThreadCreate starts it. A name longer than the platform allows
 * (15 bytes) is cut at a UTF-8 character boundary, never refused. Priorities are
 * recorded and readable; on a host without real-time rights they do not change
 * the scheduling. Morvex_PAL_ThreadDeInit may be called while the thread still
 * runs: the object is then released when the thread ends. */
#ifndef MORVEX_PAL_THREAD_H
#define MORVEX_PAL_THREAD_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef enum eMorvex_PAL_ThreadPrio {
    THREAD_PRIO_LOWEST = 0,
    THREAD_PRIO_LOWER = 1,
    THREAD_PRIO_LOW = 2,
    THREAD_PRIO_NORMAL = 3,
    THREAD_PRIO_HIGH = 4,
    THREAD_PRIO_HIGHER = 5,
    THREAD_PRIO_HIGHEST = 6
} eMorvex_PAL_ThreadPrio;

typedef enum eMorvex_PAL_ThreadError {
    THREAD_OK = 0,
    THREAD_ERROR_INV_POINTER = 1,
    THREAD_ERROR_INV_HANDLE = 2,
    THREAD_ERROR_INV_PRIORITY = 3,
    THREAD_ERROR_CREATE_FAILED = 4,
    THREAD_ERROR_ALREADY_STARTED = 5,
    THREAD_ERROR_NOT_STARTED = 6,
    THREAD_ERROR_WAIT_SELF = 7,   /* a thread waited for itself */
    THREAD_ERROR_INTERNAL = 8
} eMorvex_PAL_ThreadError;

typedef struct sMorvex_PAL_Thread sMorvex_PAL_Thread;

/* The body of a thread; its result becomes the exit value. */
typedef int (*tMorvex_PAL_ThreadFunction)(void* argument);

/* Prepares a thread named `name` (NULL: empty) with `priority`; stores the handle in *handle. */
MORVEX_API eMorvex_PAL_ThreadError Morvex_PAL_ThreadInit(sMorvex_PAL_Thread** handle, const char* name,
                                                       eMorvex_PAL_ThreadPrio priority);
/* Starts the prepared thread running function(argument). A thread object still running
 * refuses another start (THREAD_ERROR_ALREADY_STARTED); one whose function has returned
 * may be started again, and waits then wait for the new run. */
MORVEX_API eMorvex_PAL_ThreadError Morvex_PAL_ThreadCreate(sMorvex_PAL_Thread* handle,
                                                         tMorvex_PAL_ThreadFunction function, void* argument);
/* Blocks until the thread's function has returned; stores its result in *exitValue
 * unless exitValue is NULL. Waiting again after the end returns at once. */
MORVEX_API eMorvex_PAL_ThreadError Morvex_PAL_ThreadWait(sMorvex_PAL_Thread* handle, int* exitValue);
/* Releases the thread object and sets *handle to NULL (does not wait for the thread).
 * A thread already blocked in Morvex_PAL_ThreadWait still gets the exit value; no
 * call may start with the handle once this one has begun. */
MORVEX_API eMorvex_PAL_ThreadError Morvex_PAL_ThreadDeInit(sMorvex_PAL_Thread** handle);
/* The calling thread's handle: exactly the pointer Morvex_PAL_ThreadInit stored for a
 * thread started through this layer; NULL on any other thread. */
MORVEX_API sMorvex_PAL_Thread* Morvex_PAL_ThreadGetCurrent(void);

/* The name as the platform keeps it (cut to 15 bytes), copied into `name` of `size` bytes. */
MORVEX_API eMorvex_PAL_ThreadError Morvex_PAL_ThreadGetName(const sMorvex_PAL_Thread* handle, char* name,
                                                          unsigned int size);
MORVEX_API eMorvex_PAL_ThreadError Morvex_PAL_ThreadGetPriority(const sMorvex_PAL_Thread* handle,
                                                              eMorvex_PAL_ThreadPrio* priority);

MORVEX_END_DECLS

#endif
