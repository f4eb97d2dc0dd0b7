// Jobs run one at a time in priority order on the queue's worker; each is deleted
// exactly once whatever happens to it; operations and failures leave trace records.
// Every failure of the platform in turn: the job queue's fault sweep.

#include "extensions/JobQueue.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include "msgqueue.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace {

using osal_kit_test::ExpectedTrace;
using PAL::CJobQueue;
using PAL::CSemaphore;

const PAL::CThread::ePriority kNormal = PAL::CThread::PRIORITY_NORMAL;
const unsigned int kInvalid = CJobQueue::JOB_ID_INVALID;
const ExpectedTrace kInfo = {0, nullptr, {}};

// What happened to each job, by tag, and the order the jobs ran in; jobs report from
// the worker, so every access is locked.
struct Ledger {
    struct Entry {
        int runs = 0, deletions = 0;
        std::thread::id deletedOn;
    };
    Entry entry(int tag)
    {
        std::lock_guard<std::mutex> lock(mutex);
        return entries[tag];
    }
    std::vector<int> runOrder()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return order;
    }
    std::mutex mutex;
    std::map<int, Entry> entries;
    std::vector<int> order;
};

// A job named "job<tag>"; with `started` its Run signals that first, with `release` it
// then waits for that one.
struct LedgerJob : CJobQueue::CJob {
    LedgerJob(Ledger& l, int t, CSemaphore* s, CSemaphore* r)
        : CJob(("job" + std::to_string(t)).c_str()), ledger(l), tag(t), started(s), release(r)
    {
    }
    ~LedgerJob() override
    {
        std::lock_guard<std::mutex> lock(ledger.mutex);
        ++ledger.entries[tag].deletions;
        ledger.entries[tag].deletedOn = std::this_thread::get_id();
    }
    void Run() override
    {
        if (started != nullptr)
            started->Signal();
        if (release != nullptr)
            release->Wait();
        std::lock_guard<std::mutex> lock(ledger.mutex);
        ++ledger.entries[tag].runs;
        ledger.order.push_back(tag);
    }
    Ledger& ledger;
    int tag;
    CSemaphore *started, *release;
};

class JobQueueTest : public ::testing::Test {
protected:
    LedgerJob* job(int tag, CSemaphore* started = nullptr, CSemaphore* release = nullptr)
    {
        return new LedgerJob(ledger, tag, started, release);
    }
    // Each job deleted exactly once, after as many runs as its tag says: {tag, runs}.
    void expectFates(std::initializer_list<std::pair<int, int>> fates)
    {
        for (const auto& [tag, runs] : fates) {
            EXPECT_EQ(runs, ledger.entry(tag).runs) << "job " << tag;
            EXPECT_EQ(1, ledger.entry(tag).deletions) << "job " << tag;
        }
    }
    std::vector<osal_kit_test::CapturedTrace> records() const
    {
        return osal_kit_test::recordsFrom(capture, "extensions/private/JobQueue.cpp");
    }

    osal_kit_test::FaultGuard faults;
    Ledger ledger;
    osal_kit_test::TraceCapture capture;
};

// The pointer in the insertion record as "%X" shows it.
std::string hex(const void* job)
{
    char text[16];
    std::snprintf(text, sizeof text, "%X", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(job)));
    return text;
}

