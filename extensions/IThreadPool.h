#ifndef OSAL_KIT_EXTENSIONS_ITHREADPOOL_H
#define OSAL_KIT_EXTENSIONS_ITHREADPOOL_H

#include "core/Export.h"
#include "core/String.h"
#include "core/Vector.h"
#include "extensions/IPoolTask.h"

namespace PAL {

/// A named pool that runs `IPoolTask`s on between a minimum and a maximum number of
/// threads of its own. Made by `CThreadPoolFactory::Create`, owned by the caller and
/// destroyed with `delete`, which stops a started pool as `Stop(eAbortRunningTasks)`
/// does.
///
/// Tasks that share a non-zero queue id never run at the same time and run in the
/// order they were added; queue id 0 means no queue. A waiting task goes to the idle
/// thread of lowest position; when none is idle and fewer than the maximum exist, the
/// pool grows by one thread.
///
/// Results: every operation except `IsIdle` returns a `CString`. It is empty on
/// success; otherwise it is one line of error text ending in "[pool:<name>]", the
/// exact texts being listed below. `GetStatus` returns the status line instead. Texts
/// hold names of any length whole, tail included.
/// Nothing is thrown or traced.
///
/// Threads: every operation may be called from any thread and holds the pool's lock
/// for its whole run (`Stop` releases it while it waits for the pool threads). `Stop`
/// and `delete` must not be called from inside a task, and no operation from inside
/// `IPoolTask::Abort` (the lock is held then; the call gets a lock failure text).
///
///     PAL::IThreadPool* pool = PAL::CThreadPoolFactory::Create("io");
///     if (pool != nullptr && pool->Start(1, 4, 0).isEmpty()) {
///         unsigned int taskId = 0;
///         PAL::CString error = pool->AddTask("flush", new (std::nothrow) CFlushTask, 2, taskId);
///         ...
///         pool->Stop(PAL::IThreadPool::eFinishRunningTasks);
///     }
///     delete pool;
class OSAL_KIT_API IThreadPool {
public:
    /// What `Stop` does with tasks that are running; waiting tasks are always deleted
    /// unrun. Any other value is refused by `Stop`.
    enum eShutdownPolicy : int {
        eFinishRunningTasks = 0, ///< let running tasks end by themselves
        eAbortRunningTasks = 1   ///< call `Abort()` on every running task first
    };

    /// A task's name and ids, as the pool's queries report them.
    class OSAL_KIT_API TaskInfo {
    public:
        /// Empty name, ids 0.
        TaskInfo();
        ///@{
        /// Copies the name and the ids.
        TaskInfo(const TaskInfo& other);
        TaskInfo& operator=(const TaskInfo& other);
        ///@}
        virtual ~TaskInfo();

        /// Back to the empty name and ids 0.
        virtual void Reset();

        CString mTaskName;     ///< as given to `AddTask`
        unsigned int mTaskId;  ///< as issued by `AddTask`
        unsigned int mQueueId; ///< as given to `AddTask`
    };

    /// A task an abort operation reached.
    class OSAL_KIT_API AbortedTaskInfo : public TaskInfo {
    public:
        /// Empty name, ids 0, `mWasRunning` false.
        AbortedTaskInfo();
        ///@{
        /// Copies the name, the ids and `mWasRunning`.
        AbortedTaskInfo(const AbortedTaskInfo& other);
        AbortedTaskInfo& operator=(const AbortedTaskInfo& other);
        ///@}
        ~AbortedTaskInfo() override;

        /// Also clears `mWasRunning`, through a `TaskInfo&` as well.
        void Reset() override;

        /// True: the task was running and its `Abort()` was called. False: it was
        /// waiting and its `IsAborted()` flag was set.
        bool mWasRunning;
    };

    /// A snapshot of the pool, filled by `GetStatus`.
    struct OSAL_KIT_API Status {
        /// As after `Reset`.
        Status();

        /// Empty name, flags false, counts 0, no busy queue ids.
        void Reset();

        CString mPoolName;                      ///< as given to `CThreadPoolFactory::Create`
        bool mIsStarted;                        ///< from a successful `Start` to the end of `Stop`
        bool mIsShuttingDown;                   ///< true only while `Stop` ends the threads
        int mTasksListSize;                     ///< tasks waiting for a thread
        unsigned int mMinNumbOfThreads;         ///< of the last successful `Start`
        unsigned int mMaxNumbOfThreads;         ///< of the last successful `Start`
        int mNumbOfInitializedThreads;          ///< threads the pool has
        unsigned int mNumbOfIdleThreads;        ///< threads without a task
        unsigned int mNumbOfBusyThreads;        ///< threads with a task
        unsigned int mNumbOfUninitializedThreads; ///< threads the pool may still add
        unsigned int mNumbOfExitedThreads;      ///< threads whose loop ended on an internal error
        TVector<unsigned int> mBusyQueueIds;    ///< queue ids with a running task, in the order they became busy
    };

    virtual ~IThreadPool();

