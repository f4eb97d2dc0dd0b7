// Jobs run one at a time in priority order on the queue's worker; each is deleted
// exactly once whatever happens to it; operations and failures leave trace records.

#include "extensions/JobQueue.h"
#include "extensions/private/JobId.h"

#include "support/AllocationBalance.h"
#include "support/JobLedger.h"
#include "support/TraceCapture.h"

#include "morvex_pal_fault.h"
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
using osal_kit_test::FaultGuard;
using osal_kit_test::Gate;
using osal_kit_test::JobLedger;
using osal_kit_test::LedgerJob;
using osal_kit_test::TraceCapture;
using PAL::CJobQueue;

const char* const kPath = "extensions/private/JobQueue.cpp";
const char* const kName = "jobs";
const PAL::CThread::ePriority kNormal = PAL::CThread::PRIORITY_NORMAL;
const unsigned int kInvalid = CJobQueue::JOB_ID_INVALID;

struct Expected {
    int level;
    const char* format; // nullptr: a trace point without values
    std::vector<std::string> values;
};

// The queue's own records; the mutex writes some of its own.
std::vector<CapturedTrace> queueRecords(const TraceCapture& capture)
{
    std::vector<CapturedTrace> records = capture.records();
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [](const CapturedTrace& r) { return r.sourcePath != kPath; }),
                  records.end());
    return records;
}

void expectRecords(const std::vector<Expected>& expected, const std::vector<CapturedTrace>& records)
{
    ASSERT_EQ(expected.size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE("record " + std::to_string(i));
        EXPECT_EQ(expected[i].level, records[i].level);
        EXPECT_EQ("OSAL_KIT", records[i].component);
        EXPECT_EQ(0, records[i].reserved);
        EXPECT_EQ(32u, records[i].traceId.size());
        EXPECT_EQ(std::string::npos, records[i].traceId.find_first_not_of("0123456789ABCDEF"));
        EXPECT_EQ(records[0].traceId, records[i].traceId);
        EXPECT_EQ(expected[i].format != nullptr, records[i].hasFormat);
        EXPECT_EQ(expected[i].format ? expected[i].format : "", records[i].format);
        EXPECT_EQ(expected[i].values, records[i].values);
    }
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
    Morvex_Fault_ArmEx(function, code, 0, 1, thisThreadOnly ? 1 : 0);
}

// Opens a gate when a flush traces the queueing of its signal job: its discard flag is set by then.
class SignalJobQueued {
public:
    explicit SignalJobQueued(Gate& gate) : gate_(gate) { Morvex_TraceOut_SetSink(&sink, this); }
    ~SignalJobQueued() { Morvex_TraceOut_SetSink(nullptr, nullptr); }

private:
    static void sink(const sMorvex_TraceRecord* record, void* context)
    {
        if (record->format != nullptr && std::strcmp(record->format, "%s%u%s") == 0 && record->valueCount == 3 &&
            std::strcmp(record->values[2], "SignalJob") == 0)
            static_cast<SignalJobQueued*>(context)->gate_.open();
    }
    Gate& gate_;
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

    LedgerJob* job(int tag, Gate* started = nullptr, Gate* release = nullptr)
    {
        return new LedgerJob(ledger, tag, started, release);
    }
    // Deleted exactly once, after `runs` runs.
    void expectFate(int tag, int runs)
    {
        const JobLedger::Entry entry = ledger.entry(tag);
        EXPECT_EQ(runs, entry.runs) << "job " << tag;
        EXPECT_EQ(1, entry.deletions) << "job " << tag;
    }

    FaultGuard faults;
    JobLedger ledger;
};

TEST_F(JobQueueTest, EveryPublicOperationWritesItsRecords)
{
    LedgerJob* first = job(1);
    LedgerJob* refused = job(2);
    const std::string firstHex = hex(first);
    const std::string refusedHex = hex(refused);
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
    expectRecords({{0, "%d%s%d", {"4", kName, "4"}},
                   {0, "%X%d", {firstHex, "7"}},
                   {0, "%s%d%d", {kName, "0", "4"}},
                   {0, "%s%u%s", {kName, "1", "job1"}},
                   {0, nullptr, {}}, // GetFillLevel
                   {0, "%d", {"0"}},
                   {0, "%X%d", {refusedHex, "-3"}},
                   {0, "%d", {"1"}},
                   {0, nullptr, {}}, // StartProcessing
                   {0, "%d", {"0"}},
                   {0, nullptr, {}}, // signal job made
                   {0, "%s%d%d", {kName, "0", "4"}},
                   {0, "%s%u%s", {kName, "2", "SignalJob"}},
                   {0, nullptr, {}},  // signal job deleted by the worker
                   {0, nullptr, {}}}, // destruction
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
    const std::pair<int, unsigned int> ran[] = {{1, 1u}, {2, 2u}, {5, 4u}};
    for (const auto& [tag, id] : ran) {
        expectFate(tag, 1);
        EXPECT_EQ(id, ledger.entry(tag).idWhenRun);
    }
    for (int tag : {3, 4, 6})
        expectFate(tag, 0);
}

TEST_F(JobQueueTest, IdsWrapFrom4294967295To1)
{
    const struct {
        int line;
        unsigned int last, next;
    } rows[] = {{__LINE__, 0u, 1u}, {__LINE__, 1u, 2u}, {__LINE__, 0x7FFFFFFFu, 0x80000000u},
                {__LINE__, 0xFFFFFFFEu, 0xFFFFFFFFu}, {__LINE__, 0xFFFFFFFFu, 1u}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.next, PAL::JobId::next(row.last));
    }
}

