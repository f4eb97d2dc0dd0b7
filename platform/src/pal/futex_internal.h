/* Sleeping and waking on a 32-bit word, for the primitives whose uncontended paths
 * are plain atomics (mutex, semaphore, the allocator's shard locks). A futex call
 * never touches the word from user space, so waking after the word's owner may
 * already have freed it is harmless: the kernel finds no waiter, or an unrelated one
 * wakes spuriously and re-checks its own word. */
#ifndef MORVEX_FUTEX_INTERNAL_H
#define MORVEX_FUTEX_INTERNAL_H

#include <errno.h>
#include <linux/futex.h>
#include <stdatomic.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

/* True while the process has never had a second thread: the C library keeps the flag
 * until the first thread is created and never sets it back. Until then no other
 * thread can touch a lock or a count, so plain loads and stores do an atomic
 * operation's work, and creating that first thread orders everything done before it
 * for the new thread. A forked child may see the flag again with a lock left held by
 * a thread it does not have, so a fast path taken on it must only ever find the lock
 * free (or held by the caller) and leave every other case to the general path. */
#if defined(__has_include)
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define MORVEX_HAVE_SINGLE_THREADED 1
#endif
#endif

static inline int morvexSingleThreaded(void)
{
#if defined(MORVEX_HAVE_SINGLE_THREADED)
    return __libc_single_threaded != 0;
#else
    return 0;
#endif
}

/* A 32-bit system built with 64-bit time_t needs the time64 call for a timeout. */
static inline long morvexFutex(void* word, int op, uint32_t value, const struct timespec* timeout, uint32_t mask)
{
#if defined(SYS_futex_time64)
    if (sizeof(time_t) > sizeof(long))
        return syscall(SYS_futex_time64, word, op, value, timeout, (void*)0, mask);
#endif
    return syscall(SYS_futex, word, op, value, timeout, (void*)0, mask);
}

/* Sleeps while *word == expected, at most until `deadline` (CLOCK_MONOTONIC, absolute;
 * NULL: no limit). Returns 0 when woken (or the word had changed already), ETIMEDOUT,
 * or another errno value (EINTR: the caller re-checks and sleeps again). */
static inline int morvexFutexWait(void* word, uint32_t expected, const struct timespec* deadline)
{
    long rc = morvexFutex(word, FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected, deadline,
                          FUTEX_BITSET_MATCH_ANY);
    if (rc == 0)
        return 0;
    return errno == EAGAIN ? 0 : errno;
}

/* Wakes up to `count` threads asleep on `word`. */
static inline void morvexFutexWake(void* word, int count)
{
    (void)morvexFutex(word, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, (uint32_t)count, (const struct timespec*)0, 0u);
}

/* A lock of one word: 0 free, 1 held, 2 held with possible sleepers. Lock and unlock
 * are one atomic operation each while nobody waits. */
typedef struct MorvexLock {
    _Atomic uint32_t state;
} MorvexLock;

#define MORVEX_LOCK_INIT {0u}
#define MORVEX_LOCK_SPINS 100

static inline void morvexLockSlow(MorvexLock* lock)
{
    /* A short spin first: a holder on another core usually lets go within it. */
    for (int i = 0; i < MORVEX_LOCK_SPINS; ++i) {
        uint32_t expected = 0u;
        if (atomic_load_explicit(&lock->state, memory_order_relaxed) == 0u &&
            atomic_compare_exchange_weak_explicit(&lock->state, &expected, 1u, memory_order_acquire,
                                                  memory_order_relaxed))
            return;
    }
    /* From here on the lock is taken as "2", so its releaser always wakes someone:
     * this thread can't know whether others sleep beside it. */
    while (atomic_exchange_explicit(&lock->state, 2u, memory_order_acquire) != 0u)
        (void)morvexFutexWait((void*)&lock->state, 2u, (const struct timespec*)0);
}

static inline void morvexLock(MorvexLock* lock)
{
    uint32_t expected = 0u;
    if (!atomic_compare_exchange_strong_explicit(&lock->state, &expected, 1u, memory_order_acquire,
                                                 memory_order_relaxed))
        morvexLockSlow(lock);
}

/* 1 when taken, 0 when held elsewhere. */
static inline int morvexTryLock(MorvexLock* lock)
{
    uint32_t expected = 0u;
    return atomic_compare_exchange_strong_explicit(&lock->state, &expected, 1u, memory_order_acquire,
                                                   memory_order_relaxed);
}

static inline void morvexUnlock(MorvexLock* lock)
{
    if (atomic_exchange_explicit(&lock->state, 0u, memory_order_release) == 2u)
        morvexFutexWake((void*)&lock->state, 1);
}

#endif
