// CVectorBase: the recorded capacity and the growth rule, where a vector cannot show it.

#include "core/VectorBase.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

// A base holding exactly `capacity` slots, as a vector would after growing.
struct BaseWithCapacity : PAL::CVectorBase {
    explicit BaseWithCapacity(int capacity) { mCapacity = capacity; }
};

TEST(VectorBaseTest, RecordsAPositiveCapacityOrFourAndDoublesUntilDoublingWouldOverflow)
{
    for (const int initial : {5, 1, 0, -7})
        EXPECT_EQ(initial > 0 ? initial : 4, PAL::CVectorBase(initial).capacity()) << initial;
    const int rows[][4] = {
        {__LINE__, 3, 5, 8},
        {__LINE__, 8, 3, 8},
        {__LINE__, 1 << 30, (1 << 30) + 1, (1 << 30) + 1},
        {__LINE__, 4, INT_MAX, INT_MAX},
    };
    for (const auto& [line, capacity, needed, grown] : rows)
        EXPECT_EQ(grown, BaseWithCapacity(capacity).calcNewCapacity(needed)) << "row of line " << line;
}

} // namespace