TEST_F(JobQueueTest, SmallerPrioritiesRunFirstAndEqualOnesInInsertionOrder)
{
    {
        CJobQueue queue(16, kName, kNormal, true);
        const std::pair<int, int> jobs[] = {{1, 5}, {2, -2}, {3, 5}, {4, 0}, {5, INT_MIN}, {6, INT_MAX}, {7, 0}};
        for (const auto& [tag, priority] : jobs)
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
    for (std::size_t r = 0; r < std::size(rows); ++r) {
        SCOPED_TRACE(rows[r].line);
        const auto& row = rows[r];
        const int base = static_cast<int>(r) * 100;
        CJobQueue queue(row.capacity, kName, kNormal, true);
        for (unsigned int i = 0; i < row.waiting; ++i)
            ASSERT_NE(kInvalid, queue.Insert(job(base + 1 + static_cast<int>(i)), 0));
        LedgerJob* last = job(base);
        const std::string lastHex = hex(last);
        const std::string name = "job" + std::to_string(base);
        const std::vector<std::string> fill = {kName, std::to_string(row.waiting), std::to_string(row.capacity)};
        std::vector<Expected> expected = {{0, "%X%d", {lastHex, "1"}}, {0, "%s%d%d", fill}};
        if (row.warning)
            expected.push_back({2, "%s%d%d", fill});
        expected.push_back({0, "%s%u%s", {kName, std::to_string(row.waiting + 1), name}});
        if (row.refused)
            expected.push_back({3, "%s%s", {kName, name}});

        TraceCapture capture;
        if (row.fault != MORVEX_FAULT_COUNT)
            failNext(row.fault, MSGQUEUE_ERROR_INTERNAL);
        EXPECT_EQ(row.refused ? kInvalid : row.waiting + 1, queue.Insert(last, 1));
        EXPECT_EQ(row.refused ? 1 : 0, ledger.entry(base).deletions);
        const std::vector<CapturedTrace> records = queueRecords(capture);
        expectRecords(expected, records);
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
        unsigned long long threadStarts; // attempted; the platform refuses a second one
    } rows[] = {{__LINE__, START, 1, 1}, {__LINE__, FLUSH_RUN, 1, 2}, {__LINE__, FLUSH_DISCARD, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        JobLedger rowLedger;
        const unsigned long long created = Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate);
        {
            CJobQueue queue(8, kName, kNormal, true);
            for (int tag = 1; tag <= 3; ++tag)
                ASSERT_NE(kInvalid, queue.Insert(new LedgerJob(rowLedger, tag), 0));
            EXPECT_EQ(3, queue.GetFillLevel());
            if (row.way == START) {
                EXPECT_TRUE(queue.StartProcessing());
                EXPECT_TRUE(queue.StartProcessing()); // changes nothing
            }
            EXPECT_TRUE(queue.Flush(row.way == FLUSH_DISCARD));
            EXPECT_EQ(0, queue.GetFillLevel());
            ASSERT_NE(kInvalid, queue.Insert(new LedgerJob(rowLedger, 4), 0));
            // A flush of a deferred queue runs the worker for its own duration only; the
            // platform starts a thread object once, so it cannot be started again.
            if (row.way == FLUSH_RUN) {
                EXPECT_EQ(1, queue.GetFillLevel());
                EXPECT_FALSE(queue.StartProcessing());
            }
            if (row.way == START) {
                EXPECT_TRUE(queue.Flush(false));
            }
        }
        EXPECT_EQ(row.threadStarts, Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate) - created);
        for (int tag = 1; tag <= 3; ++tag) {
            EXPECT_EQ(row.runs, rowLedger.entry(tag).runs);
            EXPECT_EQ(1, rowLedger.entry(tag).deletions);
            if (row.way == FLUSH_DISCARD) {
                EXPECT_EQ(std::this_thread::get_id(), rowLedger.entry(tag).deletedOn);
            }
        }
        EXPECT_EQ(row.way == START ? 1 : 0, rowLedger.entry(4).runs);
        EXPECT_EQ(1, rowLedger.entry(4).deletions);
    }
}

