// Counting semaphores: waiting, timed waiting, trying, and PAL core refusals. Signals
// from many threads at once are the PAL semaphore's affair (its own tests).

#include "os/Semaphore.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>


namespace {

using osal_kit_test::failNext;

class SemaphoreTest : public ::testing::Test {
protected:
    // TryWait's result and wouldBlock, as "taken", "would block" or "refused".
    static const char* tryWait(PAL::CSemaphore& semaphore)
    {
        bool wouldBlock = false;
        return !semaphore.TryWait(wouldBlock) ? "refused" : wouldBlock ? "would block" : "taken";
    }

    osal_kit_test::FaultGuard faults;
};

TEST_F(SemaphoreTest, TryWaitTakesWhatTheCountHoldsThenReportsWouldBlock)
{
    PAL::CSemaphore semaphore(2);
    EXPECT_STREQ("taken", tryWait(semaphore));
    EXPECT_STREQ("taken", tryWait(semaphore));
    EXPECT_STREQ("would block", tryWait(semaphore));
    // Trying did not take anything: one signal makes exactly one take possible.
    EXPECT_TRUE(semaphore.Signal());
    EXPECT_STREQ("taken", tryWait(semaphore));
    EXPECT_STREQ("would block", tryWait(semaphore));
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
        EXPECT_STREQ("taken", tryWait(semaphore)); // the count was not touched
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

    PAL::CSemaphore full(0xFFFFFFFFu);
    EXPECT_FALSE(full.Signal()) << "beyond the largest count";
    EXPECT_TRUE(full.Wait());
    EXPECT_TRUE(full.Signal());
}

TEST_F(SemaphoreTest, EveryPalCoreRefusalComesBackAsFalseWithoutTrace)
{
    const struct {
        int line;
        eMorvex_FaultFunction function;
        bool (*operation)(PAL::CSemaphore&);
    } rows[] = {
        {__LINE__, MORVEX_FAULT_SemaSignal, [](PAL::CSemaphore& s) { return s.Signal(); }},
        {__LINE__, MORVEX_FAULT_SemaWait, [](PAL::CSemaphore& s) { return s.Wait(); }},
        {__LINE__, MORVEX_FAULT_SemaTimedWait, [](PAL::CSemaphore& s) { return s.TimedWait(1000); }},
    };
    for (const auto& row : rows) {
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
    const osal_kit_test::PalCalls calls{MORVEX_FAULT_SemaSignal, MORVEX_FAULT_SemaWait, MORVEX_FAULT_SemaTimedWait,
                                        MORVEX_FAULT_SemaTryWait, MORVEX_FAULT_SemaDeInit};
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
    EXPECT_EQ(calls.none(), calls.since());
}

} // namespace
