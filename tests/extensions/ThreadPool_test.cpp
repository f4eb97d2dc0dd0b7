// The thread pool as its callers meet it: texts, task ids, the order of queued tasks,
// aborts and queries, and every task it accepts deleted exactly once.

#include "extensions/ThreadPool.h"
#include "extensions/ThreadPoolFactory.h"

#include "support/AllocationBalance.h"
#include "support/WaitableCounter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using ::testing::HasSubstr;
using PAL::IThreadPool;
typedef PAL::TVector<IThreadPool::AbortedTaskInfo> AbortedList;
typedef PAL::TVector<IThreadPool::TaskInfo> InfoList;

std::string text(const PAL::CString& s) { return s.getBuffer(); }

// What happened to one task. Its Run waits for the gate while `hold` (an abort opens it
// when `openOnAbort`), then calls `inRun`.
struct Probe {
    bool hold = false;
    std::atomic<bool> openOnAbort{false};
    std::function<void(Probe&)> inRun;
    osal_kit_test::WaitableCounter gate, runs, aborts, deletions;
    std::atomic<unsigned int> idInRun{0};
    std::atomic<bool> abortedInRun{false};
    std::atomic<sMorvex_PAL_Thread*> thread{nullptr};
};

struct ProbeTask : PAL::IPoolTask {
    explicit ProbeTask(Probe& probe) : p(probe) {}
    ~ProbeTask() override { p.deletions.increment(); }
    void Run() override
    {
        p.thread = Morvex_PAL_ThreadGetCurrent();
        p.idInRun = GetTaskId();
        p.abortedInRun = IsAborted();
        p.runs.increment();
        if (p.hold)
            p.gate.waitFor(1);
        if (p.inRun)
            p.inRun(p);
    }
    void Abort() override { p.aborts.increment(); if (p.openOnAbort) p.gate.increment(); }
    Probe& p;
};

std::string status(IThreadPool& pool) { IThreadPool::Status record; return text(pool.GetStatus(record)); }

// "x:4:0" (name, task id, queue id); an aborted task's followed by r(unning) or w(aiting).
std::string describe(const IThreadPool::TaskInfo& info)
{
    return text(info.mTaskName) + ":" + std::to_string(info.mTaskId) + ":" + std::to_string(info.mQueueId);
}
std::string describe(const IThreadPool::AbortedTaskInfo& info)
{
    return describe(static_cast<const IThreadPool::TaskInfo&>(info)) + (info.mWasRunning ? "r" : "w");
}

// What `call` returns, "|", and the list it filled, which held one fresh record before;
// read through copies that outlive it, as a caller keeps them.
template <class Info>
std::string filled(const std::function<PAL::CString(PAL::TVector<Info>&)>& call)
{
    std::vector<Info> copies;
    std::string result;
    {
        PAL::TVector<Info> list;
        list.push_back(Info());
        result = text(call(list)) + "|";
        for (int i = 0; i < list.size(); ++i)
            copies.push_back(*list.get(i)), copies.back() = copies.front(), copies.back() = *list.get(i);
    }
    for (const Info& info : copies)
        result += (&info != &copies[0] ? " " : "") + describe(info);
    return result;
}

