#include "morvex_pal_mutex.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

class Mutex : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(Morvex_PAL_MutexInit(&mutex_), MUTEX_OK); }
    void TearDown() override { EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex_), MUTEX_OK); }

    template <typename F>
    static auto onOtherThread(F f)
    {
        decltype(f()) result{};
        std::thread([&] { result = f(); }).join();
        return result;
    }

    sMorvex_PAL_Mutex* mutex_ = nullptr;
};

TEST_F(Mutex, MisuseIsRefusedInsteadOfDeadlockingOrBreakingTheLock)
{
    sMorvex_PAL_Mutex* const kept = mutex_;
    ASSERT_EQ(Morvex_PAL_MutexWait(mutex_), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexWait(mutex_), MUTEX_ERROR_RECURSIVE);
    EXPECT_EQ(onOtherThread([&] { return Morvex_PAL_MutexSignal(mutex_); }), MUTEX_ERROR_SIGNAL_FAILED);
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&mutex_), MUTEX_ERROR_DEINIT_FAILED);
    EXPECT_EQ(onOtherThread([&] {
                  sMorvex_PAL_Mutex* copy = mutex_;
                  return Morvex_PAL_MutexDeInit(&copy);
              }),
              MUTEX_ERROR_DEINIT_FAILED);
    EXPECT_EQ(mutex_, kept);
    EXPECT_EQ(Morvex_PAL_MutexSignal(mutex_), MUTEX_OK);
    EXPECT_EQ(Morvex_PAL_MutexSignal(mutex_), MUTEX_ERROR_SIGNAL_FAILED); // no longer held
    sMorvex_PAL_Mutex* none = nullptr;
    EXPECT_EQ(Morvex_PAL_MutexDeInit(&none), MUTEX_ERROR_INV_HANDLE);
    EXPECT_EQ(Morvex_PAL_MutexInit(nullptr), MUTEX_ERROR_INV_POINTER);
}

// The counter is guarded by the mutex alone: the race detector sees any gap.
TEST_F(Mutex, ExcludesOtherThreads)
{
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 2000; ++i) {
            ASSERT_EQ(Morvex_PAL_MutexWait(mutex_), MUTEX_OK);
            ++counter;
            ASSERT_EQ(Morvex_PAL_MutexSignal(mutex_), MUTEX_OK);
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 4000);
}

} // namespace
