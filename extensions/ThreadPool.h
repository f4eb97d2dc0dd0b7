#ifndef OSAL_KIT_EXTENSIONS_THREADPOOL_H
#define OSAL_KIT_EXTENSIONS_THREADPOOL_H

#include "core/Export.h"
#include "core/PtrVector.h"
#include "core/String.h"
#include "core/Vector.h"
#include "extensions/IPoolTask.h"
#include "extensions/IThreadPool.h"
#include "morvex_pal_mutex.h"
#include "morvex_pal_sema.h"
#include "morvex_pal_thread.h"

#include <atomic>

namespace PAL {

/// The thread pool behind `IThreadPool`, driving PAL core threads, semaphores and one
/// PAL core mutex (its lock) directly. Callers normally hold it as an `IThreadPool`
/// made by `CThreadPoolFactory::Create`; the interface describes its behaviour.
///
/// Besides the interface it offers the calls its own threads make to fetch their
/// semaphore and task and to report back. They identify the calling pool thread by its
/// PAL core handle and refuse any other with "CThreadPool::
/// getThreadElementByPalThreadHandle: palThread not found in mThreadsPtrVector
/// [pool:<name>]"; a null handle gets the call's "Unexpected: pPalThread==0" text.
///
/// If the pool's mutex cannot be created, every locked operation returns
/// "CThreadPool::<Operation>: mTSIMutex == Morvex_NULL [pool:<name>]"; a failed lock
/// gives "CThreadPool::<Operation>: Morvex_PAL_MutexWait failed: <code> [pool:<name>]"
/// (`IsIdle` and `GetStatus` answer all the same).
class OSAL_KIT_API CThreadPool : public IThreadPool {
public:
    /// A pool that is not started, with its lock made (see above when that fails).
    explicit CThreadPool(CString poolName);
    /// Stops a started pool as `Stop(eAbortRunningTasks)`, then releases the lock.
    ~CThreadPool() override;

    CString Start(unsigned int minNumbOfThreads, unsigned int maxNumbOfThreads, int priority) override;
    CString Stop(eShutdownPolicy shutdownPolicy) override;
    CString AddTask(const CString& taskName, IPoolTask* pPoolTask, const unsigned int& queueId,
                    unsigned int& taskId) override;
    CString AbortTaskByTaskId(const unsigned int& taskId, TVector<AbortedTaskInfo>& abortedTasks) override;
    CString AbortTaskByName(const CString& taskName, TVector<AbortedTaskInfo>& abortedTasks) override;
    CString AbortTaskByQueueId(const unsigned int& queueId, const bool& runningTasksOnly,
                               TVector<AbortedTaskInfo>& abortedTasks) override;
    CString AbortAllTasks(TVector<AbortedTaskInfo>& abortedTasks) override;
    CString GetRunningTaskInfoByTaskId(const unsigned int& taskId, TaskInfo& taskInfo) override;
    CString GetRunningTaskInfoByQueueId(const unsigned int& queueId, TVector<TaskInfo>& taskInfos) override;
    bool IsIdle() override;
    CString GetStatus(Status& status) override;

    /// The pool's name; the lock failure text in its place if the lock fails.
    CString GetPoolName();

    /// For a pool thread: its own semaphore, which it sleeps on between tasks.
    CString GetRunTaskSemaphoreHandle(const sMorvex_PAL_Thread* pPalThread, sMorvex_PAL_Sema*& pSemaphore);
    /// For a pool thread: the task attached to it ("CThreadPool::getPoolTask:
    /// Unexpected: the pool-thread has no associated task [pool:<name>]" if none).
    CString GetPoolTask(const sMorvex_PAL_Thread* pPalThread, IPoolTask*& pPoolTask);
    /// For a pool thread whose task's `Run` has returned: deletes the task, frees its
    /// queue id and hands out waiting tasks.
    CString TaskCompleted(const sMorvex_PAL_Thread* pPalThread);
    /// For a pool thread, as its last act: marks it exited (only counted by the status).
    void ThreadExited(const sMorvex_PAL_Thread* pPalThread);

    /// The body of every pool thread, with the pool as its argument; returns 0.
    static int poolThread(void* pPool);

private:
    class CThreadElement;
    class CTaskElement;
    class CWaitingTasks;

    CThreadPool(const CThreadPool&) = delete;
    CThreadPool& operator=(const CThreadPool&) = delete;

