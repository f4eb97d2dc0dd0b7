// Jobs run one at a time in priority order on the queue's worker; each is deleted
// exactly once whatever happens to it; operations and failures leave trace records.
// Every failure of the platform in turn: the job queue's fault sweep.

#include "extensions/JobQueue.h"

#include "support/AllocationBalance.h"
#include "support/JobLedger.h"
#include "support/TraceExpect.h"

#include "msgqueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using osal_kit_test::ExpectedTrace;
using osal_kit_test::LedgerJob;
using PAL::CJobQueue;
using PAL::CSemaphore;

const PAL::CThread::ePriority kNormal = PAL::CThread::PRIORITY_NORMAL;
const unsigned int kInvalid = CJobQueue::JOB_ID_INVALID;
const ExpectedTrace kInfo = {0, nullptr, {}}, kError = {3, nullptr, {}};

// A job pointer as the insertion record shows it.
std::string hex(const void* job)
{
    char text[16];
    std::snprintf(text, sizeof text, "%X", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(job)));
    return text;
}

class JobQueueTest : public ::testing::Test {
protected:
    LedgerJob* job(int tag, CSemaphore* started = nullptr, CSemaphore* release = nullptr)
    {
        return new LedgerJob(ledger, tag, started, release);
    }
    // Deleted exactly once, after `runs` runs.
    void expectFate(int tag, int runs)
    {
        EXPECT_EQ(runs, ledger.entry(tag).runs) << "job " << tag;
        EXPECT_EQ(1, ledger.entry(tag).deletions) << "job " << tag;
    }
    std::vector<osal_kit_test::CapturedTrace> records() const
    {
        return osal_kit_test::recordsFrom(capture, "extensions/private/JobQueue.cpp");
    }

    osal_kit_test::FaultGuard faults;
    osal_kit_test::JobLedger ledger;
    osal_kit_test::TraceCapture capture;
};

// Ids count queued jobs, failed sends and flushes' signal jobs, not refused jobs; the
// records of each operation carry its values.
TEST_F(JobQueueTest, EveryOperationWritesItsRecordsAndIdsCountEverySend)
{
    CSemaphore running(0);
    LedgerJob *first = job(1), *refused = job(2), *failed = job(3), *last = job(4, &running);
    {
        CJobQueue queue(4, "jobs", PAL::CThread::PRIORITY_HIGH, true);
        EXPECT_EQ(1u, queue.Insert(first, 7));
        EXPECT_EQ(kInvalid, queue.Insert(nullptr, 0));
        EXPECT_EQ(1, queue.GetFillLevel());
        queue.AcceptJobs(false);
        EXPECT_EQ(kInvalid, queue.Insert(refused, -3));
        queue.AcceptJobs(true);
        osal_kit_test::failNext(MORVEX_FAULT_MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL);
        EXPECT_EQ(kInvalid, queue.Insert(failed, 0));
        EXPECT_TRUE(queue.Flush(true)); // deferred: deletes the job here, queues no signal job
        EXPECT_TRUE(queue.StartProcessing());
        EXPECT_TRUE(queue.StartProcessing());
        EXPECT_TRUE(queue.Flush(false));
        EXPECT_EQ(4u, queue.Insert(last, 0));
        EXPECT_TRUE(running.Wait()); // taken from the queue
        EXPECT_TRUE(queue.Flush(false));
    }
    const auto fill = [](const char* count) { return ExpectedTrace{0, "%s%d%d", {"jobs", count, "4"}}; };
    const auto sent = [](const char* id, const char* name) { return ExpectedTrace{0, "%s%u%s", {"jobs", id, name}}; };
    osal_kit_test::expectTraces(
        {{0, "%d%s%d", {"4", "jobs", "4"}}, {0, "%X%d", {hex(first), "7"}}, fill("0"), sent("1", "job1"),
         {0, "%X%d", {"0", "0"}}, kError, kInfo, {0, "%d", {"0"}}, {0, "%X%d", {hex(refused), "-3"}}, {0, "%d", {"1"}},
         {0, "%X%d", {hex(failed), "0"}}, fill("1"), sent("2", "job3"), {3, "%s%s", {"jobs", "job3"}},
         {0, "%d", {"1"}}, kInfo, kInfo, {0, "%d", {"0"}}, kInfo, fill("0"), sent("3", "SignalJob"), kInfo,
         {0, "%X%d", {hex(last), "0"}}, fill("0"), sent("4", "job4"), {0, "%d", {"0"}}, kInfo, fill("0"),
         sent("5", "SignalJob"), kInfo, kInfo},
        records());
    for (const auto& [tag, runs] : {std::pair{1, 0}, {2, 0}, {3, 0}, {4, 1}})
        expectFate(tag, runs);
    EXPECT_EQ(std::this_thread::get_id(), ledger.entry(1).deletedOn);
}

