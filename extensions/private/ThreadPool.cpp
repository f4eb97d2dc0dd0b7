#include "extensions/ThreadPool.h"

#include "extensions/private/WaitingTasks.h"
#include "os/private/pal_release.h"

#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <new>

namespace PAL {

namespace {

const char* const sThreadNameFormat = "CThreadPool thread [pos:%d]";
// How often a refused take or release of the pool's lock, or a refused wake-up or
// join of a stopping thread, is tried in all.
const unsigned int sReleaseAttempts = 3;

// Every pool text ends with its "[pool:...]" tail, whatever the length of the pool's or
// the task's name: texts that do not fit the usual buffer are measured and formatted
// whole. Only when that larger buffer cannot be had is the text cut, as `format` cuts.
CString makeText(const char* format, ...)
{
    char small[257];
    char* buffer = small;
    unsigned int size = static_cast<unsigned int>(sizeof small);
    va_list arguments;
    va_start(arguments, format);
    va_list measuring;
    va_copy(measuring, arguments);
    const int needed = std::vsnprintf(0, 0, format, measuring);
    va_end(measuring);
    if (needed >= static_cast<int>(sizeof small)) {
        char* large = new (std::nothrow) char[static_cast<unsigned int>(needed) + 1u];
        if (large != 0) {
            buffer = large;
            size = static_cast<unsigned int>(needed) + 1u;
        }
    }
    CString text;
    (void)text.doFormat(buffer, size, format, arguments);
    va_end(arguments);
    if (buffer != small) {
        delete[] buffer;
    }
    return text;
}

const char* boolText(bool value)
{
    return value ? "true" : "false";
}

} // namespace

IThreadPool::~IThreadPool() {}

IThreadPool::TaskInfo::TaskInfo() : mTaskName(), mTaskId(0), mQueueId(0)
{
    TaskInfo::Reset();
}

IThreadPool::TaskInfo::TaskInfo(const TaskInfo& other)
    : mTaskName(other.mTaskName), mTaskId(other.mTaskId), mQueueId(other.mQueueId)
{
}

IThreadPool::TaskInfo& IThreadPool::TaskInfo::operator=(const TaskInfo& other)
{
    mTaskName = other.mTaskName;
    mTaskId = other.mTaskId;
    mQueueId = other.mQueueId;
    return *this;
}

IThreadPool::TaskInfo::~TaskInfo() {}

void IThreadPool::TaskInfo::Reset()
{
    mTaskName = CString();
    mTaskId = 0;
    mQueueId = 0;
}

IThreadPool::AbortedTaskInfo::AbortedTaskInfo() : TaskInfo(), mWasRunning(false)
{
    AbortedTaskInfo::Reset();
}

IThreadPool::AbortedTaskInfo::AbortedTaskInfo(const AbortedTaskInfo& other)
    : TaskInfo(other), mWasRunning(other.mWasRunning)
{
}

IThreadPool::AbortedTaskInfo& IThreadPool::AbortedTaskInfo::operator=(const AbortedTaskInfo& other)
{
    TaskInfo::operator=(other);
    mWasRunning = other.mWasRunning;
    return *this;
}

IThreadPool::AbortedTaskInfo::~AbortedTaskInfo() {}

void IThreadPool::AbortedTaskInfo::Reset()
{
    TaskInfo::Reset();
    mWasRunning = false;
}

IThreadPool::Status::Status()
    : mPoolName(),
      mIsStarted(false),
      mIsShuttingDown(false),
      mTasksListSize(0),
      mMinNumbOfThreads(0),
      mMaxNumbOfThreads(0),
      mNumbOfInitializedThreads(0),
      mNumbOfIdleThreads(0),
      mNumbOfBusyThreads(0),
      mNumbOfUninitializedThreads(0),
      mNumbOfExitedThreads(0),
      mBusyQueueIds()
{
}

void IThreadPool::Status::Reset()
{
    mPoolName = CString();
    mIsStarted = false;
    mIsShuttingDown = false;
    mTasksListSize = 0;
    mMinNumbOfThreads = 0;
    mMaxNumbOfThreads = 0;
    mNumbOfInitializedThreads = 0;
    mNumbOfIdleThreads = 0;
    mNumbOfBusyThreads = 0;
    mNumbOfUninitializedThreads = 0;
    mNumbOfExitedThreads = 0;
    mBusyQueueIds.clear();
}

class CThreadPool::CThreadElement {
public:
    explicit CThreadElement(const CString& threadName)
        : mThreadName(threadName), mpTaskElement(0), mpPalThread(0), mpRunTaskSemaphore(0), mHasExited(false),
          mWasJoined(false), mpTaskToFetch(0)
    {
    }

    ~CThreadElement()
    {
        if (mpRunTaskSemaphore != 0) {
            if (Morvex_PAL_SemaDeInit(&mpRunTaskSemaphore) != SEMA_OK) {
                PalRelease::retry(&Morvex_PAL_SemaDeInit, mpRunTaskSemaphore);
            }
        }
        if (mpPalThread != 0) {
            if (Morvex_PAL_ThreadDeInit(&mpPalThread) != THREAD_OK) {
                PalRelease::retry(&Morvex_PAL_ThreadDeInit, mpPalThread);
            }
        }
    }

    CString mThreadName;
    CTaskElement* mpTaskElement; // not owned
    sMorvex_PAL_Thread* mpPalThread;
    sMorvex_PAL_Sema* mpRunTaskSemaphore;
    bool mHasExited;
    // Set by shutdownThreads: only a thread known to have ended gives up its task.
    bool mWasJoined;
    // The task attached for the thread to take when it is woken, which it takes without
    // the lock; whoever empties the slot first (the thread, or a wake-up that failed and
    // takes the task back) has it.
    std::atomic<CTaskElement*> mpTaskToFetch;

private:
    CThreadElement(const CThreadElement&) = delete;
    CThreadElement& operator=(const CThreadElement&) = delete;
};

class CThreadPool::CTaskElement : public CWaitingLinks {
public:
    CTaskElement() : mTaskId(0), mTaskName(), mQueueId(0), mpPoolTask(0) {}
    ~CTaskElement() { delete mpPoolTask; }

    // Makes the element the record of a new task: its name, queue id and a fresh id.
    void assign(const CString& taskName, unsigned int queueId)
    {
        mTaskName = taskName;
        mQueueId = queueId;
        mpPoolTask = 0;
        mTaskId = nextTaskId();
    }

    // What deleting the element does to its task, leaving the element reusable. The name
    // stays until the element carries another, so that a task added under the name of the
    // one before it shares it without counting: a copy and a release each take the
    // process-wide counter mutex, which the adding thread and the pool's threads would
    // otherwise pass between them on every task.
    void release()
    {
        delete mpPoolTask;
        mpPoolTask = 0;
    }

    unsigned int mTaskId;
    CString mTaskName;
    unsigned int mQueueId;
    IPoolTask* mpPoolTask; // owned

private:
    CTaskElement(const CTaskElement&) = delete;
    CTaskElement& operator=(const CTaskElement&) = delete;

    static unsigned int nextTaskId();