// Each locked operation of pool P but Start refuses with "CThreadPool::<worker>: <what> [pool:P]".
void expectRefusals(IThreadPool& pool, const std::string& what)
{
    AbortedList aborted;
    InfoList infos;
    IThreadPool::TaskInfo info;
    unsigned int taskId = 0;
    const struct { int line; const char* worker; std::function<PAL::CString()> call; } operations[] = {
        {__LINE__, "stop", [&] { return pool.Stop(IThreadPool::eFinishRunningTasks); }},
        {__LINE__, "addTask", [&] { return pool.AddTask("t", nullptr, 0, taskId); }},
        {__LINE__, "abortTaskByTaskId", [&] { return pool.AbortTaskByTaskId(1, aborted); }},
        {__LINE__, "abortTaskByName", [&] { return pool.AbortTaskByName("t", aborted); }},
        {__LINE__, "abortTaskByQueueId", [&] { return pool.AbortTaskByQueueId(0, false, aborted); }},
        {__LINE__, "abortAllTasks", [&] { return pool.AbortAllTasks(aborted); }},
        {__LINE__, "getRunningTaskInfoByTaskId", [&] { return pool.GetRunningTaskInfoByTaskId(1, info); }},
        {__LINE__, "getRunningTaskInfoByQueueId", [&] { return pool.GetRunningTaskInfoByQueueId(0, infos); }},
    };
    for (const auto& operation : operations)
        EXPECT_EQ(std::string("CThreadPool::") + operation.worker + ": " + what + " [pool:P]", text(operation.call()))
            << "row of line " << operation.line;
}

// Pool P, and probes for its tasks, each of which must end deleted exactly once.
class ThreadPoolTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        for (Probe& each : probes)
            each.gate.increment();
        pool.reset();
        for (std::size_t i = 0; i < probes.size(); ++i)
            EXPECT_EQ(1, probes[i].deletions.value()) << "task probe " << i;
    }
    Probe& probe(bool hold = false)
    {
        probes.emplace_back();
        probes.back().hold = hold;
        return probes.back();
    }
    unsigned int add(Probe& probe, const char* name = "t", unsigned int queueId = 0)
    {
        unsigned int taskId = 0;
        EXPECT_EQ("", text(pool->AddTask(name, new ProbeTask(probe), queueId, taskId)));
        return taskId;
    }
    // Adds a held task and waits for its Run to begin.
    Probe& addRunning(const char* name = "t", unsigned int queueId = 0)
    {
        Probe& running = probe(true);
        add(running, name, queueId);
        EXPECT_TRUE(running.runs.waitFor(1));
        return running;
    }

    std::deque<Probe> probes;
    std::unique_ptr<IThreadPool> pool{PAL::CThreadPoolFactory::Create("P")};
};

} // namespace

TEST_F(ThreadPoolTest, StartChecksItsArgumentsAndMakesEveryThreadAtThePoolPriority)
{
    const struct { int line; unsigned int minimum, maximum; int priority; const char* expected; } rows[] = {
        {__LINE__, 0, 4, 0, "CThreadPool::start: minNumbOfThreads == 0: not allowed [pool:P]"},
        {__LINE__, 3, 2, 0, "CThreadPool::start: minNumbOfThreads > maxNumbOfThreads: not allowed [pool:P]"},
        {__LINE__, 1, 4, 4, "CThreadPool::convertPrioToPalPrio: priority value 4 not allowed [pool:P]"},
        {__LINE__, 1, 4, -4, "CThreadPool::convertPrioToPalPrio: priority value -4 not allowed [pool:P]"},
        {__LINE__, 1, 1, 3, ""},
        {__LINE__, 1, 1, -3, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, text(pool->Start(row.minimum, row.maximum, row.priority))) << "row of line " << row.line;
        EXPECT_THAT(status(*pool), HasSubstr(*row.expected ? "started:false" : "initialized-threads:1 "));
        EXPECT_EQ(*row.expected ? "CThreadPool::stop: Error: pool is not started [pool:P]" : "",
                  text(pool->Stop(IThreadPool::eAbortRunningTasks)));
    }
    ASSERT_EQ("", text(pool->Start(1, 3, -2)));
    addRunning();
    eMorvex_PAL_ThreadPrio palPriority = THREAD_PRIO_NORMAL;
    EXPECT_EQ(THREAD_OK, Morvex_PAL_ThreadGetPriority(addRunning().thread, &palPriority)); // a thread made for it
    EXPECT_EQ(THREAD_PRIO_LOWER, palPriority);
    addRunning();
    const std::string started = status(*pool);
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:3, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:3 (idle:0, busy:3), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]",
              started);
    EXPECT_EQ("CThreadPool::start: pool already started [pool:P]", text(pool->Start(1, 5, 1)));
    EXPECT_EQ(started, status(*pool));
    EXPECT_EQ("CThreadPool::stop: unknown shutdownPolicy: 2 [pool:P]",
              text(pool->Stop(static_cast<IThreadPool::eShutdownPolicy>(2))));
}

