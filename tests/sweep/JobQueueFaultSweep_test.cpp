// The job queue through a failure of each platform function it calls, at every call of
// a whole queue life: create deferred, insert, read the fill level, flush and discard
// before the worker runs, start, refuse jobs, flush and discard a running queue, insert
// from another thread, and destroy it with that job waiting.

#include "extensions/JobQueue.h"

#include "support/PlatformFaultSweep.h"
#include "support/SweepLedger.h"
#include "support/WaitableCounter.h"

#include "morvex_pal.h"
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
using osal_kit_test::SweepLedger;
using osal_kit_test::TraceTally;
using osal_kit_test::WaitableCounter;
using PAL::CJobQueue;
using PAL::CString;

class SweepJob : public CJobQueue::CJob {
public:
    SweepJob(SweepLedger& ledger, int item, const CString& name) : CJob(name), mLedger(ledger), mItem(item) {}
    ~SweepJob() override { mLedger.deleted(mItem); }
    void Run() override { mLedger.ran(mItem); }

private:
    SweepLedger& mLedger;
    int mItem;
};

const int JOBS = 8;

// One whole queue life. Every job offered to Insert belongs to the queue from then on;
// the others stay with the caller. Each must be deleted exactly once.
template <std::size_t N>
void queueLife(FaultRun& run, std::array<ExpectedRecord, N>& records)
{
    SweepLedger ledger;
    SweepJob* jobs[JOBS];
    bool offered[JOBS] = {};
    for (int i = 0; i < JOBS; ++i)
        jobs[i] = new SweepJob(ledger, i, CString(("job" + std::to_string(i)).c_str()));
    TraceTally tally;
    // Another thread inserts one job late in the life of the queue: whatever failed
    // before must not have left the queue's lock held by this thread.
    WaitableCounter go, done;
    CJobQueue* shared = nullptr;
    std::thread other([&] {
        go.waitFor(1);
        if (shared != nullptr) {
            offered[7] = true;
            (void)run.step("InsertElsewhere", [&] { return shared->Insert(jobs[7], 0); });
        }
        done.increment();
    });
    {
        // In place: the queue's deleting destructor is the library's, whose operator
        // delete is not the one a sanitized test's new pairs with.
        std::optional<CJobQueue> holder;
        run.arm();
        run.step("Create", [&] { holder.emplace(4, CString("sweep"), PAL::CThread::PRIORITY_NORMAL, true); });
        CJobQueue* queue = &*holder;
        {
            auto insert = [&](int i, int priority) {
                offered[i] = true;
                (void)run.step("Insert", [&] { return queue->Insert(jobs[i], priority); });
            };
            insert(0, 2);
            insert(1, 1);
            (void)run.step("GetFillLevel", [&] { return queue->GetFillLevel(); });
            (void)run.step("FlushDeferred", [&] { return queue->Flush(false); });
            insert(2, 0);
            (void)run.step("DiscardDeferred", [&] { return queue->Flush(true); });
            (void)run.step("StartProcessing", [&] { return queue->StartProcessing(); });
            insert(3, 0);
            run.step("AcceptJobs", [&] { queue->AcceptJobs(false); });
            insert(4, 0);
            run.step("AcceptJobs", [&] { queue->AcceptJobs(true); });
            (void)run.step("Flush", [&] { return queue->Flush(false); });
            insert(5, 3);
            insert(6, 3);
            (void)run.step("Discard", [&] { return queue->Flush(true); });
            shared = queue;
            go.increment();
            done.waitFor(1);
            run.step("Destroy", [&] { holder.reset(); });
        }
        run.disarm();
    }
    go.increment();
    other.join();
    for (int i = 0; i < JOBS; ++i) {
        if (!offered[i])
            delete jobs[i];
    }
    ledger.expectEachDeletedOnce(JOBS);
    EXPECT_EQ(0, ledger.runs(4)) << "a job offered while refusing ran";
    osal_kit_test::noteRecords(records, run, tally);
}

const char* const QUEUE = "extensions/private/JobQueue.cpp";
const char* const MUTEX = "os/private/Mutex.cpp";

