#include "morvex_pal_mutex.h"

#include "fault_internal.h"
#include "futex_internal.h"

#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>

/* Every reference count of the library goes through one of these, so the uncontended
 * pair is what a plain lock costs: one atomic operation each way, and none at all while
 * the process has a single thread.
 *
 * The lock word holds the holder's id itself, so the one compare-and-swap that takes a
 * free lock, or releases a held one, also proves who holds it: the owner checks
 * (relocking, releasing another thread's lock, destroying a held lock) cost nothing
 * until that operation fails. Bit 31 marks a lock that a thread may sleep on. */
struct sMorvex_PAL_Mutex {
    _Atomic uint32_t word; /* 0 while free */
};

#define SLEEPERS 0x80000000u
#define HOLDER_MASK 0x7FFFFFFFu

static __attribute__((noinline)) eMorvex_PAL_MutexError lockSlow(sMorvex_PAL_Mutex* mutex, uint32_t self)
{
    uint32_t word = atomic_load_explicit(&mutex->word, memory_order_relaxed);
    if ((word & HOLDER_MASK) == self)
        return MUTEX_ERROR_RECURSIVE;
    /* A short spin first: a holder on another core usually lets go within it. */
    for (int i = 0; i < MORVEX_LOCK_SPINS; ++i) {
        uint32_t expected = 0u;
        if (atomic_load_explicit(&mutex->word, memory_order_relaxed) == 0u &&
            atomic_compare_exchange_weak_explicit(&mutex->word, &expected, self, memory_order_acquire,
                                                  memory_order_relaxed))
            return MUTEX_OK;
    }
    /* From here on the lock is taken with the sleepers' mark, so its releaser always
     * wakes someone: this thread can't know whether others sleep beside it. */
    word = atomic_load_explicit(&mutex->word, memory_order_relaxed);
    for (;;) {
        if (word == 0u) {
            if (atomic_compare_exchange_weak_explicit(&mutex->word, &word, self | SLEEPERS, memory_order_acquire,
                                                      memory_order_relaxed))
                return MUTEX_OK;
            continue;
        }
        if ((word & SLEEPERS) == 0u &&
            !atomic_compare_exchange_weak_explicit(&mutex->word, &word, word | SLEEPERS, memory_order_relaxed,
                                                   memory_order_relaxed))
            continue;
        (void)morvexFutexWait((void*)&mutex->word, word | SLEEPERS, (const struct timespec*)0);
        word = atomic_load_explicit(&mutex->word, memory_order_relaxed);
    }
}

static __attribute__((noinline)) eMorvex_PAL_MutexError unlockSlow(sMorvex_PAL_Mutex* mutex, uint32_t self)
{
    if ((atomic_load_explicit(&mutex->word, memory_order_relaxed) & HOLDER_MASK) != self)
        return MUTEX_ERROR_SIGNAL_FAILED;
    if (atomic_exchange_explicit(&mutex->word, 0u, memory_order_release) & SLEEPERS)
        morvexFutexWake((void*)&mutex->word, 1);
    return MUTEX_OK;
}

eMorvex_PAL_MutexError Morvex_PAL_MutexInit(sMorvex_PAL_Mutex** handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexInit, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_POINTER;
    sMorvex_PAL_Mutex* mutex = (sMorvex_PAL_Mutex*)malloc(sizeof *mutex);
    if (mutex == Morvex_NULL)
        return MUTEX_ERROR_CREATE_FAILED;
    atomic_init(&mutex->word, 0u);
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
    uint32_t expected = 0u;
    if (!atomic_compare_exchange_strong_explicit(&mutex->word, &expected, morvexThreadId(), memory_order_acquire,
                                                 memory_order_relaxed))
        return MUTEX_ERROR_DEINIT_FAILED;
    free(mutex);
    *handle = Morvex_NULL;
    return MUTEX_OK;
}

/* The checked paths: a fault armed or the thread's first call (morvexFaultQuick). */
static __attribute__((noinline)) eMorvex_PAL_MutexError waitChecked(sMorvex_PAL_Mutex* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexWait, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    const uint32_t self = morvexThreadId();
    uint32_t expected = 0u;
    if (atomic_compare_exchange_strong_explicit(&handle->word, &expected, self, memory_order_acquire,
                                                memory_order_relaxed))
        return MUTEX_OK;
    return lockSlow(handle, self);
}

static __attribute__((noinline)) eMorvex_PAL_MutexError signalChecked(sMorvex_PAL_Mutex* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MutexSignal, eMorvex_PAL_MutexError);
    if (handle == Morvex_NULL)
        return MUTEX_ERROR_INV_HANDLE;
    return unlockSlow(handle, morvexThreadId());
}

eMorvex_PAL_MutexError Morvex_PAL_MutexWait(sMorvex_PAL_Mutex* handle)
{
    if (MORVEX_UNLIKELY(!morvexFaultQuick(MORVEX_FAULT_MutexWait)))
        return waitChecked(handle);
    if (MORVEX_UNLIKELY(handle == Morvex_NULL))
        return MUTEX_ERROR_INV_HANDLE;
    const uint32_t self = morvexFaultThreadCalls.id;
    if (MORVEX_LIKELY(morvexSingleThreaded())) {
        if (MORVEX_LIKELY(atomic_load_explicit(&handle->word, memory_order_relaxed) == 0u)) {
            atomic_store_explicit(&handle->word, self, memory_order_relaxed);
            return MUTEX_OK;
        }
    } else {
        uint32_t expected = 0u;
        if (MORVEX_LIKELY(atomic_compare_exchange_strong_explicit(&handle->word, &expected, self,
                                                                  memory_order_acquire, memory_order_relaxed)))
            return MUTEX_OK;
    }
    return lockSlow(handle, self);
}

eMorvex_PAL_MutexError Morvex_PAL_MutexSignal(sMorvex_PAL_Mutex* handle)
{
    if (MORVEX_UNLIKELY(!morvexFaultQuick(MORVEX_FAULT_MutexSignal)))
        return signalChecked(handle);
    if (MORVEX_UNLIKELY(handle == Morvex_NULL))
        return MUTEX_ERROR_INV_HANDLE;
    const uint32_t self = morvexFaultThreadCalls.id;
    if (MORVEX_LIKELY(morvexSingleThreaded())) {
        if (MORVEX_LIKELY(atomic_load_explicit(&handle->word, memory_order_relaxed) == self)) {
            atomic_store_explicit(&handle->word, 0u, memory_order_release);
            return MUTEX_OK;
        }
    } else {
        uint32_t expected = self;
        if (MORVEX_LIKELY(atomic_compare_exchange_strong_explicit(&handle->word, &expected, 0u,
                                                                  memory_order_release, memory_order_relaxed)))
            return MUTEX_OK;
    }
    return unlockSlow(handle, self);
}
