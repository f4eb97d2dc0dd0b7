// THashArray: owned keys and values, each destroyed exactly once, through growth,
// shrinking, copies and allocations that fail; the address find gives stays put. And
// the engine under it, used directly by a subclass of its own.

#include "core/HashArray.h"

#include "support/CountedValue.h"
#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using osal_kit_test::CountedValue;
using osal_kit_test::failAllocationAfter;
typedef std::map<std::string, int> Contents;

class HashArrayTest : public osal_kit_test::CountedValueTest {};

std::string text(const PAL::CString& key) { return key.getBuffer(); }
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

// The capacity is twice the power of two not below the initial size, doubling when the
// count reaches it; only tables of more than 1024 buckets shrink, by half when the count
// falls to half the buckets. A size whose buckets cannot be had gives a table without
// any until its first insert.
TEST_F(HashArrayTest, CapacityFollowsTheCountAndOnlyLargeTablesShrink)
{
    const unsigned int rows[][5] = { // line, initial size, keys inserted, keys removed, capacity
        {__LINE__, 0, 0, 0, 2}, {__LINE__, 5, 0, 0, 16}, {__LINE__, 1025, 0, 0, 4096}, {__LINE__, 4, 7, 0, 8},
        {__LINE__, 4, 8, 0, 16}, {__LINE__, 16, 10, 9, 32}, {__LINE__, 1024, 1025, 1000, 2048},
        {__LINE__, 2048, 1025, 0, 4096}, {__LINE__, 2048, 1025, 1, 2048}, {__LINE__, UINT_MAX, 0, 0, 0},
        {__LINE__, UINT_MAX, 1, 0, 4},
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
// without buckets, some of them meeting a failing allocation: a refused insert changes
// nothing, a copy holds part of its source, and the table grows past 1024 buckets and
// shrinks again. Keys share buckets (the hash of an integer is its value).
TEST_F(HashArrayTest, EditsMatchAPlainModelAndKeepTheirValuesInPlace)
{
    std::mt19937 random(7u);
    auto below = [&](unsigned int n) { return static_cast<unsigned int>(random() % n); };
    failAllocationAfter(0);
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
            for (const Contents& part : {contentsOf(copy), contentsOf(assigned)})
                ASSERT_TRUE(std::includes(model.begin(), model.end(), part.begin(), part.end())) << step;
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
            ASSERT_TRUE(present == removed && !table.contains(key)) << step;
            model.erase(text(key)), addresses.erase(key);
        }
        Morvex_Fault_DisarmAll();
        ASSERT_TRUE(model.size() == table.size() && static_cast<long>(model.size()) == CountedValue::live()) << step;
        ASSERT_TRUE(model.count(text(key)) == 0 || addresses.at(key) == table.find(key)) << "moved at step " << step;
        ASSERT_TRUE(step % 500 != 0 || model == contentsOf(table)) << step;
        largest = std::max(largest, table.capacity());
    }
    EXPECT_TRUE(model == contentsOf(table) && largest >= 4096u && table.capacity() < largest);
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
    PAL::CString key("alpha");
    PAL::THashArray<PAL::CString, int> table;
    ASSERT_TRUE(table.insert(key, 1));
    key = "beta";
    EXPECT_EQ((Contents{{"alpha", 1}}), contentsOf(table));
}

// The engine with keys that are the numbers in the fields, hashed by their value;
// `kind` 0 has it compare them through keysEqual. Nothing to destroy per item: the
// engine's destructor frees the rest.
struct NumberTable : PAL::CHashArrayImpl {
    using CHashArrayImpl::CHashArrayImpl;
    int kind = 3;
    static void* field(std::uintptr_t key) { return reinterpret_cast<void*>(key); }
    PAL::CHashArrayItem* add(std::uintptr_t key) { return fastInsert(field(key), nullptr); }
    PAL::CHashArrayItem* at(std::uintptr_t key) const { return lookup(field(key)); }
    std::set<std::uintptr_t> keys() const
    {
        std::set<std::uintptr_t> keys;
        for (PAL::CHashArrayItem* item = firstItem(); item != nullptr; item = nextItem(item))
            keys.insert(reinterpret_cast<std::uintptr_t>(*getKey(item)));
        EXPECT_EQ(keys.size(), size());
        return keys;
    }

protected:
    unsigned int hashKey(void* key) const override { return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(key)); }
    int keyKind() const override { return kind; }
    bool keysEqual(void* storedKey, void* key) const override { return storedKey == key; }
    void destroyKey(void*) override {}
    void destroyValue(void*) override {}
    void copyKey(void*) override {}
    void copyValue(void*) override {}
};
typedef std::set<std::uintptr_t> Keys;