TEST_F(ThreadPoolTest, WaitingTasksGoToTheLowestIdleThreadAndOneQueueRunsOneTaskAtATime)
{
    ASSERT_EQ("", text(pool->Start(2, 4, 0)));
    Probe& first = addRunning("t", 3);
    EXPECT_FALSE(pool->IsIdle());
    IThreadPool::Status record;
    EXPECT_EQ("Status of thread-pool ['P', minThr:2, maxThr:4, started:true, shutdown:false]: tasks-list size:0, "
              "initialized-threads:2 (idle:1, busy:1), uninitialized-threads:2, exited-threads:0, busy-queue_ids:[3 ]",
              text(pool->GetStatus(record)));
    ASSERT_EQ(1, record.mBusyQueueIds.size());
    EXPECT_EQ(3u, *record.mBusyQueueIds.get(0));

    Probe& second = probe(true);
    add(second, "t", 3); // waits for the first
    Probe* other[] = {&addRunning("t", 1), &addRunning(), &addRunning()};
    EXPECT_THAT(status(*pool), HasSubstr("tasks-list size:1, initialized-threads:4 (idle:0, busy:4), "
                                         "uninitialized-threads:0, exited-threads:0, busy-queue_ids:[3 1 ]"));
    // Positions 2 and then 0 become idle: the waiting task takes position 0, the next task 2.
    other[1]->gate.increment();
    ASSERT_TRUE(other[1]->deletions.waitFor(1));
    first.gate.increment();
    ASSERT_TRUE(second.runs.waitFor(1));
    EXPECT_EQ(first.thread.load(), second.thread.load());
    EXPECT_THAT(status(*pool), HasSubstr("busy-queue_ids:[1 3 ]")); // freed, then busy again
    EXPECT_EQ(other[1]->thread.load(), addRunning().thread.load());
    for (Probe& each : probes)
        each.gate.increment();
    for (Probe& each : probes)
        ASSERT_TRUE(each.deletions.waitFor(1));
    EXPECT_TRUE(pool->IsIdle());
    EXPECT_THAT(status(*pool), HasSubstr("(idle:4, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]"));
}

// A task whose thread cannot be woken is taken back, and the next task's pass gives it
// out again before it makes a thread for the new one.
TEST_F(ThreadPoolTest, ATaskWhoseThreadCouldNotBeWokenRunsWithTheNextTask)
{
    ASSERT_EQ("", text(pool->Start(1, 2, 0)));
    Probe &first = probe(), &second = probe();
    unsigned int taskId = 0;
    osal_kit_test::failNext(MORVEX_FAULT_SemaSignal, SEMA_ERROR_INTERNAL);
    EXPECT_NE("", text(pool->AddTask("t", new ProbeTask(first), 0, taskId))); // the fault sweep checks its text
    EXPECT_NE(0u, taskId);
    add(second);
    EXPECT_TRUE(first.runs.waitFor(1) && second.runs.waitFor(1));
}


