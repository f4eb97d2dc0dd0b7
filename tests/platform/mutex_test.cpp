// Recursion, unlocking by a non-owner, destroying a held mutex and mutual exclusion are
// covered through CMutex's tests; what they cannot reach is here.
#include "morvex_pal_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

TEST(Mutex, BadArgumentsAndADestroyFromAnotherThreadAreRefused)
{
    sMorvex_PAL_Mutex* mutex = nullptr;
    ASSERT_EQ(Morvex_PAL_MutexInit(&mutex), MUTEX_OK);
    ASSERT_EQ(Morvex_PAL_MutexWait(mutex), MUTEX_OK);
    eMorvex_PAL_MutexError elsewhere = MUTEX_OK;
    std::thread([&] {
        sMorvex_PAL_Mutex* copy = mutex;
        elsewhere = Morvex_PAL_MutexDeInit(&copy);
    }).join();
    EXPECT_EQ(elsewhere, MUTEX_ERROR_DEINIT_FAILED);
    EXPECT_EQ(Morvex_PAL_MutexSignal(mutex), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex), MUTEX_OK);
    sMorvex_PAL_Mutex* none = nullptr;
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&none), MUTEX_ERROR_INV_HANDLE);
    EXPECT_EQ(Morvex_PAL_MutexInit(nullptr), MUTEX_ERROR_INV_POINTER);
}

// Enough threads on two cores that holders are preempted and waiters go to sleep in
// the kernel: every increment lands and no two threads are ever inside at once.
TEST(Mutex, ContendedLockingExcludesAndLosesNoUpdate)
{
    constexpr int kThreads = 4, kRounds = 20000;
    sMorvex_PAL_Mutex* mutex = nullptr;
    ASSERT_EQ(Morvex_PAL_MutexInit(&mutex), MUTEX_OK);
    long long counter = 0;
    std::atomic<int> inside(0);
    std::atomic<int> overlaps(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kRounds; ++n) {
                ASSERT_EQ(Morvex_PAL_MutexWait(mutex), MUTEX_OK);
                if (inside.fetch_add(1) != 0)
                    ++overlaps;
                ++counter;
                inside.fetch_sub(1);
                ASSERT_EQ(Morvex_PAL_MutexSignal(mutex), MUTEX_OK);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter, static_cast<long long>(kThreads) * kRounds);
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex), MUTEX_OK);
}

} // namespace
