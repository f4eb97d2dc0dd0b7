// CHashMapImpl: sizing, the overflow area and regrowth, bucket 0 and key 0, the
// carry-over of a value written just before a regrowth, iteration, copies, and every
// allocation failure.

#include "core/HashMapImpl.h"

#include "support/AllocationBalance.h"
#include "support/FaultSweep.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

namespace {

using osal_kit_test::FaultGuard;
using PAL::CHashMapItem;
typedef std::uintptr_t Number;
typedef std::vector<unsigned int> Keys;

void* ptr(Number n) { return reinterpret_cast<void*>(n); }
Number num(const void* p) { return reinterpret_cast<Number>(p); }

// Values are numbers in the pointers: a new key gets 100 + the number of earlier
// initValue calls; copyValue adds 1,000,000 to the value it is given.
class NumberMap : public PAL::CHashMapImpl {
public:
    explicit NumberMap(unsigned int initialSize) : CHashMapImpl(initialSize) { mDestroyed.reserve(4096); }
    NumberMap(const NumberMap& other) : CHashMapImpl(other) { mDestroyed.reserve(4096); }
    NumberMap& operator=(const NumberMap& other)
    {
        CHashMapImpl::operator=(other);
        return *this;
    }
    ~NumberMap() override { clearEntries(); }

    Number valueOf(unsigned int key) const
    {
        const CHashMapItem* item = lookup(key);
        return item != nullptr ? num(item->value) : 0;
    }
    unsigned int buckets() const { return mBucketCount; }
    unsigned int overflowUsed() const { return static_cast<unsigned int>(mpFreeItem - (mpTable + mBucketCount)); }
    bool hasOldTable() const { return mpOldTable != nullptr; }
    const std::vector<Number>& destroyed() const { return mDestroyed; }
    Keys keys() const
    {
        Keys keys;
        for (CHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item))
            keys.push_back(*getKey(item));
        return keys;
    }

    unsigned int inits = 0;
    unsigned int copies = 0;

protected:
    void copyValue(void* slot) override
    {
        ++copies;
        *static_cast<void**>(slot) = ptr(num(*static_cast<void**>(slot)) + 1000000);
    }
    void destroyValue(void* slot) override { mDestroyed.push_back(num(*static_cast<void**>(slot))); }
    void initValue(void* slot) override { *static_cast<void**>(slot) = ptr(100 + inits++); }

private:
    // Reserved up front: under fault injection the test's own allocations could fail.
    std::vector<Number> mDestroyed;
};

void accessAll(NumberMap& map, const Keys& keys)
{
    for (unsigned int key : keys)
        ASSERT_NE(nullptr, map.access(key)) << key;
}

class HashMapImplTest : public ::testing::Test {
protected:
    FaultGuard faults;
};

TEST_F(HashMapImplTest, StartsWithThePowerOfTwoNotBelowTheInitialSizeAndAtLeastTwo)
{
    const struct {
        int line;
        unsigned int initialSize;
        unsigned int buckets;
    } rows[] = {{__LINE__, 0, 2}, {__LINE__, 1, 2}, {__LINE__, 2, 2}, {__LINE__, 5, 8}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        NumberMap map(row.initialSize);
        EXPECT_EQ(row.buckets, map.buckets());
        EXPECT_EQ(row.buckets * 3 / 2, map.capacity());
        EXPECT_EQ(0u, map.size());
    }
}

TEST_F(HashMapImplTest, AKeyThatFindsTheOverflowAreaFullDoublesTheMap)
{
    NumberMap map(2);
    accessAll(map, {1, 3});
    EXPECT_EQ(1u, map.overflowUsed());
    EXPECT_EQ(2u, map.buckets());
    accessAll(map, {5});
    EXPECT_EQ(4u, map.buckets());
    EXPECT_EQ(6u, map.capacity());
    EXPECT_EQ(100u, map.valueOf(1));
    EXPECT_EQ(101u, map.valueOf(3));
    EXPECT_EQ(102u, map.valueOf(5));
    EXPECT_EQ(3u, map.inits) << "a regrowth moves values without initialising them";

    // A present key's slot comes back without a second initValue.
    void** slot = map.access(3);
    EXPECT_EQ(slot, map.access(3));
    EXPECT_EQ(3u, map.inits);
}

TEST_F(HashMapImplTest, KeysOfBucketZeroIncludingZeroLiveInTheOverflowArea)
{
    NumberMap map(4);
    EXPECT_EQ(nullptr, map.lookup(0));
    accessAll(map, {0, 4});
    EXPECT_EQ(2u, map.overflowUsed());
    ASSERT_NE(nullptr, map.lookup(0));
    EXPECT_EQ(100u, map.valueOf(0));
    EXPECT_EQ(101u, map.valueOf(4));
    EXPECT_EQ(nullptr, map.lookup(1)) << "the key kept in head 0 is never found";
}

TEST_F(HashMapImplTest, AValueWrittenJustBeforeARegrowthIsCarriedOver)
{
    NumberMap map(2);
    void** early = map.access(1);
    accessAll(map, {3, 5});  // regrows; `early` still points into the old array
    ASSERT_TRUE(map.hasOldTable());
    *early = ptr(42);
    EXPECT_EQ(100u, map.valueOf(1)) << "lookup does not look at the old array";
    accessAll(map, {2});
    EXPECT_FALSE(map.hasOldTable());
    EXPECT_EQ(42u, map.valueOf(1));
}

