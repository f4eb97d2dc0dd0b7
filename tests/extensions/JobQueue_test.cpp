// Jobs run one at a time in priority order on the queue's worker; each is deleted
// exactly once whatever happens to it; operations and failures leave trace records.

#include "extensions/JobQueue.h"
#include "extensions/private/JobId.h"

#include "support/AllocationBalance.h"
#include "support/JobLedger.h"
#include "support/TraceExpect.h"

#include "msgqueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using osal_kit_test::CapturedTrace;
using osal_kit_test::expectTraces;
using osal_kit_test::JobLedger;
using osal_kit_test::LedgerJob;
using osal_kit_test::TraceCapture;
using PAL::CJobQueue;
using PAL::CSemaphore;

const char* const kName = "jobs";
const PAL::CThread::ePriority kNormal = PAL::CThread::PRIORITY_NORMAL;
const unsigned int kInvalid = CJobQueue::JOB_ID_INVALID;

using Expected = osal_kit_test::ExpectedTrace;
const Expected kInfo = {0, nullptr, {}};
const Expected kError = {3, nullptr, {}};
const Expected kFailure = {4, nullptr, {}};

// The queue's own records; the mutex writes some of its own.
std::vector<CapturedTrace> queueRecords(const TraceCapture& capture)
{
    return osal_kit_test::recordsFrom(capture, "extensions/private/JobQueue.cpp");
}

// A job pointer as the insertion record shows it.
std::string hex(const void* job)
{
    char text[16];
    std::snprintf(text, sizeof text, "%X", static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(job)));
    return text;
}

void failNext(eMorvex_FaultFunction function, int code, bool thisThreadOnly = true)
{
    osal_kit_test::failNext(function, code, 1, thisThreadOnly);
}

// Signals a semaphore when a flush traces the queueing of its signal job, by which
// time its discard flag is set.
class SignalJobQueued {
public:
    explicit SignalJobQueued(CSemaphore& semaphore) : semaphore_(semaphore) { Morvex_TraceOut_SetSink(&sink, this); }
    ~SignalJobQueued() { Morvex_TraceOut_SetSink(nullptr, nullptr); }

private:
    static void sink(const sMorvex_TraceRecord* record, void* context)
    {
        if (record->format != nullptr && std::strcmp(record->format, "%s%u%s") == 0 &&
            std::strcmp(record->values[2], "SignalJob") == 0)
            static_cast<SignalJobQueued*>(context)->semaphore_.Signal();
    }
    CSemaphore& semaphore_;
};

class JobQueueTest : public ::testing::Test {
protected:
    JobQueueTest()
    {
        // The process's first string copy makes the counter mutex; make it here, so that
        // a fault armed for the next mutex creation reaches the queue's mutex.
        const PAL::CString name(kName);
        const PAL::CString copy(name);
    }

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

    osal_kit_test::FaultGuard faults;
    JobLedger ledger;
};

TEST_F(JobQueueTest, EveryPublicOperationWritesItsRecords)
{
    LedgerJob* first = job(1);
    LedgerJob* refused = job(2);
    const std::string firstHex = hex(first), refusedHex = hex(refused);
    TraceCapture capture;
    {
        CJobQueue queue(4, kName, PAL::CThread::PRIORITY_HIGH, true);
        EXPECT_EQ(1u, queue.Insert(first, 7));
        EXPECT_EQ(1, queue.GetFillLevel());
        queue.AcceptJobs(false);
        EXPECT_EQ(kInvalid, queue.Insert(refused, -3));
        EXPECT_TRUE(queue.Flush(true)); // deferred: deletes the job here, queues no signal job
        EXPECT_TRUE(queue.StartProcessing());
        EXPECT_TRUE(queue.Flush(false)); // the signal job gets id 2
    }
    // GetFillLevel, StartProcessing, the signal job's making and deletion and the
    // destruction write records without values.
    expectTraces({{0, "%d%s%d", {"4", kName, "4"}}, {0, "%X%d", {firstHex, "7"}}, {0, "%s%d%d", {kName, "0", "4"}},
                   {0, "%s%u%s", {kName, "1", "job1"}}, kInfo, {0, "%d", {"0"}}, {0, "%X%d", {refusedHex, "-3"}},
                   {0, "%d", {"1"}}, kInfo, {0, "%d", {"0"}}, kInfo, {0, "%s%d%d", {kName, "0", "4"}},
                   {0, "%s%u%s", {kName, "2", "SignalJob"}}, kInfo, kInfo},
                  queueRecords(capture));
    expectFate(1, 0);
    expectFate(2, 0);
}

