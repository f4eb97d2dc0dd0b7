// The hash map: CHashMapImpl's sizing, overflow area and regrowth, the carry-over of a
// value written just before a regrowth, iteration and copies; THashMap's owned values,
// each destroyed exactly once, and every allocation failure.

#include "core/HashMap.h"

#include "support/CountedValue.h"
#include "support/FaultSweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace {

using osal_kit_test::CountedValue;
typedef std::uintptr_t Number;

// Values are numbers in the pointers: a new key gets 100 + the number of earlier
// initValue calls; copyValue adds 1,000,000 to the value it is given.
class NumberMap : public PAL::CHashMapImpl {
public:
    using CHashMapImpl::CHashMapImpl;
    NumberMap(const NumberMap& other) = default;
    NumberMap& operator=(const NumberMap& other) { return CHashMapImpl::operator=(other), *this; }
    ~NumberMap() override { clearEntries(); }

    // "key:value" of each item in iteration order, then the capacity.
    std::string items(std::initializer_list<unsigned int> access = {})
    {
        for (unsigned int key : access)
            EXPECT_NE(nullptr, this->access(key)) << key;
        std::string out;
        for (PAL::CHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item))
            out += std::to_string(*getKey(item)) + ":" + std::to_string(num(*getValue(item))) + " ";
        return out + "/" + std::to_string(capacity());
    }
    Number valueOf(unsigned int key) const { return lookup(key) != nullptr ? num(lookup(key)->value) : 0; }

    unsigned int inits = 0, copies = 0;
    std::vector<Number> destroyed;

protected:
    void copyValue(void* slot) override { ++copies, value(slot) = ptr(num(value(slot)) + 1000000); }
    void destroyValue(void* slot) override { destroyed.push_back(num(value(slot))); }
    void initValue(void* slot) override { value(slot) = ptr(100 + inits++); }

private:
    static void* ptr(Number n) { return reinterpret_cast<void*>(n); }
    static Number num(const void* p) { return reinterpret_cast<Number>(p); }
    static void*& value(void* slot) { return *static_cast<void**>(slot); }
};

// Sizes are the power of two not below the initial size, at least 2 (capacity: half as
// many again). With two buckets key 1 takes head 1, key 3 the one overflow item, and key
// 5 finds the overflow area full and doubles the map. A value written through the
// address handed out before the regrowth is carried over at the next access.
TEST(HashMapImplTest, AKeyThatFindsTheOverflowAreaFullDoublesTheMapAndLateWritesAreCarriedOver)
{
    for (const auto& [size, capacity] : {std::pair{0u, "/3"}, {1u, "/3"}, {2u, "/3"}, {5u, "/12"}, {9u, "/24"}})
        EXPECT_EQ(capacity, NumberMap(size).items()) << size;
    NumberMap map(2);
    void** early = map.access(1);
    EXPECT_EQ("1:100 3:101 /3", map.items({3}));
    EXPECT_EQ("1:100 3:101 5:102 /6", map.items({5}));
    *early = reinterpret_cast<void*>(42);
    EXPECT_EQ(100u, map.valueOf(1)) << "lookup does not look at the old array";
    EXPECT_EQ(map.access(3), map.access(3));
    EXPECT_EQ("1:42 3:101 5:102 /6", map.items()) << "a present key is not initialised again";
}

// A copy takes the values as they are and gives the source copies; an assignment copies
// through its own copyValue and destroys what it held; each keeps its initial size.
TEST(HashMapImplTest, ACopyTakesTheValuesAndTheSourceGetsCopies)
{
    NumberMap source(4), target(2);
    source.items({1, 5, 0});
    target.items({1});
    NumberMap copy(source);
    EXPECT_EQ("1:100 5:101 0:102 /6", copy.items());
    EXPECT_EQ("1:1000100 5:1000101 0:1000102 /6", source.items());
    target = source;
    target = *&target;
    EXPECT_EQ("1:2000100 5:2000101 0:2000102 /6", source.items());
    EXPECT_EQ("1:1000100 5:1000101 0:1000102 /6", target.items());
    EXPECT_EQ((std::vector<Number>{100}), target.destroyed);
    EXPECT_EQ(6u, source.copies + target.copies) << "three by the copy, three by the assignment";
    copy.clear(), target.clear();
    EXPECT_EQ("/192 /3", copy.items() + " " + target.items()) << "a copy starts again at 128 buckets";
}

class HashMapTest : public osal_kit_test::CountedValueTest {};

std::map<unsigned int, int> contentsOf(const PAL::THashMap<CountedValue>& map)
{
    std::map<unsigned int, int> contents;
    map.forEach([&](unsigned int key, const CountedValue& value) { contents.emplace(key, value.payload()); });
    return contents;
}

TEST_F(HashMapTest, ValuesKeepTheirAddressesThroughRegrowthAndCopiesAreIndependent)
{
    PAL::THashMap<CountedValue> map(2);
    CountedValue* first = map.get(1); // a default value, added once
    EXPECT_EQ(first, map.get(1));
    for (unsigned int key = 2; key < 300; ++key)
        ASSERT_TRUE(map.set(key * 3, CountedValue(static_cast<int>(key))));
    EXPECT_TRUE(map.set(1, CountedValue(42))); // assigns into the value the key has
    EXPECT_EQ(first, map.find(1));
    EXPECT_EQ(nullptr, map.find(4));
    PAL::THashMap<CountedValue> copy(map), assigned(4);
    assigned.set(7, CountedValue(7));
    assigned = copy;
    copy.set(1, CountedValue(-5));
    EXPECT_EQ(contentsOf(map), contentsOf(assigned));
    EXPECT_EQ(299u, contentsOf(map).size());
    EXPECT_EQ(std::pair(42, 897L), std::pair(map.find(1)->payload(), CountedValue::live()));
    map.clear();
    EXPECT_EQ(std::pair(3u, 598L), std::pair(map.capacity(), CountedValue::live()));
}

// Default values and set values (regrowing several times), a clear and more values,
// then a copy, with each allocation failing in turn (the first one the map's array, so
// that it starts again at its first key): the map holds exactly the keys that landed,
// the copy part of them, and the map is usable afterwards.
TEST_F(HashMapTest, EveryFailingAllocationLeavesAnExactUsableMap)
{
    osal_kit_test::forEveryFailingAllocation([](unsigned int skip) {
        int stored[150]; // the value a key got, -1: none (the model allocates nothing while armed)
        osal_kit_test::failAllocationAfter(skip);
        PAL::THashMap<CountedValue> map(2);
        for (int round = 0; round < 2; ++round) {
            if (round == 1)
                map.clear(), std::fill(stored, stored + 150, -1);
            for (int key = 0; key < 150; key += 1 + 2 * round) {
                const bool landed = key % 2 != 0 ? map.set(key * 7u, CountedValue(key)) : map.get(key * 7u) != nullptr;
                stored[key] = landed ? key % 2 * key : -1;
            }
        }
        const PAL::THashMap<CountedValue> copy(map);
        Morvex_Fault_DisarmAll();
        std::map<unsigned int, int> expected, copied = contentsOf(copy);
        for (int key = 0; key < 150; ++key) {
            if (stored[key] >= 0)
                expected[key * 7u] = stored[key];
        }
        EXPECT_EQ(expected, contentsOf(map));
        EXPECT_TRUE(std::includes(expected.begin(), expected.end(), copied.begin(), copied.end()));
        EXPECT_EQ(static_cast<long>(map.size() + copy.size()), CountedValue::live());
        EXPECT_NE(nullptr, map.get(100000)) << "usable again";
    });
}

} // namespace
