// Counting semaphores: waiting, timed waiting, trying, and PAL core refusals.

#include "os/Semaphore.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

// Calls s: Signal, w: Wait, t: TimedWait(20 ms), y: TryWait, in order, with the first
// call of `fault` failing (COUNT: none). Outcomes: '+' taken or signalled, 'b' TryWait
// would block, '-' refused or timed out (with TryWait's flag left as it was).
TEST(SemaphoreTest, EachOperationTakesOrGivesOneCountAndAPalRefusalChangesNothing)
{
    osal_kit_test::FaultGuard faults;
    const struct { int line; unsigned int count; eMorvex_FaultFunction fault; const char *calls, *outcomes; } rows[] = {
        {__LINE__, 2, MORVEX_FAULT_COUNT, "yyysyy", "++b++b"},
        {__LINE__, 0, MORVEX_FAULT_COUNT, "tsswtt", "-++++-"},
        {__LINE__, 0xFFFFFFFFu, MORVEX_FAULT_COUNT, "swss", "-++-"}, // beyond the largest count
        {__LINE__, 1, MORVEX_FAULT_SemaSignal, "swy", "-+b"},
        {__LINE__, 1, MORVEX_FAULT_SemaWait, "wwy", "-+b"},
        {__LINE__, 1, MORVEX_FAULT_SemaTimedWait, "tty", "-+b"},
        {__LINE__, 1, MORVEX_FAULT_SemaTryWait, "yyy", "-+b"},
        {__LINE__, 3, MORVEX_FAULT_SemaInit, "swty", "----"}, // never made: everything refused
    };
    // Played while the process has a single thread, which takes quicker paths, and again
    // on a second thread.
    auto play = [&rows] {
        for (const auto& row : rows) {
            osal_kit_test::failNext(row.fault, SEMA_ERROR_INTERNAL);
            PAL::CSemaphore semaphore(row.count);
            std::string outcomes;
            for (const char* call = row.calls; *call != '\0'; ++call) {
                bool wouldBlock = true;
                const bool ok = *call == 's'   ? semaphore.Signal()
                                : *call == 'w' ? semaphore.Wait()
                                : *call == 't' ? semaphore.TimedWait(20)
                                               : semaphore.TryWait(wouldBlock);
                outcomes += !ok ? (wouldBlock ? '-' : '!') : (*call != 'y' || !wouldBlock) ? '+' : 'b';
            }
            EXPECT_EQ(row.outcomes, outcomes) << "row of line " << row.line;
        }
    };
    play();
    std::thread(play).join();
}

} // namespace