TEST_F(JobQueueTest, IdsCountQueuedFailedAndSignalJobsButNotRefusedOnes)
{
    {
        CJobQueue queue(8, kName, kNormal, true);
        EXPECT_EQ(1u, queue.Insert(job(1), 0));
        EXPECT_EQ(2u, queue.Insert(job(2), 0));
        EXPECT_EQ(kInvalid, queue.Insert(nullptr, 0));
        queue.AcceptJobs(false);
        EXPECT_EQ(kInvalid, queue.Insert(job(3), 0));
        queue.AcceptJobs(true);
        failNext(MORVEX_FAULT_MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL);
        EXPECT_EQ(kInvalid, queue.Insert(job(4), 0)); // uses id 3
        EXPECT_EQ(4u, queue.Insert(job(5), 0));
        EXPECT_TRUE(queue.Flush(false)); // its signal job uses 5
        EXPECT_EQ(6u, queue.Insert(job(6), 0));
    }
    for (const auto& [tag, id] : {std::make_pair(1, 1u), std::make_pair(2, 2u), std::make_pair(5, 4u)})
        EXPECT_EQ(id, ledger.entry(tag).idWhenRun);
    for (int tag : {1, 2, 5})
        expectFate(tag, 1);
    for (int tag : {3, 4, 6})
        expectFate(tag, 0);
}

// Four billion insertions would take hours: the counting rule is checked on its own.
TEST_F(JobQueueTest, IdsWrapFrom4294967295To1)
{
    EXPECT_EQ(1u, PAL::JobId::next(0u));
    EXPECT_EQ(0x80000000u, PAL::JobId::next(0x7FFFFFFFu));
    EXPECT_EQ(0xFFFFFFFFu, PAL::JobId::next(0xFFFFFFFEu));
    EXPECT_EQ(1u, PAL::JobId::next(0xFFFFFFFFu));
}

TEST_F(JobQueueTest, SmallerPrioritiesRunFirstAndEqualOnesInInsertionOrder)
{
    {
        CJobQueue queue(16, kName, kNormal, true);
        for (const auto& [tag, priority] : {std::make_pair(1, 5), std::make_pair(2, -2), std::make_pair(3, 5),
                                            std::make_pair(4, 0), std::make_pair(5, INT_MIN),
                                            std::make_pair(6, INT_MAX), std::make_pair(7, 0)})
            ASSERT_NE(kInvalid, queue.Insert(job(tag), priority));
        EXPECT_TRUE(queue.StartProcessing());
        EXPECT_TRUE(queue.Flush(false));
    }
    EXPECT_EQ((std::vector<int>{5, 2, 4, 7, 1, 3, 6}), ledger.runOrder());
}

TEST_F(JobQueueTest, FillLevelRecordsWarnAbove80PercentAndRefusalsDeleteTheJobAtOnce)
{
    const struct {
        int line;
        unsigned int capacity, waiting;
        bool warning;
        eMorvex_FaultFunction fault; // MORVEX_FAULT_COUNT: none
        bool refused;
    } rows[] = {
        {__LINE__, 10, 8, false, MORVEX_FAULT_COUNT, false},
        {__LINE__, 10, 9, true, MORVEX_FAULT_COUNT, false},
        {__LINE__, 2, 2, true, MORVEX_FAULT_COUNT, true}, // full
        {__LINE__, 4, 0, false, MORVEX_FAULT_MsgQueue_TrySendMsg, true},
    };
    std::vector<int> refusalLines;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CJobQueue queue(row.capacity, kName, kNormal, true);
        for (unsigned int i = 1; i <= row.waiting; ++i)
            ASSERT_NE(kInvalid, queue.Insert(job(row.line * 100 + static_cast<int>(i)), 0));
        LedgerJob* last = job(row.line);
        const std::string name = "job" + std::to_string(row.line);
        const std::vector<std::string> fill = {kName, std::to_string(row.waiting), std::to_string(row.capacity)};
        std::vector<Expected> expected = {{0, "%X%d", {hex(last), "1"}}, {0, "%s%d%d", fill}};
        if (row.warning)
            expected.push_back({2, "%s%d%d", fill});
        expected.push_back({0, "%s%u%s", {kName, std::to_string(row.waiting + 1), name}});
        if (row.refused)
            expected.push_back({3, "%s%s", {kName, name}});

        TraceCapture capture;
        if (row.fault != MORVEX_FAULT_COUNT)
            failNext(row.fault, MSGQUEUE_ERROR_INTERNAL);
        EXPECT_EQ(row.refused ? kInvalid : row.waiting + 1, queue.Insert(last, 1));
        EXPECT_EQ(row.refused ? 1 : 0, ledger.entry(row.line).deletions);
        const std::vector<CapturedTrace> records = queueRecords(capture);
        expectTraces(expected, records);
        if (row.refused && !records.empty())
            refusalLines.push_back(records.back().line);
    }
    ASSERT_EQ(2u, refusalLines.size());
    EXPECT_NE(refusalLines[0], refusalLines[1]); // a full queue is told from other refusals
}

