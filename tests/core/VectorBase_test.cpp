// CVectorBase: the recorded capacity, the growth rule and the allocation seam.

#include "core/VectorBase.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

namespace {

using PAL::CVectorBase;

// A base holding exactly `capacity` slots, as a vector would after growing.
class BaseWithCapacity : public CVectorBase {
public:
    explicit BaseWithCapacity(int capacity) { mCapacity = capacity; }
};

TEST(VectorBaseTest, ConstructorRecordsTheCapacityOrFour)
{
    const int rows[][2] = {{5, 5}, {1, 1}, {0, 4}, {-7, 4}};
    for (const auto& row : rows) {
        const CVectorBase base(row[0]);
        EXPECT_EQ(row[1], base.capacity()) << "initial capacity " << row[0];
        EXPECT_EQ(0, base.size());
    }
}

TEST(VectorBaseTest, NewCapacityDoublesFromAFloorOfFour)
{
    struct Row {
        int line, capacity, needed, expected;
    };
    const Row rows[] = {
        {__LINE__, 0, 1, 4},
        {__LINE__, 0, 5, 8},
        {__LINE__, 3, 4, 4},
        {__LINE__, 3, 5, 8},
        {__LINE__, 5, 6, 10},
        {__LINE__, 5, 11, 20},
        {__LINE__, 8, 8, 8},
        {__LINE__, 8, 3, 8},
        {__LINE__, 4, 100, 128},
        {__LINE__, 1 << 30, (1 << 30) + 1, (1 << 30) + 1}, // doubling would overflow
        {__LINE__, 4, INT_MAX, INT_MAX},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.expected, BaseWithCapacity(row.capacity).calcNewCapacity(row.needed)) << "row at line " << row.line;
}

void* failingMalloc(std::size_t)
{
    return nullptr;
}

TEST(VectorBaseTest, MallocFunctionCanBeReplacedAndRestored)
{
    const CVectorBase::MallocFunction original = CVectorBase::setMallocFunction(&failingMalloc);
    EXPECT_EQ(&std::malloc, original);
    EXPECT_EQ(&failingMalloc, CVectorBase::setMallocFunction(nullptr));
    EXPECT_EQ(&std::malloc, CVectorBase::setMallocFunction(original));
}

} // namespace
