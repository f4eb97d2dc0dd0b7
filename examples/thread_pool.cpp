// Thread pool: named tasks on a pool of threads that grows from a minimum to a
// maximum. Tasks that share a queue id run one after another in the order added;
// tasks can be aborted by id, name or queue. Every operation answers with a CString:
// empty for success, one line of error text otherwise.

#include "extensions/IPoolTask.h"
#include "extensions/IThreadPool.h"
#include "extensions/ThreadPoolFactory.h"
#include "os/Mutex.h"
#include "os/Semaphore.h"

#include <atomic>
#include <cstdio>
#include <new>

namespace {

// No wait of this program lasts longer, so a broken pool cannot hang it.
const unsigned int WAIT_LIMIT_MS = 5000;

std::atomic<int> sTasksDeleted(0);

// What the tasks report back. Tasks run on pool threads, so they print nothing:
// main() prints once they have finished.
struct SResults {
    SResults() : mMutex("results", true), mFinished(0), mSum(0) {}

    PAL::CMutex mMutex;
    PAL::CSemaphore mFinished;  // signalled at the end of every Run
    unsigned int mSum;
    PAL::CString mOrder;
};

class CCountedTask : public PAL::IPoolTask {
public:
    explicit CCountedTask(SResults& results) : mResults(results) {}
    ~CCountedTask() override { ++sTasksDeleted; }

protected:
    SResults& mResults;
};

// Adds its value to the sum.
class CSumTask : public CCountedTask {
public:
    CSumTask(SResults& results, unsigned int value) : CCountedTask(results), mValue(value) {}
    void Run() override
    {
        {
            PAL::CMutex::CLock lock(mResults.mMutex);
            mResults.mSum += mValue;
        }
        mResults.mFinished.Signal();
    }
    void Abort() override {}

private:
    unsigned int mValue;
};

// Appends its step to the order record.
class CStepTask : public CCountedTask {
public:
    CStepTask(SResults& results, const char* step) : CCountedTask(results), mStep(step) {}
    void Run() override
    {
        {
            PAL::CMutex::CLock lock(mResults.mMutex);
            mResults.mOrder += mStep;
        }
        mResults.mFinished.Signal();
    }
    void Abort() override {}

private:
    PAL::CString mStep;
};

// Runs until aborted. Abort() comes from another thread, so it only signals a semaphore.
class CWaitTask : public CCountedTask {
public:
    explicit CWaitTask(SResults& results) : CCountedTask(results), mStarted(0), mRelease(0) {}
    void Run() override
    {
        // A task aborted while it was still waiting runs all the same, and returns at once.
        if (!IsAborted()) {
            mStarted.Signal();
            mRelease.TimedWait(WAIT_LIMIT_MS);
        }
        mResults.mFinished.Signal();
    }
    void Abort() override { mRelease.Signal(); }
    bool waitUntilStarted() { return mStarted.TimedWait(WAIT_LIMIT_MS); }

private:
    PAL::CSemaphore mStarted;
    PAL::CSemaphore mRelease;
};

const char* text(const PAL::CString& result)
{
    return result.isEmpty() ? "ok" : result.getBuffer();
}

// Hands `task` to the pool; a refused task stays ours, so it is deleted here.
unsigned int add(PAL::IThreadPool& pool, const char* name, PAL::IPoolTask* task, unsigned int queueId)
{
    unsigned int taskId = 0;
    const PAL::CString result = pool.AddTask(name, task, queueId, taskId);
    if (taskId == 0) {
        std::printf("\"%s\" refused: %s\n", name, text(result));
        delete task;
    }
    return taskId;
}

bool waitForTasks(SResults& results, int count)
{
    for (int i = 0; i < count; ++i) {
        if (!results.mFinished.TimedWait(WAIT_LIMIT_MS)) {
            std::printf("a task did not finish in time\n");
            return false;
        }
    }
    return true;
}

void printAborted(const PAL::TVector<PAL::IThreadPool::AbortedTaskInfo>& aborted)
{
    for (int i = 0; i < aborted.size(); ++i) {
        const PAL::IThreadPool::AbortedTaskInfo* info = aborted.get(i);
        std::printf("  %s (queue %u): %s\n", info->mTaskName.getBuffer(), info->mQueueId,
                    info->mWasRunning ? "was running, Abort() called" : "was waiting, marked aborted");
    }
}

void run(PAL::IThreadPool& pool, SResults& results)
{
    std::printf("-- start --\n");
    std::printf("start with 2 to 4 threads: %s\n", text(pool.Start(2, 4, 0)));
    PAL::IThreadPool::Status status;
    std::printf("%s\n", pool.GetStatus(status).getBuffer());

    std::printf("-- tasks without a queue run side by side --\n");
    int added = 0;
    for (unsigned int value = 1; value <= 10; ++value) {
        added += add(pool, "sum", new (std::nothrow) CSumTask(results, value), 0) != 0 ? 1 : 0;
    }
    if (!waitForTasks(results, added)) {
        return;
    }
    std::printf("%d tasks added up to %u\n", added, results.mSum);

    std::printf("-- tasks of one queue run in order --\n");
    const char* const steps[] = {"open ", "read ", "check ", "close"};
    added = 0;
    for (int i = 0; i < 4; ++i) {
        added += add(pool, "step", new (std::nothrow) CStepTask(results, steps[i]), 1) != 0 ? 1 : 0;
    }
    if (!waitForTasks(results, added)) {
        return;
    }
    std::printf("queue 1 ran: %s\n", results.mOrder.getBuffer());

    std::printf("-- aborts --\n");
    CWaitTask* running = new (std::nothrow) CWaitTask(results);
    CWaitTask* queued = new (std::nothrow) CWaitTask(results);
    add(pool, "long job", running, 2);
    add(pool, "next job", queued, 2);  // queue 2 is busy: it waits
    if (running == 0 || queued == 0 || !running->waitUntilStarted()) {
        std::printf("the long job did not start\n");
        return;
    }
    PAL::TVector<PAL::IThreadPool::AbortedTaskInfo> aborted;
    std::printf("abort queue 2: %s\n", text(pool.AbortTaskByQueueId(2, false, aborted)));
    printAborted(aborted);
    if (!waitForTasks(results, 2)) {
        return;
    }
    const PAL::CString result = pool.AbortTaskByName("no such job", aborted);
    std::printf("abort by a name no task has: %s, %d reached\n", text(result), aborted.size());

    std::printf("-- refusals --\n");
    std::printf("start again: %s\n", text(pool.Start(2, 4, 0)));
    add(pool, "", new (std::nothrow) CSumTask(results, 0), 0);
    add(pool, "sum", new (std::nothrow) CSumTask(results, 0), 7);

    std::printf("-- stop --\n");
    std::printf("stop: %s\n", text(pool.Stop(PAL::IThreadPool::eFinishRunningTasks)));
    std::printf("%s\n", pool.GetStatus(status).getBuffer());
    add(pool, "sum", new (std::nothrow) CSumTask(results, 0), 0);
}

} // namespace

int main()
{
    std::printf("== Thread pool ==\n");
    SResults results;
    PAL::IThreadPool* pool = PAL::CThreadPoolFactory::Create("example");
    if (pool == 0) {
        std::printf("no memory for a pool\n");
        return 1;
    }
    run(*pool, results);
    // Deleting a pool that still runs stops it first, aborting what runs.
    delete pool;
    std::printf("tasks deleted: %d (each exactly once, by the pool or, when refused, by us)\n", sTasksDeleted.load());
    return 0;
}