TEST_F(JobQueueTest, DeferredQueueHoldsJobsUntilStartedOrFlushed)
{
    enum Way { START, FLUSH_RUN, FLUSH_DISCARD };
    const struct {
        int line;
        Way way;
        int runs;
        unsigned long long threadStarts;
    } rows[] = {{__LINE__, START, 1, 1}, {__LINE__, FLUSH_RUN, 1, 2}, {__LINE__, FLUSH_DISCARD, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const int base = 10 * (row.way + 1);
        const unsigned long long created = Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate);
        {
            CJobQueue queue(8, kName, kNormal, true);
            for (int tag = base; tag < base + 3; ++tag)
                ASSERT_NE(kInvalid, queue.Insert(job(tag), 0));
            EXPECT_EQ(3, queue.GetFillLevel());
            if (row.way == START) {
                EXPECT_TRUE(queue.StartProcessing());
                EXPECT_TRUE(queue.StartProcessing()); // changes nothing
            }
            EXPECT_TRUE(queue.Flush(row.way == FLUSH_DISCARD));
            EXPECT_EQ(0, queue.GetFillLevel());
            ASSERT_NE(kInvalid, queue.Insert(job(base + 3), 0));
            // A flush runs the worker of a deferred queue for its own duration only; it
            // can be started again afterwards.
            if (row.way == FLUSH_RUN) {
                EXPECT_EQ(1, queue.GetFillLevel());
                EXPECT_TRUE(queue.StartProcessing());
            }
            if (row.way != FLUSH_DISCARD) {
                EXPECT_TRUE(queue.Flush(false));
            }
        }
        EXPECT_EQ(row.threadStarts, Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) - created);
        for (int tag = base; tag < base + 3; ++tag) {
            expectFate(tag, row.runs);
            if (row.way == FLUSH_DISCARD) {
                EXPECT_EQ(std::this_thread::get_id(), ledger.entry(tag).deletedOn);
            }
        }
        expectFate(base + 3, row.way == FLUSH_DISCARD ? 0 : 1); // otherwise deleted by the destruction
    }
}

// A job already running finishes normally; the waiting ones are deleted unrun, by a
// discarding flush or by the destruction. The running job is released only once the
// queue has switched to discarding: when the flush queues its signal job, or when the
// destructor sends its stop message.
TEST_F(JobQueueTest, DiscardingFlushAndDestructionLetTheRunningJobFinishAndDeleteTheWaitingOnes)
{
    for (const bool destroy : {false, true}) {
        SCOPED_TRACE(destroy ? "destruction" : "flush");
        const int base = destroy ? 10 : 0;
        CSemaphore started(0), release(0), flushing(0);
        std::optional<CJobQueue> queue;
        queue.emplace(8, kName, kNormal, false);
        ASSERT_EQ(1u, queue->Insert(job(base + 1, &started, &release), 0));
        ASSERT_TRUE(started.Wait());
        ASSERT_EQ(2u, queue->Insert(job(base + 2), 0));
        ASSERT_EQ(3u, queue->Insert(job(base + 3), 9));
        const unsigned long long sends = Morvex_Fault_Calls(MORVEX_FAULT_MsgQueue_TrySendMsg);
        std::optional<SignalJobQueued> signalJobQueued;
        if (!destroy)
            signalJobQueued.emplace(flushing);
        std::thread releaser([&] {
            if (destroy) {
                while (Morvex_Fault_Calls(MORVEX_FAULT_MsgQueue_TrySendMsg) == sends)
                    std::this_thread::yield();
            } else {
                flushing.Wait();
            }
            release.Signal();
        });
        if (destroy)
            queue.reset();
        else
            EXPECT_TRUE(queue->Flush(true));
        releaser.join();
        signalJobQueued.reset();
        expectFate(base + 1, 1);
        expectFate(base + 2, 0);
        expectFate(base + 3, 0);
        if (!destroy) { // discarding ended with the flush
            ASSERT_EQ(5u, queue->Insert(job(5), 0));
            EXPECT_TRUE(queue->Flush(false));
            expectFate(5, 1);
        }
    }
}

