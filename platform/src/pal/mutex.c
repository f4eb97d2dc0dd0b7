#include "morvex_pal_mutex.h"

#include "fault_internal.h"
#include "futex_internal.h"

#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>

/* Every reference count of the library goes through one of these, so the uncontended
 * lock and unlock are one atomic operation each and never enter the kernel.
 *
 * The owner is kept beside the lock word, which is what refuses misuse (relocking,
 * releasing another thread's lock, destroying a held lock) without a system call.
 * Only the holder stores its own id there, and clears it before letting go, so a
 * relaxed load can never show a thread its own id unless it really holds the lock. */
struct sMorvex_PAL_Mutex {
    MorvexLock lock;
    _Atomic uintptr_t owner; /* 0 while free */
};

/* A thread's id is the address of its own copy of this byte: distinct among live
 * threads, never 0, and found without a call. */
static _Thread_local char t_identity __attribute__((tls_model("initial-exec")));

static uintptr_t currentThread(void)
{
    return (uintptr_t)&t_identity;
}

static int ownedByCaller(sMorvex_PAL_Mutex* handle)
{
    return atomic_load_explicit(&handle->owner, memory_order_relaxed) == currentThread();
}

eMorvex_PAL_MutexError Morvex_PAL_MutexInit(sMorvex_PAL_Mutex** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexInit, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_POINTER;
    sMorvex_PAL_Mutex* mutex = (sMorvex_PAL_Mutex*)malloc(sizeof *mutex);
    if (mutex == Morvex_NULL)
        return MUTEX_ERROR_CREATE_FAILED;
    atomic_init(&mutex->lock.state, 0u);
    atomic_init(&mutex->owner, (uintptr_t)0);
    *handle = mutex;
    return MUTEX_OK;
}

eMorvex_PAL_MutexError Morvex_PAL_MutexDeInit(sMorvex_PAL_Mutex** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexDeInit, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_POINTER;
    sMorvex_PAL_Mutex* mutex = *handle;
    if (mutex == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    /* Held by this thread or another: taking it tells without blocking. */
    if (ownedByCaller(mutex) || !morvexTryLock(&mutex->lock))
        return MUTEX_ERROR_DEINIT_FAILED;
    free(mutex);
    *handle = Morvex_NULL;
    return MUTEX_OK;
}

eMorvex_PAL_MutexError Morvex_PAL_MutexWait(sMorvex_PAL_Mutex* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexWait, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    const uintptr_t self = currentThread();
    if (atomic_load_explicit(&handle->owner, memory_order_relaxed) == self)
        return MUTEX_ERROR_RECURSIVE;
    morvexLock(&handle->lock);
    atomic_store_explicit(&handle->owner, self, memory_order_relaxed);
    return MUTEX_OK;
}

eMorvex_PAL_MutexError Morvex_PAL_MutexSignal(sMorvex_PAL_Mutex* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexSignal, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    if (!ownedByCaller(handle))
        return MUTEX_ERROR_SIGNAL_FAILED;
    atomic_store_explicit(&handle->owner, (uintptr_t)0, memory_order_relaxed);
    morvexUnlock(&handle->lock);
    return MUTEX_OK;
}