TEST_F(JobQueueTest, SmallerPrioritiesRunFirstAndEqualOnesInInsertionOrder)
{
    {
        CJobQueue queue(16, "jobs", kNormal, true);
        for (const auto& [tag, priority] : {std::pair{1, 5}, {2, -2}, {3, 5}, {4, 0}, {5, INT_MIN}, {6, INT_MAX}, {7, 0}})
            ASSERT_EQ(static_cast<unsigned int>(tag), queue.Insert(job(tag), priority));
        EXPECT_TRUE(queue.StartProcessing());
        EXPECT_TRUE(queue.Flush(false));
    }
    EXPECT_EQ((std::vector<int>{5, 2, 4, 7, 1, 3, 6}), ledger.runOrder());
    for (int tag = 1; tag <= 7; ++tag)
        EXPECT_EQ(static_cast<unsigned int>(tag), ledger.entry(tag).idWhenRun);
}

// The fill level before the insertion is traced, with a warning above 80 %; a full
// queue refuses the job at once (and its record's line tells it from other refusals).
TEST_F(JobQueueTest, InsertionsWarnAbove80PercentAndAFullQueueRefusesTheJobAtOnce)
{
    const struct {
        int line;
        unsigned int capacity, waiting;
        bool warning, full;
    } rows[] = {
        {__LINE__, 10, 8, false, false},
        {__LINE__, 10, 9, true, false},
        {__LINE__, 2, 2, true, true},
    };
    int fullLine = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CJobQueue queue(row.capacity, "jobs", kNormal, true);
        for (unsigned int i = 1; i <= row.waiting; ++i)
            ASSERT_EQ(i, queue.Insert(job(row.line * 100 + static_cast<int>(i)), 0));
        LedgerJob* last = job(row.line);
        const std::string name = "job" + std::to_string(row.line);
        const std::vector<std::string> fill = {"jobs", std::to_string(row.waiting), std::to_string(row.capacity)};
        std::vector<ExpectedTrace> expected = {{0, "%X%d", {hex(last), "1"}}, {0, "%s%d%d", fill}};
        if (row.warning)
            expected.push_back({2, "%s%d%d", fill});
        expected.push_back({0, "%s%u%s", {"jobs", std::to_string(row.waiting + 1), name}});
        if (row.full)
            expected.push_back({3, "%s%s", {"jobs", name}});
        capture.clear();
        EXPECT_EQ(row.full ? kInvalid : row.waiting + 1, queue.Insert(last, 1));
        EXPECT_EQ(row.full ? 1 : 0, ledger.entry(row.line).deletions);
        osal_kit_test::expectTraces(expected, records());
        fullLine = records().back().line;
    }
    CJobQueue queue(4, "jobs", kNormal, true);
    osal_kit_test::failNext(MORVEX_FAULT_MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL);
    EXPECT_EQ(kInvalid, queue.Insert(job(1), 0));
    EXPECT_NE(fullLine, records().back().line) << "a full queue is told from other refusals";
}

// A deferred queue holds its jobs until StartProcessing; Flush(false) runs them on a
// worker started for its own duration, Flush(true) deletes them on the calling thread.
TEST_F(JobQueueTest, ADeferredQueueHoldsItsJobsUntilStartedOrFlushed)
{
    for (int way = 0; way < 3; ++way) { // StartProcessing, Flush(false), Flush(true)
        SCOPED_TRACE(way);
        const int base = 10 * way;
        const unsigned long long threadsBefore = Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate);
        {
            CJobQueue queue(8, "jobs", kNormal, true);
            for (int tag = base; tag < base + 3; ++tag)
                ASSERT_NE(kInvalid, queue.Insert(job(tag), 0));
            EXPECT_EQ(3, queue.GetFillLevel());
            EXPECT_TRUE(way != 0 || queue.StartProcessing());
            EXPECT_TRUE(queue.Flush(way == 2));
            ASSERT_NE(kInvalid, queue.Insert(job(base + 3), 0));
            EXPECT_EQ(1, way == 1 ? queue.GetFillLevel() : 1) << "the flush's worker has stopped again";
            EXPECT_TRUE(way == 2 || queue.Flush(false));
        }
        EXPECT_EQ(way == 2 ? 0u : way + 1u, Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) - threadsBefore);
        for (int tag = base; tag < base + 4; ++tag)
            expectFate(tag, way == 2 ? 0 : 1);
        EXPECT_EQ(way == 2, std::this_thread::get_id() == ledger.entry(base).deletedOn);
    }
}

