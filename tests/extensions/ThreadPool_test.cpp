// The thread pool: records, lifecycle, dispatch, aborts, queries, and failure paths.

#include "extensions/IThreadPool.h"
#include "extensions/ThreadPool.h"
#include "extensions/ThreadPoolFactory.h"

#include "support/AllocationBalance.h"
#include "support/FaultSweep.h"
#include "support/WaitableCounter.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using osal_kit_test::AllocationBalance;
using osal_kit_test::FaultGuard;
using osal_kit_test::WaitableCounter;
using PAL::IThreadPool;

typedef PAL::TVector<IThreadPool::AbortedTaskInfo> AbortedList;
typedef PAL::TVector<IThreadPool::TaskInfo> InfoList;

std::string text(const PAL::CString& s)
{
    return s.getBuffer();
}

// What happened to one task. Every task of these tests must end deleted exactly once.
struct TaskProbe {
    bool hold = false;                     // Run waits until `gate` opens
    bool openOnAbort = false;              // Abort opens `gate`
    std::function<void(TaskProbe&)> inRun; // the last thing Run does

    WaitableCounter gate, runs, aborts, deletions;
    std::atomic<unsigned int> idInRun{0};
    std::atomic<bool> abortedFlagInRun{false};
    std::atomic<sMorvex_PAL_Thread*> thread{nullptr};
};

class ProbeTask : public PAL::IPoolTask {
public:
    explicit ProbeTask(TaskProbe& probe) : mProbe(probe) {}
    ~ProbeTask() override { mProbe.deletions.increment(); }

    void Run() override
    {
        mProbe.thread = Morvex_PAL_ThreadGetCurrent();
        mProbe.idInRun = GetTaskId();
        mProbe.abortedFlagInRun = IsAborted();
        mProbe.runs.increment();
        if (mProbe.hold) {
            mProbe.gate.waitFor(1);
        }
        if (mProbe.inRun) {
            mProbe.inRun(mProbe);
        }
    }

    void Abort() override
    {
        mProbe.aborts.increment();
        if (mProbe.openOnAbort) {
            mProbe.gate.increment();
        }
    }

private:
    TaskProbe& mProbe;
};

// Offers a task; one the pool refuses (task id 0) is still ours, and is deleted here.
std::string offer(IThreadPool& pool, TaskProbe& probe, const char* name, unsigned int queueId, unsigned int& taskId)
{
    ProbeTask* task = new ProbeTask(probe);
    const std::string result = text(pool.AddTask(name, task, queueId, taskId));
    if (taskId == 0) {
        delete task;
    }
    return result;
}

std::string status(IThreadPool& pool)
{
    IThreadPool::Status record;
    return text(pool.GetStatus(record));
}

// Task ids and running flags of a list, e.g. "4r 7r 9w".
std::string describe(const AbortedList& tasks)
{
    std::string result;
    for (int i = 0; i < tasks.size(); ++i) {
        result += (i > 0 ? " " : "") + std::to_string(tasks.get(i)->mTaskId) + (tasks.get(i)->mWasRunning ? "r" : "w");
    }
    return result;
}

// Name, task id and queue id, e.g. "x:4:0".
std::string describe(const IThreadPool::TaskInfo& info)
{
    return text(info.mTaskName) + ":" + std::to_string(info.mTaskId) + ":" + std::to_string(info.mQueueId);
}

std::string describe(const InfoList& infos)
{
    std::string result;
    for (int i = 0; i < infos.size(); ++i) {
        result += (i > 0 ? " " : "") + describe(*infos.get(i));
    }
    return result;
}

// The operations a pool refuses in the wrong state, with the caller and worker names
// that their texts carry.
struct Operation {
    int line;
    const char* caller;
    const char* worker;
    std::function<std::string(IThreadPool&)> call;
};

std::vector<Operation> operations(bool withStart)
{
    std::vector<Operation> result = {
        {__LINE__, "Stop", "stop", [](IThreadPool& p) { return text(p.Stop(IThreadPool::eFinishRunningTasks)); }},
        {__LINE__, "AddTask", "addTask",
         [](IThreadPool& p) {
             TaskProbe refused;
             unsigned int taskId = 0;
             const std::string refusal = offer(p, refused, "t", 0, taskId);
             EXPECT_EQ(0u, taskId);
             return refusal;
         }},
        {__LINE__, "AbortTaskByTaskId", "abortTaskByTaskId",
         [](IThreadPool& p) {
             AbortedList list;
             return text(p.AbortTaskByTaskId(1, list));
         }},
        {__LINE__, "AbortTaskByName", "abortTaskByName",
         [](IThreadPool& p) {
             AbortedList list;
             return text(p.AbortTaskByName("t", list));
         }},
        {__LINE__, "AbortTaskByQueueId", "abortTaskByQueueId",
         [](IThreadPool& p) {
             AbortedList list;
             return text(p.AbortTaskByQueueId(0, false, list));
         }},
        {__LINE__, "AbortAllTasks", "abortAllTasks",
         [](IThreadPool& p) {
             AbortedList list;
             return text(p.AbortAllTasks(list));
         }},
        {__LINE__, "GetRunningTaskInfoByTaskId", "getRunningTaskInfoByTaskId",
         [](IThreadPool& p) {
             IThreadPool::TaskInfo info;
             return text(p.GetRunningTaskInfoByTaskId(1, info));
         }},
        {__LINE__, "GetRunningTaskInfoByQueueId", "getRunningTaskInfoByQueueId",
         [](IThreadPool& p) {
             InfoList infos;
             return text(p.GetRunningTaskInfoByQueueId(0, infos));
         }},
    };
    if (withStart) {
        result.push_back({__LINE__, "Start", "start", [](IThreadPool& p) { return text(p.Start(1, 1, 0)); }});
    }
    return result;
}

class ThreadPoolTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        pool.reset(PAL::CThreadPoolFactory::Create("P"));
        ASSERT_NE(nullptr, pool);
    }

    void TearDown() override
    {
        for (TaskProbe& each : probes) {
            each.gate.increment();
        }
        pool.reset();
        for (std::size_t i = 0; i < probes.size(); ++i) {
            EXPECT_EQ(1, probes[i].deletions.value()) << "task probe " << i;
        }
    }

    TaskProbe& probe(bool hold = false)
    {
        probes.emplace_back();
        probes.back().hold = hold;
        return probes.back();
    }

    // Adds a task that must be accepted and returns its id.
    unsigned int add(TaskProbe& task, const char* name = "t", unsigned int queueId = 0)
    {
        unsigned int taskId = 0;
        EXPECT_EQ("", offer(*pool, task, name, queueId, taskId));
        EXPECT_NE(0u, taskId);
        return taskId;
    }

    // Adds a held task and waits until its Run has begun.
    TaskProbe& addRunning(const char* name = "t", unsigned int queueId = 0, unsigned int* taskId = nullptr)
    {
        TaskProbe& running = probe(true);
        const unsigned int id = add(running, name, queueId);
        if (taskId != nullptr) {
            *taskId = id;
        }
        EXPECT_TRUE(running.runs.waitFor(1));
        return running;
    }

    std::string status() { return ::status(*pool); }

    FaultGuard faults;
    std::deque<TaskProbe> probes;
    std::unique_ptr<IThreadPool> pool;
};

// Three threads running held tasks, x (no queue), y (queue 1) and x (no queue) at
// positions 0 to 2, while x of queue 1, z of queue 1 and x of no queue wait.
class BusyThreadPoolTest : public ThreadPoolTest {
protected:
    void SetUp() override
    {
        ThreadPoolTest::SetUp();
        ASSERT_EQ("", text(pool->Start(3, 3, 0)));
        for (int pos = 0; pos < 3; ++pos) {
            running[pos] = &addRunning(pos == 1 ? "y" : "x", pos == 1 ? 1 : 0, &runningId[pos]);
        }
        const char* const names[] = {"x", "z", "x"};
        const unsigned int queues[] = {1, 1, 0};
        for (int i = 0; i < 3; ++i) {
            waiting[i] = &probe();
            waitingId[i] = add(*waiting[i], names[i], queues[i]);
        }
    }

    // "<id>r" for the running task at `pos`, "<id>w" for the waiting task `i`.
    std::string r(int pos) const { return std::to_string(runningId[pos]) + "r"; }
    std::string w(int i) const { return std::to_string(waitingId[i]) + "w"; }

    void finishAll()
    {
        for (TaskProbe* task : running) {
            task->gate.increment();
        }
        for (TaskProbe& task : probes) {
            EXPECT_TRUE(task.deletions.waitFor(1));
        }
    }

    TaskProbe* running[3] = {};
    TaskProbe* waiting[3] = {};
    unsigned int runningId[3] = {};
    unsigned int waitingId[3] = {};
};

} // namespace

TEST(ThreadPoolRecords, DefaultsResetAndCopies)
{
    IThreadPool::AbortedTaskInfo info;
    EXPECT_EQ(":0:0", describe(info));
    EXPECT_FALSE(info.mWasRunning);

    info.mTaskName = "x";
    info.mTaskId = 7;
    info.mQueueId = 2;
    info.mWasRunning = true;
    AbortedList list;
    list.push_back(info);
    const AbortedList copy(list);
    EXPECT_EQ("x:7:2", describe(*copy.get(0)));
    EXPECT_EQ("7r", describe(copy));

    IThreadPool::TaskInfo& base = info;
    base.Reset(); // virtual: clears mWasRunning too
    EXPECT_EQ(":0:0", describe(info));
    EXPECT_FALSE(info.mWasRunning);

    IThreadPool::Status record;
    record.mIsStarted = true;
    record.mTasksListSize = 3;
    record.mNumbOfExitedThreads = 2;
    record.mBusyQueueIds.push_back(3);
    record.Reset();
    EXPECT_FALSE(record.mIsStarted);
    EXPECT_EQ(0, record.mTasksListSize);
    EXPECT_EQ(0u, record.mNumbOfExitedThreads);
    EXPECT_EQ(0, record.mBusyQueueIds.size());
}