    CString lock(const char* callerName);
    bool lockAsking(const char* callerName);
    CString unlock(const char* callerName);
    void unlockAndWake(const char* callerName, CString& result);
    CString poolText(const char* formatText) const;

    CString start(unsigned int minNumbOfThreads, unsigned int maxNumbOfThreads, int priority);
    CString stop(eShutdownPolicy shutdownPolicy);
    CString addTask(const CString& taskName, IPoolTask* pPoolTask, const unsigned int& queueId, unsigned int& taskId);
    CString abortTaskByTaskId(const unsigned int& taskId, TVector<AbortedTaskInfo>& abortedTasks);
    CString abortTaskByName(const CString& taskName, TVector<AbortedTaskInfo>& abortedTasks);
    CString abortTaskByQueueId(const unsigned int& queueId, const bool& runningTasksOnly,
                               TVector<AbortedTaskInfo>& abortedTasks);
    CString abortAllTasks(TVector<AbortedTaskInfo>& abortedTasks);
    CString abortTaskByCriteria(const unsigned int& taskId, const CString& taskName, const unsigned int& queueId,
                                const bool& runningTasksOnly, TVector<AbortedTaskInfo>& abortedTasks);
    CString getRunningTaskInfoByTaskId(const unsigned int& taskId, TaskInfo& taskInfo);
    CString getRunningTaskInfoByQueueId(const unsigned int& queueId, TVector<TaskInfo>& taskInfos);
    bool isIdle();
    CString getStatus(Status& status);
    CString getPoolName();
    CString getRunTaskSemaphoreHandle(const sMorvex_PAL_Thread* pPalThread, sMorvex_PAL_Sema*& pSemaphore);
    CString threadStarting(const sMorvex_PAL_Thread* pPalThread, sMorvex_PAL_Sema*& pSemaphore,
                           CThreadElement*& pThreadElement);
    CString getPoolTask(const sMorvex_PAL_Thread* pPalThread, IPoolTask*& pPoolTask);
    CString taskCompleted(const sMorvex_PAL_Thread* pPalThread, IPoolTask** ppNextTask);
    CString completeTask(const sMorvex_PAL_Thread* pPalThread, IPoolTask*& pNextTask);
    void threadExited(const sMorvex_PAL_Thread* pPalThread);

    CString addNewThreadToPool(int priority, unsigned int& position);
    CString initAndCreateThread(CThreadElement& element, int priority);
    CString convertPrioToPalPrio(int priority, eMorvex_PAL_ThreadPrio& palPriority);
    void shutdownThreads();
    CString assignTasksToThreads();
    CString attachTask(int position, CTaskElement& task, bool& needsWakeUp);
    CString wakeThread(int position, CTaskElement& task);
    void detachTask(int position, CTaskElement& task);
    CString wakeUpFailedText(int signalResult, int position, const CTaskElement& task) const;

    bool isQueueIdAvailable(unsigned int queueId);
    void setQueueIdAsBusy(unsigned int queueId);
    void setQueueIdAsFree(unsigned int queueId);
    CString getThreadElementByPalThreadHandle(const sMorvex_PAL_Thread* pPalThread, CThreadElement*& pThreadElement);
    CString getPosOfFirstIdleThread(int& posOfFirstIdleThread);
    CString getNumbOfUninitializedThreads(unsigned int& numbOfThreads);
    CString getNumbOfIdleThreads(unsigned int& numbOfIdleThreads);
    CString getNumbOfBusyThreads(unsigned int& numbOfBusyThreads);
    void getBusyQueueIds(TVector<unsigned int>& busyQueueIds, CString& busyQueueIdsText);

    sMorvex_PAL_Mutex* mTSIMutex;
    // The tasks not yet given to a thread, oldest first, which the pool owns. Never null
    // in a pool that has its lock.
    CWaitingTasks* mpWaitingTasks;
    TPtrVector<CThreadElement> mThreadsPtrVector;
    TVector<unsigned int> mBusyQueueIds;
    CString mPoolName;
    bool mIsStarted;
    unsigned int mMinNumbOfThreads;
    unsigned int mMaxNumbOfThreads;
    int mThreadPrio;
    // Pool threads read it without the lock right after waking.
    std::atomic<bool> mIsShuttingDown;
    // While a pool thread's own completion hands out tasks: a task given to that thread
    // needs no wake-up, the thread goes on to it without sleeping.
    CThreadElement* mpCompletingThread;
    bool mCompletingThreadGotTask;
};

} // namespace PAL

#endif