TEST_F(JobQueueTest, AQueueThatCouldNotBeMadeRefusesEverythingAndLosesNoJob)
{
    const Expected made = {0, "%d%s%d", {"4", kName, "3"}};
    const struct {
        int line;
        eMorvex_FaultFunction fault;
        int code;
        std::vector<Expected> construction;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_MsgQueue_Init, MSGQUEUE_ERROR_NO_MEMORY, {made, kError}},
        {__LINE__, MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED, {made, kError, kError}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        LedgerJob* refused = job(row.line);
        const std::string name = "job" + std::to_string(row.line);
        std::vector<Expected> expected = row.construction;
        // GetFillLevel; Insert; StartProcessing; the destruction, whose receive and discard fail.
        expected.insert(expected.end(), {kInfo, {0, "%X%d", {hex(refused), "0"}}, {0, "%s%u%s", {kName, "1", name}},
                                         {3, "%s%s", {kName, name}}, kInfo, kError, kInfo, kError, kError, kError});
        TraceCapture capture;
        {
            failNext(row.fault, row.code);
            CJobQueue queue(4, kName, kNormal, false);
            EXPECT_EQ(-1, queue.GetFillLevel());
            EXPECT_EQ(kInvalid, queue.Insert(refused, 0));
            EXPECT_FALSE(queue.StartProcessing());
        }
        expectTraces(expected, queueRecords(capture));
        expectFate(row.line, 0);
    }
}

TEST_F(JobQueueTest, FlushFailuresAreTracedAndNeverLeaveTheSignalJobBehind)
{
    const Expected flush = {0, "%d", {"0"}};
    const Expected fill = {0, "%s%d%d", {kName, "0", "8"}};
    const Expected queued = {0, "%s%u%s", {kName, "1", "SignalJob"}};
    const struct {
        int line;
        eMorvex_FaultFunction fault;
        int code;
        bool thisThreadOnly, deferred, result;
        std::vector<Expected> records; // with the signal job's (made, deleted)
    } rows[] = {
        {__LINE__, MORVEX_FAULT_SemaInit, SEMA_ERROR_CREATE_FAILED, true, false, false, {flush, kError}},
        {__LINE__, MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED, true, true, false, {flush, kError, kError}},
        {__LINE__, MORVEX_FAULT_MsgQueue_SendMsg, MSGQUEUE_ERROR_INTERNAL, true, false, false,
         {flush, kInfo, fill, queued, {3, "%s%s", {kName, "SignalJob"}}, kInfo, kError}},
        {__LINE__, MORVEX_FAULT_SemaSignal, SEMA_ERROR_INTERNAL, false, false, true,
         {flush, kInfo, fill, queued, kInfo, kFailure}},
        {__LINE__, MORVEX_FAULT_SemaWait, SEMA_ERROR_INTERNAL, true, false, false,
         {flush, kInfo, fill, queued, kInfo, kFailure}}, // worker and flusher race: compared by level
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CJobQueue queue(8, kName, kNormal, row.deferred);
        TraceCapture capture;
        failNext(row.fault, row.code, row.thisThreadOnly);
        EXPECT_EQ(row.result, queue.Flush(false));
        Morvex_Fault_DisarmAll();
        std::vector<CapturedTrace> records = queueRecords(capture);
        std::vector<Expected> expected = row.records;
        if (row.fault == MORVEX_FAULT_SemaWait) {
            auto byLevel = [](const auto& a, const auto& b) { return a.level < b.level; };
            std::stable_sort(records.begin(), records.end(), byLevel);
            std::stable_sort(expected.begin(), expected.end(), byLevel);
        }
        expectTraces(expected, records);
    }

    // No memory for the signal job. Not captured: the capture would allocate first.
    CJobQueue queue(8, kName, kNormal, false);
    const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_zmalloc);
    failNext(MORVEX_FAULT_zmalloc, 0);
    EXPECT_FALSE(queue.Flush(false));
    EXPECT_EQ(injected + 1, Morvex_Fault_Injected(MORVEX_FAULT_zmalloc));
    EXPECT_TRUE(queue.Flush(false));
}

