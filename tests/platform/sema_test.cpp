// Trying, timed waits and the count's limit are covered through CSemaphore's tests.
#include "morvex_pal_sema.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

TEST(Sema, BadArgumentsAreReported)
{
    EXPECT_EQ(Morvex_PAL_SemaInit(nullptr, 0), SEMA_ERROR_INV_POINTER);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(nullptr, 1), SEMA_ERROR_INV_HANDLE);
}

TEST(Sema, ManyProducersAndConsumersLoseNoSignal)
{
    constexpr int kPairs = 4, kSignals = 2000;
    sMorvex_PAL_Sema* sema = nullptr;
    ASSERT_EQ(Morvex_PAL_SemaInit(&sema, 0), SEMA_OK);
    std::vector<std::thread> threads;
    for (int i = 0; i < kPairs; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kSignals; ++n)
                ASSERT_EQ(Morvex_PAL_SemaSignal(sema), SEMA_OK);
        });
        // Half the consumers wait without limit, half in short timed waits that often expire.
        threads.emplace_back([&, timed = i % 2 == 1] {
            for (int n = 0; n < kSignals; ++n) {
                eMorvex_PAL_SemaError result = SEMA_ERROR_TIMEOUT;
                while (result == SEMA_ERROR_TIMEOUT)
                    result = timed ? Morvex_PAL_SemaTimedWait(sema, 1) : Morvex_PAL_SemaWait(sema);
                ASSERT_EQ(result, SEMA_OK);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema), SEMA_WOULD_BLOCK);
    EXPECT_EQ(Morvex_PAL_SemaDeInit(&sema), SEMA_OK);
}

// The waiter frees the semaphore as soon as its wait returns, while the signalling
// thread may still be inside Morvex_PAL_SemaSignal: the signal must not touch the
// semaphore once the count is up (the sanitizers see it if it does).
TEST(Sema, AWaiterMayDestroyTheSemaphoreAsSoonAsItsWaitReturns)
{
    for (int round = 0; round < 500; ++round) {
        sMorvex_PAL_Sema* sema = nullptr;
        ASSERT_EQ(Morvex_PAL_SemaInit(&sema, 0), SEMA_OK);
        std::thread signaller([sema] { EXPECT_EQ(Morvex_PAL_SemaSignal(sema), SEMA_OK); });
        ASSERT_EQ(round % 2 == 0 ? Morvex_PAL_SemaWait(sema) : Morvex_PAL_SemaTimedWait(sema, 60000), SEMA_OK);
        EXPECT_EQ(Morvex_PAL_SemaDeInit(&sema), SEMA_OK);
        signaller.join();
    }
}

// A hand-off answered at once is the case a waiter watches for before it sleeps:
// each side must see exactly the other's last step, never its own twice.
TEST(Sema, PingPongKeepsStrictTurns)
{
    constexpr int kRounds = 20000;
    sMorvex_PAL_Sema* ping = nullptr;
    sMorvex_PAL_Sema* pong = nullptr;
    ASSERT_EQ(Morvex_PAL_SemaInit(&ping, 0), SEMA_OK);
    ASSERT_EQ(Morvex_PAL_SemaInit(&pong, 0), SEMA_OK);
    int turn = 0; // written by whoever holds the token
    int outOfTurn = 0;
    std::thread other([&] {
        for (int n = 0; n < kRounds; ++n) {
            ASSERT_EQ(Morvex_PAL_SemaWait(ping), SEMA_OK);
            outOfTurn += turn != 2 * n + 1;
            ++turn;
            ASSERT_EQ(Morvex_PAL_SemaSignal(pong), SEMA_OK);
        }
    });
    for (int n = 0; n < kRounds; ++n) {
        outOfTurn += turn != 2 * n;
        ++turn;
        ASSERT_EQ(Morvex_PAL_SemaSignal(ping), SEMA_OK);
        ASSERT_EQ(n % 2 ? Morvex_PAL_SemaWait(pong) : Morvex_PAL_SemaTimedWait(pong, 60000), SEMA_OK);
    }
    other.join();
    EXPECT_EQ(outOfTurn, 0);
    EXPECT_EQ(turn, 2 * kRounds);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(ping), SEMA_WOULD_BLOCK);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(pong), SEMA_WOULD_BLOCK);
    EXPECT_EQ(Morvex_PAL_SemaDeInit(&ping), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaDeInit(&pong), SEMA_OK);
}

} // namespace