// Signals a semaphore when a flush traces the queueing of its signal job, by which time
// it has switched the queue to discarding.
void signalWhenSignalJobQueued(const sMorvex_TraceRecord* record, void* semaphore)
{
    if (record->valueCount == 3 && std::strcmp(record->values[2], "SignalJob") == 0)
        static_cast<CSemaphore*>(semaphore)->Signal();
}

// A job already running when a discarding flush begins finishes normally; the waiting
// ones are deleted unrun, and discarding ends with the flush.
TEST_F(JobQueueTest, ADiscardingFlushLetsTheRunningJobFinishAndDeletesTheWaitingOnes)
{
    CSemaphore started(0), release(0);
    CJobQueue queue(8, "jobs", kNormal, false);
    ASSERT_EQ(1u, queue.Insert(job(1, &started, &release), 0));
    ASSERT_TRUE(started.Wait());
    ASSERT_EQ(2u, queue.Insert(job(2), 0));
    ASSERT_EQ(3u, queue.Insert(job(3), 9));
    Morvex_TraceOut_SetSink(&signalWhenSignalJobQueued, &release);
    EXPECT_TRUE(queue.Flush(true));
    Morvex_TraceOut_SetSink(nullptr, nullptr);
    ASSERT_EQ(5u, queue.Insert(job(5), 0));
    EXPECT_TRUE(queue.Flush(false));
    for (const auto& [tag, runs] : {std::pair{1, 1}, {2, 0}, {3, 0}, {5, 1}})
        expectFate(tag, runs);
}

// Producers insert and flush (discarding or not) at the same time: every job is deleted
// exactly once, none runs twice, each producer's flush has seen its own jobs through,
// and the jobs of one producer and priority run in the order inserted.
TEST_F(JobQueueTest, ConcurrentProducersAndFlushesLoseNothingAndKeepOrder)
{
    constexpr int kProducers = 4, kJobs = 150, kPriorities = 3;
    std::atomic<int> unfinished{0};
    std::vector<std::vector<int>> accepted(kProducers);
    {
        CJobQueue queue(32, "jobs", kNormal, false);
        std::vector<std::thread> producers;
        for (int p = 0; p < kProducers; ++p) {
            producers.emplace_back([&, p] {
                for (int i = 0; i < kJobs; ++i) {
                    if (queue.Insert(job(p * 1000 + i), i % kPriorities) != kInvalid)
                        accepted[p].push_back(p * 1000 + i);
                    if (i % 25 == 24 && !queue.Flush((i / 25 + p) % 2 == 0))
                        ++unfinished;
                    for (int done : i % 25 == 24 ? accepted[p] : std::vector<int>())
                        unfinished += ledger.entry(done).deletions == 1 ? 0 : 1;
                }
            });
        }
        for (std::thread& producer : producers)
            producer.join();
    }
    EXPECT_EQ(0, unfinished.load());
    std::map<int, int> lastRun; // by producer and priority
    for (int tag : ledger.runOrder()) {
        EXPECT_LT(lastRun.emplace(tag / 1000 * 10 + tag % 1000 % kPriorities, -1).first->second, tag % 1000);
        lastRun[tag / 1000 * 10 + tag % 1000 % kPriorities] = tag % 1000;
    }
    for (int tag = 0; tag < kProducers * 1000; tag += tag % 1000 == kJobs - 1 ? 1000 - kJobs + 1 : 1) {
        EXPECT_EQ(1, ledger.entry(tag).deletions) << tag;
        EXPECT_GE(1, ledger.entry(tag).runs) << tag;
    }
}

} // namespace
