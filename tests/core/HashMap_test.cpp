// The hash map: CHashMapImpl's sizing, overflow area and regrowth, the carry-over of a
// value written just before a regrowth, iteration and copies; THashMap's owned values,
// each destroyed exactly once, and every allocation failure.

#include "core/HashMap.h"

#include "support/CountedValue.h"
#include "support/AllocationSweep.h"

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
// many again). From two buckets (the start of each row) key 1 takes head 1, key 3 the
// one overflow item, and key 5 finds the overflow area full and doubles the map. A value
// written through the address handed out before a regrowth is carried over at the next
// access; lookup does not look at the old array, and clear forgets it.
TEST(HashMapImplTest, AKeyThatFindsTheOverflowAreaFullDoublesTheMapAndLateWritesAreCarriedOver)
{
    for (const auto& [size, capacity] : {std::pair{0u, "/3"}, {1u, "/3"}, {2u, "/3"}, {5u, "/12"}, {9u, "/24"}})
        EXPECT_EQ(capacity, NumberMap(size).items()) << size;
    const struct { int line; std::string (*change)(NumberMap&); const char* items; } rows[] = {
        {__LINE__, [](NumberMap& m) { return m.items({3}); }, "1:100 3:101 /3"},
        {__LINE__, [](NumberMap& m) { return m.items({3, 5}); }, "1:100 3:101 5:102 /6"},
        {__LINE__, [](NumberMap& m) {
             void** late = (m.items({3, 1}), m.access(3));
             m.items({5}), *late = reinterpret_cast<void*>(7);
             const std::string before = std::to_string(m.valueOf(3)) + " ";
             return before + m.items({1});
         }, "101 1:100 3:7 5:102 /6"},
        {__LINE__, [](NumberMap& m) { return m.items({3, 5}), m.clear(), m.items({1}); }, "1:103 /3"},
        {__LINE__, [](NumberMap& m) {
             m.items({3}), m.insert(5, nullptr), m.rehash(), m.rehash();
             return std::string(m.access(m.hash(2), 1) == nullptr && !m.nextItem(nullptr) ? "" : "found ") + m.items();
         }, "1:100 3:101 /12"},
        {__LINE__, [](NumberMap&) {
             osal_kit_test::failAllocationAfter(0);
             NumberMap none(2);
             none.insert(1, nullptr), osal_kit_test::failAllocationAfter(0);
             const bool refused = none.access(1) == nullptr;
             Morvex_Fault_DisarmAll();
             const std::string copied = NumberMap(none).items(), empty = none.items();
             return std::string(refused ? "" : "made ") + copied + empty + none.items({1});
         }, "/3/01:100 /3"},
    };
    for (const auto& row : rows) {
        NumberMap map(2);
        map.items({1});
        EXPECT_EQ(row.items, row.change(map)) << "row of line " << row.line;
    }
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

// Default values and set values (regrowing several times), a clear and more values,
// then a copy and an assignment, with each allocation failing in turn (the first one
// the map's array, so that it starts again at its first key): the map holds exactly the
// keys that landed, at the addresses they were given, the copies part of them, and each
// is usable and independent afterwards.
TEST_F(HashMapTest, EveryFailingAllocationLeavesAnExactUsableMap)
{
    osal_kit_test::sweepAllocations({__LINE__, "map", [](unsigned int skip) {
        int stored[150]; // the value a key got, -1: none (the model allocates nothing while armed)
        const CountedValue* address[150];
        osal_kit_test::failAllocationAfter(skip);
        PAL::THashMap<CountedValue> map(2), assigned(4);
        assigned.set(7, CountedValue(-7));
        for (int round = 0; round < 2; ++round) {
            std::fill(stored, stored + 150, -1), std::fill(address, address + 150, nullptr);
            if (round == 1)
                map.clear();
            for (int key = 0; key < 150; key += 1 + 2 * round) {
                const unsigned int k = key * 7u;
                address[key] = key % 2 == 0 ? map.get(k) : map.set(k, CountedValue(key)) ? map.find(k) : nullptr;
                stored[key] = address[key] != nullptr ? key % 2 * key : -1;
            }
        }
        PAL::THashMap<CountedValue> copy(map);
        assigned = copy;
        Morvex_Fault_DisarmAll();
        std::map<unsigned int, int> expected;
        for (int key = 0; key < 150; ++key) {
            EXPECT_EQ(address[key], map.find(key * 7u)) << key;
            if (stored[key] >= 0)
                expected[key * 7u] = stored[key];
        }
        const std::map<unsigned int, int> copied = contentsOf(copy), reassigned = contentsOf(assigned);
        EXPECT_TRUE(std::includes(expected.begin(), expected.end(), copied.begin(), copied.end()));
        EXPECT_TRUE(std::includes(copied.begin(), copied.end(), reassigned.begin(), reassigned.end()));
        EXPECT_TRUE(copy.set(0, CountedValue(-5)) && assigned.set(0, CountedValue(-6)) && expected == contentsOf(map));
        EXPECT_TRUE(map.set(0, CountedValue(42)) && (!address[0] || map.get(0) == address[0]) && map.find(0)->payload() == 42);
        EXPECT_EQ(static_cast<long>(map.size() + copy.size() + assigned.size()), CountedValue::live());
        map.clear();
        EXPECT_TRUE(map.capacity() == 3 && map.get(100000) != nullptr) << "usable again";
    }});
}

} // namespace
