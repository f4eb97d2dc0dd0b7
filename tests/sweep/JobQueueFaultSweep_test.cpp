// The job queue through a failure of each platform function it calls, at every call of
// a whole queue life: create deferred, insert, read the fill level, flush and discard
// before the worker runs, start, refuse jobs, flush and discard a running queue, insert
// from another thread, and destroy it with that job waiting; and a queue started at
// once. Each job offered is deleted exactly once, nothing leaks or hangs, and each
// failure on the calling thread leaves its documented record.

#include "extensions/JobQueue.h"

#include "support/PlatformFaultSweep.h"
#include "support/SweepLedger.h"
#include "support/TraceCapture.h"
#include "support/WaitableCounter.h"

#include "msgqueue.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <thread>

namespace {

using osal_kit_test::FaultRun;
using PAL::CJobQueue;

struct SweepJob : CJobQueue::CJob {
    SweepJob(osal_kit_test::SweepLedger& ledger, int item) : CJob("job"), mLedger(ledger), mItem(item) {}
    ~SweepJob() override { mLedger.deleted(mItem); }
    void Run() override { mLedger.ran(mItem); }
    osal_kit_test::SweepLedger& mLedger;
    const int mItem;
};

// A row's pattern matches "<source path>|<level>|<format, - for none>|<first value>" of a record.
#define RECORD(function, step, pattern) osal_kit_test::ExpectedOutcome{__LINE__, MORVEX_FAULT_##function, step, pattern, false}
#define ROW(function, step, level) RECORD(function, step, "*/JobQueue.cpp|" #level "|-|*")
#define NAMED(function, step) RECORD(function, step, "*/JobQueue.cpp|3|%s%s|sweep")
#define MUTEX(function, step, value) RECORD(function, step, "*os/private/Mutex.cpp|3|%s%s|" value)

// Failures the queue does not report (a refused join or semaphore release, the
// counters' own mutex) have no row.
std::array<osal_kit_test::ExpectedOutcome, 22> records = {{
    ROW(MsgQueue_Init, "Create", 3), NAMED(MsgQueue_Init, "Create"), NAMED(MsgQueue_TrySendMsg, "Insert"),
    ROW(SemaInit, "Flush", 3), NAMED(MsgQueue_SendMsg, "Flush"), ROW(MsgQueue_SendMsg, "Flush", 3),
    ROW(MsgQueue_GetStatus, "GetFillLevel", 3), ROW(MsgQueue_GetStatus, "DiscardDeferred", 3),
    ROW(MsgQueue_ReceiveMsg, "DiscardDeferred", 3), ROW(MsgQueue_DeInit, "Destroy", 3),
    ROW(ThreadCreate, "FlushDeferred", 3), ROW(ThreadCreate, "StartProcessing", 3), ROW(ThreadCreate, "CreateStarted", 3),
    ROW(ThreadInit, "Create", 3), ROW(SemaWait, "Flush", 4), ROW(SemaTryWait, "Flush", 3), ROW(zmalloc, "Flush", 3),
    RECORD(MutexInit, "Create", "*os/private/Mutex.cpp|3|%s|CJobQueue::mMutex"),
    MUTEX(MutexWait, "Insert", "MUTEX_ERROR_WAIT_FAILED"), MUTEX(MutexWait, "Destroy", "MUTEX_ERROR_WAIT_FAILED"),
    MUTEX(MutexSignal, "Insert", "MUTEX_ERROR_SIGNAL_FAILED"), MUTEX(MutexDeInit, "Destroy", "MUTEX_ERROR_DEINIT_FAILED"),
}};

// One whole queue life. Every job offered to Insert belongs to the queue from then on;
// the others stay with the caller.
void queueLife(FaultRun& run)
{
    osal_kit_test::SweepLedger ledger;
    SweepJob* jobs[8];
    for (int i = 0; i < 8; ++i)
        jobs[i] = new SweepJob(ledger, i);
    osal_kit_test::TraceCapture capture;
    // Another thread inserts one job late in the queue's life: whatever failed before
    // must not have left the queue's lock held.
    osal_kit_test::WaitableCounter go, done;
    int offered = 0;
    // In place: the queue's deleting destructor is the library's, whose operator delete
    // is not the one a sanitized test's new pairs with.
    std::optional<CJobQueue> queue, started;
    std::thread other([&] {
        go.waitFor(1);
        (void)run.step("InsertElsewhere", [&] { return queue->Insert(jobs[offered++], 0); });
        done.increment();
    });
    auto insert = [&](int priority) { (void)run.step("Insert", [&] { return queue->Insert(jobs[offered++], priority); }); };
    auto step = [&](const char* name, auto operation) { (void)run.step(name, [&] { return operation(*queue), 0; }); };
    run.arm();
    run.step("CreateStarted", [&] { started.emplace(2, "sweep", PAL::CThread::PRIORITY_NORMAL, false); });
    run.step("Create", [&] { started.reset(), queue.emplace(4, "sweep", PAL::CThread::PRIORITY_NORMAL, true); });
    insert(2), insert(1);
    step("GetFillLevel", [](CJobQueue& q) { return q.GetFillLevel(); });
    step("FlushDeferred", [](CJobQueue& q) { return q.Flush(false); });
    insert(0);
    step("DiscardDeferred", [](CJobQueue& q) { return q.Flush(true); });
    step("StartProcessing", [](CJobQueue& q) { return q.StartProcessing(); });
    insert(0);
    step("AcceptJobs", [](CJobQueue& q) { q.AcceptJobs(false); });
    insert(0);
    const int refused = offered - 1;
    step("AcceptJobs", [](CJobQueue& q) { q.AcceptJobs(true); });
    step("Flush", [](CJobQueue& q) { return q.Flush(false); });
    insert(3), insert(3);
    step("Discard", [](CJobQueue& q) { return q.Flush(true); });
    go.increment(), done.waitFor(1);
    run.step("Destroy", [&] { queue.reset(); });
    run.disarm();
    other.join();
    for (int i = offered; i < 8; ++i)
        delete jobs[i];
    ledger.expectEachDeletedOnce(8);
    EXPECT_EQ(0, ledger.runs(refused)) << "a job offered while refusing ran";
    for (const osal_kit_test::CapturedTrace& r : capture.records()) {
        const std::string summary = r.sourcePath + "|" + std::to_string(r.level) + "|" + (r.hasFormat ? r.format : "-") +
                                    "|" + (r.values.empty() ? "" : r.values[0]);
        osal_kit_test::noteOutcome(records, run, summary.c_str());
    }
}

#define FAULT(function, code) OSAL_KIT_PAL_FAULT(function, code)
const osal_kit_test::PalFault FAULTS[] = {
    FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED), FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
    FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED), FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED),
    FAULT(SemaInit, SEMA_ERROR_CREATE_FAILED), FAULT(SemaWait, SEMA_ERROR_INTERNAL), FAULT(zmalloc, 0),
    FAULT(SemaSignal, SEMA_ERROR_INTERNAL), FAULT(SemaTryWait, SEMA_ERROR_INTERNAL), FAULT(SemaDeInit, SEMA_ERROR_INTERNAL),
    FAULT(ThreadWait, THREAD_ERROR_INTERNAL), FAULT(ThreadInit, THREAD_ERROR_CREATE_FAILED),
    FAULT(ThreadCreate, THREAD_ERROR_CREATE_FAILED), FAULT(ThreadDeInit, THREAD_ERROR_INTERNAL),
    FAULT(MsgQueue_Init, MSGQUEUE_ERROR_NO_MEMORY), FAULT(MsgQueue_SendMsg, MSGQUEUE_ERROR_INTERNAL),
    FAULT(MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL), FAULT(MsgQueue_ReceiveMsg, MSGQUEUE_ERROR_INTERNAL),
    FAULT(MsgQueue_GetStatus, MSGQUEUE_ERROR_INTERNAL), FAULT(MsgQueue_DeInit, MSGQUEUE_ERROR_INTERNAL),
};

// On the calling thread each failure leaves its records; on any thread, the worker's
// included, nothing hangs, leaks or is deleted twice.
TEST(JobQueueFaultSweep, EveryFailureIsTracedAndCleanedUp)
{
    for (const bool anyThread : {false, true}) {
        for (const osal_kit_test::PalFault& fault : FAULTS) {
            SCOPED_TRACE(std::string(fault.name) + (anyThread ? " on any thread" : ""));
            EXPECT_TRUE(osal_kit_test::sweepPlatformFault(fault, queueLife, anyThread) > 0 || !anyThread) << "never called";
            if (!anyThread)
                osal_kit_test::expectRowsSeen(records, fault.function);
        }
    }
}

} // namespace