TEST(ThreadPoolFactory, AnyNameMakesAPoolAndNoMemoryMakesNone)
{
    FaultGuard faults;
    std::unique_ptr<IThreadPool> unnamed(PAL::CThreadPoolFactory::Create(""));
    ASSERT_NE(nullptr, unnamed);
    ASSERT_EQ("", text(unnamed->Start(1, 1, 0)));
    EXPECT_EQ("CThreadPool::stop: unknown shutdownPolicy: 2 [pool:]",
              text(unnamed->Stop(static_cast<IThreadPool::eShutdownPolicy>(2))));
    EXPECT_EQ("Status of thread-pool ['', minThr:1, maxThr:1, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:1 (idle:1, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              status(*unnamed));

    // Names around and past the usual 256-byte text: every text keeps its whole tail.
    for (const std::size_t length : {230u, 243u, 256u, 300u, 1000u}) {
        SCOPED_TRACE(length);
        const std::string longName(length, 'n');
        std::unique_ptr<IThreadPool> named(PAL::CThreadPoolFactory::Create(longName.c_str()));
        const std::string tail = " [pool:" + longName + "]";
        EXPECT_EQ("CThreadPool::stop: Error: pool is not started" + tail,
                  text(named->Stop(IThreadPool::eFinishRunningTasks)));
        ASSERT_EQ("", text(named->Start(1, 1, 0)));
        EXPECT_EQ("CThreadPool::stop: unknown shutdownPolicy: 7" + tail,
                  text(named->Stop(static_cast<IThreadPool::eShutdownPolicy>(7))));
        unsigned int taskId = 1;
        EXPECT_EQ("CThreadPool::addTask: Error: taskName is empty" + tail, text(named->AddTask("", nullptr, 0, taskId)));
        EXPECT_EQ("Status of thread-pool ['" + longName + "', minThr:1, maxThr:1, started:true, shutdown:false]: "
                  "tasks-list size:0, initialized-threads:1 (idle:1, busy:0), uninitialized-threads:0, "
                  "exited-threads:0, busy-queue_ids:[]",
                  status(*named));
    }

    const PAL::CString name("Q");
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    IThreadPool* none = PAL::CThreadPoolFactory::Create(name);
    Morvex_Fault_DisarmAll();
    EXPECT_EQ(nullptr, none);
}

TEST_F(ThreadPoolTest, PoolThatWasNeverStartedRefusesAllButIsIdleAndStatus)
{
    for (const Operation& operation : operations(false)) {
        EXPECT_EQ(std::string("CThreadPool::") + operation.worker + ": Error: pool is not started [pool:P]",
                  operation.call(*pool))
            << "row of line " << operation.line;
    }
    EXPECT_TRUE(pool->IsIdle());
    EXPECT_EQ("Status of thread-pool ['P', minThr:0, maxThr:0, started:false, shutdown:false]: tasks-list size:0, "
              "initialized-threads:0 (idle:0, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              status());

    // What refusals leave in the out-parameters: selective aborts the list as passed,
    // AbortAllTasks and the queue query an empty one, the task-id query a reset record.
    AbortedList list;
    list.push_back(IThreadPool::AbortedTaskInfo());
    list.get(0)->mTaskId = 9;
    pool->AbortTaskByTaskId(1, list);
    pool->AbortTaskByName("t", list);
    pool->AbortTaskByQueueId(0, true, list);
    EXPECT_EQ("9w", describe(list));
    pool->AbortAllTasks(list);
    EXPECT_EQ(0, list.size());
    InfoList infos;
    infos.push_back(IThreadPool::TaskInfo());
    pool->GetRunningTaskInfoByQueueId(0, infos);
    EXPECT_EQ(0, infos.size());
    IThreadPool::AbortedTaskInfo info;
    info.mTaskId = 4;
    info.mWasRunning = true;
    pool->GetRunningTaskInfoByTaskId(4, info);
    EXPECT_EQ(0u, info.mTaskId);
    EXPECT_FALSE(info.mWasRunning);
}

TEST_F(ThreadPoolTest, StartChecksItsArgumentsAndMakesTheMinimumOfThreads)
{
    struct Row {
        int line;
        unsigned int minimum, maximum;
        int priority;
        const char* expected;
    };
    const Row rows[] = {
        {__LINE__, 0, 4, 0, "CThreadPool::start: minNumbOfThreads == 0: not allowed [pool:P]"},
        {__LINE__, 3, 2, 0, "CThreadPool::start: minNumbOfThreads > maxNumbOfThreads: not allowed [pool:P]"},
        {__LINE__, 1, 4, 4, "CThreadPool::convertPrioToPalPrio: priority value 4 not allowed [pool:P]"},
        {__LINE__, 1, 4, -4, "CThreadPool::convertPrioToPalPrio: priority value -4 not allowed [pool:P]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const unsigned long long created = Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate);
        EXPECT_EQ(row.expected, text(pool->Start(row.minimum, row.maximum, row.priority)));
        EXPECT_EQ(created, Morvex_Fault_Calls(MORVEX_FAULT_ThreadCreate));
        EXPECT_EQ(0u, status().find("Status of thread-pool ['P', minThr:"));
        EXPECT_NE(std::string::npos, status().find("started:false, shutdown:false]: tasks-list size:0, "
                                                   "initialized-threads:0 "));
    }
    ASSERT_EQ("", text(pool->Start(2, 2, 0)));
    const std::string started = status();
    EXPECT_EQ("Status of thread-pool ['P', minThr:2, maxThr:2, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:2 (idle:2, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              started);
    EXPECT_EQ("CThreadPool::start: pool already started [pool:P]", text(pool->Start(1, 5, 1)));
    EXPECT_EQ(started, status());
}

TEST_F(ThreadPoolTest, PoolPriorityIsThePalPriorityOfThreadsMadeByStartAndByGrowth)
{
    for (int priority = -3; priority <= 3; ++priority) {
        SCOPED_TRACE(priority);
        ASSERT_EQ("", text(pool->Start(1, 2, priority)));
        TaskProbe* tasks[] = {&addRunning(), &addRunning()}; // the second needs a new thread
        for (TaskProbe* task : tasks) {
            eMorvex_PAL_ThreadPrio palPriority = THREAD_PRIO_NORMAL;
            EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadGetPriority(task->thread, &palPriority));
            EXPECT_EQ(priority + 3, static_cast<int>(palPriority));
            task->gate.increment();
        }
        EXPECT_EQ("", text(pool->Stop(IThreadPool::eFinishRunningTasks)));
    }
}

TEST_F(ThreadPoolTest, AddTaskRefusalsLeaveTheTaskWithTheCaller)
{
    ASSERT_EQ("", text(pool->Start(1, 4, 0)));
    struct Row {
        int line;
        const char* name;
        unsigned int queueId;
        const char* expected;
    };
    const Row rows[] = {
        {__LINE__, "t", 5, "CThreadPool::addTask: Error: illegal queueId: 5 [pool:P]"},
        {__LINE__, "t", 0xFFFFFFFFu, "CThreadPool::addTask: Error: illegal queueId: -1 [pool:P]"},
        {__LINE__, "", 0, "CThreadPool::addTask: Error: taskName is empty [pool:P]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        TaskProbe& refused = probe();
        unsigned int taskId = 77;
        EXPECT_EQ(row.expected, offer(*pool, refused, row.name, row.queueId, taskId));
        EXPECT_EQ(0u, taskId);
        EXPECT_EQ(0, refused.runs.value());
    }
    unsigned int taskId = 77;
    EXPECT_EQ("CThreadPool::addTask: Error: pPoolTask==0 [pool:P]", text(pool->AddTask("t", nullptr, 0, taskId)));
    EXPECT_EQ(0u, taskId);

    TaskProbe& lastQueue = probe();
    add(lastQueue, "t", 4);
    EXPECT_TRUE(lastQueue.deletions.waitFor(1));
    EXPECT_EQ(1, lastQueue.runs.value());
}

TEST_F(ThreadPoolTest, PoolGrowsToItsMaximumAndGivesWaitingTasksToTheLowestIdleThread)
{
    ASSERT_EQ("", text(pool->Start(1, 3, 0)));
    TaskProbe* at[3] = {&addRunning(), &addRunning(), &addRunning()}; // positions 1 and 2 are added
    TaskProbe& waiting = probe(true);
    add(waiting);
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:3, started:true, shutdown:false]: tasks-list size:1, "
              "initialized-threads:3 (idle:0, busy:3), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              status());

    // The first thread to finish takes the waiting task.
    at[1]->gate.increment();
    ASSERT_TRUE(waiting.runs.waitFor(1));
    EXPECT_EQ(at[1]->thread.load(), waiting.thread.load());

    // With positions 2 and 1 idle, in that order, position 1 comes first.
    at[2]->gate.increment();
    ASSERT_TRUE(at[2]->deletions.waitFor(1));
    waiting.gate.increment();
    ASSERT_TRUE(waiting.deletions.waitFor(1));
    TaskProbe& next = addRunning();
    TaskProbe& after = addRunning();
    EXPECT_EQ(at[1]->thread.load(), next.thread.load());
    EXPECT_EQ(at[2]->thread.load(), after.thread.load());
    EXPECT_NE(at[0]->thread.load(), next.thread.load());
}

TEST_F(ThreadPoolTest, TasksOfOneQueueWaitForEachOtherWhileOtherQueuesPass)
{
    ASSERT_EQ("", text(pool->Start(3, 3, 0)));
    TaskProbe& first = addRunning("first", 1);
    TaskProbe& second = probe();
    std::atomic<int> firstDeletedBeforeSecondRan{-1};
    second.inRun = [&](TaskProbe&) { firstDeletedBeforeSecondRan = first.deletions.value(); };
    add(second, "second", 1);
    TaskProbe& other = addRunning("other", 2);
    EXPECT_EQ(0, second.runs.value());
    EXPECT_EQ("Status of thread-pool ['P', minThr:3, maxThr:3, started:true, shutdown:false]: tasks-list size:1, "
              "initialized-threads:3 (idle:1, busy:2), uninitialized-threads:0, exited-threads:0, "
              "busy-queue_ids:[1 2 ]",
              status());
    first.gate.increment();
    ASSERT_TRUE(second.deletions.waitFor(1));
    EXPECT_EQ(1, firstDeletedBeforeSecondRan.load());
    other.gate.increment();
}

TEST_F(ThreadPoolTest, ManyTasksOnFewQueuesKeepTheirOrderNeverOverlapAndRunOnce)
{
    const unsigned int queues = 4; // no queue, and queues 1 to 3
    ASSERT_EQ("", text(pool->Start(2, queues, 0)));
    std::mutex orderMutex;
    std::vector<std::vector<unsigned int>> added(queues), ran(queues);
    std::atomic<int> active[queues] = {{0}, {0}, {0}, {0}};
    std::atomic<int> overlaps{0};
    for (unsigned int i = 0; i < 40 * queues; ++i) {
        const unsigned int queueId = i % queues;
        TaskProbe& task = probe();
        task.inRun = [&, queueId](TaskProbe& self) {
            if (active[queueId]++ != 0 && queueId != 0) {
                ++overlaps;
            }
            {
                std::lock_guard<std::mutex> lock(orderMutex);
                ran[queueId].push_back(self.idInRun);
            }
            std::this_thread::yield();
            --active[queueId];
        };
        added[queueId].push_back(add(task, "t", queueId));
    }
    for (TaskProbe& task : probes) {
        ASSERT_TRUE(task.deletions.waitFor(1));
        EXPECT_EQ(1, task.runs.value());
    }
    EXPECT_EQ(0, overlaps.load());
    for (unsigned int q = 1; q < queues; ++q) {
        EXPECT_EQ(added[q], ran[q]) << "queue " << q;
    }
    EXPECT_EQ(added[0].size(), ran[0].size());
}

TEST_F(ThreadPoolTest, IsIdleFollowsWaitingAndAttachedTasks)
{
    EXPECT_TRUE(pool->IsIdle());
    ASSERT_EQ("", text(pool->Start(1, 1, 0)));
    EXPECT_TRUE(pool->IsIdle());
    AbortedList list;
    EXPECT_EQ("", text(pool->AbortAllTasks(list)));
    EXPECT_EQ(0, list.size());

    TaskProbe& running = addRunning();
    EXPECT_FALSE(pool->IsIdle());
    TaskProbe& waiting = probe();
    add(waiting);
    running.gate.increment();
    ASSERT_TRUE(waiting.deletions.waitFor(1));
    EXPECT_TRUE(pool->IsIdle());
    EXPECT_EQ("", text(pool->Stop(IThreadPool::eFinishRunningTasks)));
    EXPECT_TRUE(pool->IsIdle());
}

TEST_F(ThreadPoolTest, StatusListsTheRunningQueue)
{
    ASSERT_EQ("", text(pool->Start(2, 4, 0)));
    addRunning("t", 3);
    IThreadPool::Status record;
    EXPECT_EQ("Status of thread-pool ['P', minThr:2, maxThr:4, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:2 (idle:1, busy:1), uninitialized-threads:2, exited-threads:0, "
              "busy-queue_ids:[3 ]",
              text(pool->GetStatus(record)));
    EXPECT_EQ("P", text(record.mPoolName));
    EXPECT_TRUE(record.mIsStarted && !record.mIsShuttingDown);
    EXPECT_EQ(4u, record.mMaxNumbOfThreads);
    EXPECT_EQ(2, record.mNumbOfInitializedThreads);
    EXPECT_EQ(1u, record.mNumbOfBusyThreads);
    EXPECT_EQ(2u, record.mNumbOfUninitializedThreads);
    ASSERT_EQ(1, record.mBusyQueueIds.size());
    EXPECT_EQ(3u, *record.mBusyQueueIds.get(0));
}

TEST_F(BusyThreadPoolTest, AbortByTaskIdReachesOneRunningOrWaitingTask)
{
    AbortedList list;
    EXPECT_EQ("", text(pool->AbortTaskByTaskId(waitingId[2] + 1000, list)));
    EXPECT_EQ("", describe(list));
    EXPECT_EQ("", text(pool->AbortTaskByTaskId(runningId[1], list)));
    EXPECT_EQ(r(1), describe(list));
    EXPECT_EQ("y", text(list.get(0)->mTaskName));
    EXPECT_EQ(1u, list.get(0)->mQueueId);
    EXPECT_EQ("", text(pool->AbortTaskByTaskId(waitingId[1], list)));
    EXPECT_EQ(w(1), describe(list));

    // Neither leaves its place: both count as before until they end by themselves.
    EXPECT_NE(std::string::npos, status().find("tasks-list size:3, initialized-threads:3 (idle:0, busy:3)"));
    finishAll();
    EXPECT_EQ(1, running[1]->aborts.value());
    EXPECT_EQ(0, waiting[1]->aborts.value());
    EXPECT_TRUE(waiting[1]->abortedFlagInRun.load());
    EXPECT_FALSE(waiting[0]->abortedFlagInRun.load());
}

TEST_F(BusyThreadPoolTest, SelectiveAbortsListRunningTasksByPositionThenWaitingOnesNewestFirst)
{
    AbortedList list;
    EXPECT_EQ("", text(pool->AbortTaskByName("x", list)));
    EXPECT_EQ(r(0) + " " + r(2) + " " + w(2) + " " + w(0), describe(list));
    EXPECT_EQ("", text(pool->AbortTaskByQueueId(1, true, list)));
    EXPECT_EQ(r(1), describe(list));
    EXPECT_EQ("", text(pool->AbortTaskByQueueId(1, false, list)));
    EXPECT_EQ(r(1) + " " + w(1) + " " + w(0), describe(list));
    EXPECT_EQ("", text(pool->AbortTaskByQueueId(0, false, list)));
    EXPECT_EQ(r(0) + " " + r(2) + " " + w(2), describe(list));
    EXPECT_EQ("", text(pool->AbortTaskByQueueId(3, false, list)));
    EXPECT_EQ("", text(pool->AbortTaskByName("nobody", list)));
    EXPECT_EQ("", describe(list));
    finishAll();
    EXPECT_EQ(2, running[0]->aborts.value());
    EXPECT_EQ(2, running[1]->aborts.value());
    for (TaskProbe* task : waiting) {
        EXPECT_EQ(0, task->aborts.value());
        EXPECT_TRUE(task->abortedFlagInRun.load());
    }
}

TEST_F(BusyThreadPoolTest, AbortAllListsRunningTasksByPositionThenWaitingOnesOldestFirst)
{
    AbortedList list;
    EXPECT_EQ("", text(pool->AbortAllTasks(list)));
    EXPECT_EQ(r(0) + " " + r(1) + " " + r(2) + " " + w(0) + " " + w(1) + " " + w(2), describe(list));
    finishAll();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(1, running[i]->aborts.value());
        EXPECT_FALSE(running[i]->abortedFlagInRun.load());
        EXPECT_TRUE(waiting[i]->abortedFlagInRun.load());
    }
}

TEST_F(BusyThreadPoolTest, RunningTaskQueriesFindOnlyAttachedTasks)
{
    IThreadPool::TaskInfo info;
    EXPECT_EQ("", text(pool->GetRunningTaskInfoByTaskId(runningId[1], info)));
    EXPECT_EQ("y:" + std::to_string(runningId[1]) + ":1", describe(info));
    EXPECT_EQ("CThreadPool::getRunningTaskInfoByTaskId: Error: no running task for requested taskId=" +
                  std::to_string(waitingId[0]) + " [pool:P]",
              text(pool->GetRunningTaskInfoByTaskId(waitingId[0], info)));

    InfoList infos;
    EXPECT_EQ("", text(pool->GetRunningTaskInfoByQueueId(0, infos)));
    EXPECT_EQ("x:" + std::to_string(runningId[0]) + ":0 x:" + std::to_string(runningId[2]) + ":0", describe(infos));
    EXPECT_EQ("", text(pool->GetRunningTaskInfoByQueueId(1, infos)));
    EXPECT_EQ("y:" + std::to_string(runningId[1]) + ":1", describe(infos));
    EXPECT_EQ("CThreadPool::getRunningTaskInfoByQueueId: Error: no running task for requested queueId=3 [pool:P]",
              text(pool->GetRunningTaskInfoByQueueId(3, infos)));
    finishAll();
}

TEST_F(BusyThreadPoolTest, BadArgumentsAreRefusedAndTouchNothing)
{
    struct Row {
        int line;
        std::function<std::string(IThreadPool&, AbortedList&)> call;
        const char* expected;
    };
    const Row rows[] = {
        {__LINE__, [](IThreadPool& p, AbortedList& l) { return text(p.AbortTaskByTaskId(0, l)); },
         "CThreadPool::abortTaskByTaskId: Error: taskId==0 is invalid [pool:P]"},
        {__LINE__, [](IThreadPool& p, AbortedList& l) { return text(p.AbortTaskByName("", l)); },
         "CThreadPool::abortTaskByName: Error: empty taskname is invalid [pool:P]"},
        {__LINE__, [](IThreadPool& p, AbortedList& l) { return text(p.AbortTaskByQueueId(4, false, l)); },
         "CThreadPool::abortTaskByQueueId: Error: illegal queueId: 4 [pool:P]"},
        {__LINE__, [](IThreadPool& p, AbortedList&) { IThreadPool::TaskInfo i; return text(p.GetRunningTaskInfoByTaskId(0, i)); },
         "CThreadPool::getRunningTaskInfoByTaskId: Error: illegal taskId: 0 [pool:P]"},
        {__LINE__, [](IThreadPool& p, AbortedList&) { InfoList i; return text(p.GetRunningTaskInfoByQueueId(4, i)); },
         "CThreadPool::getRunningTaskInfoByQueueId: Error: illegal queueId: 4 [pool:P]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        AbortedList list;
        list.push_back(IThreadPool::AbortedTaskInfo());
        EXPECT_EQ(row.expected, row.call(*pool, list));
        EXPECT_EQ("0w", describe(list));
    }
    finishAll();
    for (TaskProbe& task : probes) {
        EXPECT_EQ(0, task.aborts.value());
        EXPECT_FALSE(task.abortedFlagInRun.load());
    }
}

TEST_F(ThreadPoolTest, StopLetsRunningTasksEndDeletesWaitingOnesUnrunAndAllowsAnotherStart)
{
    ASSERT_EQ("", text(pool->Start(1, 1, 0)));
    TaskProbe& running = addRunning("t", 1);
    TaskProbe& waiting = probe();
    add(waiting);
    std::string stopResult = "not returned";
    std::thread stopper([&] { stopResult = text(pool->Stop(IThreadPool::eFinishRunningTasks)); });
    ASSERT_TRUE(waiting.deletions.waitFor(1)); // before the threads are ended
    EXPECT_EQ(0, waiting.runs.value());
    running.gate.increment();
    stopper.join();
    EXPECT_EQ("", stopResult);
    EXPECT_EQ(1, running.deletions.value()); // Stop waited for it
    EXPECT_EQ(0, running.aborts.value());
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:1, started:false, shutdown:false]: tasks-list size:0, "
              "initialized-threads:0 (idle:0, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              status());

    ASSERT_EQ("", text(pool->Start(3, 5, 1)));
    EXPECT_EQ("Status of thread-pool ['P', minThr:3, maxThr:5, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:3 (idle:3, busy:0), uninitialized-threads:2, exited-threads:0, busy-queue_ids:[]",
              status());
    add(probe(), "t", 5);
}

TEST_F(ThreadPoolTest, EverythingButStatusIsRefusedWhileStopEndsTheThreads)
{
    ASSERT_EQ("", text(pool->Start(1, 1, 0)));
    TaskProbe& running = addRunning();
    std::string stopResult = "not returned";
    std::thread stopper([&] { stopResult = text(pool->Stop(IThreadPool::eAbortRunningTasks)); });
    // Stop aborts under the lock just before it ends the threads; each call below
    // waits for the lock, which Stop gives up only once it is shutting down.
    ASSERT_TRUE(running.aborts.waitFor(1));
    for (const Operation& operation : operations(false)) {
        EXPECT_EQ(std::string("CThreadPool::") + operation.worker +
                      ": Not allowed because the pool is shutting down [pool:P]",
                  operation.call(*pool))
            << "row of line " << operation.line;
    }
    EXPECT_EQ("CThreadPool::start: pool already started [pool:P]", text(pool->Start(1, 1, 0)));
    EXPECT_FALSE(pool->IsIdle());
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:1, started:true, shutdown:true]: tasks-list size:0, "
              "initialized-threads:1 (idle:0, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              status());
    running.gate.increment();
    stopper.join();
    EXPECT_EQ("", stopResult);
    EXPECT_EQ(1, running.aborts.value());
}

TEST_F(ThreadPoolTest, DestructionAbortsRunningTasksOnceDeletesWaitingOnesAndLeavesNothing)
{
    const PAL::CString name("doomed");
    TaskProbe running[2], waiting;
    AllocationBalance balance;
    {
        std::unique_ptr<IThreadPool> doomed(PAL::CThreadPoolFactory::Create(name));
        ASSERT_EQ("", text(doomed->Start(2, 2, 0)));
        unsigned int taskId = 0;
        for (TaskProbe& task : running) {
            task.hold = task.openOnAbort = true; // only an abort ends them
            EXPECT_EQ("", offer(*doomed, task, "t", 0, taskId));
            ASSERT_TRUE(task.runs.waitFor(1));
        }
        EXPECT_EQ("", offer(*doomed, waiting, "t", 0, taskId));
    }
    for (TaskProbe& task : running) {
        EXPECT_EQ(1, task.aborts.value());
        EXPECT_EQ(1, task.deletions.value());
    }
    EXPECT_EQ(0, waiting.runs.value());
    EXPECT_EQ(1, waiting.deletions.value());
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

TEST(ThreadPoolThreadCalls, CallsFromUnknownThreadsAreRefused)
{
    PAL::CThreadPool pool("P");
    EXPECT_EQ("P", text(pool.GetPoolName()));
    EXPECT_EQ(0, PAL::CThreadPool::poolThread(nullptr));
    int somewhere = 0;
    const sMorvex_PAL_Thread* stranger = reinterpret_cast<const sMorvex_PAL_Thread*>(&somewhere);
    sMorvex_PAL_Sema* semaphore = nullptr;
    PAL::IPoolTask* task = nullptr;
    EXPECT_EQ("CThreadPool::getRunTaskSemaphoreHandle: Error: pool is not started [pool:P]",
              text(pool.GetRunTaskSemaphoreHandle(stranger, semaphore)));
    EXPECT_EQ("CThreadPool::getPoolTask: Error: pool is not started [pool:P]", text(pool.GetPoolTask(stranger, task)));
    EXPECT_EQ("CThreadPool::taskCompleted: Error: pool is not started [pool:P]", text(pool.TaskCompleted(stranger)));

    ASSERT_EQ("", text(pool.Start(1, 1, 0)));
    EXPECT_EQ("CThreadPool::getRunTaskSemaphoreHandle: Unexpected: pPalThread==0 [pool:P]",
              text(pool.GetRunTaskSemaphoreHandle(nullptr, semaphore)));
    EXPECT_EQ("CThreadPool::getPoolTask: Unexpected: pPalThread==0 [pool:P]", text(pool.GetPoolTask(nullptr, task)));
    EXPECT_EQ("CThreadPool::taskCompleted: Unexpected: pPalThread==0 [pool:P]", text(pool.TaskCompleted(nullptr)));
    const std::string notFound =
        "CThreadPool::getThreadElementByPalThreadHandle: palThread not found in mThreadsPtrVector [pool:P]";
    EXPECT_EQ(notFound, text(pool.GetRunTaskSemaphoreHandle(stranger, semaphore)));
    EXPECT_EQ(notFound, text(pool.GetPoolTask(stranger, task)));
    EXPECT_EQ(notFound, text(pool.TaskCompleted(stranger)));
    pool.ThreadExited(stranger);
    EXPECT_EQ(nullptr, semaphore);
    EXPECT_EQ(nullptr, task);
    EXPECT_NE(std::string::npos, status(pool).find("exited-threads:0,"));
}

TEST_F(ThreadPoolTest, LockFailuresAreReportedByEveryLockedOperation)
{
    for (const Operation& operation : operations(true)) {
        Morvex_Fault_ArmEx(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, 0, 1, 1);
        EXPECT_EQ(std::string("CThreadPool::") + operation.caller + ": Morvex_PAL_MutexWait failed: 5 [pool:P]",
                  operation.call(*pool))
            << "row of line " << operation.line;
        Morvex_Fault_Disarm(MORVEX_FAULT_MutexWait);
    }
    // IsIdle and GetStatus answer all the same (nothing else touches a pool never started).
    const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_MutexWait);
    Morvex_Fault_ArmEx(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, 0, 2, 1);
    EXPECT_TRUE(pool->IsIdle());
    EXPECT_EQ(0u, status().find("Status of thread-pool ['P', minThr:0, maxThr:0, started:false"));
    EXPECT_EQ(injected + 2, Morvex_Fault_Injected(MORVEX_FAULT_MutexWait));
}

TEST_F(ThreadPoolTest, PoolWithoutAMutexRefusesEveryLockedOperation)
{
    pool.reset();
    {
        // The first string copy of a process makes the counter mutex: it may not take
        // the fault meant for this pool's mutex.
        const PAL::CString warm("warm");
        const PAL::CString copy(warm);
    }
    const PAL::CString name("P");
    const unsigned long long deInits = Morvex_Fault_Calls(MORVEX_FAULT_MutexDeInit);
    Morvex_Fault_ArmEx(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 0, 1, 1);
    pool.reset(PAL::CThreadPoolFactory::Create(name));
    Morvex_Fault_Disarm(MORVEX_FAULT_MutexInit);
    ASSERT_NE(nullptr, pool);
    for (const Operation& operation : operations(true)) {
        EXPECT_EQ(std::string("CThreadPool::") + operation.caller + ": mTSIMutex == Morvex_NULL [pool:P]",
                  operation.call(*pool))
            << "row of line " << operation.line;
    }
    EXPECT_TRUE(pool->IsIdle());
    EXPECT_EQ(0u, status().find("Status of thread-pool ['P', minThr:0, maxThr:0, started:false"));
    pool.reset();
    EXPECT_EQ(deInits, Morvex_Fault_Calls(MORVEX_FAULT_MutexDeInit));
}

TEST_F(ThreadPoolTest, FailedThreadCreationInStartEndsTheThreadsAlreadyMade)
{
    struct Row {
        int line;
        eMorvex_FaultFunction function;
        int code;
        const char* expected;
    };
    const Row rows[] = {
        {__LINE__, MORVEX_FAULT_SemaInit, SEMA_ERROR_CREATE_FAILED,
         "CThreadPool::initThread: Morvex_PAL_SemaInit failed: 5 [pool:P]"},
        {__LINE__, MORVEX_FAULT_ThreadInit, THREAD_ERROR_INTERNAL,
         "CThreadPool::initThread: Morvex_PAL_ThreadInit failed: 8 [pool:P]"},
        {__LINE__, MORVEX_FAULT_ThreadCreate, THREAD_ERROR_CREATE_FAILED,
         "CThreadPool::initThread: Morvex_PAL_ThreadCreate failed: 4 [pool:P]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        AllocationBalance balance;
        const unsigned long long joins = Morvex_Fault_Calls(MORVEX_FAULT_ThreadWait);
        Morvex_Fault_ArmEx(row.function, row.code, 2, 1, 1); // the third thread fails
        EXPECT_EQ(row.expected, text(pool->Start(3, 3, 0)));
        Morvex_Fault_Disarm(row.function);
        EXPECT_EQ(joins + 2, Morvex_Fault_Calls(MORVEX_FAULT_ThreadWait));
        EXPECT_EQ(0, balance.liveBlocksDelta());
        EXPECT_NE(std::string::npos, status().find("started:false, shutdown:false]: tasks-list size:0, "
                                                   "initialized-threads:0 "));
    }
    ASSERT_EQ("", text(pool->Start(3, 3, 0)));
}

TEST_F(ThreadPoolTest, OutOfMemoryInStartOrAddTaskLosesNothing)
{
    bool threadElementRefused = false;
    osal_kit_test::forEveryFailingAllocation([&](unsigned int skip) {
        osal_kit_test::failAllocationAfter(skip);
        const PAL::CString result = pool->Start(2, 3, 0);
        Morvex_Fault_DisarmAll();
        if (!result.isEmpty()) {
            EXPECT_EQ("CThreadPool::addNewThreadToPool: cannot allocate CThreadElement [pool:P]", text(result));
            threadElementRefused = true;
        }
        EXPECT_EQ(result.isEmpty(), pool->Stop(IThreadPool::eFinishRunningTasks).isEmpty());
    });
    EXPECT_TRUE(threadElementRefused);

    // A fresh pool per run: a pool keeps the room it made for a queue id's tasks, and a
    // few records of completed tasks, until it stops.
    std::unique_ptr<TaskProbe[]> offered(new TaskProbe[100]);
    const PAL::CString name("t");
    bool taskElementRefused = false;
    osal_kit_test::forEveryFailingAllocation([&](unsigned int skip) {
        std::unique_ptr<IThreadPool> fresh(PAL::CThreadPoolFactory::Create(name));
        ASSERT_EQ("", text(fresh->Start(1, 2, 0)));
        TaskProbe& probe = offered[skip];
        ProbeTask* task = new ProbeTask(probe);
        unsigned int taskId = 0;
        osal_kit_test::failAllocationAfter(skip);
        const PAL::CString result = fresh->AddTask(name, task, 1, taskId);
        Morvex_Fault_DisarmAll();
        if (taskId == 0) {
            EXPECT_EQ("CThreadPool::addTask: Cannot allocate new CTaskElement [pool:t]", text(result));
            taskElementRefused = true;
            delete task;
        }
        EXPECT_TRUE(probe.deletions.waitFor(1));
        EXPECT_EQ(taskId != 0 ? 1 : 0, probe.runs.value());
        EXPECT_TRUE(fresh->IsIdle()); // the completion, record freed, is over
    });
    EXPECT_TRUE(taskElementRefused);
}

TEST(ThreadPoolFactory, PoolWithoutRoomForItsWaitingListHasNoLock)
{
    FaultGuard faults;
    const PAL::CString name("t");
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 1, 1, 1); // the pool is made, its list is not
    std::unique_ptr<IThreadPool> lockless(PAL::CThreadPoolFactory::Create(name));
    Morvex_Fault_DisarmAll();
    ASSERT_NE(nullptr, lockless);
    EXPECT_EQ("CThreadPool::Start: mTSIMutex == Morvex_NULL [pool:t]", text(lockless->Start(1, 1, 0)));
    EXPECT_TRUE(lockless->IsIdle());
    EXPECT_EQ(0u, status(*lockless).find("Status of thread-pool ['t', minThr:0, maxThr:0, started:false"));
}

TEST_F(ThreadPoolTest, TaskQueuedWhenGrowthFailsRunsOnTheNextFreeThread)
{
    ASSERT_EQ("", text(pool->Start(1, 2, 0)));
    TaskProbe& running = addRunning();
    TaskProbe& queued = probe();
    unsigned int taskId = 0;
    Morvex_Fault_ArmEx(MORVEX_FAULT_ThreadInit, THREAD_ERROR_INTERNAL, 0, 1, 1);
    EXPECT_EQ("CThreadPool::initThread: Morvex_PAL_ThreadInit failed: 8 [pool:P]",
              offer(*pool, queued, "queued", 0, taskId));
    EXPECT_NE(0u, taskId); // queued all the same, and the pool's now
    EXPECT_NE(std::string::npos, status().find("tasks-list size:1, initialized-threads:1 (idle:0, busy:1)"));
    running.gate.increment();
    EXPECT_TRUE(queued.deletions.waitFor(1));
    EXPECT_EQ(running.thread.load(), queued.thread.load());
}

TEST_F(ThreadPoolTest, TaskWhoseThreadCouldNotBeSignalledStaysOnlyInTheWaitingList)
{
    ASSERT_EQ("", text(pool->Start(1, 1, 0)));
    TaskProbe& first = probe();
    unsigned int taskId = 0;
    Morvex_Fault_ArmEx(MORVEX_FAULT_SemaSignal, SEMA_ERROR_INTERNAL, 0, 1, 1);
    EXPECT_EQ("CThreadPool::assignTasksToThreads: Morvex_PAL_SemaSignal failed [7]. CThreadElement pos:0. Name of "
              "assiging task: first. [pool:P]",
              offer(*pool, first, "first", 1, taskId));
    EXPECT_NE(0u, taskId);
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:1, started:true, shutdown:false]: tasks-list size:1, "
              "initialized-threads:1 (idle:1, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              status());
    // The next pass hands out both, in order, each once.
    TaskProbe& second = probe();
    add(second, "second", 1);
    EXPECT_TRUE(second.deletions.waitFor(1));
    EXPECT_EQ(1, first.runs.value());
    EXPECT_EQ(1, second.runs.value());
    EXPECT_LT(first.idInRun.load(), second.idInRun.load());
}

