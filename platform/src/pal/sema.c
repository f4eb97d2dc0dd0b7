#include "morvex_pal_sema.h"

#include "fault_internal.h"
#include "futex_internal.h"

#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <time.h>

/* Count and sleepers share one 64-bit word, so a signal learns in the same atomic
 * step that raises the count whether anyone must be woken, and touches the semaphore
 * no more afterwards: a waiter that takes the count may destroy it at once. Waits
 * that find the count positive and signals that find no sleeper make no system call,
 * and while the process has a single thread no atomic operation either. Sleepers
 * sleep on the count's half of the word. */
struct sMorvex_PAL_Sema {
    _Atomic uint64_t word;
};

#define COUNT_MASK 0xFFFFFFFFull
#define ONE_SLEEPER (1ull << 32)

static uint32_t countOf(uint64_t word)
{
    return (uint32_t)(word & COUNT_MASK);
}

static void* countHalf(sMorvex_PAL_Sema* sema)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return (uint32_t*)(void*)&sema->word + 1;
#else
    return (void*)&sema->word;
#endif
}

eMorvex_PAL_SemaError Morvex_PAL_SemaInit(sMorvex_PAL_Sema** handle, unsigned int initialCount)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaInit, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_POINTER;
    sMorvex_PAL_Sema* sema = (sMorvex_PAL_Sema*)malloc(sizeof *sema);
    if (sema == Morvex_NULL)
        return SEMA_ERROR_CREATE_FAILED;
    atomic_init(&sema->word, (uint64_t)initialCount);
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
    free(sema);
    *handle = Morvex_NULL;
    return SEMA_OK;
}

static eMorvex_PAL_SemaError signal(sMorvex_PAL_Sema* sema)
{
    void* half = countHalf(sema);
    uint64_t word = atomic_load_explicit(&sema->word, memory_order_relaxed);
    if (morvexSingleThreaded() && word < ONE_SLEEPER && countOf(word) != UINT32_MAX) {
        atomic_store_explicit(&sema->word, word + 1u, memory_order_release);
        return SEMA_OK;
    }
    do {
        if (countOf(word) == UINT32_MAX)
            return SEMA_ERROR_OVERFLOW;
    } while (!atomic_compare_exchange_weak_explicit(&sema->word, &word, word + 1u, memory_order_release,
                                                    memory_order_relaxed));
    if (word >= ONE_SLEEPER)
        morvexFutexWake(half, 1);
    return SEMA_OK;
}

static __attribute__((noinline)) eMorvex_PAL_SemaError signalChecked(sMorvex_PAL_Sema* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaSignal, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    return signal(handle);
}

eMorvex_PAL_SemaError Morvex_PAL_SemaSignal(sMorvex_PAL_Sema* handle)
{
    if (MORVEX_UNLIKELY(!morvexFaultQuick(MORVEX_FAULT_SemaSignal)))
        return signalChecked(handle);
    if (MORVEX_UNLIKELY(handle == Morvex_NULL))
        return SEMA_ERROR_INV_HANDLE;
    return signal(handle);
}

/* Lowers a positive count; 0 when it was 0. */
static inline int takeCount(sMorvex_PAL_Sema* sema)
{
    uint64_t word = atomic_load_explicit(&sema->word, memory_order_relaxed);
    if (morvexSingleThreaded()) {
        if (countOf(word) == 0u)
            return 0;
        atomic_store_explicit(&sema->word, word - 1u, memory_order_relaxed);
        return 1;
    }
    while (countOf(word) > 0u) {
        if (atomic_compare_exchange_weak_explicit(&sema->word, &word, word - 1u, memory_order_acquire,
                                                  memory_order_relaxed))
            return 1;
    }
    return 0;
}

/* deadline NULL: no limit. */
static __attribute__((noinline)) eMorvex_PAL_SemaError waitUntil(sMorvex_PAL_Sema* sema, const struct timespec* deadline)
{
    if (takeCount(sema))
        return SEMA_OK;
    /* Registered as a sleeper in the same step that sees the count at 0, so a signal
     * either comes before (and the registration fails) or sees the sleeper. */
    uint64_t word = atomic_load_explicit(&sema->word, memory_order_relaxed);
    for (;;) {
        if (countOf(word) > 0u) {
            if (atomic_compare_exchange_weak_explicit(&sema->word, &word, word - 1u, memory_order_acquire,
                                                      memory_order_relaxed))
                return SEMA_OK;
        } else if (atomic_compare_exchange_weak_explicit(&sema->word, &word, word + ONE_SLEEPER,
                                                         memory_order_relaxed, memory_order_relaxed)) {
            break;
        }
    }
    int timedOut = 0;
    for (;;) {
        word = atomic_load_explicit(&sema->word, memory_order_relaxed);
        /* Leaving takes the count (or gives up) and the registration in one step. */
        while (countOf(word) > 0u || timedOut) {
            uint64_t next = countOf(word) > 0u ? word - 1u - ONE_SLEEPER : word - ONE_SLEEPER;
            if (atomic_compare_exchange_weak_explicit(&sema->word, &word, next, memory_order_acquire,
                                                      memory_order_relaxed))
                return countOf(word) > 0u ? SEMA_OK : SEMA_ERROR_TIMEOUT;
        }
        int rc = morvexFutexWait(countHalf(sema), 0u, deadline);
        if (rc == ETIMEDOUT)
            timedOut = 1;
        else if (rc != 0 && rc != EINTR) {
            /* The sleep itself failed: leave without the count. */
            atomic_fetch_sub_explicit(&sema->word, ONE_SLEEPER, memory_order_relaxed);
            return SEMA_ERROR_INTERNAL;
        }
    }
}

static __attribute__((noinline)) eMorvex_PAL_SemaError waitChecked(sMorvex_PAL_Sema* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaWait, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    return waitUntil(handle, Morvex_NULL);
}

eMorvex_PAL_SemaError Morvex_PAL_SemaWait(sMorvex_PAL_Sema* handle)
{
    if (MORVEX_UNLIKELY(!morvexFaultQuick(MORVEX_FAULT_SemaWait)))
        return waitChecked(handle);
    if (MORVEX_UNLIKELY(handle == Morvex_NULL))
        return SEMA_ERROR_INV_HANDLE;
    if (MORVEX_LIKELY(takeCount(handle)))
        return SEMA_OK;
    return waitUntil(handle, Morvex_NULL);
}

eMorvex_PAL_SemaError Morvex_PAL_SemaTimedWait(sMorvex_PAL_Sema* handle, unsigned int timeoutMs)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_SemaTimedWait, eMorvex_PAL_SemaError);
    if (handle == Morvex_NULL)
        return SEMA_ERROR_INV_HANDLE;
    if (takeCount(handle))
        return SEMA_OK;
    /* On CLOCK_MONOTONIC: a clock step never stretches a timeout. */
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
    return takeCount(handle) ? SEMA_OK : SEMA_WOULD_BLOCK;
}