// Ids count queued jobs, failed sends and flushes' signal jobs, not refused jobs; each
// operation's records carry its values. The fill level before an insertion is traced,
// with a warning above 80 %; a full queue refuses the job at once.
TEST_F(JobQueueTest, EveryOperationWritesItsRecordsAndIdsCountEverySend)
{
    CSemaphore running(0);
    LedgerJob *first = job(1), *refused = job(2), *failed = job(3), *last = job(4, &running);
    std::vector<LedgerJob*> waiting = {job(5), job(6), job(7), job(8), job(9)};
    {
        CJobQueue queue(5, "jobs", PAL::CThread::PRIORITY_HIGH, true);
        EXPECT_EQ(1u, queue.Insert(first, 7));
        EXPECT_EQ(kInvalid, queue.Insert(nullptr, 0));
        EXPECT_EQ(1, queue.GetFillLevel());
        queue.AcceptJobs(false);
        EXPECT_EQ(kInvalid, queue.Insert(refused, -3));
        queue.AcceptJobs(true);
        osal_kit_test::failNext(MORVEX_FAULT_MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL);
        EXPECT_EQ(kInvalid, queue.Insert(failed, 0));
        for (unsigned int i = 0; i < waiting.size(); ++i)
            EXPECT_EQ(i < 4 ? i + 3 : kInvalid, queue.Insert(waiting[i], 0)); // the last finds the queue full
        EXPECT_EQ(1, ledger.entry(9).deletions);
        EXPECT_TRUE(queue.Flush(true)); // deferred: deletes the jobs here, queues no signal job
        EXPECT_TRUE(queue.StartProcessing() && queue.StartProcessing());
        EXPECT_TRUE(queue.Flush(false));
        EXPECT_EQ(9u, queue.Insert(last, 0));
        EXPECT_TRUE(running.Wait()); // taken from the queue before the flush reads its fill level
        EXPECT_TRUE(queue.Flush(false));
    }
    auto fill = [](int level, int count) { return ExpectedTrace{level, "%s%d%d", {"jobs", std::to_string(count), "5"}}; };
    auto sent = [](int id, const char* name) { return ExpectedTrace{0, "%s%u%s", {"jobs", std::to_string(id), name}}; };
    std::vector<ExpectedTrace> expected = {
        {0, "%d%s%d", {"5", "jobs", "4"}}, {0, "%X%d", {hex(first), "7"}}, fill(0, 0), sent(1, "job1"),
        {0, "%X%d", {"0", "0"}}, {3, nullptr, {}}, kInfo, {0, "%d", {"0"}}, {0, "%X%d", {hex(refused), "-3"}},
        {0, "%d", {"1"}}, {0, "%X%d", {hex(failed), "0"}}, fill(0, 1), sent(2, "job3"), {3, "%s%s", {"jobs", "job3"}}};
    for (int i = 0; i < 5; ++i) {
        expected.insert(expected.end(), {{0, "%X%d", {hex(waiting[i]), "0"}}, fill(0, i + 1)});
        if (i == 4)
            expected.push_back(fill(2, 5));
        expected.push_back(sent(i + 3, ("job" + std::to_string(i + 5)).c_str()));
    }
    expected.push_back({3, "%s%s", {"jobs", "job9"}});
    expected.insert(expected.end(), {{0, "%d", {"1"}}, kInfo, kInfo, {0, "%d", {"0"}}, kInfo, fill(0, 0),
                                     sent(8, "SignalJob"), kInfo, {0, "%X%d", {hex(last), "0"}}, fill(0, 0),
                                     sent(9, "job4"), {0, "%d", {"0"}}, kInfo, fill(0, 0), sent(10, "SignalJob"),
                                     kInfo, kInfo});
    osal_kit_test::expectTraces(expected, records());
    expectFates({{1, 0}, {2, 0}, {3, 0}, {4, 1}, {5, 0}, {6, 0}, {7, 0}, {8, 0}, {9, 0}});
    EXPECT_EQ(std::this_thread::get_id(), ledger.entry(1).deletedOn);
}

// A deferred queue holds its jobs until StartProcessing; Flush(false) runs them on a
// worker started for its own duration, Flush(true) deletes them on the calling thread.
// Smaller priorities run first, equal ones in the order inserted.
TEST_F(JobQueueTest, ADeferredQueueHoldsItsJobsUntilStartedOrFlushed)
{
    for (int way = 0; way < 3; ++way) { // StartProcessing, Flush(false), Flush(true)
        const int base = 10 * way;
        const unsigned long long threadsBefore = Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate);
        {
            CJobQueue queue(8, "jobs", kNormal, true);
            for (const auto& [tag, priority] : {std::pair{0, 5}, {1, -2}, {2, 5}, {3, INT_MIN}, {4, INT_MAX}})
                ASSERT_NE(kInvalid, queue.Insert(job(base + tag), priority));
            EXPECT_EQ(5, queue.GetFillLevel());
            EXPECT_TRUE(way != 0 || queue.StartProcessing());
            // A discarding flush gives up after three unreadable fill levels in a row.
            if (way == 2)
                osal_kit_test::failNext(MORVEX_FAULT_MsgQueue_GetStatus, MSGQUEUE_ERROR_INTERNAL, 3);
            EXPECT_TRUE(way != 2 || !queue.Flush(true));
            EXPECT_TRUE(queue.Flush(way == 2));
            ASSERT_NE(kInvalid, queue.Insert(job(base + 5), 0));
            EXPECT_EQ(1, way == 1 ? queue.GetFillLevel() : 1) << "the flush's worker has stopped again";
            EXPECT_TRUE(way == 2 || queue.Flush(false));
        }
        EXPECT_EQ(way == 2 ? 0u : way + 1u, Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) - threadsBefore) << way;
        const int runs = way == 2 ? 0 : 1;
        for (int tag = base; tag <= base + 5; ++tag)
            expectFates({{tag, runs}});
        EXPECT_EQ(way == 2, std::this_thread::get_id() == ledger.entry(base).deletedOn) << way;
    }
    EXPECT_EQ((std::vector<int>{3, 1, 0, 2, 4, 5, 13, 11, 10, 12, 14, 15}), ledger.runOrder());
}

} // namespace