// Seven keys of bucket 0 and then 3 grow a table of four buckets to eight, making
// nothing but the new bucket array (0, 8, 16, 24 stay in bucket 0; 20, 4, 12 move to
// bucket 4, one chain item kept over). Each row works on that table or on one of three
// heads (1, 2, 3 in eight buckets), or on one whose buckets could not be had: what is
// not in the table is refused and leaves it as it was; shrinking gets every chain item
// it needs before it moves anything.
TEST_F(HashArrayTest, TheEngineUsedDirectlyRefusesWhatItDoesNotHold)
{
    const std::vector<std::uintptr_t> grown{0, 4, 8, 12, 16, 20, 24, 3}, heads{1, 2, 3};
    const Keys eight(grown.begin(), grown.end()), three(heads.begin(), heads.end());
    const struct { int line; const std::vector<std::uintptr_t>& start; bool (*change)(NumberTable&); Keys keys; unsigned int capacity; } rows[] = {
        {__LINE__, grown, [](NumberTable& t) { return t.remove(t.field(4)) && t.remove(t.field(3)) && t.remove(t.field(24))
                                                    && !t.remove(t.field(5)); }, {0, 8, 12, 16, 20}, 16},
        {__LINE__, grown, [](NumberTable& t) { return (t.kind = 0, t.at(28) == nullptr && t.at(8) != nullptr); }, eight, 16},
        {__LINE__, grown, [](NumberTable& t) { return t.nextItem(t.at(24)) == t.at(3); }, eight, 16}, // 24 ends its chain
        {__LINE__, grown, [](NumberTable& t) { // the chain item kept over from the growth is all it needs
             const osal_kit_test::AllocationBalance balance;
             return t.rehash(2), t.at(3) != nullptr && balance.allocationsSince() == 1;
         }, eight, 4},
        {__LINE__, grown, [](NumberTable& t) { return t.clear(), t.add(9) != nullptr; }, {9}, 4},
        {__LINE__, grown, [](NumberTable& t) { return t.init(8), t.firstItem() == nullptr; }, {}, 16},
        {__LINE__, grown, [](NumberTable& t) { return t = *&t, true; }, eight, 16},
        {__LINE__, grown, [](NumberTable& t) {
             NumberTable other(8);
             other.add(5), other.add(40);
             t.removeItem(other.at(5)), t.removeItem(other.at(40)), t.removeItem(nullptr);
             return !t.insertAtPosition(nullptr, t.field(1), nullptr) && !t.insertAtPosition(other.at(5), t.field(1), nullptr);
         }, eight, 16},
        {__LINE__, grown, [](NumberTable& t) { // the copy's second chain item finds no memory
             failAllocationAfter(2);
             const NumberTable copy(t);
             Morvex_Fault_DisarmAll();
             NumberTable assigned(2);
             assigned = t;
             return copy.keys() == Keys{0, 3, 4, 8, 12, 20, 24} && NumberTable(t).keys() == t.keys() && assigned.keys() == t.keys();
         }, eight, 16},
        {__LINE__, heads, [](NumberTable& t) { // 3 lands behind 1: one chain item besides the array
             const osal_kit_test::AllocationBalance balance;
             return t.rehash(2), t.at(1) != nullptr && balance.allocationsSince() == 2;
         }, three, 4},
        {__LINE__, heads, [](NumberTable& t) { return failAllocationAfter(1), t.rehash(2), t.rehash(0x80000000u), true; }, three, 16},
        {__LINE__, heads, [](NumberTable& t) {
             PAL::CHashArrayItem item{};
             t.init(UINT_MAX);
             NumberTable copy(t), assigned(8);
             assigned = t;
             t.rehash(8), t.removeItem(&item);
             failAllocationAfter(0);
             const bool refused = t.add(1) == nullptr;
             Morvex_Fault_DisarmAll();
             return refused && copy.keys().empty() && assigned.keys().empty() && t.tableEntryFor(t.field(1)) == nullptr
                 && !t.at(1) && !t.remove(t.field(1)) && !t.firstItem() && !t.nextItem(&item);
         }, {}, 0},
    };
    for (const auto& row : rows) { // growth makes nothing but the new array: 6 chain items and 1 array
        NumberTable table(row.start.size() == 8 ? 4 : 8);
        const osal_kit_test::AllocationBalance balance;
        for (std::uintptr_t key : row.start)
            ASSERT_NE(nullptr, table.add(key));
        EXPECT_EQ(row.start.size() == 8 ? 7u : 0u, balance.allocationsSince());
        EXPECT_TRUE(row.change(table)) << "row of line " << row.line;
        Morvex_Fault_DisarmAll();
        EXPECT_TRUE(table.keys() == row.keys && table.capacity() == row.capacity) << "row of line " << row.line;
    }
}

} // namespace