    // Shared by every pool of the process. Each id is drawn by one atomic step, so ids
    // are unique and follow the order in which records are made, without a mutex.
    static std::atomic<unsigned int> sNextAvailableTaskId;
};

std::atomic<unsigned int> CThreadPool::CTaskElement::sNextAvailableTaskId(1);

unsigned int CThreadPool::CTaskElement::nextTaskId()
{
    unsigned int taskId = sNextAvailableTaskId.fetch_add(1u, std::memory_order_relaxed);
    if (taskId == 0) {
        // After 2^32 - 1 tasks the counter wraps; 0 means "no task" everywhere.
        taskId = sNextAvailableTaskId.fetch_add(1u, std::memory_order_relaxed);
    }
    return taskId;
}

class CThreadPool::CWaitingTasks : public TWaitingTasks<CThreadPool::CTaskElement> {
public:
    CWaitingTasks()
        : mWakeUp(), mpBlocks(0), mpFree(0), mInUse(0), mNextBlockSize(FIRST_BLOCK_SIZE), mWakeUpsInFlight(0),
          mAwaitingWakeUps(false)
    {
    }
    ~CWaitingTasks() { freeSpares(); }

    // The pool's threads as a dispatch pass sees them (lock held).
    class CThreadsView {
    public:
        explicit CThreadsView(CThreadPool& pool) : mPool(pool) {}

        int firstIdleThread()
        {
            int position = -1;
            (void)mPool.getPosOfFirstIdleThread(position);
            return position;
        }
        CString uninitializedThreads(unsigned int& count) { return mPool.getNumbOfUninitializedThreads(count); }
        CString addThread(unsigned int& position) { return mPool.addNewThreadToPool(mPool.mThreadPrio, position); }
        CString attach(int position, CTaskElement* task, bool& needsWakeUp)
        {
            return mPool.attachTask(position, *task, needsWakeUp);
        }
        CString wake(int position, CTaskElement* task) { return mPool.wakeThread(position, *task); }
        void takeBack(int position, CTaskElement* task) { mPool.detachTask(position, *task); }
        void queueBecameBusy(unsigned int queueId) { mPool.setQueueIdAsBusy(queueId); }

    private:
        CThreadPool& mPool;
    };

    // Records live in blocks, made as the backlog first needs them and kept, the free
    // ones chained, until the pool stops: past its first blocks, a task's record costs
    // the allocator nothing, however many tasks wait.
    CTaskElement* newElement()
    {
        if (mpFree == 0 && !addBlock()) {
            return 0;
        }
        CTaskElement* element = mpFree;
        mpFree = static_cast<CTaskElement*>(element->mpNewer);
        element->mpNewer = 0;
        ++mInUse;
        return element;
    }
    // What deleting a record does: its task deleted, its name released.
    void recycle(CTaskElement* element)
    {
        element->release();
        element->mpNewer = mpFree;
        mpFree = element;
        --mInUse;
    }
    // Frees the blocks once no record is in use. A record still held by a thread that
    // could not be joined keeps them all: that thread may still complete its task.
    void freeSpares()
    {
        if (mInUse != 0) {
            return;
        }
        while (mpBlocks != 0) {
            CTaskElement* next = static_cast<CTaskElement*>(mpBlocks->mpNewer);
            delete[] mpBlocks;
            mpBlocks = next;
        }
        mpFree = 0;
        mNextBlockSize = FIRST_BLOCK_SIZE;
    }

    // The wake-up the last pass left due, for the operation that ran it to send after
    // releasing the lock (lock held).
    SWakeUp mWakeUp;

    // Wake-ups are sent without the lock, so the threads they wake must outlive them:
    // a stopping pool frees its threads only once none is in flight.
    void wakeUpStarted() { mWakeUpsInFlight.fetch_add(1u); }
    void wakeUpEnded()
    {
        if (mWakeUpsInFlight.fetch_sub(1u) == 1u && mAwaitingWakeUps.load()) {
            std::lock_guard<std::mutex> guard(mWakeUpsMutex);
            mWakeUpsEnded.notify_all();
        }
    }
    void awaitWakeUps()
    {
        mAwaitingWakeUps.store(true);
        {
            std::unique_lock<std::mutex> guard(mWakeUpsMutex);
            while (mWakeUpsInFlight.load() != 0) {
                mWakeUpsEnded.wait(guard);
            }
        }
        mAwaitingWakeUps.store(false);
    }

private:
    static const unsigned int FIRST_BLOCK_SIZE = 8;
    static const unsigned int LARGEST_BLOCK_SIZE = 256;

    bool addBlock()
    {
        // The first record of a block only links the blocks.
        CTaskElement* block = new (std::nothrow) CTaskElement[mNextBlockSize + 1];
        if (block == 0) {
            return false;
        }
        block->mpNewer = mpBlocks;
        mpBlocks = block;
        for (unsigned int i = mNextBlockSize; i > 0; --i) {
            block[i].mpNewer = mpFree;
            mpFree = &block[i];
        }
        if (mNextBlockSize < LARGEST_BLOCK_SIZE) {
            mNextBlockSize *= 2;
        }
        return true;
    }

    CTaskElement* mpBlocks; // chained through mpNewer
    CTaskElement* mpFree;   // chained through mpNewer
    unsigned int mInUse;
    unsigned int mNextBlockSize;