TEST_F(ThreadPoolTest, TaskGivenToAThreadThatNeverFetchesItIsDeletedByStop)
{
    // Without its own handle the thread ends its loop before its first wait, while the
    // pool still counts it as idle.
    const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_ThreadGetCurrent);
    Morvex_Fault_ArmEx(MORVEX_FAULT_ThreadGetCurrent, 0, 0, 1, 0);
    ASSERT_EQ("", text(pool->Start(1, 1, 0)));
    TaskProbe& stranded = probe();
    add(stranded, "stranded", 1);
    EXPECT_EQ("", text(pool->Stop(IThreadPool::eFinishRunningTasks)));
    EXPECT_EQ(injected + 1, Morvex_Fault_Injected(MORVEX_FAULT_ThreadGetCurrent));
    EXPECT_EQ(0, stranded.runs.value());
    EXPECT_EQ(1, stranded.deletions.value());
}

TEST_F(ThreadPoolTest, ThreadWhoseLoopEndsIsCountedAsExitedAndGetsNoMoreTasks)
{
    ASSERT_EQ("", text(pool->Start(1, 2, 0)));
    TaskProbe& last = probe();
    // The thread's next wait fails and finds no task, which ends its loop.
    last.inRun = [](TaskProbe&) { Morvex_Fault_ArmEx(MORVEX_FAULT_SemaWait, SEMA_ERROR_INTERNAL, 0, 1, 1); };
    add(last);
    ASSERT_TRUE(last.deletions.waitFor(1));
    ASSERT_EQ(THREAD_OK, Morvex_PAL_ThreadWait(last.thread, nullptr));
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:2, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:1 (idle:1, busy:0), uninitialized-threads:1, exited-threads:1, busy-queue_ids:[]",
              status());
    TaskProbe& next = probe();
    add(next);
    ASSERT_TRUE(next.deletions.waitFor(1));
    EXPECT_NE(last.thread.load(), next.thread.load());
    EXPECT_NE(std::string::npos, status().find("initialized-threads:2 (idle:2, busy:0), uninitialized-threads:0, "
                                               "exited-threads:1"));
}

