// What happened to each of a few numbered work items (jobs, tasks) in one run of a
// fault sweep: how often each ran, was aborted and was deleted. Fixed arrays of
// atomics, so recording allocates nothing and works from any thread.
#ifndef OSAL_KIT_TEST_SUPPORT_SWEEPLEDGER_H
#define OSAL_KIT_TEST_SUPPORT_SWEEPLEDGER_H

#include <gtest/gtest.h>

#include <array>
#include <atomic>

namespace osal_kit_test {

class SweepLedger {
public:
    static const int CAPACITY = 16;

    void ran(int item) { ++runs_[index(item)]; }
    void aborted(int item) { ++aborts_[index(item)]; }
    void deleted(int item) { ++deletions_[index(item)]; }

    int runs(int item) const { return runs_[index(item)]; }
    int deletions(int item) const { return deletions_[index(item)]; }

    // Items 0 .. count-1 were each deleted exactly once and run at most once.
    void expectEachDeletedOnce(int count) const
    {
        for (int item = 0; item < count; ++item) {
            EXPECT_EQ(1, deletions(item)) << "deletions of item " << item;
            EXPECT_GE(1, runs(item)) << "runs of item " << item;
        }
    }

private:
    static int index(int item) { return item >= 0 && item < CAPACITY ? item : CAPACITY - 1; }

    std::array<std::atomic<int>, CAPACITY> runs_{};
    std::array<std::atomic<int>, CAPACITY> aborts_{};
    std::array<std::atomic<int>, CAPACITY> deletions_{};
};

} // namespace osal_kit_test

#endif
