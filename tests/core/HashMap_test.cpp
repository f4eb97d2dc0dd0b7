// THashMap: owned values over the hash map engine, each destroyed exactly once,
// addresses that survive regrowth, copies and failed allocations.

#include "core/HashMap.h"
#include "core/String.h"

#include "support/AllocationBalance.h"
#include "support/FaultSweep.h"
#include "support/CountedValue.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace {

using osal_kit_test::CountedValue;

typedef PAL::THashMap<CountedValue> CountedMap;
typedef std::map<unsigned int, int> Contents;

class HashMapTest : public osal_kit_test::CountedValueTest {};

Contents contentsOf(const CountedMap& map)
{
    Contents contents;
    map.forEach([&contents](unsigned int key, const CountedValue& value) {
        EXPECT_TRUE(contents.emplace(key, value.payload()).second) << "visited twice: " << key;
    });
    return contents;
}

TEST_F(HashMapTest, SetGetAndFind)
{
    CountedMap map;
    EXPECT_TRUE(map.set(7, CountedValue(70)));
    EXPECT_TRUE(map.set(0, CountedValue(1)));
    EXPECT_EQ(nullptr, map.find(8));

    CountedValue* added = map.get(8);  // a default value, added once
    ASSERT_NE(nullptr, added);
    EXPECT_EQ(0, added->payload());
    EXPECT_EQ(added, map.get(8));

    CountedValue* present = map.find(7);  // set assigns into the value a key has
    EXPECT_TRUE(map.set(7, CountedValue(71)));
    EXPECT_EQ(present, map.find(7));
    EXPECT_EQ(3, CountedValue::live());
    EXPECT_EQ((Contents{{0, 1}, {7, 71}, {8, 0}}), contentsOf(map));

    PAL::THashMap<PAL::CString> names;
    ASSERT_TRUE(names.set(42, "answer"));
    EXPECT_STREQ("answer", names.find(42)->getBuffer());
}

TEST_F(HashMapTest, AddressesStayValidThroughRegrowthAndClearDestroysEverything)
{
    CountedMap map(2);
    CountedValue* first = map.get(1);
    ASSERT_NE(nullptr, first);
    for (unsigned int key = 2; key < 3000; ++key)
        ASSERT_TRUE(map.set(key * 3, CountedValue(static_cast<int>(key))));
    EXPECT_GT(map.capacity(), 3000u);
    *first = CountedValue(42);
    EXPECT_EQ(first, map.find(1));
    EXPECT_EQ(2999u, map.size());
    for (unsigned int key = 2; key < 3000; ++key) {
        ASSERT_NE(nullptr, map.find(key * 3)) << key;
        EXPECT_EQ(static_cast<int>(key), map.find(key * 3)->payload());
    }

    map.clear();
    EXPECT_EQ(0, CountedValue::live());
    EXPECT_EQ(3u, map.capacity());
    ASSERT_NE(nullptr, map.get(5));
}

TEST_F(HashMapTest, CopiesAndAssignmentsAreIndependent)
{
    CountedMap original(4);
    for (unsigned int key = 0; key < 50; ++key)
        ASSERT_TRUE(original.set(key * 4, CountedValue(static_cast<int>(key))));
    CountedMap copy(original);
    EXPECT_EQ(contentsOf(original), contentsOf(copy));
    *copy.get(0) = CountedValue(-5);
    EXPECT_EQ(0, original.find(0)->payload());

    CountedMap assigned;
    ASSERT_TRUE(assigned.set(999, CountedValue(9)));
    assigned = copy;
    EXPECT_EQ(contentsOf(copy), contentsOf(assigned));
    EXPECT_EQ(150, CountedValue::live());

    copy.clear();
    EXPECT_EQ(6u, copy.capacity()) << "a copy returns to its source's initial size";
    EXPECT_EQ(100, CountedValue::live());
}

} // namespace
