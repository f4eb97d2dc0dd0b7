// The library's live allocations by label, for checking that a run gave back all it took.
#ifndef OSAL_KIT_TEST_SUPPORT_LIVECOUNTS_H
#define OSAL_KIT_TEST_SUPPORT_LIVECOUNTS_H

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace osal_kit_test {

// A snapshot of every label the library allocates under, and of all of them together.
class LiveCounts {
public:
    LiveCounts()
        : all_("osal_kit"), new_("osal_kit", "new"), array_("osal_kit", "new[]"),
          nothrowArray_("osal_kit", "new[](std::nothrow_t)"), memory_("osal_kit", "Memory::alloc")
    {
    }

    // Adds a failure naming each label whose live blocks or bytes moved.
    void expectUnchanged() const
    {
        const std::array<std::pair<const char*, const AllocationBalance*>, 5> labels{{
            {"all labels", &all_},
            {"new", &new_},
            {"new[]", &array_},
            {"new[](std::nothrow_t)", &nothrowArray_},
            {"Memory::alloc", &memory_},
        }};
        for (const auto& label : labels) {
            EXPECT_EQ(0, label.second->liveBlocksDelta()) << "live blocks of " << label.first;
            EXPECT_EQ(0, label.second->liveBytesDelta()) << "live bytes of " << label.first;
        }
    }

private:
    AllocationBalance all_;
    AllocationBalance new_;
    AllocationBalance array_;
    AllocationBalance nothrowArray_;
    AllocationBalance memory_;
};

} // namespace osal_kit_test

#endif
