// CHashArrayImpl: sizing, growth and shrinking, chains, iteration, copies, and every
// allocation failure.

#include "core/HashArrayImpl.h"

#include "support/AllocationBalance.h"
#include "support/FaultSweep.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

namespace {

using osal_kit_test::AllocationBalance;
using osal_kit_test::FaultGuard;
using osal_kit_test::failAllocationAfter;
using osal_kit_test::forEveryFailingAllocation;
using PAL::CHashArrayItem;
typedef std::uintptr_t Number;
typedef std::multiset<Number> Numbers;

void* ptr(Number n) { return reinterpret_cast<void*>(n); }
Number num(const void* p) { return reinterpret_cast<Number>(p); }

// Keys and values are numbers in the pointers; a key's value is key + 1000. The hash
// is the key's low 20 bits, so a test picks the buckets; the bit above is a tag that
// copies get when `tagCopies` is set, invisible to hashing and to `keysEqual`.
const Number TAG = Number(1) << 20;

class NumberTable : public PAL::CHashArrayImpl {
public:
    explicit NumberTable(unsigned int initialSize, int kind = 3) : CHashArrayImpl(initialSize), mKind(kind) { reserve(); }
    NumberTable(const NumberTable& other) : CHashArrayImpl(other), mKind(other.mKind) { reserve(); }
    NumberTable& operator=(const NumberTable& other)
    {
        CHashArrayImpl::operator=(other);
        return *this;
    }
    ~NumberTable() override { destroy(); }

    CHashArrayItem* add(Number key) { return fastInsert(ptr(key), ptr(key + 1000)); }
    CHashArrayItem* find(Number key) const { return lookup(ptr(key)); }
    bool erase(Number key) { return remove(ptr(key)); }
    unsigned int buckets() const { return mBucketCount; }
    CHashArrayItem* bucket(unsigned int i) const { return mpTable + i; }
    Numbers destroyedKeys() const { return Numbers(mDestroyed.begin(), mDestroyed.end()); }

    // The keys of bucket i's chain, from its head.
    std::vector<Number> chain(unsigned int i) const
    {
        std::vector<Number> keys;
        for (const CHashArrayItem* item = mpTable + i; item != &mEnd && item->next != nullptr; item = item->next)
            keys.push_back(num(item->key));
        return keys;
    }

    // Checks every chain's shape and returns what the buckets and the iteration hold.
    void contents(Numbers& walked, Numbers& iterated) const
    {
        for (unsigned int i = 0; i < mBucketCount; ++i) {
            for (Number key : chain(i)) {
                EXPECT_EQ(i, static_cast<unsigned int>(key % TAG) & mMask) << key << " is in the wrong bucket";
                walked.insert(key);
            }
        }
        for (CHashArrayItem* item = firstItem(); item != nullptr; item = nextItem(item))
            iterated.insert(num(*getKey(item)));
    }

    bool tagCopies = false;
    mutable unsigned int equalityCalls = 0;
    mutable unsigned int sentinelCalls = 0;
    unsigned int keyCopies = 0;

protected:
    unsigned int hashKey(void* key) const override { return static_cast<unsigned int>(num(key) % TAG); }
    int keyKind() const override { return mKind; }
    bool keysEqual(void* storedKey, void* key) const override
    {
        ++equalityCalls;
        sentinelCalls += storedKey == mEnd.key && storedKey == key;
        return num(storedKey) % TAG == num(key) % TAG;
    }
    void destroyKey(void* slot) override { mDestroyed.push_back(num(*static_cast<void**>(slot))); }
    void destroyValue(void* slot) override { EXPECT_EQ(mDestroyed.back() % TAG + 1000, num(*static_cast<void**>(slot)) % TAG); }
    void copyKey(void* slot) override
    {
        ++keyCopies;
        tag(slot);
    }
    void copyValue(void* slot) override { tag(slot); }

private:
    void tag(void* slot)
    {
        if (tagCopies) {
            *static_cast<void**>(slot) = ptr(num(*static_cast<void**>(slot)) | TAG);
        }
    }
    // Reserved up front: under fault injection the test's own allocations could fail.
    void reserve() { mDestroyed.reserve(8192); }