// Threads at positions 0 to 2 run held tasks x (no queue), y (queue 1) and x (no
// queue), while x (queue 1), z (queue 1) and x (no queue) wait.
TEST_F(ThreadPoolTest, AbortsAndQueriesSeeRunningTasksByPositionThenWaitingOnes)
{
    ASSERT_EQ("", text(pool->Start(3, 3, 0)));
    Probe* tasks[6];
    std::string d[6]; // described
    unsigned int id[6];
    for (int i = 0; i < 6; ++i) {
        const char* name = i == 1 ? "y" : (i == 4 ? "z" : "x");
        const unsigned int queueId = i == 1 || i == 3 || i == 4 ? 1 : 0;
        tasks[i] = i < 3 ? &addRunning(name, queueId) : &probe();
        id[i] = i < 3 ? tasks[i]->idInRun.load() : add(*tasks[i], name, queueId);
        d[i] = name + (":" + std::to_string(id[i])) + ":" + std::to_string(queueId) + (i < 3 ? "r" : "w");
    }
    IThreadPool& p = *pool;
    // A refused task is not taken: the id it is given is 0, seen here as the record's.
    auto refusedAdd = [&](const char* name, unsigned int queueId, AbortedList& l) {
        return p.AddTask(name, nullptr, queueId, l.get(0)->mTaskId = 7);
    };
    const struct { int line; std::string expected; std::function<PAL::CString(AbortedList&)> call; } rows[] = {
        {__LINE__, "|", [&](AbortedList& l) { return p.AbortTaskByTaskId(id[5] + 1000, l); }},
        {__LINE__, "|" + d[1], [&](AbortedList& l) { return p.AbortTaskByTaskId(id[1], l); }},
        {__LINE__, "|" + d[3], [&](AbortedList& l) { return p.AbortTaskByTaskId(id[3], l); }},
        {__LINE__, "|" + d[0] + " " + d[2] + " " + d[5] + " " + d[3], [&](AbortedList& l) { return p.AbortTaskByName("x", l); }},
        {__LINE__, "|", [&](AbortedList& l) { return p.AbortTaskByName("nobody", l); }},
        {__LINE__, "|" + d[1], [&](AbortedList& l) { return p.AbortTaskByQueueId(1, true, l); }},
        {__LINE__, "|" + d[1] + " " + d[4] + " " + d[3], [&](AbortedList& l) { return p.AbortTaskByQueueId(1, false, l); }},
        {__LINE__, "|" + d[0] + " " + d[2] + " " + d[5], [&](AbortedList& l) { return p.AbortTaskByQueueId(0, false, l); }},
        {__LINE__, "|", [&](AbortedList& l) { return p.AbortTaskByQueueId(3, false, l); }},
        {__LINE__, "|" + d[0] + " " + d[1] + " " + d[2] + " " + d[3] + " " + d[4] + " " + d[5],
         [&](AbortedList& l) { return p.AbortAllTasks(l); }},
        {__LINE__, "CThreadPool::abortTaskByTaskId: Error: taskId==0 is invalid [pool:P]|:0:0w",
         [&](AbortedList& l) { return p.AbortTaskByTaskId(0, l); }},
        {__LINE__, "CThreadPool::abortTaskByName: Error: empty taskname is invalid [pool:P]|:0:0w",
         [&](AbortedList& l) { return p.AbortTaskByName("", l); }},
        {__LINE__, "CThreadPool::abortTaskByQueueId: Error: illegal queueId: 4 [pool:P]|:0:0w",
         [&](AbortedList& l) { return p.AbortTaskByQueueId(4, false, l); }},
        // A running task by its id; a refusal resets the record through its virtual Reset.
        {__LINE__, "|y:" + std::to_string(id[1]) + ":1w",
         [&](AbortedList& l) { return p.GetRunningTaskInfoByTaskId(id[1], *l.get(0)); }},
        {__LINE__, "CThreadPool::getRunningTaskInfoByTaskId: Error: no running task for requested taskId=" +
                       std::to_string(id[3]) + " [pool:P]|:0:0w",
         [&](AbortedList& l) { return l.get(0)->mWasRunning = true, p.GetRunningTaskInfoByTaskId(id[3], *l.get(0)); }},
        {__LINE__, "CThreadPool::addTask: Error: illegal queueId: 4 [pool:P]|:0:0w", [&](AbortedList& l) { return refusedAdd("", 4, l); }},
        {__LINE__, "CThreadPool::addTask: Error: illegal queueId: -1 [pool:P]|:0:0w", [&](AbortedList& l) { return refusedAdd("t", ~0u, l); }},
        {__LINE__, "CThreadPool::addTask: Error: pPoolTask==0 [pool:P]|:0:0w", [&](AbortedList& l) { return refusedAdd("t", 0, l); }},
        {__LINE__, "CThreadPool::addTask: Error: taskName is empty [pool:P]|:0:0w", [&](AbortedList& l) { return refusedAdd("", 0, l); }},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, filled<IThreadPool::AbortedTaskInfo>(row.call)) << "row of line " << row.line;
    EXPECT_EQ("|x:" + std::to_string(id[0]) + ":0 x:" + std::to_string(id[2]) + ":0",
              filled<IThreadPool::TaskInfo>([&](InfoList& l) { return p.GetRunningTaskInfoByQueueId(0, l); }));

    // Nothing leaves its place: all count as before until they end by themselves.
    EXPECT_THAT(status(p), HasSubstr("tasks-list size:3, initialized-threads:3 (idle:0, busy:3)"));
    for (Probe& each : probes)
        each.gate.increment();
    const int abortsOf[] = {3, 4, 3, 0, 0, 0};
    for (int i = 0; i < 6; ++i) {
        ASSERT_TRUE(tasks[i]->deletions.waitFor(1));
        EXPECT_EQ(abortsOf[i], tasks[i]->aborts.value()) << "task " << i;
        EXPECT_EQ(i >= 3, tasks[i]->abortedInRun.load()) << "task " << i;
    }
}