#define ROW(function, step, file, level, format, value) \
    ExpectedRecord{__LINE__, MORVEX_FAULT_##function, step, file, level, format, value, false}

// The records a failure on the calling thread must leave (each at least once in its
// sweep). Failures the queue does not report (a refused join or semaphore release,
// the counters' own mutex) have no row.
std::array<ExpectedRecord, 26> expectedRecords()
{
    return {{
        ROW(MsgQueue_Init, "Create", QUEUE, 3, nullptr, nullptr),
        // Without its message queue every insertion is refused.
        ROW(MsgQueue_Init, "Create", QUEUE, 3, "%s%s", "sweep"),
        ROW(MsgQueue_TrySendMsg, "Insert", QUEUE, 3, "%s%s", "sweep"),
        ROW(MsgQueue_SendMsg, "Flush", QUEUE, 3, "%s%s", "sweep"),
        ROW(MsgQueue_SendMsg, "Flush", QUEUE, 3, nullptr, nullptr),
        ROW(MsgQueue_GetStatus, "GetFillLevel", QUEUE, 3, nullptr, nullptr),
        ROW(MsgQueue_GetStatus, "DiscardDeferred", QUEUE, 3, nullptr, nullptr),
        ROW(MsgQueue_ReceiveMsg, "DiscardDeferred", QUEUE, 3, nullptr, nullptr),
        ROW(MsgQueue_DeInit, "Destroy", QUEUE, 3, nullptr, nullptr),
        ROW(ThreadCreate, "FlushDeferred", QUEUE, 3, nullptr, nullptr),
        ROW(ThreadCreate, "StartProcessing", QUEUE, 3, nullptr, nullptr),
        ROW(MutexInit, "Create", MUTEX, 3, "%s%s", "MUTEX_ERROR_CREATE_FAILED"),
        ROW(MutexInit, "Create", MUTEX, 3, "%s", "CJobQueue::mMutex"),
        ROW(MutexInit, "Create", MUTEX, 4, nullptr, nullptr),
        ROW(MutexWait, "Insert", MUTEX, 3, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
        ROW(MutexWait, "Insert", MUTEX, 4, nullptr, nullptr),
        ROW(MutexWait, "Flush", MUTEX, 4, nullptr, nullptr),
        ROW(MutexWait, "Destroy", MUTEX, 3, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
        ROW(MutexSignal, "Insert", MUTEX, 3, "%s%s", "MUTEX_ERROR_SIGNAL_FAILED"),
        ROW(MutexSignal, "Insert", MUTEX, 4, nullptr, nullptr),
        ROW(MutexDeInit, "Destroy", MUTEX, 3, "%s%s", "MUTEX_ERROR_DEINIT_FAILED"),
        ROW(SemaInit, "Flush", QUEUE, 3, nullptr, nullptr),
        ROW(SemaWait, "Flush", QUEUE, 4, nullptr, nullptr),
        ROW(SemaTryWait, "Flush", QUEUE, 3, nullptr, nullptr),
        ROW(ThreadInit, "Create", QUEUE, 3, nullptr, nullptr),
        ROW(zmalloc, "Flush", QUEUE, 3, nullptr, nullptr),
    }};
}

const PalFault FAULTS[] = {
    OSAL_KIT_PAL_FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED),
    OSAL_KIT_PAL_FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
    OSAL_KIT_PAL_FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED),
    OSAL_KIT_PAL_FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED),
    OSAL_KIT_PAL_FAULT(SemaInit, SEMA_ERROR_CREATE_FAILED),
    OSAL_KIT_PAL_FAULT(SemaWait, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(SemaSignal, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(SemaTryWait, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(SemaDeInit, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(ThreadInit, THREAD_ERROR_CREATE_FAILED),
    OSAL_KIT_PAL_FAULT(ThreadCreate, THREAD_ERROR_CREATE_FAILED),
    OSAL_KIT_PAL_FAULT(ThreadWait, THREAD_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(ThreadDeInit, THREAD_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(MsgQueue_Init, MSGQUEUE_ERROR_NO_MEMORY),
    OSAL_KIT_PAL_FAULT(MsgQueue_SendMsg, MSGQUEUE_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(MsgQueue_TrySendMsg, MSGQUEUE_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(MsgQueue_ReceiveMsg, MSGQUEUE_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(MsgQueue_GetStatus, MSGQUEUE_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(MsgQueue_DeInit, MSGQUEUE_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(zmalloc, 0),
};

// Failures on the calling thread: each leaves the documented records.
TEST(JobQueueFaultSweep, EveryFailureOnTheCallingThreadIsTracedAndCleanedUp)
{
    osal_kit_test::Watchdog watchdog;
    std::array<ExpectedRecord, 26> records = expectedRecords();
    for (const PalFault& fault : FAULTS) {
        SCOPED_TRACE(fault.name);
        (void)osal_kit_test::sweepPlatformFault(
            fault, watchdog, [&](FaultRun& run) { queueLife(run, records); }, false);
        osal_kit_test::expectRowsSeen(records, fault.function);
    }
}

// Failures on any thread, the worker's included: nothing hangs, leaks or is deleted
// twice.
TEST(JobQueueFaultSweep, EveryFailureOnAnyThreadLeavesNothingBehind)
{
    osal_kit_test::Watchdog watchdog;
    std::array<ExpectedRecord, 26> records = expectedRecords();
    for (const PalFault& fault : FAULTS) {
        SCOPED_TRACE(fault.name);
        const unsigned int failed = osal_kit_test::sweepPlatformFault(
            fault, watchdog, [&](FaultRun& run) { queueLife(run, records); }, true);
        EXPECT_GT(failed, 0u) << "the scenario never called " << fault.name;
    }
}

} // namespace
