// THashArray: owned keys and values over the hash array engine, each destroyed exactly
// once, through growth, shrinking, copies and failed allocations.

#include "core/HashArray.h"

#include "support/AllocationBalance.h"
#include "support/FaultSweep.h"
#include "support/CountedValue.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using osal_kit_test::CountedValue;
using PAL::CString;

typedef PAL::THashArray<CString, CountedValue> NamedValues;
typedef std::map<std::string, int> Contents;

class HashArrayTest : public osal_kit_test::CountedValueTest {};

Contents contentsOf(const NamedValues& table)
{
    Contents contents;
    table.forEach([&contents](const CString& key, const CountedValue& value) {
        EXPECT_TRUE(contents.emplace(key.getBuffer(), value.payload()).second) << "visited twice: " << key.getBuffer();
    });
    return contents;
}

CString nameOf(unsigned int i)
{
    return CString(("name-" + std::to_string(i)).c_str());
}

TEST_F(HashArrayTest, InsertFindReplaceAndRemove)
{
    NamedValues table;
    CString key("alpha");
    EXPECT_TRUE(table.insert(key, CountedValue(1)));
    key = "beta";  // the table holds its own copy of the key
    EXPECT_TRUE(table.insert(key, CountedValue(2)));
    ASSERT_NE(nullptr, table.find("alpha"));
    EXPECT_EQ(1, table.find("alpha")->payload());
    EXPECT_EQ(nullptr, table.find("gamma"));

    // A present key keeps its value object, which takes the new value by assignment.
    const CountedValue* before = table.find("alpha");
    EXPECT_TRUE(table.insert("alpha", CountedValue(10)));
    EXPECT_EQ(before, table.find("alpha"));
    EXPECT_EQ(2, CountedValue::live());

    EXPECT_TRUE(table.remove("alpha"));
    EXPECT_FALSE(table.remove("alpha"));
    EXPECT_EQ(1, CountedValue::live());
    EXPECT_EQ((Contents{{"beta", 2}}), contentsOf(table));
}

TEST_F(HashArrayTest, ThousandsOfKeysSurviveGrowthAndShrinking)
{
    PAL::THashArray<unsigned int, CountedValue> table(4);
    for (unsigned int i = 0; i < 5000; ++i)
        ASSERT_TRUE(table.insert(i * 2654435761u, CountedValue(static_cast<int>(i))));
    EXPECT_EQ(8192u, table.capacity());
    for (unsigned int i = 0; i < 5000; ++i) {
        if (i % 4 != 3) {
            ASSERT_TRUE(table.remove(i * 2654435761u));
        }
    }
    EXPECT_EQ(4096u, table.capacity());
    EXPECT_EQ(1250, CountedValue::live());
    for (unsigned int i = 0; i < 5000; ++i) {
        const CountedValue* value = table.find(i * 2654435761u);
        ASSERT_EQ(i % 4 == 3, value != nullptr) << i;
        EXPECT_TRUE(value == nullptr || value->payload() == static_cast<int>(i)) << i;
    }
}

TEST_F(HashArrayTest, CopiesAndAssignmentsAreIndependent)
{
    NamedValues original;
    for (unsigned int i = 0; i < 20; ++i)
        ASSERT_TRUE(original.insert(nameOf(i), CountedValue(static_cast<int>(i))));
    NamedValues copy(original);
    EXPECT_EQ(contentsOf(original), contentsOf(copy));
    *copy.find(nameOf(3)) = CountedValue(300);
    ASSERT_TRUE(copy.remove(nameOf(4)));
    EXPECT_EQ(3, original.find(nameOf(3))->payload());
    EXPECT_TRUE(original.contains(nameOf(4)));

    NamedValues assigned;
    ASSERT_TRUE(assigned.insert("replaced", CountedValue(-1)));
    assigned = copy;
    EXPECT_EQ(contentsOf(copy), contentsOf(assigned));
    EXPECT_EQ(20 + 19 + 19, CountedValue::live());

    assigned.clear();
    EXPECT_EQ(0u, assigned.size());
    EXPECT_EQ(20 + 19, CountedValue::live());
}

// Integer keys with the default traits live in the table's own key fields; the keys a
// visitor sees, lookups and removals must be those of the keys given, negative ones and
// 64-bit ones included.
template <typename K>
void expectIntegerKeysRoundTrip(const std::vector<K>& keys)
{
    PAL::THashArray<K, int> table(2);
    for (unsigned int i = 0; i < keys.size(); ++i)
        ASSERT_TRUE(table.insert(keys[i], static_cast<int>(i)));
    std::map<K, int> seen;
    table.forEach([&seen](const K& key, int& value) { EXPECT_TRUE(seen.emplace(key, value).second); });
    ASSERT_EQ(keys.size(), seen.size());
    for (unsigned int i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(static_cast<int>(i), seen[keys[i]]);
        ASSERT_NE(nullptr, table.find(keys[i]));
    }
    EXPECT_TRUE(table.remove(keys[0]));
    EXPECT_FALSE(table.contains(keys[0]));
    EXPECT_EQ(keys.size() - 1, table.size());
}

TEST_F(HashArrayTest, IntegerKeysOfEveryWidthAndSign)
{
    expectIntegerKeysRoundTrip<int>({-1, 0, 1, -2147483647 - 1, 2147483647, -7});
    expectIntegerKeysRoundTrip<char>({'a', '\0', static_cast<char>(-3)});
    expectIntegerKeysRoundTrip<unsigned long long>({0ull, 1ull, 0xFFFFFFFFull, 0x100000000ull, ~0ull});
}

// Traits of the user's own decide equality even for integer keys: 3 and 13 are one key
// here.
struct SLastDigit {
    static unsigned int hash(const unsigned int& key) { return key % 10; }
    static bool equal(const unsigned int& a, const unsigned int& b) { return a % 10 == b % 10; }
};

TEST_F(HashArrayTest, IntegerKeysWithTheirOwnTraitsCompareByThem)
{
    PAL::THashArray<unsigned int, CountedValue, SLastDigit> table;
    ASSERT_TRUE(table.insert(3, CountedValue(1)));
    ASSERT_TRUE(table.insert(13, CountedValue(2)));
    EXPECT_EQ(1u, table.size());
    ASSERT_NE(nullptr, table.find(23));
    EXPECT_EQ(2, table.find(23)->payload());
    EXPECT_TRUE(table.remove(33));
    EXPECT_EQ(0, CountedValue::live());
}

} // namespace
