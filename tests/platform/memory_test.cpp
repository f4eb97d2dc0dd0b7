#include "morvex_pal_memory.h"
#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

static const char kSameLabelElsewhere[] = "threads";

// Component and label change from block to block, one at a time.
static void* allocate(int i)
{
    return Morvex_PAL_zmalloc(i % 24u, i % 2 ? "memtest" : "memtest2", i / 2 % 2 ? "threads" : kSameLabelElsewhere,
                              "memory_test.cpp", i);
}

// Every thread hands its blocks over and mostly takes one back to check and free, often
// another thread's while that thread's records grow. A new thread, whose first call
// takes over the records an ended thread left behind, checks and frees the rest: every
// block is found as it was given, and the counts of the label (known by its text),
// summed over all threads, match what is handed over, then zero.
TEST(Memory, BlocksFreedOnOtherThreadsKeepExactCounts)
{
    constexpr int kThreads = 4, kRounds = 3000;
    osal_kit_test::AllocationBalance balance("memtest", "threads"), other("memtest2", "threads");
    std::mutex handedLock;
    std::vector<std::pair<void*, int>> handed; // a block and the line it was allocated with
    std::atomic<int> wrong(0);
    auto checkAndFree = [&](std::pair<void*, int> block) {
        sMorvex_PAL_AllocInfo info{};
        wrong += Morvex_PAL_AllocLookup(block.first, &info) != 0 || info.size != block.second % 24u || info.line != block.second ||
                 std::string(info.component) + info.label + info.sourcePath != (block.second % 2 ? "memtest" : "memtest2") +
                     std::string("threadsmemory_test.cpp");
        Morvex_PAL_zfree(block.first, __FILE__, __LINE__);
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t * kRounds; i < (t + 1) * kRounds; ++i) {
                std::pair<void*, int> block(allocate(i), i);
                std::unique_lock<std::mutex> lock(handedLock);
                handed.push_back(block);
                if (i % 3 == 0)
                    continue;
                const size_t at = size_t(i) * 7919u % handed.size();
                block = handed[at];
                handed[at] = handed.back();
                handed.pop_back();
                lock.unlock();
                checkAndFree(block);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(balance.allocationsSince() + other.allocationsSince(), unsigned(kThreads * kRounds));
    EXPECT_EQ(balance.liveBlocksDelta() + other.liveBlocksDelta(), static_cast<long long>(handed.size()));
    std::thread([&] {
        for (auto block : handed)
            checkAndFree(block);
    }).join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(std::make_pair(balance.liveBlocksDelta() + other.liveBlocksDelta(), balance.liveBytesDelta()), std::make_pair(0ll, 0ll));
}
