// The thread pool against its peers: many small tasks, one serialised queue, a deep
// backlog on one queue id, and the wake-up latency of an idle pool.

#include "BenchSupport.h"

#include "extensions/IThreadPool.h"
#include "extensions/ThreadPoolFactory.h"
#include "morvex_pal_fault.h"

#include <QRunnable>
#include <QThreadPool>
#include <benchmark/benchmark.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <glib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <dirent.h>
#include <memory>
#include <mutex>
#include <new>
#include <sched.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using osal_kit_bench::size;

// Counts down to zero once; waiters block until then.
class Latch {
public:
    explicit Latch(std::int64_t count) : mCount(count) {}
    void countDown()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (--mCount == 0) {
            mDone.notify_all();
        }
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mDone.wait(lock, [this] { return mCount <= 0; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mDone;
    std::int64_t mCount;
};

// What every implementation of a work must agree on: how many tasks ran, and whether
// the ones that had to keep their order did.
struct Tally {
    explicit Tally(std::int64_t tasks) : expected(tasks), finished(1) {}
    void ran()
    {
        if (ranCount.fetch_add(1, std::memory_order_acq_rel) + 1 == expected) {
            finished.countDown();
        }
    }
    // For serialised work: each task knows its place; no lock needed, the tasks never overlap.
    void ranInOrder(std::int64_t index)
    {
        if (index != next) {
            outOfOrder.store(true, std::memory_order_relaxed);
        }
        next = index + 1;
        ran();
    }
    bool check(benchmark::State& state)
    {
        finished.wait();
        if (ranCount.load() != expected || outOfOrder.load()) {
            state.SkipWithError("tasks lost, repeated or out of order");
            return false;
        }
        return true;
    }

    const std::int64_t expected;
    std::atomic<std::int64_t> ranCount{0};
    std::atomic<bool> outOfOrder{false};
    std::int64_t next = 0;
    Latch finished;
};

// ---- osal_kit ----

class CountTask : public PAL::IPoolTask {
public:
    CountTask(Tally& tally, std::int64_t index, Latch* gate = nullptr) : mTally(tally), mIndex(index), mGate(gate) {}
    void Run() override
    {
        if (mGate != nullptr) {
            mGate->wait();
        }
        mTally.ranInOrder(mIndex);
    }
    void Abort() override {}

private:
    Tally& mTally;
    std::int64_t mIndex;
    Latch* mGate;
};

class NoopTask : public PAL::IPoolTask {
public:
    explicit NoopTask(Tally& tally) : mTally(tally) {}
    void Run() override { mTally.ran(); }
    void Abort() override {}

private:
    Tally& mTally;
};

// The pool's per-task path in platform calls, from the stand-ins' own call counters:
// mutex takes (the pool's lock and every string count alike), semaphore signals
// (wake-ups) and tracked allocations (the benchmark's task objects included).
class PalCallsPerTask {
public:
    PalCallsPerTask()
    {
        for (std::size_t i = 0; i < CALLS; ++i) {
            mBefore[i] = Morvex_Fault_Calls(sCalls[i].function);
        }
    }
    void report(benchmark::State& state, std::int64_t tasks) const
    {
        const double count = static_cast<double>(state.iterations() * tasks);
        for (std::size_t i = 0; i < CALLS; ++i) {
            state.counters[sCalls[i].name] =
                benchmark::Counter(static_cast<double>(Morvex_Fault_Calls(sCalls[i].function) - mBefore[i]) / count);
        }
    }

private:
    struct Call {
        eMorvex_FaultFunction function;
        const char* name;
    };
    static constexpr std::size_t CALLS = 3;
    static constexpr Call sCalls[CALLS] = {{MORVEX_FAULT_MutexWait, "mutex_waits_per_task"},
                                          {MORVEX_FAULT_SemaSignal, "sema_signals_per_task"},
                                          {MORVEX_FAULT_zmalloc, "allocations_per_task"}};
    unsigned long long mBefore[CALLS];
};

struct OsalPool {
    explicit OsalPool(unsigned int threads) : pool(PAL::CThreadPoolFactory::Create("bench"))
    {
        ok = pool != nullptr && pool->Start(threads, threads, 0).isEmpty();
    }
    ~OsalPool()
    {
        if (pool != nullptr) {
            pool->Stop(PAL::IThreadPool::eFinishRunningTasks);
        }
    }
    // The pool owns the task from a non-zero id on; otherwise it is still ours.
    bool add(const PAL::CString& name, PAL::IPoolTask* task, unsigned int queueId)
    {
        unsigned int taskId = 0;
        if (task == nullptr) {
            return false;
        }
        const bool accepted = pool->AddTask(name, task, queueId, taskId).isEmpty();
        if (taskId == 0) {
            delete task;
        }
        return accepted;
    }

    std::unique_ptr<PAL::IThreadPool> pool;
    bool ok = false;
};

void PoolNoopTasks_osal_kit(benchmark::State& state)
{
    const std::int64_t tasks = size(100000);
    OsalPool pool(2);
    if (!pool.ok) {
        state.SkipWithError("pool did not start");
        return;
    }
    const PAL::CString name("noop");
    const PalCallsPerTask calls;
    for (auto _ : state) {
        Tally tally(tasks);
        for (std::int64_t i = 0; i < tasks; ++i) {
            if (!pool.add(name, new (std::nothrow) NoopTask(tally), 0)) {
                state.SkipWithError("AddTask refused");
                return;
            }
        }
        if (!tally.check(state)) {
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * tasks);
    calls.report(state, tasks);
}

void PoolOneQueueId_osal_kit(benchmark::State& state)
{
    const std::int64_t tasks = size(100000);
    OsalPool pool(2);
    if (!pool.ok) {
        state.SkipWithError("pool did not start");
        return;
    }
    const PAL::CString name("serial");
    const PalCallsPerTask calls;
    for (auto _ : state) {
        Tally tally(tasks);
        for (std::int64_t i = 0; i < tasks; ++i) {
            if (!pool.add(name, new (std::nothrow) CountTask(tally, i), 1)) {
                state.SkipWithError("AddTask refused");
                return;
            }
        }
        if (!tally.check(state)) {
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * tasks);
    calls.report(state, tasks);
}

// The first task holds its queue until every task is in, so the whole backlog waits
// behind a busy queue id.
void queueIdBacklog(benchmark::State& state, std::int64_t tasks)
{
    OsalPool pool(2);
    if (!pool.ok) {
        state.SkipWithError("pool did not start");
        return;
    }
    const PAL::CString name("backlog");
    const PalCallsPerTask calls;
    for (auto _ : state) {
        Tally tally(tasks);
        Latch allAdded(1);
        for (std::int64_t i = 0; i < tasks; ++i) {
            if (!pool.add(name, new (std::nothrow) CountTask(tally, i, i == 0 ? &allAdded : nullptr), 1)) {
                state.SkipWithError("AddTask refused");
                allAdded.countDown();
                return;
            }
        }
        allAdded.countDown();
        if (!tally.check(state)) {
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * tasks);
    calls.report(state, tasks);
}

void PoolQueueIdBacklog100k_osal_kit(benchmark::State& state)
{
    queueIdBacklog(state, size(100000));
}

void PoolQueueIdBacklog1k_osal_kit(benchmark::State& state)
{
    queueIdBacklog(state, size(1000));
}

// ---- Qt ----

class QtNoop : public QRunnable {
public:
    explicit QtNoop(Tally& tally) : mTally(tally) { setAutoDelete(true); }
    void run() override { mTally.ran(); }

private:
    Tally& mTally;
};

void PoolNoopTasks_QThreadPool(benchmark::State& state)
{
    const std::int64_t tasks = size(100000);
    QThreadPool pool;
    pool.setMaxThreadCount(2);
    for (auto _ : state) {
        Tally tally(tasks);
        for (std::int64_t i = 0; i < tasks; ++i) {
            pool.start(new QtNoop(tally));
        }
        if (!tally.check(state)) {
            return;
        }
    }
    pool.waitForDone();
    state.SetItemsProcessed(state.iterations() * tasks);
}

// ---- a plain standard-library pool: one locked deque, two threads ----

class StdPool {
public:
    struct Task {
        virtual ~Task() {}
        virtual void run() = 0;
    };

    explicit StdPool(int threads)
    {
        for (int i = 0; i < threads; ++i) {
            mThreads.emplace_back([this] { loop(); });
        }
    }
    ~StdPool()
    {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mStopping = true;
        }
        mWake.notify_all();
        for (std::thread& thread : mThreads) {
            thread.join();
        }
    }
    void post(std::unique_ptr<Task> task)
    {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mTasks.push_back(std::move(task));
        }
        mWake.notify_one();
    }

private:
    void loop()
    {
        for (;;) {
            std::unique_ptr<Task> task;
            {
                std::unique_lock<std::mutex> lock(mMutex);
                mWake.wait(lock, [this] { return mStopping || !mTasks.empty(); });
                if (mTasks.empty()) {
                    return;
                }
                task = std::move(mTasks.front());
                mTasks.pop_front();
            }
            task->run();
        }
    }

    std::mutex mMutex;
    std::condition_variable mWake;
    std::deque<std::unique_ptr<Task>> mTasks;
    bool mStopping = false;
    std::vector<std::thread> mThreads;
};

struct StdNoop : StdPool::Task {
    explicit StdNoop(Tally& tally) : mTally(tally) {}
    void run() override { mTally.ran(); }
    Tally& mTally;
};

void PoolNoopTasks_std(benchmark::State& state)
{
    const std::int64_t tasks = size(100000);
    StdPool pool(2);
    for (auto _ : state) {
        Tally tally(tasks);
        for (std::int64_t i = 0; i < tasks; ++i) {
            pool.post(std::unique_ptr<StdPool::Task>(new StdNoop(tally)));
        }
        if (!tally.check(state)) {
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * tasks);
}

// ---- Boost.Asio strand ----

void PoolOneQueueId_asio_strand(benchmark::State& state)
{
    const std::int64_t tasks = size(100000);
    boost::asio::io_context context;
    auto work = boost::asio::make_work_guard(context);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&context] { context.run(); });
    }
    auto strand = boost::asio::make_strand(context);
    for (auto _ : state) {
        Tally tally(tasks);
        for (std::int64_t i = 0; i < tasks; ++i) {
            boost::asio::post(strand, [&tally, i] { tally.ranInOrder(i); });
        }
        if (!tally.check(state)) {
            break;
        }
    }
    work.reset();
    for (std::thread& thread : threads) {
        thread.join();
    }
    state.SetItemsProcessed(state.iterations() * tasks);
}

// ---- wake-up latency ----

// Every thread of the process on one CPU while it lives (threads made meanwhile
// inherit it), the old masks back afterwards.
class PinnedProcess {
public:
    PinnedProcess()
    {
        cpu_set_t current;
        CPU_ZERO(&current);
        if (sched_getaffinity(0, sizeof current, &current) != 0) {
            return;
        }
        int cpu = 0;
        while (cpu < CPU_SETSIZE && !CPU_ISSET(cpu, &current)) {
            ++cpu;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        for (pid_t tid : threads()) {
            cpu_set_t old;
            CPU_ZERO(&old);
            if (sched_getaffinity(tid, sizeof old, &old) == 0 && sched_setaffinity(tid, sizeof one, &one) == 0) {
                mSaved.push_back({tid, old});
            }
        }
        mOk = !mSaved.empty();
    }
    ~PinnedProcess()
    {
        // Threads made while pinned have ended by now (their pools are gone).
        for (const Saved& saved : mSaved) {
            (void)sched_setaffinity(saved.tid, sizeof saved.mask, &saved.mask);
        }
    }
    bool ok() const { return mOk; }

private:
    struct Saved {
        pid_t tid;
        cpu_set_t mask;
    };
    static std::vector<pid_t> threads()
    {
        std::vector<pid_t> result;
        if (DIR* dir = opendir("/proc/self/task")) {
            while (dirent* entry = readdir(dir)) {
                if (entry->d_name[0] != '.') {
                    result.push_back(static_cast<pid_t>(std::atoi(entry->d_name)));
                }
            }
            closedir(dir);
        }
        if (result.empty()) {
            result.push_back(static_cast<pid_t>(syscall(SYS_gettid)));
        }
        return result;
    }
    std::vector<Saved> mSaved;
    bool mOk = false;
};

class Semaphore {
public:
    Semaphore() { sem_init(&mSem, 0, 0); }
    ~Semaphore() { sem_destroy(&mSem); }
    void post() { sem_post(&mSem); }
    void wait()
    {
        while (sem_wait(&mSem) != 0) {
        }
    }

private:
    sem_t mSem;
};

// Round trips in ns; p50_ns and p10_ns over every round of every iteration.
class Latencies {
public:
    void add(std::chrono::steady_clock::duration d)
    {
        mNs.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(d).count());
    }
    void report(benchmark::State& state, std::int64_t rounds)
    {
        state.SetItemsProcessed(state.iterations() * rounds);
        if (mNs.empty()) {
            return;
        }
        std::sort(mNs.begin(), mNs.end());
        state.counters["p50_ns"] = benchmark::Counter(static_cast<double>(mNs[mNs.size() / 2]));
        state.counters["p10_ns"] = benchmark::Counter(static_cast<double>(mNs[mNs.size() / 10]));
    }

private:
    std::vector<std::int64_t> mNs;
};

class SignalTask : public PAL::IPoolTask {
public:
    explicit SignalTask(Semaphore& done) : mDone(done) {}
    void Run() override { mDone.post(); }
    void Abort() override {}

private:
    Semaphore& mDone;
};

void wakeupOsal(benchmark::State& state)
{
    const std::int64_t rounds = size(20000);
    OsalPool pool(2);
    if (!pool.ok) {
        state.SkipWithError("pool did not start");
        return;
    }
    const PAL::CString name("wake");
    Semaphore done;
    Latencies latencies;
    const PalCallsPerTask calls;
    for (auto _ : state) {
        for (std::int64_t i = 0; i < rounds; ++i) {
            const auto start = std::chrono::steady_clock::now();
            if (!pool.add(name, new (std::nothrow) SignalTask(done), 0)) {
                state.SkipWithError("AddTask refused");
                return;
            }
            done.wait();
            latencies.add(std::chrono::steady_clock::now() - start);
        }
    }
    latencies.report(state, rounds);
    calls.report(state, rounds);
}

void signalFromGlib(gpointer data, gpointer)
{
    static_cast<Semaphore*>(data)->post();
}

void wakeupGlib(benchmark::State& state)
{
    const std::int64_t rounds = size(20000);
    // Exclusive: its threads are made here, so a pinned run pins them too.
    GThreadPool* pool = g_thread_pool_new(signalFromGlib, nullptr, 2, TRUE, nullptr);
    if (pool == nullptr) {
        state.SkipWithError("pool not made");
        return;
    }
    Semaphore done;
    Latencies latencies;
    for (auto _ : state) {
        for (std::int64_t i = 0; i < rounds; ++i) {
            const auto start = std::chrono::steady_clock::now();
            g_thread_pool_push(pool, &done, nullptr);
            done.wait();
            latencies.add(std::chrono::steady_clock::now() - start);
        }
    }
    g_thread_pool_free(pool, FALSE, TRUE);
    latencies.report(state, rounds);
}

template <void (*Work)(benchmark::State&)>
void pinned(benchmark::State& state)
{
    PinnedProcess pin;
    if (!pin.ok()) {
        state.SkipWithError("cannot pin the process");
        return;
    }
    Work(state);
}

} // namespace

BENCHMARK(PoolNoopTasks_osal_kit)->Name("PoolNoopTasks/osal_kit")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PoolNoopTasks_QThreadPool)->Name("PoolNoopTasks/QThreadPool")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PoolNoopTasks_std)->Name("PoolNoopTasks/std_thread_pool")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PoolOneQueueId_osal_kit)->Name("PoolOneQueueId/osal_kit")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PoolOneQueueId_asio_strand)
    ->Name("PoolOneQueueId/asio_strand")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(PoolQueueIdBacklog100k_osal_kit)
    ->Name("PoolQueueIdBacklog100k/osal_kit")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(PoolQueueIdBacklog1k_osal_kit)
    ->Name("PoolQueueIdBacklog1k/osal_kit")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(pinned<wakeupOsal>)->Name("PoolWakeupPinned/osal_kit")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pinned<wakeupGlib>)->Name("PoolWakeupPinned/GThreadPool")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(wakeupOsal)->Name("PoolWakeupUnpinned/osal_kit")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(wakeupGlib)->Name("PoolWakeupUnpinned/GThreadPool")->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
