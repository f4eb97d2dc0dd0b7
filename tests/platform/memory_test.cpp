#include "morvex_pal_memory.h"
#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
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

// Blocks change hands while every thread keeps allocating: each thread frees half of
// its blocks itself and hands the other half over, and takes handed blocks (often
// another thread's, while that thread's records grow) to look up and free. The
// counts, summed over the threads' own, match what is still handed over, and reach
// zero once a new thread frees the rest: its first call takes over the records one of
// the ended threads left behind.
TEST(Memory, BlocksFreedOnOtherThreadsKeepExactCounts)
{
    constexpr unsigned int kThreads = 4, kRounds = 3000;
    AllocationBalance balance(kComponent, "threads");
    std::mutex handedLock;
    std::vector<void*> handed;
    std::atomic<unsigned int> wrong(0);
    auto takeOne = [&] {
        std::lock_guard<std::mutex> lock(handedLock);
        void* block = handed.empty() ? nullptr : handed.back();
        if (block != nullptr)
            handed.pop_back();
        return block;
    };
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (unsigned int i = 0; i < kRounds; ++i) {
                void* block = allocate(8u + i % 5u, "threads");
                if (i % 2u == 0) {
                    release(block);
                    continue;
                }
                {
                    std::lock_guard<std::mutex> lock(handedLock);
                    handed.push_back(block);
                }
                if (i % 3u != 0)
                    continue;
                void* taken = takeOne();
                sMorvex_PAL_AllocInfo info{};
                if (Morvex_PAL_AllocLookup(taken, &info) != 0 || info.size < 8u || info.size > 12u)
                    ++wrong;
                release(taken);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_EQ(balance.allocationsSince(), kThreads * kRounds);
    EXPECT_EQ(balance.liveBlocksDelta(), static_cast<long long>(handed.size()));
    std::thread([&] {
        for (void* block : handed)
            release(block);
    }).join();
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
