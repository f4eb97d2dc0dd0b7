#include "morvex_pal_mutex.h"

#include <gtest/gtest.h>

#include <thread>

// Begins while the process has a single thread, which takes quicker paths.
TEST(Mutex, MisuseIsRefusedAndLeavesTheMutexAsItWas)
{
    sMorvex_PAL_Mutex* mutex = nullptr;
    ASSERT_EQ(Morvex_PAL_MutexInit(&mutex), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexSignal(mutex), MUTEX_ERROR_SIGNAL_FAILED);
    ASSERT_EQ(Morvex_PAL_MutexWait(mutex), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexWait(mutex), MUTEX_ERROR_RECURSIVE);
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex), MUTEX_ERROR_DEINIT_FAILED);
    std::thread([mutex] {
        sMorvex_PAL_Mutex* copy = mutex;
        EXPECT_EQ(Morvex_PAL_MutexSignal(mutex), MUTEX_ERROR_SIGNAL_FAILED);
        EXPECT_EQ(Morvex_PAL_MutexDeInit(&copy), MUTEX_ERROR_DEINIT_FAILED);
    }).join();
    EXPECT_EQ(Morvex_PAL_MutexWait(mutex), MUTEX_ERROR_RECURSIVE);
    EXPECT_EQ(Morvex_PAL_MutexSignal(mutex), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexSignal(mutex), MUTEX_ERROR_SIGNAL_FAILED);
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex), MUTEX_ERROR_INV_HANDLE);
}