TEST_F(JobQueueTest, FlushWithDiscardLetsTheRunningJobFinishAndDeletesTheWaitingOnes)
{
    Gate started, release, flushing;
    CJobQueue queue(8, kName, kNormal, false);
    ASSERT_EQ(1u, queue.Insert(job(1, &started, &release), 0));
    started.pass();
    ASSERT_EQ(2u, queue.Insert(job(2), 0));
    ASSERT_EQ(3u, queue.Insert(job(3), 9));
    {
        SignalJobQueued signalJobQueued(flushing);
        std::thread releaser([&] {
            flushing.pass();
            release.open();
        });
        EXPECT_TRUE(queue.Flush(true));
        releaser.join();
    }
    expectFate(1, 1);
    expectFate(2, 0);
    expectFate(3, 0);
    // Discarding ended with the flush.
    ASSERT_EQ(5u, queue.Insert(job(5), 0));
    EXPECT_TRUE(queue.Flush(false));
    expectFate(5, 1);
}

TEST_F(JobQueueTest, DestructionDeletesWaitingJobsUnrun)
{
    Gate started, release;
    std::optional<CJobQueue> running;
    running.emplace(8, kName, kNormal, false);
    ASSERT_NE(kInvalid, running->Insert(job(1, &started, &release), 0));
    started.pass();
    ASSERT_NE(kInvalid, running->Insert(job(2), 0));
    ASSERT_NE(kInvalid, running->Insert(job(3), 9));
    const unsigned long long sends = Morvex_Fault_Calls(MORVEX_FAULT_MsgQueue_TrySendMsg);
    std::thread releaser([&] {
        // The destructor sends the stop message once it has switched to discarding.
        while (Morvex_Fault_Calls(MORVEX_FAULT_MsgQueue_TrySendMsg) == sends)
            std::this_thread::yield();
        release.open();
    });
    running.reset();
    releaser.join();
    expectFate(1, 1);
    expectFate(2, 0);
    expectFate(3, 0);

    {
        CJobQueue deferred(8, kName, kNormal, true);
        ASSERT_NE(kInvalid, deferred.Insert(job(4), 0));
    }
    expectFate(4, 0);
    EXPECT_EQ(std::this_thread::get_id(), ledger.entry(4).deletedOn);
}

