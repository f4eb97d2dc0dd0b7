#include "support/AllocationBalance.h"

#include "morvex_pal_fault.h"

namespace osal_kit_test {

AllocationBalance::AllocationBalance(const char* component, const char* label)
    : component_(component), label_(label), start_(now())
{
}

sMorvex_PAL_AllocStats AllocationBalance::now() const
{
    sMorvex_PAL_AllocStats stats{};
    Morvex_PAL_AllocGetStats(component_, label_, &stats);
    return stats;
}

long long AllocationBalance::liveBlocksDelta() const
{
    return static_cast<long long>(now().liveBlocks) - static_cast<long long>(start_.liveBlocks);
}

long long AllocationBalance::liveBytesDelta() const
{
    return static_cast<long long>(now().liveBytes) - static_cast<long long>(start_.liveBytes);
}

unsigned long long AllocationBalance::allocationsSince() const
{
    return now().allocations - start_.allocations;
}

FaultGuard::FaultGuard()
{
    Morvex_Fault_DisarmAll();
}

FaultGuard::~FaultGuard()
{
    Morvex_Fault_DisarmAll();
}

} // namespace osal_kit_test
