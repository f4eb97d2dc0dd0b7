// CVectorBase: the recorded capacity, the position checks and the growth rule.

#include "core/VectorBase.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

namespace {

using PAL::CVectorBase;

// A base with a chosen size and capacity, as a vector would hold them.
class SizedBase : public CVectorBase {
public:
    SizedBase(int size, int capacity)
    {
        mSize = size;
        mCapacity = capacity;
    }
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

TEST(VectorBaseTest, ChecksAcceptOnlyPositionsInsideTheVector)
{
    const SizedBase base(3, 8);
    const int element = 0;
    struct Row {
        int line;
        bool actual, expected;
    };
    const Row rows[] = {
        {__LINE__, base.checkInsert(0, &element, 0), true},  {__LINE__, base.checkInsert(3, &element, 0), true},
        {__LINE__, base.checkInsert(4, &element, 0), false}, {__LINE__, base.checkInsert(-1, &element, 0), false},
        {__LINE__, base.checkInsert(1, nullptr, 0), false},  {__LINE__, base.checkErase(0, 2, 0), true},
        {__LINE__, base.checkErase(1, 1, 0), true},          {__LINE__, base.checkErase(2, 1, 0), false},
        {__LINE__, base.checkErase(0, 3, 0), false},         {__LINE__, base.checkErase(-1, 0, 0), false},
        {__LINE__, base.checkResize(0, 0), true},            {__LINE__, base.checkResize(100, 0), true},
        {__LINE__, base.checkResize(-1, 0), false},          {__LINE__, base.checkGet(0, 0), true},
        {__LINE__, base.checkGet(2, 0), true},               {__LINE__, base.checkGet(3, 0), false},
        {__LINE__, base.checkGet(-1, 0), false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.expected, row.actual) << "row at line " << row.line;
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
    for (const Row& row : rows) {
        EXPECT_EQ(row.expected, SizedBase(0, row.capacity).calcNewCapacity(row.needed)) << "row at line " << row.line;
    }
}

TEST(VectorBaseTest, SwapExchangesSizeAndCapacity)
{
    SizedBase a(1, 4), b(7, 16);
    PAL::swap(a, b);
    EXPECT_EQ(7, a.size());
    EXPECT_EQ(16, a.capacity());
    EXPECT_EQ(1, b.size());
    EXPECT_EQ(4, b.capacity());
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