TEST_F(JobQueueTest, AQueueThatCouldNotBeMadeRefusesEverythingAndLosesNoJob)
{
    const struct {
        int line;
        eMorvex_FaultFunction fault;
        int code;
        std::vector<Expected> construction;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_MsgQueue_Init, MSGQUEUE_ERROR_NO_MEMORY, {{0, "%d%s%d", {"4", kName, "3"}}, {3, nullptr, {}}}},
        {__LINE__, MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED,
         {{0, "%d%s%d", {"4", kName, "3"}}, {3, nullptr, {}}, {3, nullptr, {}}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        LedgerJob* refused = job(row.line);
        const std::string refusedHex = hex(refused);
        const std::string name = "job" + std::to_string(row.line);
        TraceCapture capture;
        {
            failNext(row.fault, row.code);
            CJobQueue queue(4, kName, kNormal, false);
            EXPECT_EQ(-1, queue.GetFillLevel());
            EXPECT_EQ(kInvalid, queue.Insert(refused, 0));
            EXPECT_FALSE(queue.StartProcessing());
        }
        std::vector<Expected> expected = row.construction;
        expected.insert(expected.end(), {{0, nullptr, {}},
                                         {0, "%X%d", {refusedHex, "0"}},
                                         {0, "%s%u%s", {kName, "1", name}},
                                         {3, "%s%s", {kName, name}},
                                         {0, nullptr, {}},
                                         {3, nullptr, {}}, // start
                                         {0, nullptr, {}},
                                         {3, nullptr, {}},   // receive
                                         {3, nullptr, {}},   // discard
                                         {3, nullptr, {}}}); // destruction
        expectRecords(expected, queueRecords(capture));
        expectFate(row.line, 0);
    }
}

TEST_F(JobQueueTest, FlushFailuresAreTracedAndNeverLeaveTheSignalJobBehind)
{
    const Expected flush = {0, "%d", {"0"}};
    const Expected info = {0, nullptr, {}};
    const Expected fill = {0, "%s%d%d", {kName, "0", "8"}};
    const Expected queued = {0, "%s%u%s", {kName, "1", "SignalJob"}};
    const Expected error = {3, nullptr, {}};
    const Expected failure = {4, nullptr, {}};
    const struct {
        int line;
        eMorvex_FaultFunction fault;
        int code;
        bool thisThreadOnly, deferred, result;
        std::vector<Expected> records; // with the worker's record of the signal job's deletion
    } rows[] = {
        {__LINE__, MORVEX_FAULT_SemaInit, SEMA_ERROR_CREATE_FAILED, true, false, false, {flush, error}},
        {__LINE__, MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED, true, true, false, {flush, error, error}},
        {__LINE__, MORVEX_FAULT_MsgQueue_SendMsg, MSGQUEUE_ERROR_INTERNAL, true, false, false,
         {flush, info, fill, queued, {3, "%s%s", {kName, "SignalJob"}}, info, error}},
        {__LINE__, MORVEX_FAULT_SemaSignal, SEMA_ERROR_INTERNAL, false, false, true,
         {flush, info, fill, queued, info, failure}},
        {__LINE__, MORVEX_FAULT_SemaWait, SEMA_ERROR_INTERNAL, true, false, false,
         {flush, info, fill, queued, info, failure}}, // worker and flusher race: compared by level
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
        expectRecords(expected, records);
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
    Gate started, release;
    std::optional<CJobQueue> queue;
    queue.emplace(8, kName, kNormal, false);
    ASSERT_NE(kInvalid, queue->Insert(job(1, &started, &release), 0));
    started.pass();
    failNext(MORVEX_FAULT_MsgQueue_ReceiveMsg, MSGQUEUE_ERROR_INTERNAL, false);
    ASSERT_NE(kInvalid, queue->Insert(job(2), 0));
    TraceCapture capture;
    release.open();
    queue.reset();
    const std::vector<CapturedTrace> records = queueRecords(capture);
    EXPECT_EQ(1, std::count_if(records.begin(), records.end(), [](const auto& r) { return r.level == 3; }));
    expectFate(1, 1);
    expectFate(2, 0);

    const struct {
        int line;
        eMorvex_FaultFunction fault;
        int code;
        std::vector<Expected> records;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL,
         {{0, nullptr, {}}, {3, nullptr, {}}, {3, nullptr, {}}}}, // stop failed, then destruction
        {__LINE__, MORVEX_FAULT_MsgQueue_DeInit, MSGQUEUE_ERROR_INTERNAL, {{0, nullptr, {}}, {3, nullptr, {}}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        queue.emplace(8, kName, kNormal, false);
        TraceCapture teardown;
        failNext(row.fault, row.code);
        queue.reset();
        expectRecords(row.records, queueRecords(teardown));
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
    ASSERT_FALSE(records.empty());
    EXPECT_EQ((std::vector<std::string>{"MUTEX_ERROR_CREATE_FAILED", "CJobQueue::mMutex"}),
              std::find_if(records.begin(), records.end(), [](const auto& r) { return r.level == 3; })->values);
}

TEST_F(JobQueueTest, ConcurrentProducersAndFlushesLoseNothingAndKeepOrder)
{
    constexpr int kProducers = 4, kJobs = 150, kPriorities = 3, kFlushEvery = 25;
    std::atomic<int> unfinished{0};
    std::vector<std::vector<int>> accepted(kProducers);
    {
        CJobQueue queue(32, kName, kNormal, false);
        Gate go;
        std::vector<std::thread> producers;
        for (int p = 0; p < kProducers; ++p) {
            producers.emplace_back([&, p] {
                go.pass();
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
        for (int p = 0; p < kProducers; ++p)
            go.open();
        for (std::thread& producer : producers)
            producer.join();
    }
    EXPECT_EQ(0, unfinished.load());
    for (int p = 0; p < kProducers; ++p) {
        for (int i = 0; i < kJobs; ++i) {
            const int tag = p * 10000 + i;
            const bool wasAccepted = std::count(accepted[p].begin(), accepted[p].end(), tag) == 1;
            const JobLedger::Entry entry = ledger.entry(tag);
            EXPECT_EQ(1, entry.deletions) << tag;
            EXPECT_LE(entry.runs, wasAccepted ? 1 : 0) << tag;
        }
    }
    // Jobs of one producer with one priority ran in the order inserted.
    std::map<std::pair<int, int>, int> lastRun;
    for (int tag : ledger.runOrder()) {
        const int p = tag / 10000, i = tag % 10000;
        const auto key = std::make_pair(p, i % kPriorities);
        const auto found = lastRun.find(key);
        if (found != lastRun.end()) {
            EXPECT_LT(found->second, i) << tag;
        }
        lastRun[key] = i;
    }
}

} // namespace
