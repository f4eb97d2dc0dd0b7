// THashMap: owned values over the hash map engine, each destroyed exactly once,
// addresses that survive regrowth, and copies.

#include "core/HashMap.h"

#include "support/CountedValue.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using osal_kit_test::CountedValue;
typedef PAL::THashMap<CountedValue> CountedMap;
typedef std::map<unsigned int, int> Contents;

Contents contentsOf(const CountedMap& map)
{
    Contents contents;
    map.forEach([&](unsigned int key, const CountedValue& value) { contents.emplace(key, value.payload()); });
    return contents;
}

class HashMapTest : public osal_kit_test::CountedValueTest {};

TEST_F(HashMapTest, ValuesKeepTheirAddressesThroughRegrowthAndCopiesAreIndependent)
{
    CountedMap map(2);
    EXPECT_TRUE(map.set(0, CountedValue(1)));
    CountedValue* first = map.get(1); // a default value, added once
    EXPECT_EQ(first, map.get(1));
    EXPECT_EQ((Contents{{0, 1}, {1, 0}}), contentsOf(map));
    for (unsigned int key = 2; key < 300; ++key)
        ASSERT_TRUE(map.set(key * 3, CountedValue(static_cast<int>(key))));
    EXPECT_TRUE(map.set(1, CountedValue(42))); // assigns into the value the key has
    EXPECT_EQ(first, map.find(1));
    EXPECT_EQ(42, first->payload());
    EXPECT_EQ(nullptr, map.find(4));
    EXPECT_EQ(300u, map.size());

    CountedMap copy(map), assigned(4);
    assigned.set(7, CountedValue(7));
    assigned = copy;
    EXPECT_TRUE(copy.set(0, CountedValue(-5)));
    EXPECT_EQ(1, map.find(0)->payload());
    EXPECT_EQ(contentsOf(map), contentsOf(assigned));
    EXPECT_EQ(900, CountedValue::live());
    map.clear();
    EXPECT_EQ(3u, map.capacity());
    EXPECT_EQ(600, CountedValue::live());
}

} // namespace