TEST_F(HashMapImplTest, DestroyedValuesAreNotCarriedOverAfterClearOrAssignment)
{
    for (bool byAssignment : {false, true}) {
        SCOPED_TRACE(byAssignment ? "assignment" : "clear");
        NumberMap map(2);
        NumberMap other(2);
        accessAll(other, {1});
        void** early = map.access(1);
        accessAll(map, {3, 5});
        if (byAssignment) {
            map = other;
        } else {
            map.clear();
        }
        EXPECT_EQ((std::vector<Number>{100, 101, 102}), map.destroyed());
        *early = ptr(42);  // a late write still lands in the map's memory
        accessAll(map, {9});
        EXPECT_FALSE(map.hasOldTable());
        EXPECT_NE(42u, map.valueOf(1));
    }
}

TEST_F(HashMapImplTest, IterationVisitsUsedHeadsThenOverflowItemsAndClearStartsAgain)
{
    NumberMap map(8);
    accessAll(map, {13, 3, 0, 5, 11, 16});  // 0, 5, 11 and 16 fill the overflow area
    ASSERT_EQ(8u, map.buckets());
    EXPECT_EQ((Keys{3, 13, 0, 5, 11, 16}), map.keys());
    EXPECT_EQ(6u, map.size());
    accessAll(map, {21, 29});
    EXPECT_EQ(16u, map.buckets());

    map.clear();
    EXPECT_EQ(8u, map.destroyed().size());
    EXPECT_TRUE(map.keys().empty());
    EXPECT_EQ(0u, map.size());
    EXPECT_EQ(12u, map.capacity());
}

TEST_F(HashMapImplTest, ACopyTakesTheValuesAndTheSourceGetsCopies)
{
    NumberMap source(4);
    accessAll(source, {1, 5, 0});
    NumberMap copy(source);
    EXPECT_EQ(3u, source.copies);
    EXPECT_EQ(source.keys(), copy.keys());
    for (unsigned int key : {1, 5, 0})
        EXPECT_EQ(source.valueOf(key), copy.valueOf(key) + 1000000) << key;
    copy.clear();
    EXPECT_EQ(192u, copy.capacity()) << "a copy returns to 128 buckets";

    NumberMap target(2);
    accessAll(target, {1});
    target = source;
    EXPECT_EQ((std::vector<Number>{100}), target.destroyed());
    EXPECT_EQ(3u, target.copies) << "assignment copies through its own operation";
    EXPECT_EQ(2000100u, source.valueOf(1));
    EXPECT_EQ(1000100u, target.valueOf(1));
    target.clear();
    EXPECT_EQ(3u, target.capacity()) << "and keeps its own initial size";
}

TEST_F(HashMapImplTest, AMapWithoutAnArrayFindsNothingAndStartsAgainOnAccess)
{
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    NumberMap map(4);
    EXPECT_EQ(0u, map.capacity());
    EXPECT_EQ(nullptr, map.lookup(1));
    EXPECT_EQ(nullptr, map.firstItem());
    map.insert(1, ptr(11));
    map.rehash();
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    EXPECT_EQ(nullptr, map.access(1));
    EXPECT_EQ(0u, map.inits);

    accessAll(map, {1});
    EXPECT_EQ(4u, map.buckets());
    EXPECT_EQ(100u, map.valueOf(1));
}

// Many keys (regrowing several times), a clear, and many keys again, with the n-th
// allocation failing: a failed regrowth refuses only the key that needed room, the map
// holds exactly the keys it accepted, with their values, and every value is destroyed
// exactly once.
TEST_F(HashMapImplTest, EveryFailingAllocationLeavesAnExactUsableMap)
{
    osal_kit_test::forEveryFailingAllocation([](unsigned int skip) {
        const unsigned int count = 300;
        std::vector<Number> stored(count, 0);  // value per key; 0: absent
        NumberMap map(2);
        osal_kit_test::failAllocationAfter(skip);
        for (int round = 0; round < 2; ++round) {
            if (round == 1) {
                map.clear();
            }
            for (unsigned int key = 0; key < count; key += 1 + key % 3) {
                void** slot = map.access(key * 7);
                stored[key] = slot != nullptr ? num(*slot) : 0;
            }
        }
        Morvex_Fault_DisarmAll();
        unsigned int present = 0;
        for (unsigned int key = 0; key < count; ++key) {
            EXPECT_EQ(stored[key], map.valueOf(key * 7)) << key;
            present += stored[key] != 0;
        }
        EXPECT_EQ(present, map.size());
        ASSERT_NE(nullptr, map.access(100000)) << "usable again";
        map.clear();
        const std::set<Number> distinct(map.destroyed().begin(), map.destroyed().end());
        EXPECT_EQ(map.inits, map.destroyed().size());
        EXPECT_EQ(distinct.size(), map.destroyed().size()) << "destroyed twice";
    });
}

} // namespace
