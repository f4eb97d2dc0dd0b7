#include "morvex_pal_sema.h"

#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <vector>

namespace {

class Sema : public ::testing::Test {
protected:
    void make(unsigned int count) { ASSERT_EQ(Morvex_PAL_SemaInit(&sema_, count), SEMA_OK); }
    void TearDown() override { EXPECT_EQ(Morvex_PAL_SemaDeInit(&sema_), SEMA_OK); }

    sMorvex_PAL_Sema* sema_ = nullptr;
};

TEST_F(Sema, TryAndTimedWaitsTakeWhatIsThereOrGiveUp)
{
    make(1);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema_), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema_), SEMA_WOULD_BLOCK);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(sema_, 20), SEMA_ERROR_TIMEOUT);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(sema_, 0), SEMA_ERROR_TIMEOUT);
    ASSERT_EQ(Morvex_PAL_SemaSignal(sema_), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(sema_, 0), SEMA_OK);
}

TEST_F(Sema, SignalRefusesToOverflowTheCount)
{
    make(UINT_MAX);
    EXPECT_EQ(Morvex_PAL_SemaSignal(sema_), SEMA_ERROR_OVERFLOW);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema_), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaSignal(sema_), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaInit(nullptr, 0), SEMA_ERROR_INV_POINTER);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(nullptr, 1), SEMA_ERROR_INV_HANDLE);
}

TEST_F(Sema, ManyProducersAndConsumersLoseNoSignal)
{
    constexpr int kPairs = 4, kSignals = 2000;
    make(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < kPairs; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kSignals; ++n)
                ASSERT_EQ(Morvex_PAL_SemaSignal(sema_), SEMA_OK);
        });
        // Half the consumers wait without limit, half in short timed waits that often expire.
        threads.emplace_back([&, timed = i % 2 == 1] {
            for (int n = 0; n < kSignals; ++n) {
                eMorvex_PAL_SemaError result = SEMA_ERROR_TIMEOUT;
                while (result == SEMA_ERROR_TIMEOUT)
                    result = timed ? Morvex_PAL_SemaTimedWait(sema_, 1) : Morvex_PAL_SemaWait(sema_);
                ASSERT_EQ(result, SEMA_OK);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema_), SEMA_WOULD_BLOCK);
}

} // namespace
