// The library's live allocations by label, for checking that a run gave back all it took.
#ifndef OSAL_KIT_TEST_SUPPORT_LIVECOUNTS_H
#define OSAL_KIT_TEST_SUPPORT_LIVECOUNTS_H

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

namespace osal_kit_test {

// A snapshot of every label the library allocates under, and of all of them together.
class LiveCounts {
public:
    // Adds a failure naming each label whose live blocks or bytes moved.
    void expectUnchanged() const
    {
        for (int i = 0; i < 5; ++i) {
            const char* name = kLabels[i] != nullptr ? kLabels[i] : "all labels";
            EXPECT_EQ(0, counts_[i].liveBlocksDelta()) << "live blocks of " << name;
            EXPECT_EQ(0, counts_[i].liveBytesDelta()) << "live bytes of " << name;
        }
    }

private:
    static constexpr const char* kLabels[5] = {nullptr, "new", "new[]", "new[](std::nothrow_t)", "Memory::alloc"};
    AllocationBalance counts_[5] = {AllocationBalance("osal_kit", kLabels[0]), AllocationBalance("osal_kit", kLabels[1]),
                                    AllocationBalance("osal_kit", kLabels[2]), AllocationBalance("osal_kit", kLabels[3]),
                                    AllocationBalance("osal_kit", kLabels[4])};
};

} // namespace osal_kit_test

#endif