    // Counted with the lock held, ended without it; the stopping pool waits on the
    // condition variable only while wake-ups are in flight.
    std::atomic<unsigned int> mWakeUpsInFlight;
    std::atomic<bool> mAwaitingWakeUps;
    std::mutex mWakeUpsMutex;
    std::condition_variable mWakeUpsEnded;
};

CThreadPool::CThreadPool(CString poolName)
    : mTSIMutex(0),
      mpWaitingTasks(new (std::nothrow) CWaitingTasks),
      mThreadsPtrVector(),
      mBusyQueueIds(),
      mPoolName(poolName),
      mIsStarted(false),
      mMinNumbOfThreads(0),
      mMaxNumbOfThreads(0),
      mThreadPrio(0),
      mIsShuttingDown(false),
      mpCompletingThread(0),
      mCompletingThreadGotTask(false)
{
    // Without room for its waiting tasks the pool goes without its lock as well, and
    // refuses every locked operation as a pool whose lock could not be made.
    if (mpWaitingTasks != 0) {
        (void)Morvex_PAL_MutexInit(&mTSIMutex);
    }
}

CThreadPool::~CThreadPool()
{
    const bool locked = lockAsking("~CThreadPool");
    if (mIsStarted) {
        (void)stop(eAbortRunningTasks);
    }
    if (locked) {
        (void)unlock("~CThreadPool");
    }
    if (mTSIMutex != 0) {
        if (Morvex_PAL_MutexDeInit(&mTSIMutex) != MUTEX_OK) {
            PalRelease::retry(&Morvex_PAL_MutexDeInit, mTSIMutex);
        }
    }
    delete mpWaitingTasks;
}

CString CThreadPool::poolText(const char* formatText) const
{
    return makeText(formatText, mPoolName.getBuffer());
}

CString CThreadPool::lock(const char* callerName)
{
    if (mTSIMutex == 0) {
        return makeText("CThreadPool::%s: mTSIMutex == Morvex_NULL [pool:%s]", callerName,
                        mPoolName.getBuffer());
    }
    const int result = Morvex_PAL_MutexWait(mTSIMutex);
    if (result != 0) {
        return makeText("CThreadPool::%s: Morvex_PAL_MutexWait failed: %d [pool:%s]", callerName, result,
                        mPoolName.getBuffer());
    }
    return CString();
}

// For the operations that go on even without the lock: without it, they would read
// (and the destructor free) what the pool's threads are changing, so a refused lock
// is asked again before they go on without it.
bool CThreadPool::lockAsking(const char* callerName)
{
    for (unsigned int attempt = 0; attempt < sReleaseAttempts; ++attempt) {
        if (lock(callerName).isEmpty()) {
            return true;
        }
    }
    return false;
}

CString CThreadPool::unlock(const char* callerName)
{
    if (mTSIMutex == 0) {
        return makeText("CThreadPool::%s: mTSIMutex == Morvex_NULL [pool:%s]", callerName,
                        mPoolName.getBuffer());
    }
    // A lock left held would stall the pool's threads, and every caller after them,
    // for good: a release the PAL core refuses is asked again before it is given up.
    int result = Morvex_PAL_MutexSignal(mTSIMutex);
    for (unsigned int attempt = 1; result != 0 && attempt < sReleaseAttempts; ++attempt) {
        result = Morvex_PAL_MutexSignal(mTSIMutex);
    }
    if (result != 0) {
        return makeText("CThreadPool::%s: Morvex_PAL_MutexSignal failed: %d [pool:%s]", callerName, result,
                        mPoolName.getBuffer());
    }
    return CString();
}

// Every wrapper runs its worker under the lock; a failed unlock is not reported, and
// a wrapper that could not lock returns the lock's text without running the worker.

CString CThreadPool::Start(unsigned int minNumbOfThreads, unsigned int maxNumbOfThreads, int priority)
{
    CString result = lock("Start");
    if (result.isEmpty()) {
        result = start(minNumbOfThreads, maxNumbOfThreads, priority);
        (void)unlock("Start");
    }
    return result;
}

CString CThreadPool::Stop(eShutdownPolicy shutdownPolicy)
{
    CString result = lock("Stop");
    if (result.isEmpty()) {
        result = stop(shutdownPolicy);
        (void)unlock("Stop");
    }
    return result;
}

CString CThreadPool::AddTask(const CString& taskName, IPoolTask* pPoolTask, const unsigned int& queueId,
                             unsigned int& taskId)
{
    CString result = lock("AddTask");
    if (result.isEmpty()) {
        result = addTask(taskName, pPoolTask, queueId, taskId);
        unlockAndWake("AddTask", result);
    }
    return result;
}

CString CThreadPool::AbortTaskByTaskId(const unsigned int& taskId, TVector<AbortedTaskInfo>& abortedTasks)
{
    CString result = lock("AbortTaskByTaskId");
    if (result.isEmpty()) {
        result = abortTaskByTaskId(taskId, abortedTasks);
        (void)unlock("AbortTaskByTaskId");
    }
    return result;
}

CString CThreadPool::AbortTaskByName(const CString& taskName, TVector<AbortedTaskInfo>& abortedTasks)
{
    CString result = lock("AbortTaskByName");
    if (result.isEmpty()) {
        result = abortTaskByName(taskName, abortedTasks);
        (void)unlock("AbortTaskByName");
    }
    return result;
}

CString CThreadPool::AbortTaskByQueueId(const unsigned int& queueId, const bool& runningTasksOnly,
                                        TVector<AbortedTaskInfo>& abortedTasks)
{
    CString result = lock("AbortTaskByQueueId");
    if (result.isEmpty()) {
        result = abortTaskByQueueId(queueId, runningTasksOnly, abortedTasks);
        (void)unlock("AbortTaskByQueueId");
    }
    return result;
}

CString CThreadPool::AbortAllTasks(TVector<AbortedTaskInfo>& abortedTasks)
{
    CString result = lock("AbortAllTasks");
    if (result.isEmpty()) {
        result = abortAllTasks(abortedTasks);
        (void)unlock("AbortAllTasks");
    }
    return result;
}

CString CThreadPool::GetRunningTaskInfoByTaskId(const unsigned int& taskId, TaskInfo& taskInfo)
{
    CString result = lock("GetRunningTaskInfoByTaskId");
    if (result.isEmpty()) {
        result = getRunningTaskInfoByTaskId(taskId, taskInfo);
        (void)unlock("GetRunningTaskInfoByTaskId");
    }
    return result;
}

CString CThreadPool::GetRunningTaskInfoByQueueId(const unsigned int& queueId, TVector<TaskInfo>& taskInfos)
{
    CString result = lock("GetRunningTaskInfoByQueueId");
    if (result.isEmpty()) {
        result = getRunningTaskInfoByQueueId(queueId, taskInfos);
        (void)unlock("GetRunningTaskInfoByQueueId");
    }
    return result;
}

CString CThreadPool::GetPoolName()
{
    CString result = lock("GetPoolName");
    if (result.isEmpty()) {
        result = getPoolName();
        (void)unlock("GetPoolName");
    }
    return result;
}

CString CThreadPool::GetRunTaskSemaphoreHandle(const sMorvex_PAL_Thread* pPalThread, sMorvex_PAL_Sema*& pSemaphore)
{
    CString result = lock("GetRunTaskSemaphoreHandle");
    if (result.isEmpty()) {
        result = getRunTaskSemaphoreHandle(pPalThread, pSemaphore);
        (void)unlock("GetRunTaskSemaphoreHandle");
    }
    return result;
}

CString CThreadPool::GetPoolTask(const sMorvex_PAL_Thread* pPalThread, IPoolTask*& pPoolTask)
{
    CString result = lock("GetPoolTask");
    if (result.isEmpty()) {
        result = getPoolTask(pPalThread, pPoolTask);
        (void)unlock("GetPoolTask");
    }
    return result;
}

CString CThreadPool::TaskCompleted(const sMorvex_PAL_Thread* pPalThread)
{
    CString result = lock("TaskCompleted");
    if (result.isEmpty()) {
        result = taskCompleted(pPalThread, 0);
        unlockAndWake("TaskCompleted", result);
    }
    return result;
}

// TaskCompleted as a pool thread's loop calls it: also hands over the thread's next task
// when the completion gave it one, which the thread then runs without waking up for it
// or asking for it under the lock again (null: it waits as usual).
CString CThreadPool::completeTask(const sMorvex_PAL_Thread* pPalThread, IPoolTask*& pNextTask)
{
    pNextTask = 0;
    CString result = lock("TaskCompleted");
    if (result.isEmpty()) {
        result = taskCompleted(pPalThread, &pNextTask);
        unlockAndWake("TaskCompleted", result);
    }
    return result;
}

// The end of AddTask and TaskCompleted: releases the lock, then wakes the thread the
// dispatch pass left to be woken. A wake-up that fails takes the task back under the
// lock, as inside the pass: it waits again in its place, the thread stays idle, and the
// operation returns the failure's text.
void CThreadPool::unlockAndWake(const char* callerName, CString& result)
{
    CWaitingTasks::SWakeUp wakeUp = mpWaitingTasks->mWakeUp;
    mpWaitingTasks->mWakeUp = CWaitingTasks::SWakeUp();
    CThreadElement* thread = wakeUp.mpTask != 0 ? mThreadsPtrVector.get(wakeUp.mPosition) : 0;
    if (thread != 0) {
        mpWaitingTasks->wakeUpStarted();
    }
    // A refused release leaves the lock with this thread.
    const bool unlocked = unlock(callerName).isEmpty();
    if (thread == 0) {
        return;
    }
    const int signalResult = Morvex_PAL_SemaSignal(thread->mpRunTaskSemaphore);
    if (signalResult != SEMA_OK) {
        const bool locked = !unlocked || lockAsking(callerName);
        // A stopping pool deletes the task with its thread. If the lock cannot be had,
        // the task stays with a thread that will not run it, until the pool stops.
        CTaskElement* expected = wakeUp.mpTask;
        if (locked && !mIsShuttingDown && thread->mpTaskToFetch.compare_exchange_strong(expected, 0)) {
            CWaitingTasks::CThreadsView threads(*this);
            mpWaitingTasks->takeBack(threads, wakeUp);
        }
        result = wakeUpFailedText(signalResult, wakeUp.mPosition, *wakeUp.mpTask);
        if (locked) {
            (void)unlock(callerName);
        }
    }
    mpWaitingTasks->wakeUpEnded();
}

// The three wrappers that go on without the lock. They release only a lock they took:
// a lock refused as recursive (a call from inside IPoolTask::Abort) belongs to the
// operation that is still running.

bool CThreadPool::IsIdle()
{
    const bool locked = lockAsking("IsIdle");
    const bool result = isIdle();
    if (locked) {
        (void)unlock("IsIdle");
    }
    return result;
}

CString CThreadPool::GetStatus(Status& status)
{
    const bool locked = lockAsking("GetStatus");
    CString result = getStatus(status);
    if (locked) {
        (void)unlock("GetStatus");
    }
    return result;
}

void CThreadPool::ThreadExited(const sMorvex_PAL_Thread* pPalThread)
{
    const bool locked = lockAsking("ThreadExited");
    threadExited(pPalThread);
    if (locked) {
        (void)unlock("ThreadExited");
    }
}

CString CThreadPool::getPoolName()
{
    return mPoolName;
}

CString CThreadPool::start(unsigned int minNumbOfThreads, unsigned int maxNumbOfThreads, int priority)
{
    if (mIsStarted) {
        return poolText("CThreadPool::start: pool already started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::start: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (minNumbOfThreads == 0) {
        return poolText("CThreadPool::start: minNumbOfThreads == 0: not allowed [pool:%s]");
    }
    if (minNumbOfThreads > maxNumbOfThreads) {
        return poolText("CThreadPool::start: minNumbOfThreads > maxNumbOfThreads: not allowed [pool:%s]");
    }
    mMaxNumbOfThreads = maxNumbOfThreads;
    mIsShuttingDown = false;
    mMinNumbOfThreads = minNumbOfThreads;
    mThreadPrio = priority;

    CString result;
    for (unsigned int i = 0; i < minNumbOfThreads && result.isEmpty(); ++i) {
        unsigned int position = 0;
        result = addNewThreadToPool(priority, position);
    }
    if (result.isEmpty()) {
        mIsStarted = true;
        return result;
    }
    // The threads made so far find the pool not started, end at once and are joined.
    shutdownThreads();
    return result;
}

CString CThreadPool::addNewThreadToPool(int priority, unsigned int& position)
{
    position = 0;
    CString threadName;
    (void)threadName.format(sThreadNameFormat, mThreadsPtrVector.size());

    // Room for the new element, and for one more busy queue id (each busy queue id
    // belongs to a different thread), is taken before the thread starts: once it runs,
    // the element must not fail to be recorded, nor a dispatch to mark its queue busy.
    const int needed = mThreadsPtrVector.size() + 1;
    mThreadsPtrVector.reserve(mThreadsPtrVector.calcNewCapacity(needed));
    mBusyQueueIds.reserve(mBusyQueueIds.calcNewCapacity(needed));
    CThreadElement* element = 0;
    if (mThreadsPtrVector.capacity() >= needed && mBusyQueueIds.capacity() >= needed) {
        element = new (std::nothrow) CThreadElement(threadName);
    }
    if (element == 0) {
        return poolText("CThreadPool::addNewThreadToPool: cannot allocate CThreadElement [pool:%s]");
    }
    CString result = initAndCreateThread(*element, priority);
    if (!result.isEmpty()) {
        delete element;
        return result;
    }
    position = static_cast<unsigned int>(mThreadsPtrVector.size());
    mThreadsPtrVector.push_back(element);
    return result;
}

CString CThreadPool::initAndCreateThread(CThreadElement& element, int priority)
{
    eMorvex_PAL_ThreadPrio palPriority = THREAD_PRIO_NORMAL;
    CString result = convertPrioToPalPrio(priority, palPriority);
    if (result.isEmpty()) {
        const int semaResult = Morvex_PAL_SemaInit(&element.mpRunTaskSemaphore, 0);
        if (semaResult != 0) {
            result = makeText("CThreadPool::initThread: Morvex_PAL_SemaInit failed: %d [pool:%s]", semaResult,
                              mPoolName.getBuffer());
        }
    }
    if (result.isEmpty()) {
        const int initResult =
            Morvex_PAL_ThreadInit(&element.mpPalThread, element.mThreadName.getBuffer(), palPriority);
        if (initResult != 0) {
            result = makeText("CThreadPool::initThread: Morvex_PAL_ThreadInit failed: %d [pool:%s]", initResult,
                              mPoolName.getBuffer());
        }
    }
    if (result.isEmpty()) {
        const int createResult = Morvex_PAL_ThreadCreate(element.mpPalThread, CThreadPool::poolThread, this);
        if (createResult != 0) {
            result = makeText("CThreadPool::initThread: Morvex_PAL_ThreadCreate failed: %d [pool:%s]",
                              createResult, mPoolName.getBuffer());
        }
    }
    if (!result.isEmpty()) {
        if (element.mpRunTaskSemaphore != 0) {
            if (Morvex_PAL_SemaDeInit(&element.mpRunTaskSemaphore) != SEMA_OK) {
                PalRelease::retry(&Morvex_PAL_SemaDeInit, element.mpRunTaskSemaphore);
            }
            element.mpRunTaskSemaphore = 0;
        }
        if (element.mpPalThread != 0) {
            if (Morvex_PAL_ThreadDeInit(&element.mpPalThread) != THREAD_OK) {
                PalRelease::retry(&Morvex_PAL_ThreadDeInit, element.mpPalThread);
            }
            element.mpPalThread = 0;
        }
    }
    return result;
}

CString CThreadPool::convertPrioToPalPrio(int priority, eMorvex_PAL_ThreadPrio& palPriority)
{
    static const eMorvex_PAL_ThreadPrio MAP_TABLE[] = {THREAD_PRIO_LOWEST, THREAD_PRIO_LOWER, THREAD_PRIO_LOW,
                                                       THREAD_PRIO_NORMAL, THREAD_PRIO_HIGH, THREAD_PRIO_HIGHER,
                                                       THREAD_PRIO_HIGHEST};
    palPriority = THREAD_PRIO_NORMAL;
    if (priority < -3 || priority > 3) {
        return makeText("CThreadPool::convertPrioToPalPrio: priority value %d not allowed [pool:%s]", priority,
                        mPoolName.getBuffer());
    }
    palPriority = MAP_TABLE[priority + 3];
    return CString();
}

CString CThreadPool::stop(eShutdownPolicy shutdownPolicy)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::stop: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::stop: Not allowed because the pool is shutting down [pool:%s]");
    }
    const int policy = static_cast<int>(shutdownPolicy);
    if (policy != eFinishRunningTasks && policy != eAbortRunningTasks) {
        return makeText("CThreadPool::stop: unknown shutdownPolicy: %d [pool:%s]", policy,
                        mPoolName.getBuffer());
    }

