// Drives code through every allocation failure it can meet.
#ifndef OSAL_KIT_TEST_SUPPORT_FAULTSWEEP_H
#define OSAL_KIT_TEST_SUPPORT_FAULTSWEEP_H

#include "support/AllocationBalance.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

namespace osal_kit_test {

// Makes the allocation after `skip` more on this thread fail (the allocator returns null).
inline void failAllocationAfter(unsigned int skip)
{
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, skip, 1, 1);
}

// Runs `run(skip)` for skip = 0, 1, 2, ... until a run meets no failing allocation or
// a test assertion has failed. `run` arms the fault itself with
// failAllocationAfter(skip) once its own set-up is done, and must allocate nothing of
// its own while it is armed (the process's operator new fails then too). Every run
// must leave the library's allocations as it found them.
template <typename Run>
void forEveryFailingAllocation(Run run)
{
    for (unsigned int skip = 0;; ++skip) {
        SCOPED_TRACE(::testing::Message() << "allocation " << skip << " fails");
        const unsigned long long before = Morvex_Fault_Injected(MORVEX_FAULT_zmalloc);
        {
            AllocationBalance balance;
            run(skip);
            Morvex_Fault_DisarmAll();
            EXPECT_EQ(0, balance.liveBlocksDelta());
        }
        if (Morvex_Fault_Injected(MORVEX_FAULT_zmalloc) == before || ::testing::Test::HasFailure()) {
            return;
        }
    }
}

} // namespace osal_kit_test

#endif
