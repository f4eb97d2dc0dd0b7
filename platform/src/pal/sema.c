#include "morvex_pal_sema.h"

#include "fault_internal.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <time.h>

struct sMorvex_PAL_Sema {
    pthread_mutex_t mutex;
    pthread_cond_t available; /* on CLOCK_MONOTONIC: a clock step never stretches a timeout */
    unsigned int count;
};

eMorvex_PAL_SemaError Morvex_PAL_SemaInit(sMorvex_PAL_Sema** handle, unsigned int initialCount)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaInit, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_POINTER;
    sMorvex_PAL_Sema* sema = (sMorvex_PAL_Sema*)malloc(sizeof *sema);
    if (sema == Morvex_NULL)
        return SEMA_ERROR_CREATE_FAILED;
    pthread_condattr_t attr;
    if (pthread_condattr_init(&attr) != 0) {
        free(sema);
        return SEMA_ERROR_CREATE_FAILED;
    }
    int rc = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    if (rc == 0)
        rc = pthread_cond_init(&sema->available, &attr);
    pthread_condattr_destroy(&attr);
    if (rc != 0) {
        free(sema);
        return SEMA_ERROR_CREATE_FAILED;
    }
    if (pthread_mutex_init(&sema->mutex, Morvex_NULL) != 0) {
        pthread_cond_destroy(&sema->available);
        free(sema);
        return SEMA_ERROR_CREATE_FAILED;
    }
    sema->count = initialCount;
    *handle = sema;
    return SEMA_OK;
}

eMorvex_PAL_SemaError Morvex_PAL_SemaDeInit(sMorvex_PAL_Sema** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaDeInit, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_POINTER;
    sMorvex_PAL_Sema* sema = *handle;
    if (sema == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    pthread_cond_destroy(&sema->available);
    pthread_mutex_destroy(&sema->mutex);
    free(sema);
    *handle = Morvex_NULL;
    return SEMA_OK;
}

eMorvex_PAL_SemaError Morvex_PAL_SemaSignal(sMorvex_PAL_Sema* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaSignal, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    eMorvex_PAL_SemaError result = SEMA_OK;
    pthread_mutex_lock(&handle->mutex);
    if (handle->count == UINT_MAX) {
        result = SEMA_ERROR_OVERFLOW;
    } else {
        ++handle->count;
        /* Signalled under the lock, so a waiter that wakes and destroys the semaphore
         * can't pull it from under this call. */
        pthread_cond_signal(&handle->available);
    }
    pthread_mutex_unlock(&handle->mutex);
    return result;
}

/* deadline NULL: no limit. */
static eMorvex_PAL_SemaError waitUntil(sMorvex_PAL_Sema* sema, const struct timespec* deadline)
{
    eMorvex_PAL_SemaError result = SEMA_OK;
    pthread_mutex_lock(&sema->mutex);
    /* The loop absorbs spurious wake-ups and a count taken by a faster thread. */
    while (sema->count == 0) {
        int rc = deadline ? pthread_cond_timedwait(&sema->available, &sema->mutex, deadline)
                          : pthread_cond_wait(&sema->available, &sema->mutex);
        if (rc == ETIMEDOUT && sema->count == 0) {
            result = SEMA_ERROR_TIMEOUT;
            break;
        }
        if (rc != 0 && rc != ETIMEDOUT) {
            result = SEMA_ERROR_INTERNAL;
            break;
        }
    }
    if (result == SEMA_OK)
        --sema->count;
    pthread_mutex_unlock(&sema->mutex);
    return result;
}

eMorvex_PAL_SemaError Morvex_PAL_SemaWait(sMorvex_PAL_Sema* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaWait, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    return waitUntil(handle, Morvex_NULL);
}

eMorvex_PAL_SemaError Morvex_PAL_SemaTimedWait(sMorvex_PAL_Sema* handle, unsigned int timeoutMs)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaTimedWait, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    struct timespec deadline;
    if (clock_gettime(CLOCK_MONOTONIC, &deadline) != 0)
        return SEMA_ERROR_INTERNAL;
    /* Done in 64 bits: tv_sec is 32-bit on the target and the nanoseconds of a long
     * timeout overflow a long there. */
    long long nanoseconds = (long long)deadline.tv_nsec + (long long)(timeoutMs % 1000u) * 1000000LL;
    deadline.tv_sec += (time_t)(timeoutMs / 1000u + (unsigned int)(nanoseconds / 1000000000LL));
    deadline.tv_nsec = (long)(nanoseconds % 1000000000LL);
    return waitUntil(handle, &deadline);
}

eMorvex_PAL_SemaError Morvex_PAL_SemaTryWait(sMorvex_PAL_Sema* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaTryWait, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    eMorvex_PAL_SemaError result = SEMA_WOULD_BLOCK;
    pthread_mutex_lock(&handle->mutex);
    if (handle->count > 0) {
        --handle->count;
        result = SEMA_OK;
    }
    pthread_mutex_unlock(&handle->mutex);
    return result;
}
