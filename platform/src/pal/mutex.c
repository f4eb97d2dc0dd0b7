#include "morvex_pal_mutex.h"

#include "fault_internal.h"

#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>

/* The owner is tracked here as well as in the error-checking pthread mutex, so misuse
 * (relocking, releasing another thread's lock, destroying a held lock) is refused
 * before it reaches pthread, where a race detector would report it as a bug of ours.
 * Only the owner stores its own id, so a relaxed load can never show a thread its own
 * id unless it really holds the lock. */
struct sMorvex_PAL_Mutex {
    pthread_mutex_t mutex;
    _Atomic(pthread_t) owner;
    atomic_int held;
};

static int ownedByCaller(sMorvex_PAL_Mutex* handle)
{
    return atomic_load_explicit(&handle->held, memory_order_relaxed) &&
           pthread_equal(atomic_load_explicit(&handle->owner, memory_order_relaxed), pthread_self());
}

eMorvex_PAL_MutexError Morvex_PAL_MutexInit(sMorvex_PAL_Mutex** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexInit, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_POINTER;
    sMorvex_PAL_Mutex* mutex = (sMorvex_PAL_Mutex*)malloc(sizeof *mutex);
    if (mutex == Morvex_NULL)
        return MUTEX_ERROR_CREATE_FAILED;
    pthread_mutexattr_t attr;
    int rc = pthread_mutexattr_init(&attr);
    if (rc == 0) {
        rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
        if (rc == 0)
            rc = pthread_mutex_init(&mutex->mutex, &attr);
        pthread_mutexattr_destroy(&attr);
    }
    if (rc != 0) {
        free(mutex);
        return MUTEX_ERROR_CREATE_FAILED;
    }
    atomic_init(&mutex->owner, pthread_self());
    atomic_init(&mutex->held, 0);
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
    if (ownedByCaller(mutex))
        return MUTEX_ERROR_DEINIT_FAILED;
    /* Held by another thread: trylock tells without blocking. */
    if (pthread_mutex_trylock(&mutex->mutex) != 0)
        return MUTEX_ERROR_DEINIT_FAILED;
    pthread_mutex_unlock(&mutex->mutex);
    int rc = pthread_mutex_destroy(&mutex->mutex);
    if (rc == EBUSY)
        return MUTEX_ERROR_DEINIT_FAILED;
    free(mutex);
    *handle = Morvex_NULL;
    return rc == 0 ? MUTEX_OK : MUTEX_ERROR_DEINIT_FAILED;
}

eMorvex_PAL_MutexError Morvex_PAL_MutexWait(sMorvex_PAL_Mutex* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexWait, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    if (ownedByCaller(handle))
        return MUTEX_ERROR_RECURSIVE;
    int rc = pthread_mutex_lock(&handle->mutex);
    if (rc == EDEADLK)
        return MUTEX_ERROR_RECURSIVE;
    if (rc != 0)
        return MUTEX_ERROR_WAIT_FAILED;
    atomic_store_explicit(&handle->owner, pthread_self(), memory_order_relaxed);
    atomic_store_explicit(&handle->held, 1, memory_order_relaxed);
    return MUTEX_OK;
}

eMorvex_PAL_MutexError Morvex_PAL_MutexSignal(sMorvex_PAL_Mutex* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexSignal, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    if (!ownedByCaller(handle))
        return MUTEX_ERROR_SIGNAL_FAILED;
    atomic_store_explicit(&handle->held, 0, memory_order_relaxed);
    if (pthread_mutex_unlock(&handle->mutex) != 0) {
        atomic_store_explicit(&handle->held, 1, memory_order_relaxed);
        return MUTEX_ERROR_SIGNAL_FAILED;
    }
    return MUTEX_OK;
}
