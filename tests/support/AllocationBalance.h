// Helpers for tests that check what the tracked allocator saw, and that leave no
// fault armed behind them.
#ifndef OSAL_KIT_TEST_ALLOCATION_BALANCE_H
#define OSAL_KIT_TEST_ALLOCATION_BALANCE_H

#include "morvex_pal_fault.h"
#include "morvex_pal_memory.h"

namespace osal_kit_test {

// A snapshot of the allocator's counts for `component` and `label` (nullptr label: all
// labels of the component) that tells how they moved since. Counts are process-wide:
// other threads allocating under the same names move them too.
class AllocationBalance {
public:
    explicit AllocationBalance(const char* component = "osal_kit", const char* label = nullptr)
        : component_(component), label_(label), start_(now())
    {
    }
    long long liveBlocksDelta() const { return static_cast<long long>(now().liveBlocks) - static_cast<long long>(start_.liveBlocks); }
    long long liveBytesDelta() const { return static_cast<long long>(now().liveBytes) - static_cast<long long>(start_.liveBytes); }
    unsigned long long allocationsSince() const { return now().allocations - start_.allocations; }

private:
    sMorvex_PAL_AllocStats now() const
    {
        sMorvex_PAL_AllocStats stats{};
        Morvex_PAL_AllocGetStats(component_, label_, &stats);
        return stats;
    }

    const char* component_;
    const char* label_;
    sMorvex_PAL_AllocStats start_;
};

// Disarms every fault when made and when destroyed, so a failing test can't leave
// one armed for the next.
struct FaultGuard {
    FaultGuard() { Morvex_Fault_DisarmAll(); }
    ~FaultGuard() { Morvex_Fault_DisarmAll(); }
};

// Makes the allocation after `skip` more on this thread fail (the allocator returns null).
inline void failAllocationAfter(unsigned int skip)
{
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, skip, 1, 1);
}

// Makes the next `count` calls of `function` (on this thread only, unless told
// otherwise) fail with `code`.
inline void failNext(eMorvex_FaultFunction function, int code, unsigned int count = 1, bool thisThreadOnly = true)
{
    Morvex_Fault_ArmEx(function, code, 0, count, thisThreadOnly ? 1 : 0);
}

} // namespace osal_kit_test

#endif