TEST_F(JobQueueTest, WorkerAndTeardownFailuresAreTracedAndLoseNoJob)
{
    // A failed receive ends the worker; destruction still deletes what it left.
    CSemaphore started(0), release(0);
    std::optional<CJobQueue> queue;
    queue.emplace(8, kName, kNormal, false);
    ASSERT_NE(kInvalid, queue->Insert(job(1, &started, &release), 0));
    ASSERT_TRUE(started.Wait());
    failNext(MORVEX_FAULT_MsgQueue_ReceiveMsg, MSGQUEUE_ERROR_INTERNAL, false);
    ASSERT_NE(kInvalid, queue->Insert(job(2), 0));
    TraceCapture capture;
    release.Signal();
    queue.reset();
    const std::vector<CapturedTrace> records = queueRecords(capture);
    EXPECT_EQ(1, std::count_if(records.begin(), records.end(), [](const auto& r) { return r.level == 3; }));
    expectFate(1, 1);
    expectFate(2, 0);

    const struct {
        int line;
        eMorvex_FaultFunction fault;
        std::vector<Expected> records;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_MsgQueue_TrySendMsg, {kInfo, kError, kError}}, // stop, then destruction
        {__LINE__, MORVEX_FAULT_MsgQueue_DeInit, {kInfo, kError}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        queue.emplace(8, kName, kNormal, false);
        TraceCapture teardown;
        failNext(row.fault, MSGQUEUE_ERROR_INTERNAL);
        queue.reset();
        expectTraces(row.records, queueRecords(teardown));
    }
}

TEST_F(JobQueueTest, AQueueWhoseMutexCouldNotBeMadeStillOwnsItsJobs)
{
    TraceCapture capture;
    {
        failNext(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED);
        CJobQueue queue(8, kName, kNormal, true);
        EXPECT_EQ(1u, queue.Insert(job(1), 0));
        EXPECT_TRUE(queue.Flush(true));
    }
    expectFate(1, 0);
    const std::vector<CapturedTrace> records = capture.records();
    const auto failed = std::find_if(records.begin(), records.end(), [](const auto& r) { return r.level == 3; });
    ASSERT_NE(records.end(), failed);
    EXPECT_EQ((std::vector<std::string>{"MUTEX_ERROR_CREATE_FAILED", "CJobQueue::mMutex"}), failed->values);
}

TEST_F(JobQueueTest, ConcurrentProducersAndFlushesLoseNothingAndKeepOrder)
{
    constexpr int kProducers = 4, kJobs = 150, kPriorities = 3, kFlushEvery = 25;
    std::atomic<int> unfinished{0};
    std::vector<std::vector<int>> accepted(kProducers);
    {
        CJobQueue queue(32, kName, kNormal, false);
        std::vector<std::thread> producers;
        for (int p = 0; p < kProducers; ++p) {
            producers.emplace_back([&, p] {
                for (int i = 0; i < kJobs; ++i) {
                    const int tag = p * 10000 + i;
                    if (queue.Insert(job(tag), i % kPriorities) != kInvalid)
                        accepted[p].push_back(tag);
                    if (i % kFlushEvery == kFlushEvery - 1) {
                        if (!queue.Flush((i / kFlushEvery + p) % 2 == 0))
                            ++unfinished;
                        // Every job this producer queued before the flush is gone.
                        for (int done : accepted[p])
                            if (ledger.entry(done).deletions != 1)
                                ++unfinished;
                    }
                }
            });
        }
        for (std::thread& producer : producers)
            producer.join();
    }
    EXPECT_EQ(0, unfinished.load());
    for (int p = 0; p < kProducers; ++p) {
        for (int i = 0; i < kJobs; ++i) {
            const int tag = p * 10000 + i;
            const bool wasAccepted = std::count(accepted[p].begin(), accepted[p].end(), tag) == 1;
            EXPECT_EQ(1, ledger.entry(tag).deletions) << tag;
            EXPECT_LE(ledger.entry(tag).runs, wasAccepted ? 1 : 0) << tag;
        }
    }
    // Jobs of one producer with one priority ran in the order inserted.
    std::map<std::pair<int, int>, int> lastRun;
    for (int tag : ledger.runOrder()) {
        const auto key = std::make_pair(tag / 10000, tag % 10000 % kPriorities);
        const auto found = lastRun.find(key);
        if (found != lastRun.end()) {
            EXPECT_LT(found->second, tag % 10000) << tag;
        }
        lastRun[key] = tag % 10000;
    }
}

} // namespace
