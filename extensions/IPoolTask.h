#ifndef OSAL_KIT_EXTENSIONS_IPOOLTASK_H
#define OSAL_KIT_EXTENSIONS_IPOOLTASK_H

#include "core/Export.h"

namespace PAL {

class CThreadPool;

/// A unit of work for a thread pool, implemented by the caller.
///
/// Ownership passes to the pool when `IThreadPool::AddTask` hands back a non-zero task
/// id; from then on the pool deletes the task through its virtual destructor, after
/// `Run` has returned or when `Stop` discards it unrun, and the caller must neither
/// delete nor touch it. A task refused by `AddTask` (task id 0) stays with the caller.
///
/// `Run` is called at most once, on a pool thread, without any lock of the pool held.
/// `Abort` may be called while the task runs, from the thread that asked for the abort
/// (with the pool's lock held, so it must not call back into the pool); making `Run`
/// and `Abort` safe against each other is the task's business. A task aborted while it
/// was still waiting is run all the same, with `IsAborted()` true: it should return at
/// once.
///
///     class CSaveTask : public PAL::IPoolTask {
///     public:
///         void Run() override { if (!IsAborted()) save(mStop); }
///         void Abort() override { mStop.request(); } // the task's own thread-safe flag
///     };
///     unsigned int id = 0;
///     PAL::IPoolTask* task = new (std::nothrow) CSaveTask;
///     if (!pool->AddTask("save", task, 0, id).isEmpty() && id == 0)
///         delete task;                         // refused: still ours
class OSAL_KIT_API IPoolTask {
public:
    /// Task id 0 (none yet), not aborted.
    IPoolTask() : mTaskId(0), mIsAborted(false) {}
    virtual ~IPoolTask() {}

    /// The work; called once on a pool thread.
    virtual void Run() = 0;
    /// A request to end a running `Run` early; the pool ignores what the task does.
    virtual void Abort() = 0;

    /// The id `AddTask` issued for this task (0 before that). Stable from the start of
    /// `Run` on.
    unsigned int GetTaskId() const { return mTaskId; }
    /// True once an abort found the task still waiting for a thread; never cleared.
    /// Reliable inside `Run`.
    bool IsAborted() const { return mIsAborted; }

private:
    // Written by the pool, under its lock, before the task reaches a thread.
    friend class CThreadPool;

    IPoolTask(const IPoolTask&) = delete;
    IPoolTask& operator=(const IPoolTask&) = delete;

    unsigned int mTaskId;
    bool mIsAborted;
};

} // namespace PAL

#endif
