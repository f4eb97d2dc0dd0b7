#include "morvex_pal_memory.h"
#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

using osal_kit_test::AllocationBalance;

namespace {

const char* const kComponent = "memtest";

void* allocate(unsigned int size, const char* label)
{
    return Morvex_PAL_zmalloc(size, kComponent, label, __FILE__, __LINE__);
}

void release(void* block)
{
    Morvex_PAL_zfree(block, __FILE__, __LINE__);
}

TEST(Memory, LookupTellsWhoAskedAndStatsArePerLabelComparedByContent)
{
    const int line = __LINE__ + 1;
    void* looked = Morvex_PAL_zmalloc(24, kComponent, "lookup", __FILE__, line);
    sMorvex_PAL_AllocInfo info{};
    ASSERT_EQ(Morvex_PAL_AllocLookup(looked, &info), 0);
    EXPECT_EQ(info.size, 24u);
    EXPECT_STREQ(info.component, kComponent);
    EXPECT_STREQ(info.label, "lookup");
    EXPECT_STREQ(info.sourcePath, __FILE__);
    EXPECT_EQ(info.line, line);
    release(looked);
    EXPECT_EQ(Morvex_PAL_AllocLookup(looked, &info), 1);

    static const char sameTextElsewhere[] = "alpha";
    AllocationBalance all(kComponent), alpha(kComponent, "alpha"), beta(kComponent, "beta");
    void* blocks[] = {allocate(10, "alpha"), allocate(20, sameTextElsewhere), allocate(0, "beta"), allocate(0, "beta")};
    EXPECT_EQ(alpha.liveBlocksDelta(), 2);
    EXPECT_EQ(alpha.liveBytesDelta(), 30);
    EXPECT_EQ(beta.liveBlocksDelta(), 2);
    EXPECT_EQ(all.allocationsSince(), 4u);
    EXPECT_NE(blocks[2], blocks[3]); // even 0-byte blocks are unique
    for (void* block : blocks)
        release(block);
    EXPECT_EQ(all.liveBlocksDelta(), 0);
    EXPECT_EQ(all.liveBytesDelta(), 0);
}

TEST(Memory, InterchangesWithMallocAndFree)
{
    AllocationBalance stale(kComponent, "stale");
    release(std::malloc(32));
    void* first = allocate(40, "stale");
    std::free(first);
    EXPECT_EQ(stale.liveBlocksDelta(), 1); // counted until the address comes back
    void* again = allocate(40, "stale");
    release(again);
    if (again != first)
        GTEST_SKIP() << "malloc did not hand the address out again (a sanitizer's quarantine?)";
    EXPECT_EQ(stale.liveBlocksDelta(), 0);
    EXPECT_EQ(stale.liveBytesDelta(), 0);
}

TEST(Memory, ConcurrentAllocationKeepsExactCounts)
{
    constexpr unsigned int kThreads = 4, kRounds = 3000;
    AllocationBalance balance(kComponent, "threads");
    std::vector<std::vector<void*>> kept(kThreads);
    std::vector<std::thread> threads;
    for (auto& blocks : kept) {
        threads.emplace_back([&blocks] {
            for (unsigned int i = 0; i < kRounds; ++i) {
                void* block = allocate(8u + i % 5u, "threads");
                i % 2u ? blocks.push_back(block) : release(block);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(balance.allocationsSince(), kThreads * kRounds);
    EXPECT_EQ(balance.liveBlocksDelta(), kThreads * kRounds / 2);
    for (auto& blocks : kept)
        for (void* block : blocks)
            release(block);
    EXPECT_EQ(balance.liveBlocksDelta(), 0);
    EXPECT_EQ(balance.liveBytesDelta(), 0);
}

// Neighbouring small blocks share runs of the record table; freeing from the middle
// of those runs must leave every other block findable with what it was given.
TEST(Memory, DenseNeighboursStayFindableWhileOthersAreFreed)
{
    constexpr unsigned int kBlocks = 40000;
    AllocationBalance balance(kComponent, "dense");
    std::vector<void*> blocks;
    for (unsigned int i = 0; i < kBlocks; ++i)
        blocks.push_back(Morvex_PAL_zmalloc(1u + i % 24u, kComponent, "dense", __FILE__, static_cast<int>(i)));
    for (unsigned int i = 0; i < kBlocks; i += 3)
        release(blocks[i]);
    unsigned int wrong = 0;
    for (unsigned int i = 0; i < kBlocks; ++i) {
        if (i % 3u == 0)
            continue;
        sMorvex_PAL_AllocInfo info{};
        if (Morvex_PAL_AllocLookup(blocks[i], &info) != 0 || info.size != 1u + i % 24u ||
            info.line != static_cast<int>(i))
            ++wrong;
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(balance.liveBlocksDelta(), kBlocks - (kBlocks + 2) / 3);
    for (unsigned int i = kBlocks; i-- > 0;)
        if (i % 3u != 0)
            release(blocks[i]);
    EXPECT_EQ(balance.liveBlocksDelta(), 0);
    EXPECT_EQ(balance.liveBytesDelta(), 0);
}

} // namespace
