// Helpers for tests that check what the tracked allocator saw, and that leave no
// fault armed behind them.
#ifndef OSAL_KIT_TEST_ALLOCATION_BALANCE_H
#define OSAL_KIT_TEST_ALLOCATION_BALANCE_H

#include "morvex_pal_memory.h"

namespace osal_kit_test {

// Takes a snapshot of the allocator's counts for `component` and `label` (nullptr
// label: all labels of the component) and tells how they moved since. Counts are
// process-wide: other threads allocating under the same names move them too.
class AllocationBalance {
public:
    explicit AllocationBalance(const char* component = "osal_kit", const char* label = nullptr);

    long long liveBlocksDelta() const;
    long long liveBytesDelta() const;
    unsigned long long allocationsSince() const;

private:
    sMorvex_PAL_AllocStats now() const;

    const char* component_;
    const char* label_;
    sMorvex_PAL_AllocStats start_;
};

// Disarms every fault when made and when destroyed, so a failing test can't leave
// one armed for the next.
class FaultGuard {
public:
    FaultGuard();
    ~FaultGuard();
    FaultGuard(const FaultGuard&) = delete;
    FaultGuard& operator=(const FaultGuard&) = delete;
};

} // namespace osal_kit_test

#endif