    for (CTaskElement* task = mpWaitingTasks->oldest(); task != 0;) {
        CTaskElement* newer = CWaitingTasks::newer(task);
        mpWaitingTasks->recycle(task);
        task = newer;
    }
    mpWaitingTasks->clear();

    CString result;
    if (policy == eAbortRunningTasks) {
        for (int i = 0; i < mThreadsPtrVector.size(); ++i) {
            CThreadElement* element = mThreadsPtrVector.get(i);
            if (element == 0) {
                result = makeText("CThreadPool::stop: Unexpected: mThreadsPtrVector[%d] == 0. [pool:%s]", i,
                                  mPoolName.getBuffer());
                continue;
            }
            if (element->mpTaskElement != 0 && element->mpTaskElement->mpPoolTask != 0) {
                element->mpTaskElement->mpPoolTask->Abort();
            }
        }
    }

    shutdownThreads();
    mIsStarted = false;
    mBusyQueueIds.clear();
    mpWaitingTasks->clear();
    mpWaitingTasks->freeSpares();
    return result;
}

void CThreadPool::shutdownThreads()
{
    mIsShuttingDown = true;
    for (int i = 0; i < mThreadsPtrVector.size(); ++i) {
        CThreadElement* element = mThreadsPtrVector.get(i);
        // A thread that is not woken is never joined: a refused signal is sent again.
        if (element != 0 && element->mpRunTaskSemaphore != 0) {
            for (unsigned int attempt = 0;
                 attempt < sReleaseAttempts && Morvex_PAL_SemaSignal(element->mpRunTaskSemaphore) != SEMA_OK;
                 ++attempt) {
            }
        }
    }

    // The threads need the lock to finish their tasks and leave. Nothing changes the
    // thread list meanwhile: while shutting down, no operation dispatches.
    const bool unlocked = unlock("shutdownThreads").isEmpty();
    for (int i = 0; i < mThreadsPtrVector.size(); ++i) {
        CThreadElement* element = mThreadsPtrVector.get(i);
        // A thread that was not joined may still use its element and the pool: a
        // refused join is asked again.
        if (element != 0 && element->mpPalThread != 0) {
            for (unsigned int attempt = 0; attempt < sReleaseAttempts && !element->mWasJoined; ++attempt) {
                int exitValue = 0;
                element->mWasJoined = Morvex_PAL_ThreadWait(element->mpPalThread, &exitValue) == THREAD_OK;
            }
        }
    }
    // A wake-up sent without the lock may still be on its way to one of these threads.
    mpWaitingTasks->awaitWakeUps();
    if (unlocked) {
        (void)lock("shutdownThreads");
    }

    for (int i = 0; i < mThreadsPtrVector.size(); ++i) {
        CThreadElement* element = mThreadsPtrVector.get(i);
        if (element == 0) {
            continue;
        }
        // A task attached just before the shutdown whose thread woke to the shutdown
        // first was never run; nothing else would delete it. A thread that could not be
        // joined may still be running its task, which is then left alone.
        if (element->mWasJoined && element->mpTaskElement != 0) {
            mpWaitingTasks->recycle(element->mpTaskElement);
            element->mpTaskElement = 0;
        }
        delete element;
    }
    mThreadsPtrVector.clear();
    mIsShuttingDown = false;
}

