// The thread pool through a failure of each platform function it calls, on the calling
// thread and then on any thread, at every call of a whole pool life: create, start, add tasks (growing the pool
// and queueing behind busy queue ids), abort, query, stop, start again and destroy it.

#include "extensions/IThreadPool.h"
#include "extensions/ThreadPoolFactory.h"

#include "support/PlatformFaultSweep.h"
#include "support/SweepLedger.h"
#include "support/WaitableCounter.h"

#include "morvex_pal.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <string>

namespace {

using osal_kit_test::FaultRun;
using osal_kit_test::SweepLedger;
using PAL::CString;
using PAL::IThreadPool;

// Runs until the gate opens, unless aborted while waiting. Until the pool is being
// stopped no task completes, so the calls of the calling thread are the same in every run.
struct Gate {
    SweepLedger ledger;
    osal_kit_test::WaitableCounter started, open;
    std::atomic<bool> openOnAbort{false};
};

struct GatedTask : PAL::IPoolTask {
    GatedTask(Gate& gate, int item) : mGate(gate), mItem(item) {}
    ~GatedTask() override { mGate.ledger.deleted(mItem); }
    void Run() override
    {
        mGate.ledger.ran(mItem);
        mGate.started.increment();
        if (!IsAborted())
            mGate.open.waitFor(1);
    }
    void Abort() override { if (mGate.openOnAbort) mGate.open.increment(); }
    Gate& mGate;
    const int mItem;
};

const int TASKS = 7;
const unsigned int QUEUE_OF[TASKS] = {0, 1, 1, 2, 0, 0, 1}; // task 2 waits behind task 1

typedef std::array<osal_kit_test::ExpectedOutcome, 28> Outcomes;

// One whole pool life, one step after another. Every task ends deleted exactly once: by
// the pool when it took the task (a non-zero id), else by the caller. The tasks
// given to threads have begun before the aborts, so that the calling thread meets the
// same calls in every run.
void poolLife(FaultRun& run, Outcomes& outcomes, bool waitForRunningTasks)
{
    Gate gate;
    GatedTask* tasks[TASKS];
    CString names[TASKS];
    unsigned int ids[TASKS] = {};
    for (int i = 0; i < TASKS; ++i)
        tasks[i] = new GatedTask(gate, i), names[i] = ("task" + std::to_string(i == 4 ? 0 : i)).c_str();
    {
        PAL::TVector<IThreadPool::AbortedTaskInfo> aborted(8);
        PAL::TVector<IThreadPool::TaskInfo> infos(8);
        IThreadPool::TaskInfo info;
        IThreadPool::Status status;
        IThreadPool* pool = nullptr;
        int i = 0;
        const std::function<CString()> add = [&] { const int k = i++; return pool->AddTask(names[k], tasks[k], QUEUE_OF[k], ids[k]); };
        const std::pair<const char*, std::function<CString()>> steps[] = {
            {"Start", [&] { return pool->Start(1, 3, 0); }},
            {"AddTask", add}, {"AddTask", add}, {"AddTask", add}, {"AddTask", add}, {"AddTask", add},
            {"GetStatus", [&] { return pool->GetStatus(status); }},
            {"Started", [&] { return CString(waitForRunningTasks && !gate.started.waitFor(int(status.mNumbOfBusyThreads)) ? "hung" : ""); }},
            {"AbortTaskByQueueId", [&] { return pool->AbortTaskByQueueId(1, false, aborted); }},
            {"AbortTaskByTaskId", [&] { return pool->AbortTaskByTaskId(ids[2], aborted); }},
            {"AbortTaskByName", [&] { return pool->AbortTaskByName(names[0], aborted); }},
            {"GetRunningTaskInfoByTaskId", [&] { return pool->GetRunningTaskInfoByTaskId(ids[0], info); }},
            {"GetRunningTaskInfoByQueueId", [&] { return pool->GetRunningTaskInfoByQueueId(0, infos); }},
            {"AbortAllTasks", [&] { return pool->AbortAllTasks(aborted); }},
            {"IsIdle", [&] { return CString(pool->IsIdle() ? "idle" : "busy"); }},
            {"Stop", [&] { gate.openOnAbort = true; return pool->Stop(IThreadPool::eAbortRunningTasks); }},
            {"Restart", [&] { return pool->Start(1, 2, -1); }}, {"AddTask", add}, {"AddTask", add},
            {"Destroy", [&] { delete pool; return CString(); }},
        };
        CString reports[sizeof steps / sizeof steps[0]];
        run.arm();
        pool = run.step("Create", [] { return PAL::CThreadPoolFactory::Create(CString("sweep")); });
        for (std::size_t n = 0; pool != nullptr && n < sizeof steps / sizeof steps[0]; ++n)
            reports[n] = run.step(steps[n].first, [&] { return steps[n].second(); }); // copies nothing
        run.disarm();
        for (const CString& report : reports)
            osal_kit_test::noteOutcome(outcomes, run, report.getBuffer());
    }
    for (int i = 0; i < TASKS; ++i)
        if (ids[i] == 0)
            delete tasks[i];
    gate.ledger.expectEachDeletedOnce(TASKS);
}

#define ROW(function, step, text) osal_kit_test::ExpectedOutcome{__LINE__, MORVEX_FAULT_##function, step, text, false}
#define LOCK(step) ROW(MutexWait, #step, "CThreadPool::" #step ": Morvex_PAL_MutexWait failed: 5 [pool:sweep]")
#define THREAD(function, text) ROW(function, "Start", text), ROW(function, "AddTask", text), ROW(function, "Restart", text)

// The texts a failure on the calling thread must give, each at least once in its sweep.
// Failures the pool does not report (a failed release, join or de-initialisation, and
// the counters' own mutex under every string copy) have no row.
Outcomes expectedOutcomes()
{
    return {{
        LOCK(Start), LOCK(AddTask), LOCK(AbortTaskByQueueId), LOCK(AbortTaskByTaskId), LOCK(AbortTaskByName),
        LOCK(GetRunningTaskInfoByTaskId), LOCK(GetRunningTaskInfoByQueueId), LOCK(AbortAllTasks), LOCK(Stop),
        ROW(MutexWait, "Restart", "CThreadPool::Start: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        THREAD(zmalloc, "CThreadPool::addNewThreadToPool: cannot allocate CThreadElement [pool:sweep]"),
        THREAD(SemaInit, "CThreadPool::initThread: Morvex_PAL_SemaInit failed: 5 [pool:sweep]"),
        THREAD(ThreadInit, "CThreadPool::initThread: Morvex_PAL_ThreadInit failed: 4 [pool:sweep]"),
        THREAD(ThreadCreate, "CThreadPool::initThread: Morvex_PAL_ThreadCreate failed: 4 [pool:sweep]"),
        ROW(zmalloc, "AddTask", "CThreadPool::addTask: Cannot allocate new CTaskElement [pool:sweep]"),
        ROW(SemaSignal, "AddTask", "CThreadPool::assignTasksToThreads: Morvex_PAL_SemaSignal failed [7]. "
                                   "CThreadElement pos:*. Name of assiging task: task*. [pool:sweep]"),
        // What a failed start, or a pool without its lock, gives the operations after it.
        ROW(ThreadInit, "Start", "CThreadPool::addTask: Error: pool is not started [pool:sweep]"),
        ROW(MutexInit, "Create", "CThreadPool::Start: mTSIMutex == Morvex_NULL [pool:sweep]"),
        ROW(MutexInit, "Create", "CThreadPool::AbortAllTasks: mTSIMutex == Morvex_NULL [pool:sweep]"),
        ROW(zmalloc, "Create", "CThreadPool::AddTask: mTSIMutex == Morvex_NULL [pool:sweep]"),
    }};
}

const osal_kit_test::PalFault FAULTS[] = {
    OSAL_KIT_PAL_FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED),  OSAL_KIT_PAL_FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
    OSAL_KIT_PAL_FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED), OSAL_KIT_PAL_FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED),
    OSAL_KIT_PAL_FAULT(SemaInit, SEMA_ERROR_CREATE_FAILED),    OSAL_KIT_PAL_FAULT(SemaWait, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(SemaSignal, SEMA_ERROR_INTERNAL),       OSAL_KIT_PAL_FAULT(SemaDeInit, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(ThreadInit, THREAD_ERROR_CREATE_FAILED), OSAL_KIT_PAL_FAULT(ThreadCreate, THREAD_ERROR_CREATE_FAILED),
    OSAL_KIT_PAL_FAULT(ThreadWait, THREAD_ERROR_INTERNAL),     OSAL_KIT_PAL_FAULT(ThreadDeInit, THREAD_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(ThreadGetCurrent, 0),                   OSAL_KIT_PAL_FAULT(zmalloc, 0),
};

// On the calling thread every failure gives the pool's documented text; on any thread,
// the pool's own included, nothing hangs, leaks or is deleted twice.
TEST(ThreadPoolFaultSweep, EveryFailureIsReportedAndCleanedUp)
{
    for (const bool anyThread : {false, true}) {
        Outcomes outcomes = expectedOutcomes();
        for (const osal_kit_test::PalFault& fault : FAULTS) {
            SCOPED_TRACE(std::string(fault.name) + (anyThread ? " on any thread" : " on the calling thread"));
            const unsigned int failed = osal_kit_test::sweepPlatformFault(
                fault, [&](FaultRun& run) { poolLife(run, outcomes, !anyThread); }, anyThread);
            const bool poolThreadsOnly = fault.function == MORVEX_FAULT_ThreadGetCurrent || fault.function == MORVEX_FAULT_SemaWait;
            EXPECT_TRUE(failed > 0 || (!anyThread && poolThreadsOnly)) << "never called";
            if (!anyThread)
                osal_kit_test::expectRowsSeen(outcomes, fault.function);
        }
    }
}

} // namespace
