// The thread pool through a failure of each platform function it calls, at every call
// of a whole pool life: create, start, add tasks (growing the pool and queueing behind
// busy queue ids), abort, query, stop, start again and destroy a started pool.

#include "extensions/IThreadPool.h"
#include "extensions/ThreadPoolFactory.h"

#include "support/PlatformFaultSweep.h"
#include "support/SweepLedger.h"
#include "support/WaitableCounter.h"

#include "morvex_pal.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>

namespace {

using osal_kit_test::ExpectedOutcome;
using osal_kit_test::FaultRun;
using osal_kit_test::PalFault;
using osal_kit_test::SweepLedger;
using osal_kit_test::WaitableCounter;
using PAL::CString;
using PAL::IThreadPool;

// Runs until the gate opens, so that the pool has running and waiting tasks to abort.
// An abort opens the gate only once the scenario is stopping the pool: until then no
// task completes, so the pool's work on the calling thread is the same in every run.
struct Gate {
    WaitableCounter started;
    WaitableCounter open;
    std::atomic<bool> openOnAbort{false};
};

class GatedTask : public PAL::IPoolTask {
public:
    GatedTask(SweepLedger& ledger, int item, Gate& gate) : mLedger(ledger), mItem(item), mGate(gate) {}
    ~GatedTask() override { mLedger.deleted(mItem); }
    void Run() override
    {
        mLedger.ran(mItem);
        mGate.started.increment();
        if (!IsAborted())
            mGate.open.waitFor(1);
    }
    void Abort() override
    {
        mLedger.aborted(mItem);
        if (mGate.openOnAbort)
            mGate.open.increment();
    }

private:
    SweepLedger& mLedger;
    int mItem;
    Gate& mGate;
};

// What the pool reported, step by step; fixed size, so logging allocates nothing of
// the test's own.
struct Reports {
    void add(const CString& report) { texts[count++ % texts.size()] = report; }
    std::array<CString, 24> texts;
    unsigned int count = 0;
};

const int TASKS = 7;
// Queue ids: 1 is busy with task 1 when task 2 arrives, so task 2 waits.
const unsigned int QUEUE_OF[TASKS] = {0, 1, 1, 2, 0, 0, 1};

// One whole pool life. The tasks' ledger must show every task deleted exactly once,
// by the pool when it took the task (a non-zero id), else by the caller.
// With `waitForRunningTasks`, the tasks given to threads have all begun before the
// aborts and the stop, so that the calling thread meets the same calls in every run;
// only where failures on the pool's threads may keep a task from ever starting is that
// wait left out.
template <std::size_t N>
void poolLife(FaultRun& run, std::array<ExpectedOutcome, N>& outcomes, bool waitForRunningTasks)
{
    SweepLedger ledger;
    Gate gate;
    GatedTask* tasks[TASKS];
    CString names[TASKS];
    unsigned int ids[TASKS] = {};
    for (int i = 0; i < TASKS; ++i) {
        tasks[i] = new GatedTask(ledger, i, gate);
        names[i] = i == 4 ? "task0" : (std::string("task") + std::to_string(i)).c_str();
    }
    Reports reports;
    {
        PAL::TVector<IThreadPool::AbortedTaskInfo> aborted(8);
        PAL::TVector<IThreadPool::TaskInfo> infos(8);
        IThreadPool::Status status;

        run.arm();
        IThreadPool* pool = run.step("Create", [] { return PAL::CThreadPoolFactory::Create(CString("sweep")); });
        if (pool != nullptr) {
            auto add = [&](int i) {
                reports.add(run.step("AddTask", [&] { return pool->AddTask(names[i], tasks[i], QUEUE_OF[i], ids[i]); }));
            };
            reports.add(run.step("Start", [&] { return pool->Start(1, 3, 0); }));
            for (int i = 0; i < 5; ++i)
                add(i);
            (void)run.step("GetStatus", [&] { return pool->GetStatus(status); });
            if (waitForRunningTasks)
                gate.started.waitFor(static_cast<int>(status.mNumbOfBusyThreads));
            reports.add(run.step("AbortTaskByQueueId", [&] { return pool->AbortTaskByQueueId(1, false, aborted); }));
            reports.add(run.step("AbortTaskByName", [&] { return pool->AbortTaskByName(names[0], aborted); }));
            reports.add(run.step("GetRunningTaskInfoByQueueId", [&] { return pool->GetRunningTaskInfoByQueueId(0, infos); }));
            reports.add(run.step("AbortAllTasks", [&] { return pool->AbortAllTasks(aborted); }));
            (void)run.step("IsIdle", [&] { return pool->IsIdle(); });
            gate.openOnAbort = true;
            reports.add(run.step("Stop", [&] { return pool->Stop(IThreadPool::eAbortRunningTasks); }));
            reports.add(run.step("Restart", [&] { return pool->Start(1, 2, -1); }));
            add(5);
            add(6);
            (void)run.step("Destroy", [&] {
                delete pool;
                return 0;
            });
        }
        run.disarm();
    }
    for (int i = 0; i < TASKS; ++i) {
        if (ids[i] == 0)
            delete tasks[i];
    }
    ledger.expectEachDeletedOnce(TASKS);
    if (waitForRunningTasks) {
        // Nothing the failure touched stays held by this thread: another thread can
        // still add a task to a pool of its own (the watchdog ends a run that hangs).
        gate.open.increment();
        std::thread other([&] {
            IThreadPool* pool = PAL::CThreadPoolFactory::Create(CString("other"));
            GatedTask* task = new GatedTask(ledger, TASKS, gate);
            unsigned int id = 0;
            EXPECT_EQ("", std::string(pool->Start(1, 1, 0).getBuffer()));
            EXPECT_EQ("", std::string(pool->AddTask(CString("other"), task, 0, id).getBuffer()));
            delete pool;
        });
        other.join();
        EXPECT_EQ(1, ledger.deletions(TASKS));
    }
    for (unsigned int i = 0; i < reports.count && i < reports.texts.size(); ++i)
        osal_kit_test::noteOutcome(outcomes, run, reports.texts[i].getBuffer());
}

#define ROW(function, step, text) ExpectedOutcome{__LINE__, MORVEX_FAULT_##function, step, text, false}

// The texts a failure on the calling thread must produce (each at least once in its
// sweep). Failures the pool does not report (a failed unlock, de-initialisation,
// join, and the counters' own mutex under every string copy) have no row.
std::array<ExpectedOutcome, 25> expectedOutcomes()
{
    return {{
        ROW(MutexInit, "Create", "CThreadPool::Start: mTSIMutex == Morvex_NULL [pool:sweep]"),
        ROW(MutexWait, "Start", "CThreadPool::Start: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "AddTask", "CThreadPool::AddTask: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "AbortTaskByQueueId", "CThreadPool::AbortTaskByQueueId: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "AbortTaskByName", "CThreadPool::AbortTaskByName: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "GetRunningTaskInfoByQueueId",
            "CThreadPool::GetRunningTaskInfoByQueueId: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "AbortAllTasks", "CThreadPool::AbortAllTasks: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "Stop", "CThreadPool::Stop: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(MutexWait, "Restart", "CThreadPool::Start: Morvex_PAL_MutexWait failed: 5 [pool:sweep]"),
        ROW(zmalloc, "Start", "CThreadPool::addNewThreadToPool: cannot allocate CThreadElement [pool:sweep]"),
        ROW(zmalloc, "AddTask", "CThreadPool::addTask: Cannot allocate new CTaskElement [pool:sweep]"),
        ROW(zmalloc, "AddTask", "CThreadPool::addNewThreadToPool: cannot allocate CThreadElement [pool:sweep]"),
        ROW(zmalloc, "Restart", "CThreadPool::addNewThreadToPool: cannot allocate CThreadElement [pool:sweep]"),
        ROW(SemaInit, "Start", "CThreadPool::initThread: Morvex_PAL_SemaInit failed: 5 [pool:sweep]"),
        ROW(SemaInit, "AddTask", "CThreadPool::initThread: Morvex_PAL_SemaInit failed: 5 [pool:sweep]"),
        ROW(SemaInit, "Restart", "CThreadPool::initThread: Morvex_PAL_SemaInit failed: 5 [pool:sweep]"),
        ROW(ThreadInit, "Start", "CThreadPool::initThread: Morvex_PAL_ThreadInit failed: 4 [pool:sweep]"),
        ROW(ThreadInit, "AddTask", "CThreadPool::initThread: Morvex_PAL_ThreadInit failed: 4 [pool:sweep]"),
        ROW(ThreadInit, "Restart", "CThreadPool::initThread: Morvex_PAL_ThreadInit failed: 4 [pool:sweep]"),
        ROW(ThreadCreate, "Start", "CThreadPool::initThread: Morvex_PAL_ThreadCreate failed: 4 [pool:sweep]"),
        ROW(ThreadCreate, "AddTask", "CThreadPool::initThread: Morvex_PAL_ThreadCreate failed: 4 [pool:sweep]"),
        ROW(ThreadCreate, "Restart", "CThreadPool::initThread: Morvex_PAL_ThreadCreate failed: 4 [pool:sweep]"),
        ROW(SemaSignal, "AddTask",
            "CThreadPool::assignTasksToThreads: Morvex_PAL_SemaSignal failed [7]. CThreadElement pos:*. "
            "Name of assiging task: task*. [pool:sweep]"),
        // What a failed start or a missing lock leaves for the operations after it.
        ROW(ThreadInit, "Start", "CThreadPool::addTask: Error: pool is not started [pool:sweep]"),
        ROW(MutexInit, "Create", "CThreadPool::AddTask: mTSIMutex == Morvex_NULL [pool:sweep]"),
    }};
}

const PalFault FAULTS[] = {
    OSAL_KIT_PAL_FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED),  OSAL_KIT_PAL_FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
    OSAL_KIT_PAL_FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED), OSAL_KIT_PAL_FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED),
    OSAL_KIT_PAL_FAULT(SemaInit, SEMA_ERROR_CREATE_FAILED),    OSAL_KIT_PAL_FAULT(SemaWait, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(SemaSignal, SEMA_ERROR_INTERNAL),       OSAL_KIT_PAL_FAULT(SemaDeInit, SEMA_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(ThreadInit, THREAD_ERROR_CREATE_FAILED), OSAL_KIT_PAL_FAULT(ThreadCreate, THREAD_ERROR_CREATE_FAILED),
    OSAL_KIT_PAL_FAULT(ThreadWait, THREAD_ERROR_INTERNAL),     OSAL_KIT_PAL_FAULT(ThreadDeInit, THREAD_ERROR_INTERNAL),
    OSAL_KIT_PAL_FAULT(ThreadGetCurrent, 0),                   OSAL_KIT_PAL_FAULT(zmalloc, 0),
};

// Failures on the calling thread: each gives the pool's documented text.
TEST(ThreadPoolFaultSweep, EveryFailureOnTheCallingThreadIsReportedAndCleanedUp)
{
    osal_kit_test::Watchdog watchdog;
    std::array<ExpectedOutcome, 25> outcomes = expectedOutcomes();
    for (const PalFault& fault : FAULTS) {
        SCOPED_TRACE(fault.name);
        const unsigned int failed = osal_kit_test::sweepPlatformFault(
            fault, watchdog, [&](FaultRun& run) { poolLife(run, outcomes, true); }, false);
        if (fault.function != MORVEX_FAULT_ThreadGetCurrent && fault.function != MORVEX_FAULT_SemaWait) {
            EXPECT_GT(failed, 0u) << "the scenario never called " << fault.name << " on its own thread";
        }
        osal_kit_test::expectRowsSeen(outcomes, fault.function);
    }
}

// Failures on any thread, the pool's own included: whatever the pool makes of them,
// nothing hangs, leaks or is deleted twice.
TEST(ThreadPoolFaultSweep, EveryFailureOnAnyThreadLeavesNothingBehind)
{
    osal_kit_test::Watchdog watchdog;
    std::array<ExpectedOutcome, 25> outcomes = expectedOutcomes();
    for (const PalFault& fault : FAULTS) {
        SCOPED_TRACE(fault.name);
        const unsigned int failed = osal_kit_test::sweepPlatformFault(
            fault, watchdog, [&](FaultRun& run) { poolLife(run, outcomes, false); }, true);
        EXPECT_GT(failed, 0u) << "the scenario never called " << fault.name;
    }
}

} // namespace
