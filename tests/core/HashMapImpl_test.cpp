// CHashMapImpl: sizing, the overflow area and regrowth, bucket 0 and key 0, the
// carry-over of a value written just before a regrowth, iteration, copies, and every
// allocation failure.

#include "core/HashMapImpl.h"

#include "support/FaultSweep.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

namespace {

typedef std::uintptr_t Number;
typedef std::vector<unsigned int> Keys;

void* ptr(Number n) { return reinterpret_cast<void*>(n); }
Number num(const void* p) { return reinterpret_cast<Number>(p); }

// Values are numbers in the pointers: a new key gets 100 + the number of earlier
// initValue calls; copyValue adds 1,000,000 to the value it is given.
class NumberMap : public PAL::CHashMapImpl {
public:
    explicit NumberMap(unsigned int initialSize) : CHashMapImpl(initialSize) { destroyed.reserve(4096); }
    NumberMap(const NumberMap& other) : CHashMapImpl(other) {}
    NumberMap& operator=(const NumberMap& other) { return CHashMapImpl::operator=(other), *this; }
    ~NumberMap() override { clearEntries(); }

    Number valueOf(unsigned int key) const
    {
        const PAL::CHashMapItem* item = lookup(key);
        return item != nullptr ? num(item->value) : 0;
    }
    Keys keys() const
    {
        Keys keys;
        for (PAL::CHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item))
            keys.push_back(*getKey(item));
        return keys;
    }
    void accessAll(const Keys& keys)
    {
        for (unsigned int key : keys)
            ASSERT_NE(nullptr, access(key)) << key;
    }

    unsigned int inits = 0, copies = 0;
    std::vector<Number> destroyed; // reserved: allocations may fail while it records

protected:
    void copyValue(void* slot) override { ++copies, value(slot) = ptr(num(value(slot)) + 1000000); }
    void destroyValue(void* slot) override { destroyed.push_back(num(value(slot))); }
    void initValue(void* slot) override { value(slot) = ptr(100 + inits++); }
    static void*& value(void* slot) { return *static_cast<void**>(slot); }
};

TEST(HashMapImplTest, StartsWithThePowerOfTwoNotBelowTheInitialSizeAndAtLeastTwoBuckets)
{
    for (const auto& [size, capacity] : {std::pair{0u, 3u}, {1u, 3u}, {2u, 3u}, {5u, 12u}, {8u, 12u}, {9u, 24u}}) {
        const NumberMap map(size);
        EXPECT_EQ(capacity, map.capacity()) << size;
        EXPECT_EQ(0u, map.size());
    }
}

// Two buckets: key 1 takes head 1, key 3 the one overflow item, key 5 finds the
// overflow area full and doubles the map. A value written through the address handed
// out before the regrowth is carried over at the next access.
TEST(HashMapImplTest, AKeyThatFindsTheOverflowAreaFullDoublesTheMapAndLateWritesAreCarriedOver)
{
    NumberMap map(2);
    void** early = map.access(1);
    map.accessAll({3});
    EXPECT_EQ(3u, map.capacity());
    map.accessAll({5});
    EXPECT_EQ(6u, map.capacity());
    EXPECT_EQ((Keys{1, 3, 5}), map.keys());
    *early = ptr(42);
    EXPECT_EQ(100u, map.valueOf(1)) << "lookup does not look at the old array";
    EXPECT_EQ(map.access(3), map.access(3));
    EXPECT_EQ(42u, map.valueOf(1));
    EXPECT_EQ(101u, map.valueOf(3));
    EXPECT_EQ(102u, map.valueOf(5));
    EXPECT_EQ(3u, map.inits) << "a regrowth moves values and a present key is not initialised again";
}

// Keys of bucket 0 (key 0 among them) live in the overflow area; iteration visits the
// used heads in order, then the overflow items in the order taken; clear starts again.
TEST(HashMapImplTest, IterationVisitsUsedHeadsThenOverflowItemsAndClearStartsAgain)
{
    NumberMap map(8);
    EXPECT_EQ(nullptr, map.lookup(0));
    map.accessAll({13, 3, 0, 5, 11, 16});
    EXPECT_EQ((Keys{3, 13, 0, 5, 11, 16}), map.keys());
    EXPECT_EQ(6u, map.size());
    EXPECT_EQ(nullptr, map.lookup(1)) << "the key kept in head 0 is never found";
    EXPECT_EQ(102u, map.valueOf(0));
    void** early = map.access(1);
    map.accessAll({21});
    EXPECT_EQ(24u, map.capacity());
    map.clear();
    *early = ptr(42); // lands in the replaced array, which stays until the next access, but not in the map
    map.accessAll({9});
    EXPECT_EQ(8u, map.destroyed.size());
    EXPECT_EQ((Keys{9}), map.keys());
    EXPECT_EQ(12u, map.capacity());
}

// A copy takes the values as they are and gives the source copies; an assignment copies
// through its own copyValue and destroys what it held; both keep their initial sizes.
TEST(HashMapImplTest, ACopyTakesTheValuesAndTheSourceGetsCopies)
{
    NumberMap source(4), target(2);
    source.accessAll({1, 5, 0});
    target.accessAll({1});
    NumberMap copy(source);
    EXPECT_EQ(3u, source.copies);
    EXPECT_EQ(source.keys(), copy.keys());
    EXPECT_EQ(1000100u, source.valueOf(1));
    EXPECT_EQ(100u, copy.valueOf(1));
    copy.clear();
    EXPECT_EQ(192u, copy.capacity()) << "a copy returns to 128 buckets";
    target = source;
    target = *&target;
    EXPECT_EQ((std::vector<Number>{100}), target.destroyed);
    EXPECT_EQ(3u, target.copies);
    EXPECT_EQ((Keys{1, 5, 0}), target.keys());
    EXPECT_EQ(2000100u, source.valueOf(1));
    EXPECT_EQ(1000100u, target.valueOf(1));
    target.clear();
    EXPECT_EQ(3u, target.capacity());
}

// A map whose array could not be made finds nothing and starts again at its next
// access. Then many keys (regrowing several times), a clear, and many keys again, with
// the n-th allocation failing: the map holds exactly the keys it accepted, with their
// values, and every value is destroyed exactly once.
TEST(HashMapImplTest, EveryFailingAllocationLeavesAnExactUsableMap)
{
    osal_kit_test::FaultGuard faults;
    osal_kit_test::failAllocationAfter(0);
    NumberMap bare(4);
    bare.insert(1, nullptr), bare.rehash();
    EXPECT_EQ(nullptr, bare.firstItem());
    EXPECT_EQ(nullptr, bare.lookup(1));
    bare.accessAll({1});
    EXPECT_EQ(6u, bare.capacity());
    osal_kit_test::forEveryFailingAllocation([](unsigned int skip) {
        const unsigned int count = 300;
        std::vector<Number> stored(count, 0); // value per key; 0: absent
        NumberMap map(2);
        osal_kit_test::failAllocationAfter(skip);
        for (int round = 0; round < 2; ++round) {
            if (round == 1)
                map.clear();
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
        EXPECT_EQ(map.inits, map.destroyed.size());
        EXPECT_EQ(map.inits, std::set<Number>(map.destroyed.begin(), map.destroyed.end()).size()) << "destroyed twice";
    });
}

} // namespace