    /// Creates `minNumbOfThreads` threads at `priority` (-3 lowest to 3 highest) and lets
    /// the pool grow to `maxNumbOfThreads`. Refusals, "CThreadPool::start: ..." then
    /// "[pool:<name>]": "pool already started", "Not allowed because the pool is
    /// shutting down", "minNumbOfThreads == 0: not allowed", "minNumbOfThreads >
    /// maxNumbOfThreads: not allowed"; a bad priority gives
    /// "CThreadPool::convertPrioToPalPrio: priority value <p> not allowed [pool:<name>]".
    /// A start that fails part-way leaves no thread behind and the pool not started.
    virtual CString Start(unsigned int minNumbOfThreads, unsigned int maxNumbOfThreads, int priority) = 0;

    /// Deletes the waiting tasks unrun, applies `shutdownPolicy` to the running ones and
    /// returns once every pool thread has ended (after the running tasks' `Run` have
    /// returned). Afterwards `Start` may be called again. Refusals: "CThreadPool::stop:
    /// Error: pool is not started", "... Not allowed because the pool is shutting down",
    /// "CThreadPool::stop: unknown shutdownPolicy: <n>" (the pool keeps running).
    virtual CString Stop(eShutdownPolicy shutdownPolicy) = 0;

    /// Queues `pPoolTask` under the non-empty `taskName` with `queueId` (0 to the
    /// maximum number of threads) and sets `taskId` to its id (1, 2, 3, ... across all
    /// pools of the process), which the task also sees in `GetTaskId()`. The pool owns
    /// the task exactly when `taskId` is non-zero afterwards, even if the text reports a
    /// failure to hand it to a thread (it then waits for the next chance). Refusals,
    /// "CThreadPool::addTask: ...": "Error: pool is not started", "Not allowed because
    /// the pool is shutting down", "Error: illegal queueId: <q>", "Error: taskName is
    /// empty", "Error: pPoolTask==0", "Cannot allocate new CTaskElement".
    virtual CString AddTask(const CString& taskName, IPoolTask* pPoolTask, const unsigned int& queueId,
                            unsigned int& taskId) = 0;

    /// Aborts the task with id `taskId` (not 0): `Abort()` if it runs, the flag if it
    /// waits. `abortedTasks` lists what was reached; finding nothing is no error.
    /// Refusals leave `abortedTasks` as passed: "CThreadPool::abortTaskByTaskId: Error:
    /// pool is not started", "... Not allowed because the pool is shutting down", "...
    /// Error: taskId==0 is invalid".
    virtual CString AbortTaskByTaskId(const unsigned int& taskId, TVector<AbortedTaskInfo>& abortedTasks) = 0;

    /// As `AbortTaskByTaskId` for every task named `taskName` (not empty); running tasks
    /// are listed first in thread position order, then waiting ones, newest first.
    /// "CThreadPool::abortTaskByName: ..." texts, "Error: empty taskname is invalid".
    virtual CString AbortTaskByName(const CString& taskName, TVector<AbortedTaskInfo>& abortedTasks) = 0;

    /// As `AbortTaskByName` for the tasks of `queueId` (0: every task without a queue);
    /// with `runningTasksOnly` the waiting ones are left alone. "CThreadPool::
    /// abortTaskByQueueId: ..." texts, "Error: illegal queueId: <q>".
    virtual CString AbortTaskByQueueId(const unsigned int& queueId, const bool& runningTasksOnly,
                                       TVector<AbortedTaskInfo>& abortedTasks) = 0;

    /// Aborts every task: running ones in thread position order, then waiting ones,
    /// oldest first. `abortedTasks` is emptied even when the call is refused
    /// ("CThreadPool::abortAllTasks: Error: pool is not started", "... Not allowed
    /// because the pool is shutting down").
    virtual CString AbortAllTasks(TVector<AbortedTaskInfo>& abortedTasks) = 0;

    /// Describes the running task with id `taskId`; `taskInfo` is reset first. Waiting
    /// tasks are not found: "CThreadPool::getRunningTaskInfoByTaskId: Error: no running
    /// task for requested taskId=<id>"; other refusals "... Error: pool is not started",
    /// "... Not allowed because the pool is shutting down", "... Error: illegal taskId: 0".
    virtual CString GetRunningTaskInfoByTaskId(const unsigned int& taskId, TaskInfo& taskInfo) = 0;

    /// Describes the running task of `queueId`, or for 0 every running task without a
    /// queue, in thread position order; `taskInfos` is emptied first. None: "CThreadPool::
    /// getRunningTaskInfoByQueueId: Error: no running task for requested queueId=<q>";
    /// other refusals as for `GetRunningTaskInfoByTaskId`, "Error: illegal queueId: <q>".
    virtual CString GetRunningTaskInfoByQueueId(const unsigned int& queueId, TVector<TaskInfo>& taskInfos) = 0;

    /// True when no task waits and no thread has one; true for a pool that is not
    /// started.
    virtual bool IsIdle() = 0;

    /// Fills `status` and returns the status line, in any state, e.g. "Status of
    /// thread-pool ['P', minThr:2, maxThr:4, started:true, shutdown:false]: tasks-list
    /// size:0, initialized-threads:2 (idle:1, busy:1), uninitialized-threads:2,
    /// exited-threads:0, busy-queue_ids:[3 ]". The thread counts read 0 unless the pool
    /// is started and not shutting down.
    virtual CString GetStatus(Status& status) = 0;
};

} // namespace PAL

#endif
