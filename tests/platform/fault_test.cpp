#include "morvex_pal.h"
#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

static std::vector<int> strcmpResults(int calls)
{
    std::vector<int> results;
    while (calls-- > 0)
        results.push_back(Morvex_PAL_strcmp("same", "same"));
    return results;
}

// Calls are counted on every thread, those of ended threads too.
TEST(Fault, SkipLetsCallsPassCountCallsFailAndThisThreadOnlySparesOthers)
{
    osal_kit_test::FaultGuard guard;
    const unsigned long long calls = Morvex_Fault_Calls(MORVEX_FAULT_strcmp);
    const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_strcmp);
    Morvex_Fault_ArmEx(MORVEX_FAULT_strcmp, 42, 2, 3, 0);
    EXPECT_EQ(strcmpResults(7), (std::vector<int>{0, 0, 42, 42, 42, 0, 0}));
    EXPECT_EQ(Morvex_Fault_Injected(MORVEX_FAULT_strcmp) - injected, 3u);
    Morvex_Fault_ArmEx(MORVEX_FAULT_strcmp, 42, 0, 5, 1);
    std::thread([] { EXPECT_EQ(strcmpResults(1), std::vector<int>{0}); }).join();
    EXPECT_EQ(strcmpResults(1), std::vector<int>{42});
    Morvex_Fault_Disarm(MORVEX_FAULT_strcmp);
    EXPECT_EQ(strcmpResults(1), std::vector<int>{0});
    Morvex_Fault_Arm(MORVEX_FAULT_strcmp, 42, 1);
    std::thread([] { EXPECT_EQ(strcmpResults(1), std::vector<int>{42}); }).join();
    EXPECT_EQ(Morvex_Fault_Calls(MORVEX_FAULT_strcmp) - calls, 11u);
    Morvex_Fault_Disarm(MORVEX_FAULT_COUNT); // no such function: nothing to do, nothing to count
    EXPECT_EQ(0u, Morvex_Fault_Calls(MORVEX_FAULT_COUNT));
}
