// Recursion, unlocking by a non-owner, destroying a held mutex and mutual exclusion are
// covered through CMutex's tests; what they cannot reach is here.
#include "morvex_pal_mutex.h"

#include <gtest/gtest.h>

#include <thread>

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

} // namespace