TEST_F(ThreadPoolTest, StopDeletesWaitingTasksUnrunRefusesAllButStatusMeanwhileAndAllowsAnotherStart)
{
    ASSERT_EQ("", text(pool->Start(1, 1, 0)));
    Probe& running = addRunning("t", 1);
    Probe& waiting = probe();
    add(waiting);
    std::string stopped = "not returned";
    std::thread stopper([&] { stopped = text(pool->Stop(IThreadPool::eFinishRunningTasks)); });
    // Stop deletes the waiting task under the lock, which it gives up once shutting down.
    ASSERT_TRUE(waiting.deletions.waitFor(1));
    expectRefusals(*pool, "Not allowed because the pool is shutting down");
    EXPECT_EQ("CThreadPool::start: pool already started [pool:P]", text(pool->Start(1, 1, 0)));
    EXPECT_FALSE(pool->IsIdle());
    EXPECT_EQ("Status of thread-pool ['P', minThr:1, maxThr:1, started:true, shutdown:true]: tasks-list size:0, "
              "initialized-threads:1 (idle:0, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[1 ]",
              status(*pool));
    running.gate.increment();
    stopper.join();
    EXPECT_EQ("", stopped);
    EXPECT_EQ(1, running.deletions.value()); // Stop waited for it
    EXPECT_EQ(0, running.aborts.value() + waiting.runs.value());
    EXPECT_THAT(status(*pool), HasSubstr("started:false, shutdown:false]: tasks-list size:0, initialized-threads:0 "
                                         "(idle:0, busy:0), uninitialized-threads:0, exited-threads:0, busy-queue_ids:[]"));

    // Started again, then destroyed: the running task is aborted once, the waiting one
    // deleted unrun, and nothing of the pool is left.
    ASSERT_EQ("", text(pool->Start(1, 5, 1)));
    Probe& aborted = addRunning("t", 5);
    aborted.openOnAbort = true;
    Probe& unrun = probe();
    osal_kit_test::AllocationBalance balance;
    add(unrun, "t", 5);
    pool.reset();
    EXPECT_EQ(1, aborted.aborts.value());
    EXPECT_EQ(0, unrun.runs.value());
    EXPECT_GE(0, balance.liveBlocksDelta());
}