void CThreadPool::threadExited(const sMorvex_PAL_Thread* pPalThread)
{
    if (!mIsStarted || pPalThread == 0) {
        return;
    }
    CThreadElement* element = 0;
    if (getThreadElementByPalThreadHandle(pPalThread, element).isEmpty()) {
        element->mHasExited = true;
    }
}

CString CThreadPool::addTask(const CString& taskName, IPoolTask* pPoolTask, const unsigned int& queueId,
                             unsigned int& taskId)
{
    taskId = 0;
    if (!mIsStarted) {
        return poolText("CThreadPool::addTask: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::addTask: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (queueId > mMaxNumbOfThreads) {
        return makeText("CThreadPool::addTask: Error: illegal queueId: %d [pool:%s]", static_cast<int>(queueId),
                        mPoolName.getBuffer());
    }
    if (taskName.getLength() == 0) {
        return poolText("CThreadPool::addTask: Error: taskName is empty [pool:%s]");
    }
    if (pPoolTask == 0) {
        return poolText("CThreadPool::addTask: Error: pPoolTask==0 [pool:%s]");
    }
    // The queue's room is taken first: once the task has an id, it must be queued.
    CTaskElement* element = mpWaitingTasks->reserveQueue(queueId) ? mpWaitingTasks->newElement() : 0;
    if (element == 0) {
        return poolText("CThreadPool::addTask: Cannot allocate new CTaskElement [pool:%s]");
    }
    element->assign(taskName, queueId);
    taskId = element->mTaskId;
    element->mpPoolTask = pPoolTask;
    pPoolTask->mTaskId = element->mTaskId;
    mpWaitingTasks->append(element);
    return assignTasksToThreads();
}

CString CThreadPool::assignTasksToThreads()
{
    if (mpWaitingTasks->size() == 0) {
        return CString();
    }
    CWaitingTasks::CThreadsView threads(*this);
    return mpWaitingTasks->dispatch(threads, mpWaitingTasks->mWakeUp);
}

CString CThreadPool::attachTask(int position, CTaskElement& task, bool& needsWakeUp)
{
    needsWakeUp = false;
    if (position >= mThreadsPtrVector.size()) {
        return makeText("CThreadPool::assignTasksToThreads: Unexpected: posOfFirstIdleThread [%d] >= "
                        "mThreadsPtrVector.size() [%d] [pool:%s].",
                        position, mThreadsPtrVector.size(), mPoolName.getBuffer());
    }
    CThreadElement* thread = mThreadsPtrVector.get(position);
    thread->mpTaskElement = &task;
    if (thread == mpCompletingThread) {
        mCompletingThreadGotTask = true;
    } else {
        thread->mpTaskToFetch.store(&task, std::memory_order_release);
        needsWakeUp = true;
    }
    return CString();
}

CString CThreadPool::wakeThread(int position, CTaskElement& task)
{
    const int signalResult = Morvex_PAL_SemaSignal(mThreadsPtrVector.get(position)->mpRunTaskSemaphore);
    if (signalResult != SEMA_OK) {
        return wakeUpFailedText(signalResult, position, task);
    }
    return CString();
}

// The thread will not wake for the task: the task goes back to being only waiting.
void CThreadPool::detachTask(int position, CTaskElement& task)
{
    CThreadElement* thread = mThreadsPtrVector.get(position);
    thread->mpTaskElement = 0;
    thread->mpTaskToFetch.store(0, std::memory_order_relaxed);
    if (task.mQueueId != 0) {
        setQueueIdAsFree(task.mQueueId);
    }
}

CString CThreadPool::wakeUpFailedText(int signalResult, int position, const CTaskElement& task) const
{
    return makeText("CThreadPool::assignTasksToThreads: Morvex_PAL_SemaSignal failed [%d]. CThreadElement pos:%d. "
                    "Name of assiging task: %s. [pool:%s]",
                    signalResult, position, task.mTaskName.getBuffer(), mPoolName.getBuffer());
}

int CThreadPool::poolThread(void* pPool)
{
    if (pPool == 0) {
        return 0;
    }
    CThreadPool* pool = static_cast<CThreadPool*>(pPool);
    const sMorvex_PAL_Thread* self = Morvex_PAL_ThreadGetCurrent();
    sMorvex_PAL_Sema* semaphore = 0;
    CThreadElement* element = 0;
    if (pool->threadStarting(self, semaphore, element).isEmpty()) {
        IPoolTask* next = 0;
        for (;;) {
            IPoolTask* task = next;
            const bool woken = task != 0 || Morvex_PAL_SemaWait(semaphore) == SEMA_OK;
            if (pool->mIsShuttingDown) {
                break;
            }
            if (task == 0) {
                // The task was attached, under the lock, before the wake-up was sent; it
                // is this thread's to take without asking for the lock again. A wait that
                // failed asks, and so ends the loop if nothing was attached.
                CTaskElement* fetched = woken ? element->mpTaskToFetch.exchange(0, std::memory_order_acquire) : 0;
                if (fetched != 0) {
                    task = fetched->mpPoolTask;
                } else if (!pool->GetPoolTask(self, task).isEmpty()) {
                    break;
                }
            }
            if (task != 0) {
                task->Run();
            }
            if (!pool->completeTask(self, next).isEmpty()) {
                break;
            }
        }
    }
    pool->ThreadExited(self);
    return 0;
}

// GetRunTaskSemaphoreHandle as a pool thread's loop calls it: also gives the thread its
// own element, whose attached task it then takes without the lock.
CString CThreadPool::threadStarting(const sMorvex_PAL_Thread* pPalThread, sMorvex_PAL_Sema*& pSemaphore,
                                    CThreadElement*& pThreadElement)
{
    CString result = lock("GetRunTaskSemaphoreHandle");
    if (result.isEmpty()) {
        result = getRunTaskSemaphoreHandle(pPalThread, pSemaphore);
        if (result.isEmpty()) {
            (void)getThreadElementByPalThreadHandle(pPalThread, pThreadElement);
        }
        (void)unlock("GetRunTaskSemaphoreHandle");
    }
    return result;
}

CString CThreadPool::getRunTaskSemaphoreHandle(const sMorvex_PAL_Thread* pPalThread, sMorvex_PAL_Sema*& pSemaphore)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::getRunTaskSemaphoreHandle: Error: pool is not started [pool:%s]");
    }
    if (pPalThread == 0) {
        return poolText("CThreadPool::getRunTaskSemaphoreHandle: Unexpected: pPalThread==0 [pool:%s]");
    }
    CThreadElement* element = 0;
    CString result = getThreadElementByPalThreadHandle(pPalThread, element);
    if (!result.isEmpty()) {
        return result;
    }
    if (element->mpRunTaskSemaphore == 0) {
        return poolText(
            "CThreadPool::getRunTaskSemaphoreHandle: Unexpected: pThreadElement->mpRunTaskSemaphore==0 [pool:%s]");
    }
    pSemaphore = element->mpRunTaskSemaphore;
    return CString();
}