    int mKind;
    std::vector<Number> mDestroyed;
};

// The table holds exactly `expected`: found, walked and iterated once each, and counted.
void expectHolds(const NumberTable& table, const std::set<Number>& expected)
{
    Numbers walked, iterated;
    table.contents(walked, iterated);
    EXPECT_EQ(Numbers(expected.begin(), expected.end()), walked);
    EXPECT_EQ(walked, iterated);
    EXPECT_EQ(expected.size(), table.size());
    for (Number key : expected) {
        const CHashArrayItem* item = table.find(key);
        ASSERT_NE(nullptr, item) << key;
        EXPECT_EQ(key + 1000, num(item->value));
    }
}

TEST(HashArrayImplTest, StartsWithThePowerOfTwoNotBelowTheInitialSize)
{
    const struct {
        int line;
        unsigned int initialSize;
        unsigned int buckets;
    } rows[] = {{__LINE__, 0, 1}, {__LINE__, 1, 1}, {__LINE__, 5, 8}, {__LINE__, 1024, 1024}, {__LINE__, 1025, 2048}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        NumberTable table(row.initialSize);
        EXPECT_EQ(row.buckets, table.buckets());
        EXPECT_EQ(2 * row.buckets, table.capacity());
    }
}

TEST(HashArrayImplTest, DoublesWhenTheCountReachesTwiceTheBucketsReusingChainItems)
{
    NumberTable table(4);
    for (Number key = 0; key < 7; ++key) {
        ASSERT_NE(nullptr, table.add(key * 4));  // all in bucket 0, before and after
    }
    EXPECT_EQ(8u, table.capacity());
    AllocationBalance balance;
    ASSERT_NE(nullptr, table.add(3));  // lands in an empty bucket
    EXPECT_EQ(1u, balance.allocationsSince()) << "only the new bucket array";
    EXPECT_EQ(8u, table.buckets());
    EXPECT_EQ(16u, table.capacity());
    expectHolds(table, {0, 4, 8, 12, 16, 20, 24, 3});
}

TEST(HashArrayImplTest, OnlyTablesAboveOneThousandAndTwentyFourBucketsShrink)
{
    for (unsigned int initial : {2048u, 1024u}) {
        SCOPED_TRACE(initial);
        NumberTable table(initial);
        std::set<Number> stored;
        for (Number key = 0; key < 1025; ++key) {
            ASSERT_NE(nullptr, table.add(key));
            stored.insert(key);
        }
        ASSERT_TRUE(table.erase(1024));
        stored.erase(1024);
        EXPECT_EQ(1024u, table.buckets());
        for (Number key = 0; key < 1000; ++key) {
            ASSERT_TRUE(table.erase(key));
            stored.erase(key);
        }
        EXPECT_EQ(1024u, table.buckets());
        expectHolds(table, stored);
    }
}

TEST(HashArrayImplTest, ChainsKeepTheFirstItemInTheBucketAndLaterOnesNewestFirst)
{
    NumberTable table(4);
    for (Number key : {1, 5, 9})
        ASSERT_NE(nullptr, table.add(key));
    EXPECT_EQ((std::vector<Number>{1, 9, 5}), table.chain(1));
    EXPECT_EQ(table.bucket(1), table.find(1));

    ASSERT_TRUE(table.erase(1));  // the second item moves into the bucket
    EXPECT_EQ((std::vector<Number>{9, 5}), table.chain(1));
    expectHolds(table, {5, 9});
    ASSERT_TRUE(table.erase(5));
    ASSERT_TRUE(table.erase(9));
    EXPECT_EQ(nullptr, table.bucket(1)->next);
    EXPECT_FALSE(table.erase(9));
    EXPECT_EQ((Numbers{1, 5, 9}), table.destroyedKeys());

    // Pointers that are not items of this table are ignored.
    NumberTable other(4);
    ASSERT_NE(nullptr, other.add(1));
    ASSERT_NE(nullptr, table.add(1));
    table.removeItem(other.find(1));
    table.removeItem(nullptr);
    EXPECT_EQ(nullptr, table.insertAtPosition(other.bucket(2), ptr(2), ptr(1002)));
    expectHolds(table, {1});
}

TEST(HashArrayImplTest, KeyKindThreeComparesPointersAndOtherKindsAskKeysEqual)
{
    NumberTable byPointer(4, 3);
    NumberTable byEquality(4, 0);
    for (NumberTable* table : {&byPointer, &byEquality}) {
        for (Number key : {2, 6, 10})
            ASSERT_NE(nullptr, table->add(key));
    }
    EXPECT_EQ(nullptr, byPointer.find(6 | TAG));
    EXPECT_EQ(0u, byPointer.equalityCalls);
    ASSERT_NE(nullptr, byEquality.find(6 | TAG));
    EXPECT_EQ(nullptr, byEquality.find(14));
    EXPECT_EQ(6u, byEquality.equalityCalls);  // 2, 10, 6; then 2, 10, 6 again
    EXPECT_EQ(0u, byEquality.sentinelCalls);
    EXPECT_EQ(nullptr, byEquality.find(1));  // an empty bucket: nothing to compare
    EXPECT_EQ(6u, byEquality.equalityCalls);
}

TEST(HashArrayImplTest, IterationGoesBucketByBucketAndClearLeavesTwoEmptyBuckets)
{
    NumberTable table(8);
    for (Number key : {3, 11, 0, 19, 6, 8})
        ASSERT_NE(nullptr, table.add(key));
    std::vector<Number> order;
    for (CHashArrayItem* item = table.firstItem(); item != nullptr; item = table.nextItem(item))
        order.push_back(num(*table.getKey(item)));
    EXPECT_EQ((std::vector<Number>{0, 8, 3, 19, 11, 6}), order);

    table.clear();
    EXPECT_EQ(nullptr, table.firstItem());
    EXPECT_EQ(2u, table.buckets());
    EXPECT_EQ(0u, table.size());
    EXPECT_EQ(6u, table.destroyedKeys().size());
}

TEST(HashArrayImplTest, ACopyHoldsTheSourcesCopiesAndAssignmentUsesItsOwn)
{
    NumberTable source(4);
    for (Number key : {1, 5, 2})
        ASSERT_NE(nullptr, source.add(key));
    source.tagCopies = true;
    const NumberTable copy(source);
    EXPECT_EQ(6u, source.keyCopies);
    EXPECT_EQ(0u, copy.keyCopies);
    Numbers walked, iterated;
    copy.contents(walked, iterated);
    EXPECT_EQ((Numbers{1 | TAG, 2 | TAG, 5 | TAG}), walked);
    EXPECT_EQ(1005 | TAG, num(copy.find(5 | TAG)->value));

    NumberTable target(16);
    ASSERT_NE(nullptr, target.add(9));
    target = copy;
    EXPECT_EQ((Numbers{9}), target.destroyedKeys());
    EXPECT_EQ(3u, target.keyCopies - 1);
    EXPECT_EQ(4u, target.buckets());
    EXPECT_NE(nullptr, target.find(5 | TAG));
}

class HashArrayImplFaultTest : public ::testing::Test {
protected:
    FaultGuard faults;
};

TEST_F(HashArrayImplFaultTest, ATableWithoutBucketsFindsNothingAndStartsAgainOnInsert)
{
    failAllocationAfter(0);
    NumberTable table(8);
    EXPECT_EQ(0u, table.capacity());
    EXPECT_EQ(nullptr, table.find(1));
    EXPECT_EQ(nullptr, table.firstItem());
    EXPECT_FALSE(table.erase(1));
    failAllocationAfter(0);
    EXPECT_EQ(nullptr, table.add(1));
    EXPECT_EQ(0u, table.keyCopies) << "nothing is copied when there is nowhere to put it";

    ASSERT_NE(nullptr, table.add(1));
    EXPECT_EQ(2u, table.buckets());
    expectHolds(table, {1});
}

// Growth, chain items and the copies of a refused item, failing one by one.
TEST_F(HashArrayImplFaultTest, EveryFailingAllocationLeavesAnExactUsableTable)
{
    forEveryFailingAllocation([](unsigned int skip) {
        const Number keys = 150;
        std::vector<char> added(keys, 0);
        std::vector<char> removed(keys, 0);
        NumberTable table(2);
        failAllocationAfter(skip);
        for (Number key = 0; key < keys; ++key)
            added[key] = table.add(key * 3) != nullptr;
        for (Number key = 0; key < keys; key += 2)
            removed[key] = table.erase(key * 3);
        Morvex_Fault_DisarmAll();
        std::set<Number> stored;
        for (Number key = 0; key < keys; ++key) {
            EXPECT_EQ(added[key] && key % 2 == 0, removed[key] != 0) << key;
            if (added[key] && !removed[key]) {
                stored.insert(key * 3);
            }
        }
        expectHolds(table, stored);
        ASSERT_NE(nullptr, table.add(1u << 19)) << "usable again";
        table.destroy();
        const Numbers destroyed = table.destroyedKeys();
        EXPECT_EQ(table.keyCopies, destroyed.size());
        EXPECT_EQ(std::set<Number>(destroyed.begin(), destroyed.end()).size(), destroyed.size()) << "destroyed twice";
    });
}

TEST_F(HashArrayImplFaultTest, EveryFailingAllocationOfAShrinkKeepsEveryItem)
{
    forEveryFailingAllocation([](unsigned int skip) {
        NumberTable table(2048);
        std::set<Number> stored;
        for (Number key = 0; key < 1025; ++key) {
            const Number spread = key < 725 ? key : key + 299;  // halving merges buckets i and i + 1024, i < 300
            ASSERT_NE(nullptr, table.add(spread));
            stored.insert(spread);
        }
        failAllocationAfter(skip);
        ASSERT_TRUE(table.erase(700));
        stored.erase(700);
        Morvex_Fault_DisarmAll();
        expectHolds(table, stored);
    });
}

} // namespace
