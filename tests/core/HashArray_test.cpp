// THashArray: owned keys and values, each destroyed exactly once, through growth,
// shrinking, copies and allocations that fail; the address find gives stays put.

#include "core/HashArray.h"

#include "support/CountedValue.h"
#include "support/FaultSweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <random>
#include <set>
#include <string>

namespace {

using osal_kit_test::CountedValue;
using osal_kit_test::failAllocationAfter;
using PAL::CString;
typedef std::map<std::string, int> Contents;

class HashArrayTest : public osal_kit_test::CountedValueTest {};

std::string text(const CString& key) { return key.getBuffer(); }
template <typename K> std::string text(K key) { return std::to_string(key); }
int payload(const CountedValue& value) { return value.payload(); }
int payload(int value) { return value; }

template <typename K, typename V, typename T>
Contents contentsOf(const PAL::THashArray<K, V, T>& table)
{
    Contents contents;
    table.forEach([&](const K& key, const V& value) {
        EXPECT_TRUE(contents.emplace(text(key), payload(value)).second) << "visited twice: " << text(key);
    });
    EXPECT_EQ(contents.size(), table.size());
    return contents;
}

bool isPartOf(const Contents& part, const Contents& whole)
{
    return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

// The capacity is twice the power of two not below the initial size, doubling when the
// count reaches it; only tables of more than 1024 buckets shrink, by half when the count
// falls to half the buckets.
TEST_F(HashArrayTest, CapacityFollowsTheCountAndOnlyLargeTablesShrink)
{
    const unsigned int rows[][5] = { // line, initial size, keys inserted, keys removed, capacity
        {__LINE__, 0, 0, 0, 2}, {__LINE__, 5, 0, 0, 16}, {__LINE__, 1025, 0, 0, 4096}, {__LINE__, 4, 7, 0, 8},
        {__LINE__, 4, 8, 0, 16}, {__LINE__, 16, 10, 9, 32}, {__LINE__, 1024, 1025, 1000, 2048},
        {__LINE__, 2048, 1025, 0, 4096}, {__LINE__, 2048, 1025, 1, 2048},
    };
    for (const auto& [line, initial, inserted, removed, capacity] : rows) {
        PAL::THashArray<unsigned int, int> table(initial);
        for (unsigned int key = 0; key < inserted; ++key)
            table.insert(key, 0);
        for (unsigned int key = 0; key < removed; ++key)
            table.remove(key);
        EXPECT_EQ(capacity, table.capacity()) << "row of line " << line;
    }
}

// Random inserts, removals, copies and clears against a std::map, from a table made
// without buckets, some of them meeting a failing allocation: a refused insert changes nothing, a copy holds part of its source,
// and the table grows past 1024 buckets and shrinks again. Keys share buckets (the hash
// of an integer is its value).
TEST_F(HashArrayTest, EditsMatchAPlainModelAndKeepTheirValuesInPlace)
{
    std::mt19937 random(7u);
    auto below = [&](unsigned int n) { return static_cast<unsigned int>(random() % n); };
    failAllocationAfter(0); // a table whose buckets could not be made starts again at its first insert
    PAL::THashArray<unsigned int, CountedValue> table(2);
    Morvex_Fault_DisarmAll();
    Contents model;
    std::map<unsigned int, const CountedValue*> addresses;
    unsigned int largest = 0;
    for (int step = 0; step < 12000; ++step) {
        const unsigned int key = below(4000) * 5, op = below(20);
        const bool failing = below(8) == 0, present = model.count(text(key)) != 0;
        if (failing)
            failAllocationAfter(below(3));
        if (op == 0 && below(5) == 0) {
            PAL::THashArray<unsigned int, CountedValue> copy(table), assigned(4);
            assigned = table;
            Morvex_Fault_DisarmAll();
            ASSERT_TRUE(isPartOf(contentsOf(copy), model) && isPartOf(contentsOf(assigned), model)) << step;
            ASSERT_TRUE(failing || (copy.size() == table.size() && assigned.size() == table.size()));
        } else if (step == 10000) {
            table.clear(), model.clear(), addresses.clear();
        } else if (op < (step < 6000 ? 16u : 4u)) {
            const bool inserted = table.insert(key, CountedValue(step));
            Morvex_Fault_DisarmAll();
            ASSERT_TRUE(inserted || (failing && !present)) << step;
            if (inserted)
                model[text(key)] = step, addresses.emplace(key, table.find(key));
        } else {
            const bool removed = table.remove(key);
            Morvex_Fault_DisarmAll();
            ASSERT_EQ(present, removed) << step;
            model.erase(text(key)), addresses.erase(key);
            ASSERT_FALSE(table.contains(key));
        }
        Morvex_Fault_DisarmAll();
        ASSERT_EQ(model.size(), table.size());
        ASSERT_EQ(static_cast<long>(model.size()), CountedValue::live());
        ASSERT_TRUE(model.count(text(key)) == 0 || addresses.at(key) == table.find(key)) << "moved at step " << step;
        ASSERT_TRUE(step % 500 != 0 || model == contentsOf(table)) << step;
        largest = std::max(largest, table.capacity());
    }
    EXPECT_EQ(model, contentsOf(table));
    EXPECT_GE(largest, 4096u);
    EXPECT_LT(table.capacity(), largest);
}

// Keys are the table's own copies; integer keys with the default traits are seen and
// found as given, negative and 64-bit ones included; traits of the user's own decide
// equality (3 and 13 are one key by their last digit).
template <typename K, typename T = PAL::THashKeyTraits<K>>
Contents roundTrip(std::initializer_list<K> keys)
{
    PAL::THashArray<K, int, T> table(2);
    int i = 0;
    for (K key : keys)
        EXPECT_TRUE(table.insert(key, i++) && table.find(key) != nullptr) << text(key);
    return contentsOf(table);
}
struct SLastDigit {
    static unsigned int hash(const unsigned int& key) { return key % 10; }
    static bool equal(const unsigned int& a, const unsigned int& b) { return a % 10 == b % 10; }
};

TEST_F(HashArrayTest, KeysAreOwnedCopiesComparedByTheirTraits)
{
    EXPECT_EQ((Contents{{"-1", 0}, {"0", 1}, {"-2147483648", 2}, {"2147483647", 3}}), roundTrip<int>({-1, 0, INT_MIN, INT_MAX}));
    EXPECT_EQ((Contents{{"4294967295", 0}, {"4294967296", 1}, {"18446744073709551615", 2}}),
              roundTrip<unsigned long long>({0xFFFFFFFFull, 0x100000000ull, ~0ull}));
    EXPECT_EQ((Contents{{"3", 1}}), (roundTrip<unsigned int, SLastDigit>({3, 13})));
    CString key("alpha");
    PAL::THashArray<CString, int> table;
    ASSERT_TRUE(table.insert(key, 1));
    key = "beta";
    EXPECT_EQ((Contents{{"alpha", 1}}), contentsOf(table));
}

// An engine subclass of its own, keys the numbers in the fields, hashed by their value:
// the engine's own copy and assignment take every chain; growth makes nothing but the
// new bucket array.
class NumberTable : public PAL::CHashArrayImpl {
public:
    using CHashArrayImpl::CHashArrayImpl;
    using CHashArrayImpl::fastInsert;
    ~NumberTable() override
    {
        if (!leaveItemsToTheEngine)
            destroy();
    }
    bool leaveItemsToTheEngine = false; // nothing to destroy per item: the engine frees the rest
    std::set<std::uintptr_t> keys() const
    {
        std::set<std::uintptr_t> keys;
        for (PAL::CHashArrayItem* item = firstItem(); item != nullptr; item = nextItem(item))
            keys.insert(reinterpret_cast<std::uintptr_t>(item->key));
        return keys;
    }

protected:
    unsigned int hashKey(void* key) const override { return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(key)); }
    int keyKind() const override { return 3; }
    bool keysEqual(void* storedKey, void* key) const override { return storedKey == key; }
    void destroyKey(void*) override {}
    void destroyValue(void*) override {}
    void copyKey(void*) override {}
    void copyValue(void*) override {}
};

TEST_F(HashArrayTest, AnEngineOfItsOwnCopiesEveryChainAndGrowsByItsBucketArrayAlone)
{
    NumberTable table(4), assigned(2);
    for (std::uintptr_t key = 0; key < 7; ++key)
        ASSERT_NE(nullptr, table.fastInsert(reinterpret_cast<void*>(key * 4), nullptr));
    osal_kit_test::AllocationBalance balance;
    ASSERT_NE(nullptr, table.fastInsert(reinterpret_cast<void*>(3), nullptr));
    EXPECT_EQ(1u, balance.allocationsSince());
    const NumberTable copy(table);
    assigned = table;
    EXPECT_EQ((std::set<std::uintptr_t>{0, 3, 4, 8, 12, 16, 20, 24}), table.keys());
    EXPECT_EQ(table.keys(), copy.keys());
    EXPECT_EQ(table.keys(), assigned.keys());
    for (std::uintptr_t key : {4, 3, 24, 5})
        EXPECT_EQ(key != 5, table.remove(reinterpret_cast<void*>(key))) << key;
    EXPECT_EQ((std::set<std::uintptr_t>{0, 8, 12, 16, 20}), table.keys());
    assigned.clear();
    EXPECT_EQ(std::set<std::uintptr_t>{9}, (assigned.fastInsert(reinterpret_cast<void*>(9), nullptr), assigned.keys()));
    assigned.leaveItemsToTheEngine = true;
}

} // namespace