CString CThreadPool::getPoolTask(const sMorvex_PAL_Thread* pPalThread, IPoolTask*& pPoolTask)
{
    pPoolTask = 0;
    if (!mIsStarted) {
        return poolText("CThreadPool::getPoolTask: Error: pool is not started [pool:%s]");
    }
    if (pPalThread == 0) {
        return poolText("CThreadPool::getPoolTask: Unexpected: pPalThread==0 [pool:%s]");
    }
    CThreadElement* element = 0;
    CString result = getThreadElementByPalThreadHandle(pPalThread, element);
    if (!result.isEmpty()) {
        return result;
    }
    if (element->mpTaskElement == 0) {
        return poolText("CThreadPool::getPoolTask: Unexpected: the pool-thread has no associated task [pool:%s]");
    }
    // Taken here, it is no longer there for a failed wake-up to take back.
    element->mpTaskToFetch.store(0, std::memory_order_relaxed);
    pPoolTask = element->mpTaskElement->mpPoolTask;
    return CString();
}

CString CThreadPool::taskCompleted(const sMorvex_PAL_Thread* pPalThread, IPoolTask** ppNextTask)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::taskCompleted: Error: pool is not started [pool:%s]");
    }
    if (pPalThread == 0) {
        return poolText("CThreadPool::taskCompleted: Unexpected: pPalThread==0 [pool:%s]");
    }
    CThreadElement* element = 0;
    CString result = getThreadElementByPalThreadHandle(pPalThread, element);
    if (!result.isEmpty()) {
        return result;
    }
    if (element->mpTaskElement != 0) {
        if (element->mpTaskElement->mQueueId != 0) {
            setQueueIdAsFree(element->mpTaskElement->mQueueId);
        }
        mpWaitingTasks->recycle(element->mpTaskElement);
        element->mpTaskElement = 0;
    }
    if (mIsShuttingDown) {
        return CString();
    }
    if (ppNextTask != 0) {
        mpCompletingThread = element;
        mCompletingThreadGotTask = false;
    }
    (void)assignTasksToThreads();
    if (ppNextTask != 0) {
        if (mCompletingThreadGotTask) {
            *ppNextTask = element->mpTaskElement->mpPoolTask;
        }
        mpCompletingThread = 0;
    }
    // Not `result`: returning the empty text by copy would count the shared empty block.
    return CString();
}

bool CThreadPool::isQueueIdAvailable(unsigned int queueId)
{
    for (int i = mBusyQueueIds.size() - 1; i >= 0; --i) {
        if (*mBusyQueueIds.get(i) == queueId) {
            return false;
        }
    }
    return true;
}

void CThreadPool::setQueueIdAsBusy(unsigned int queueId)
{
    if (isQueueIdAvailable(queueId)) {
        mBusyQueueIds.push_back(queueId);
    }
}

void CThreadPool::setQueueIdAsFree(unsigned int queueId)
{
    mpWaitingTasks->setQueueFree(queueId);
    for (int i = mBusyQueueIds.size() - 1; i >= 0; --i) {
        if (*mBusyQueueIds.get(i) == queueId) {
            mBusyQueueIds.erase(i);
            return;
        }
    }
}

