// Counting semaphores: waiting, timed waiting, trying, and PAL core refusals.

#include "os/Semaphore.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using osal_kit_test::FaultGuard;

void failNext(eMorvex_FaultFunction function, int code)
{
    Morvex_Fault_ArmEx(function, code, 0, 1, 1);
}

class SemaphoreTest : public ::testing::Test {
protected:
    FaultGuard faults;
};

TEST_F(SemaphoreTest, TryWaitTakesWhatTheCountHoldsThenReportsWouldBlock)
{
    PAL::CSemaphore semaphore(2);
    for (int i = 0; i < 2; ++i) {
        bool wouldBlock = true;
        EXPECT_TRUE(semaphore.TryWait(wouldBlock));
        EXPECT_FALSE(wouldBlock);
    }
    bool wouldBlock = false;
    EXPECT_TRUE(semaphore.TryWait(wouldBlock));
    EXPECT_TRUE(wouldBlock);
    // Trying did not take anything: one signal makes exactly one take possible.
    EXPECT_TRUE(semaphore.Signal());
    EXPECT_TRUE(semaphore.TryWait(wouldBlock));
    EXPECT_FALSE(wouldBlock);
    EXPECT_TRUE(semaphore.TryWait(wouldBlock));
    EXPECT_TRUE(wouldBlock);
}

TEST_F(SemaphoreTest, TryWaitLeavesWouldBlockAloneWhenThePalCoreFails)
{
    for (const bool before : {false, true}) {
        SCOPED_TRACE(before);
        PAL::CSemaphore semaphore(1);
        bool wouldBlock = before;
        failNext(MORVEX_FAULT_SemaTryWait, SEMA_ERROR_INTERNAL);
        EXPECT_FALSE(semaphore.TryWait(wouldBlock));
        EXPECT_EQ(before, wouldBlock);
        // The count was not touched.
        EXPECT_TRUE(semaphore.TryWait(wouldBlock));
        EXPECT_FALSE(wouldBlock);
    }
}

TEST_F(SemaphoreTest, WaitAndTimedWaitTakeASignalledCountAndTimedWaitGivesUpOnNone)
{
    PAL::CSemaphore semaphore(0);
    EXPECT_FALSE(semaphore.TimedWait(0));
    EXPECT_FALSE(semaphore.TimedWait(20));
    EXPECT_TRUE(semaphore.Signal());
    EXPECT_TRUE(semaphore.Signal());
    EXPECT_TRUE(semaphore.Wait());
    EXPECT_TRUE(semaphore.TimedWait(0));
    EXPECT_FALSE(semaphore.TimedWait(0));
}

TEST_F(SemaphoreTest, SignalBeyondTheLargestCountIsRefused)
{
    PAL::CSemaphore semaphore(0xFFFFFFFFu);
    EXPECT_FALSE(semaphore.Signal());
    EXPECT_TRUE(semaphore.Wait());
    EXPECT_TRUE(semaphore.Signal());
}

TEST_F(SemaphoreTest, EveryPalCoreRefusalComesBackAsFalseWithoutTrace)
{
    struct Row {
        int line;
        eMorvex_FaultFunction function;
        bool (*operation)(PAL::CSemaphore&);
    };
    const Row rows[] = {
        {__LINE__, MORVEX_FAULT_SemaSignal, [](PAL::CSemaphore& s) { return s.Signal(); }},
        {__LINE__, MORVEX_FAULT_SemaWait, [](PAL::CSemaphore& s) { return s.Wait(); }},
        {__LINE__, MORVEX_FAULT_SemaTimedWait, [](PAL::CSemaphore& s) { return s.TimedWait(1000); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        PAL::CSemaphore semaphore(1);
        osal_kit_test::TraceCapture capture;
        failNext(row.function, SEMA_ERROR_INTERNAL);
        EXPECT_FALSE(row.operation(semaphore));
        EXPECT_TRUE(row.operation(semaphore)); // the count was still there
        EXPECT_TRUE(capture.records().empty());
    }
}

TEST_F(SemaphoreTest, ASemaphoreThatWasNeverMadeRefusesWithoutCallingThePalCore)
{
    const eMorvex_FaultFunction functions[] = {MORVEX_FAULT_SemaSignal, MORVEX_FAULT_SemaWait,
                                               MORVEX_FAULT_SemaTimedWait, MORVEX_FAULT_SemaTryWait,
                                               MORVEX_FAULT_SemaDeInit};
    std::vector<unsigned long long> before;
    for (eMorvex_FaultFunction function : functions) {
        before.push_back(Morvex_Fault_Calls(function));
    }
    {
        failNext(MORVEX_FAULT_SemaInit, SEMA_ERROR_CREATE_FAILED);
        PAL::CSemaphore semaphore(3);
        EXPECT_FALSE(semaphore.Signal());
        EXPECT_FALSE(semaphore.Wait());
        EXPECT_FALSE(semaphore.TimedWait(10));
        bool wouldBlock = true;
        EXPECT_FALSE(semaphore.TryWait(wouldBlock));
        EXPECT_TRUE(wouldBlock);
    }
    for (std::size_t i = 0; i < before.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(before[i], Morvex_Fault_Calls(functions[i]));
    }
}

TEST_F(SemaphoreTest, EverySignalFromOtherThreadsIsTakenExactlyOnce)
{
    PAL::CSemaphore items(0);
    const int producers = 3;
    const int perProducer = 2000;
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p) {
        threads.emplace_back([&] {
            for (int i = 0; i < perProducer; ++i) {
                items.Signal();
            }
        });
    }
    int taken = 0;
    for (int i = 0; i < producers * perProducer; ++i) {
        // Alternate the two blocking forms; a generous deadline never expires.
        if (i % 2 == 0 ? items.Wait() : items.TimedWait(60000)) {
            ++taken;
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(producers * perProducer, taken);
    bool wouldBlock = false;
    EXPECT_TRUE(items.TryWait(wouldBlock));
    EXPECT_TRUE(wouldBlock);
}

} // namespace