TEST_F(ThreadPoolTest, TasksAddedJustBeforeStopAreEachDeletedOnce)
{
    for (int round = 0; round < 25; ++round) {
        std::unique_ptr<IThreadPool> quick(PAL::CThreadPoolFactory::Create("quick"));
        ASSERT_EQ("", text(quick->Start(2, 3, 0)));
        for (unsigned int i = 0; i < 5; ++i) {
            unsigned int taskId = 0;
            EXPECT_EQ("", offer(*quick, probe(), "t", i % 3, taskId));
        }
        EXPECT_EQ("", text(quick->Stop(round % 2 == 0 ? IThreadPool::eFinishRunningTasks
                                                     : IThreadPool::eAbortRunningTasks)));
    }
    for (TaskProbe& task : probes) {
        EXPECT_EQ(1, task.deletions.value());
        EXPECT_LE(task.runs.value(), 1);
    }
}

// Alone in its own process (as CTest runs it), the pools below are the first of the
// process and race for the first task ids.
TEST(ThreadPoolTaskIds, PoolsRacingForTheirFirstTasksGetConsecutiveDistinctIds)
{
    FaultGuard faults;
    const PAL::CString warm("warm");
    const PAL::CString copy(warm); // the counter mutex, made by the first copy
    const bool firstPools = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit) == 1;
    const unsigned long long mutexesBefore = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit);

    const int pools = 4, tasksPerPool = 10;
    WaitableCounter ready, go;
    std::mutex idsMutex;
    std::set<unsigned int> issued;
    std::deque<TaskProbe> probes(pools * tasksPerPool);
    std::vector<std::thread> threads;
    for (int p = 0; p < pools; ++p) {
        threads.emplace_back([&, p] {
            ready.increment();
            go.waitFor(1);
            std::unique_ptr<IThreadPool> racer(PAL::CThreadPoolFactory::Create("racer"));
            EXPECT_EQ("", text(racer->Start(1, 2, 0)));
            for (int t = 0; t < tasksPerPool; ++t) {
                TaskProbe& probe = probes[static_cast<std::size_t>(p * tasksPerPool + t)];
                unsigned int taskId = 0;
                EXPECT_EQ("", offer(*racer, probe, "t", 0, taskId));
                EXPECT_TRUE(probe.deletions.waitFor(1));
                EXPECT_EQ(taskId, probe.idInRun.load());
                std::lock_guard<std::mutex> lock(idsMutex);
                issued.insert(taskId);
            }
        });
    }
    ready.waitFor(pools);
    go.increment();
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(static_cast<std::size_t>(pools * tasksPerPool), issued.size());
    EXPECT_EQ(*issued.begin() + pools * tasksPerPool - 1, *issued.rbegin());
    // One mutex per pool; ids are drawn without one.
    EXPECT_EQ(static_cast<unsigned long long>(pools), Morvex_Fault_Calls(MORVEX_FAULT_MutexInit) - mutexesBefore);
    if (firstPools) {
        EXPECT_EQ(1u, *issued.begin());
    }
}