CString CThreadPool::getThreadElementByPalThreadHandle(const sMorvex_PAL_Thread* pPalThread,
                                                       CThreadElement*& pThreadElement)
{
    pThreadElement = 0;
    for (int i = 0; i < mThreadsPtrVector.size(); ++i) {
        CThreadElement* element = mThreadsPtrVector.get(i);
        if (element != 0 && element->mpPalThread == pPalThread) {
            pThreadElement = element;
            return CString();
        }
    }
    return poolText("CThreadPool::getThreadElementByPalThreadHandle: palThread not found in mThreadsPtrVector "
                    "[pool:%s]");
}

CString CThreadPool::getPosOfFirstIdleThread(int& posOfFirstIdleThread)
{
    posOfFirstIdleThread = -1;
    for (int i = 0; i < mThreadsPtrVector.size(); ++i) {
        CThreadElement* element = mThreadsPtrVector.get(i);
        // A thread whose loop has ended would never run what it is given.
        if (element != 0 && element->mpTaskElement == 0 && !element->mHasExited) {
            posOfFirstIdleThread = i;
            break;
        }
    }
    return CString();
}

CString CThreadPool::getNumbOfUninitializedThreads(unsigned int& numbOfThreads)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::getNumbOfUninitializedThreads: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText(
            "CThreadPool::getNumbOfUninitializedThreads: Not allowed because the pool is shutting down [pool:%s]");
    }
    const unsigned int size = static_cast<unsigned int>(mThreadsPtrVector.size());
    if (size > mMaxNumbOfThreads) {
        return makeText("CThreadPool::getNumbOfUninitializedThreads: Unexpected: mThreadsPtrVector.size [=%d] > "
                        "mMaxNumbOfThreads [=%d] [pool:%s]",
                        mThreadsPtrVector.size(), static_cast<int>(mMaxNumbOfThreads), mPoolName.getBuffer());
    }
    numbOfThreads = mMaxNumbOfThreads - size;
    return CString();
}

namespace {

IThreadPool::AbortedTaskInfo abortedInfo(const CString& name, unsigned int taskId, unsigned int queueId,
                                         bool wasRunning)
{
    IThreadPool::AbortedTaskInfo info;
    info.mTaskName = name;
    info.mTaskId = taskId;
    info.mQueueId = queueId;
    info.mWasRunning = wasRunning;
    return info;
}

} // namespace

CString CThreadPool::abortTaskByTaskId(const unsigned int& taskId, TVector<AbortedTaskInfo>& abortedTasks)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::abortTaskByTaskId: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::abortTaskByTaskId: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (taskId == 0) {
        return poolText("CThreadPool::abortTaskByTaskId: Error: taskId==0 is invalid [pool:%s]");
    }
    abortedTasks.clear();
    return abortTaskByCriteria(taskId, CString(), 0, false, abortedTasks);
}

CString CThreadPool::abortTaskByName(const CString& taskName, TVector<AbortedTaskInfo>& abortedTasks)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::abortTaskByName: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::abortTaskByName: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (taskName.isEmpty()) {
        return poolText("CThreadPool::abortTaskByName: Error: empty taskname is invalid [pool:%s]");
    }
    abortedTasks.clear();
    return abortTaskByCriteria(0, taskName, 0, false, abortedTasks);
}

CString CThreadPool::abortTaskByQueueId(const unsigned int& queueId, const bool& runningTasksOnly,
                                        TVector<AbortedTaskInfo>& abortedTasks)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::abortTaskByQueueId: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::abortTaskByQueueId: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (queueId > mMaxNumbOfThreads) {
        return makeText("CThreadPool::abortTaskByQueueId: Error: illegal queueId: %d [pool:%s]",
                        static_cast<int>(queueId), mPoolName.getBuffer());
    }
    abortedTasks.clear();
    return abortTaskByCriteria(0, CString(), queueId, runningTasksOnly, abortedTasks);
}

CString CThreadPool::abortTaskByCriteria(const unsigned int& taskId, const CString& taskName,
                                         const unsigned int& queueId, const bool& runningTasksOnly,
                                         TVector<AbortedTaskInfo>& abortedTasks)
{
    CString result;
    abortedTasks.clear();
    const bool byTaskId = taskId != 0;
    const bool byName = !byTaskId && !taskName.isEmpty();
    bool matched = false;

    for (int pos = 0; pos < mThreadsPtrVector.size() && result.isEmpty() && !(byTaskId && matched); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element == 0 || element->mpTaskElement == 0) {
            continue;
        }
        const CTaskElement& task = *element->mpTaskElement;
        const bool matches = byTaskId ? task.mTaskId == taskId
                                      : (byName ? task.mTaskName == taskName : task.mQueueId == queueId);
        if (!matches) {
            continue;
        }
        matched = true;
        if (task.mpPoolTask == 0) {
            result = makeText("CThreadPool::abortTaskByCriteria: Unexpected: IPoolTask * == 0. Task-id:%d. "
                              "Task-name:%s. Thread-pos:%d. [pool:%s]",
                              static_cast<int>(task.mTaskId), task.mTaskName.getBuffer(), pos,
                              mPoolName.getBuffer());
            break;
        }
        task.mpPoolTask->Abort();
        abortedTasks.push_back(abortedInfo(task.mTaskName, task.mTaskId, task.mQueueId, true));
    }

    if (!result.isEmpty() || runningTasksOnly || (byTaskId && matched)) {
        return result;
    }
    for (CTaskElement* task = mpWaitingTasks->newest(); task != 0 && !(byTaskId && matched);
         task = CWaitingTasks::older(task)) {
        const bool matches = byTaskId ? task->mTaskId == taskId
                                      : (byName ? task->mTaskName == taskName : task->mQueueId == queueId);
        if (!matches) {
            continue;
        }
        matched = true;
        if (task->mpPoolTask != 0) {
            task->mpPoolTask->mIsAborted = true;
        }
        abortedTasks.push_back(abortedInfo(task->mTaskName, task->mTaskId, task->mQueueId, false));
    }
    return result;
}

CString CThreadPool::abortAllTasks(TVector<AbortedTaskInfo>& abortedTasks)
{
    abortedTasks.clear();
    if (!mIsStarted) {
        return poolText("CThreadPool::abortAllTasks: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::abortAllTasks: Not allowed because the pool is shutting down [pool:%s]");
    }
    for (int pos = 0; pos < mThreadsPtrVector.size(); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element == 0 || element->mpTaskElement == 0 || element->mpTaskElement->mpPoolTask == 0) {
            continue;
        }
        const CTaskElement& task = *element->mpTaskElement;
        task.mpPoolTask->Abort();
        abortedTasks.push_back(abortedInfo(task.mTaskName, task.mTaskId, task.mQueueId, true));
    }
    for (CTaskElement* task = mpWaitingTasks->oldest(); task != 0; task = CWaitingTasks::newer(task)) {
        if (task->mpPoolTask != 0) {
            task->mpPoolTask->mIsAborted = true;
        }
        abortedTasks.push_back(abortedInfo(task->mTaskName, task->mTaskId, task->mQueueId, false));
    }
    return CString();
}

