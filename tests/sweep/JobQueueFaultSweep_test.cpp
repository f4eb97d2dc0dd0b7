// The job queue through a failure of each platform function it calls, at every call of
// a whole queue life: create deferred, insert, read the fill level, flush and discard
// before the worker runs, start, refuse jobs, flush and discard a running queue, insert
// from another thread, and destroy it with that job waiting. Each job offered is deleted
// exactly once, nothing leaks or hangs, and each failure on the calling thread leaves
// its documented record.

#include "extensions/JobQueue.h"

#include "support/PlatformFaultSweep.h"
#include "support/SweepLedger.h"
#include "support/WaitableCounter.h"

#include "msgqueue.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <thread>

namespace {

using osal_kit_test::ExpectedRecord;
using osal_kit_test::FaultRun;
using osal_kit_test::PalFault;
using PAL::CJobQueue;

class SweepJob : public CJobQueue::CJob {
public:
    SweepJob(osal_kit_test::SweepLedger& ledger, int item) : CJob("job"), mLedger(ledger), mItem(item) {}
    ~SweepJob() override { mLedger.deleted(mItem); }
    void Run() override { mLedger.ran(mItem); }

private:
    osal_kit_test::SweepLedger& mLedger;
    int mItem;
};

const char* const QUEUE = "extensions/private/JobQueue.cpp";
const char* const MUTEX = "os/private/Mutex.cpp";

#define ROW(function, step, file, level) \
    ExpectedRecord{__LINE__, MORVEX_FAULT_##function, step, file, level, nullptr, nullptr, false}
#define TEXT_ROW(function, step, file, format, value) \
    ExpectedRecord{__LINE__, MORVEX_FAULT_##function, step, file, 3, format, value, false}

// Failures the queue does not report (a refused join or semaphore release, the
// counters' own mutex) have no row.
std::array<ExpectedRecord, 21> records = {{
    ROW(MsgQueue_Init, "Create", QUEUE, 3), TEXT_ROW(MsgQueue_Init, "Create", QUEUE, "%s%s", "sweep"),
    TEXT_ROW(MsgQueue_TrySendMsg, "Insert", QUEUE, "%s%s", "sweep"), ROW(SemaInit, "Flush", QUEUE, 3),
    TEXT_ROW(MsgQueue_SendMsg, "Flush", QUEUE, "%s%s", "sweep"), ROW(MsgQueue_SendMsg, "Flush", QUEUE, 3),
    ROW(MsgQueue_GetStatus, "GetFillLevel", QUEUE, 3), ROW(MsgQueue_GetStatus, "DiscardDeferred", QUEUE, 3),
    ROW(MsgQueue_ReceiveMsg, "DiscardDeferred", QUEUE, 3), ROW(MsgQueue_DeInit, "Destroy", QUEUE, 3),
    ROW(ThreadCreate, "FlushDeferred", QUEUE, 3), ROW(ThreadCreate, "StartProcessing", QUEUE, 3),
    ROW(ThreadInit, "Create", QUEUE, 3), ROW(SemaWait, "Flush", QUEUE, 4), ROW(SemaTryWait, "Flush", QUEUE, 3),
    ROW(zmalloc, "Flush", QUEUE, 3), TEXT_ROW(MutexInit, "Create", MUTEX, "%s", "CJobQueue::mMutex"),
    TEXT_ROW(MutexWait, "Insert", MUTEX, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
    TEXT_ROW(MutexWait, "Destroy", MUTEX, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
    TEXT_ROW(MutexSignal, "Insert", MUTEX, "%s%s", "MUTEX_ERROR_SIGNAL_FAILED"),
    TEXT_ROW(MutexDeInit, "Destroy", MUTEX, "%s%s", "MUTEX_ERROR_DEINIT_FAILED"),
}};

// One whole queue life. Every job offered to Insert belongs to the queue from then on;
// the others stay with the caller.
void queueLife(FaultRun& run)
{
    osal_kit_test::SweepLedger ledger;
    SweepJob* jobs[8];
    for (SweepJob*& job : jobs)
        job = new SweepJob(ledger, static_cast<int>(&job - jobs));
    osal_kit_test::TraceTally tally;
    // Another thread inserts one job late in the queue's life: whatever failed before
    // must not have left the queue's lock held.
    osal_kit_test::WaitableCounter go, done;
    CJobQueue* shared = nullptr;
    int offered = 0;
    std::thread other([&] {
        go.waitFor(1);
        if (shared != nullptr)
            (void)run.step("InsertElsewhere", [&] { return shared->Insert(jobs[offered++], 0); });
        done.increment();
    });
    // In place: the queue's deleting destructor is the library's, whose operator delete
    // is not the one a sanitized test's new pairs with.
    std::optional<CJobQueue> queue;
    auto insert = [&](int priority) {
        (void)run.step("Insert", [&] { return queue->Insert(jobs[offered++], priority); });
    };
    run.arm();
    run.step("Create", [&] { queue.emplace(4, "sweep", PAL::CThread::PRIORITY_NORMAL, true); });
    insert(2), insert(1);
    (void)run.step("GetFillLevel", [&] { return queue->GetFillLevel(); });
    (void)run.step("FlushDeferred", [&] { return queue->Flush(false); });
    insert(0);
    (void)run.step("DiscardDeferred", [&] { return queue->Flush(true); });
    (void)run.step("StartProcessing", [&] { return queue->StartProcessing(); });
    insert(0);
    run.step("AcceptJobs", [&] { queue->AcceptJobs(false); });
    insert(0);
    const int refused = offered - 1;
    run.step("AcceptJobs", [&] { queue->AcceptJobs(true); });
    (void)run.step("Flush", [&] { return queue->Flush(false); });
    insert(3), insert(3);
    (void)run.step("Discard", [&] { return queue->Flush(true); });
    shared = &*queue;
    go.increment(), done.waitFor(1);
    run.step("Destroy", [&] { queue.reset(); });
    run.disarm();
    other.join();
    for (int i = offered; i < 8; ++i)
        delete jobs[i];
    ledger.expectEachDeletedOnce(8);
    EXPECT_EQ(0, ledger.runs(refused)) << "a job offered while refusing ran";
    osal_kit_test::noteRecords(records, run, tally);
}

#define FAULT(function, code) OSAL_KIT_PAL_FAULT(function, code)
const PalFault FAULTS[] = {
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
        for (const PalFault& fault : FAULTS) {
            SCOPED_TRACE(std::string(fault.name) + (anyThread ? " on any thread" : ""));
            const unsigned int failed = osal_kit_test::sweepPlatformFault(fault, queueLife, anyThread);
            EXPECT_TRUE(failed > 0 || !anyThread) << "the scenario never called it";
            if (!anyThread)
                osal_kit_test::expectRowsSeen(records, fault.function);
        }
    }
}

} // namespace