CString CThreadPool::getRunningTaskInfoByTaskId(const unsigned int& taskId, TaskInfo& taskInfo)
{
    taskInfo.Reset();
    if (!mIsStarted) {
        return poolText("CThreadPool::getRunningTaskInfoByTaskId: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText(
            "CThreadPool::getRunningTaskInfoByTaskId: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (taskId == 0) {
        return makeText("CThreadPool::getRunningTaskInfoByTaskId: Error: illegal taskId: %d [pool:%s]",
                        static_cast<int>(taskId), mPoolName.getBuffer());
    }
    for (int pos = 0; pos < mThreadsPtrVector.size(); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element != 0 && element->mpTaskElement != 0 && element->mpTaskElement->mTaskId == taskId) {
            taskInfo.mTaskName = element->mpTaskElement->mTaskName;
            taskInfo.mTaskId = element->mpTaskElement->mTaskId;
            taskInfo.mQueueId = element->mpTaskElement->mQueueId;
            return CString();
        }
    }
    return makeText("CThreadPool::getRunningTaskInfoByTaskId: Error: no running task for requested taskId=%d "
                    "[pool:%s]",
                    static_cast<int>(taskId), mPoolName.getBuffer());
}

CString CThreadPool::getRunningTaskInfoByQueueId(const unsigned int& queueId, TVector<TaskInfo>& taskInfos)
{
    taskInfos.clear();
    if (!mIsStarted) {
        return poolText("CThreadPool::getRunningTaskInfoByQueueId: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText(
            "CThreadPool::getRunningTaskInfoByQueueId: Not allowed because the pool is shutting down [pool:%s]");
    }
    if (queueId > mMaxNumbOfThreads) {
        return makeText("CThreadPool::getRunningTaskInfoByQueueId: Error: illegal queueId: %d [pool:%s]",
                        static_cast<int>(queueId), mPoolName.getBuffer());
    }
    bool found = false;
    for (int pos = 0; pos < mThreadsPtrVector.size() && !(found && queueId != 0); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element == 0 || element->mpTaskElement == 0 || element->mpTaskElement->mQueueId != queueId) {
            continue;
        }
        TaskInfo info;
        info.mTaskName = element->mpTaskElement->mTaskName;
        info.mTaskId = element->mpTaskElement->mTaskId;
        info.mQueueId = element->mpTaskElement->mQueueId;
        taskInfos.push_back(info);
        found = true;
    }
    if (!found) {
        return makeText("CThreadPool::getRunningTaskInfoByQueueId: Error: no running task for requested "
                        "queueId=%d [pool:%s]",
                        static_cast<int>(queueId), mPoolName.getBuffer());
    }
    return CString();
}

bool CThreadPool::isIdle()
{
    if (mpWaitingTasks != 0 && mpWaitingTasks->size() != 0) {
        return false;
    }
    for (int pos = 0; pos < mThreadsPtrVector.size(); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element != 0 && element->mpTaskElement != 0) {
            return false;
        }
    }
    return true;
}

CString CThreadPool::getNumbOfIdleThreads(unsigned int& numbOfIdleThreads)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::getNumbOfIdleThreads: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::getNumbOfIdleThreads: Not allowed because the pool is shutting down [pool:%s]");
    }
    unsigned int idle = 0;
    for (int pos = 0; pos < mThreadsPtrVector.size(); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element != 0 && element->mpTaskElement == 0) {
            ++idle;
        }
    }
    numbOfIdleThreads = idle;
    return CString();
}

CString CThreadPool::getNumbOfBusyThreads(unsigned int& numbOfBusyThreads)
{
    if (!mIsStarted) {
        return poolText("CThreadPool::getNumbOfBusyThreads: Error: pool is not started [pool:%s]");
    }
    if (mIsShuttingDown) {
        return poolText("CThreadPool::getNumbOfBusyThreads: Not allowed because the pool is shutting down [pool:%s]");
    }
    unsigned int idle = 0;
    CString result = getNumbOfIdleThreads(idle);
    if (!result.isEmpty()) {
        return result;
    }
    const unsigned int size = static_cast<unsigned int>(mThreadsPtrVector.size());
    if (idle > size) {
        return makeText("CThreadPool::getNumbOfBusyThreads: Unexpected: numbOfIdleThreads [%d] > "
                        "mThreadsPtrVector.size [=%d] [pool:%s]",
                        static_cast<int>(idle), mThreadsPtrVector.size(), mPoolName.getBuffer());
    }
    numbOfBusyThreads = size - idle;
    return result;
}

void CThreadPool::getBusyQueueIds(TVector<unsigned int>& busyQueueIds, CString& busyQueueIdsText)
{
    busyQueueIds = mBusyQueueIds;
    busyQueueIdsText = "[";
    for (int i = 0; i < mBusyQueueIds.size(); ++i) {
        CString id;
        (void)id.format("%d", static_cast<int>(*mBusyQueueIds.get(i)));
        busyQueueIdsText += id;
        busyQueueIdsText += " ";
    }
    busyQueueIdsText += "]";
}

CString CThreadPool::getStatus(Status& status)
{
    status.Reset();
    status.mPoolName = mPoolName;
    status.mIsStarted = mIsStarted;
    status.mIsShuttingDown = mIsShuttingDown;
    status.mMinNumbOfThreads = mMinNumbOfThreads;
    status.mMaxNumbOfThreads = mMaxNumbOfThreads;
    status.mTasksListSize = mpWaitingTasks != 0 ? mpWaitingTasks->size() : 0;
    status.mNumbOfInitializedThreads = mThreadsPtrVector.size();
    (void)getNumbOfIdleThreads(status.mNumbOfIdleThreads);
    (void)getNumbOfBusyThreads(status.mNumbOfBusyThreads);
    (void)getNumbOfUninitializedThreads(status.mNumbOfUninitializedThreads);
    for (int pos = 0; pos < mThreadsPtrVector.size(); ++pos) {
        CThreadElement* element = mThreadsPtrVector.get(pos);
        if (element != 0 && element->mHasExited) {
            ++status.mNumbOfExitedThreads;
        }
    }
    CString idsText;
    getBusyQueueIds(status.mBusyQueueIds, idsText);
    return makeText("Status of thread-pool ['%s', minThr:%d, maxThr:%d, started:%s, shutdown:%s]: tasks-list "
                    "size:%d, initialized-threads:%d (idle:%d, busy:%d), uninitialized-threads:%d, "
                    "exited-threads:%d, busy-queue_ids:%s",
                    status.mPoolName.getBuffer(), static_cast<int>(status.mMinNumbOfThreads),
                    static_cast<int>(status.mMaxNumbOfThreads), boolText(status.mIsStarted),
                    boolText(status.mIsShuttingDown), status.mTasksListSize,
                    status.mNumbOfInitializedThreads, static_cast<int>(status.mNumbOfIdleThreads),
                    static_cast<int>(status.mNumbOfBusyThreads),
                    static_cast<int>(status.mNumbOfUninitializedThreads),
                    static_cast<int>(status.mNumbOfExitedThreads), idsText.getBuffer());
}

} // namespace PAL
