// The job queue against a priority notification queue with one consumer thread and a
// plain standard-library priority queue: one producer submits jobs with random
// priorities (the same sequence for every implementation), each job allocated on
// submission, and the time runs until every job has run.
#include "BenchSupport.h"

#include "extensions/JobQueue.h"

#include <Poco/AutoPtr.h>
#include <Poco/Event.h>
#include <Poco/Notification.h>
#include <Poco/PriorityNotificationQueue.h>
#include <Poco/Runnable.h>
#include <Poco/Thread.h>
#include <benchmark/benchmark.h>

#include <climits>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>
#include <queue>
#include <random>
#include <thread>
#include <vector>

namespace {

using osal_kit_bench::size;

// Priorities 1..1000: the job queue keeps priority 0 for its own stop message.
const std::vector<int>& priorities()
{
    static const std::vector<int> values = [] {
        std::vector<int> result(static_cast<std::size_t>(size(100000)));
        std::mt19937 random(20240611u);
        std::uniform_int_distribution<int> pick(1, 1000);
        for (int& value : result)
            value = pick(random);
        return result;
    }();
    return values;
}

// Every job adds its priority and position, so a lost or doubled job changes the sum.
std::uint64_t expectedSum()
{
    std::uint64_t sum = 0;
    const std::vector<int>& values = priorities();
    for (std::size_t i = 0; i < values.size(); ++i)
        sum += static_cast<std::uint64_t>(values[i]) * 1000003u + i;
    return sum;
}

inline std::uint64_t jobValue(int priority, std::size_t index)
{
    return static_cast<std::uint64_t>(priority) * 1000003u + index;
}

void finish(benchmark::State& state, std::uint64_t sum, std::uint64_t ran)
{
    const std::uint64_t jobs = priorities().size();
    if (ran != jobs * state.iterations() || sum != expectedSum() * state.iterations())
        state.SkipWithError("jobs lost, doubled or changed");
    state.SetItemsProcessed(static_cast<int64_t>(jobs) * state.iterations());
}

// ---- osal_kit ----------------------------------------------------------------------

class CSumJob : public PAL::CJobQueue::CJob {
public:
    CSumJob(std::uint64_t value, std::uint64_t& sum, std::uint64_t& ran)
        : CJob(name()), mValue(value), mSum(sum), mRan(ran)
    {
    }
    void Run() override
    {
        mSum += mValue;
        ++mRan;
    }

private:
    // One shared name: the job's own string is then a reference-count copy.
    static const PAL::CString& name()
    {
        static const PAL::CString text("sum");
        return text;
    }
    std::uint64_t mValue;
    std::uint64_t& mSum;
    std::uint64_t& mRan;
};

void JobQueueOsalKit(benchmark::State& state)
{
    const std::vector<int>& values = priorities();
    PAL::CJobQueue queue(static_cast<unsigned int>(values.size()), "bench", PAL::CThread::PRIORITY_NORMAL, false);
    // Written on the worker only; Flush orders them before the check.
    std::uint64_t sum = 0;
    std::uint64_t ran = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (queue.Insert(new (std::nothrow) CSumJob(jobValue(values[i], i), sum, ran), values[i]) ==
                PAL::CJobQueue::JOB_ID_INVALID) {
                state.SkipWithError("Insert refused a job");
                return;
            }
        }
        if (!queue.Flush(false)) {
            state.SkipWithError("Flush failed");
            return;
        }
    }
    finish(state, sum, ran);
}

// ---- Poco ----------------------------------------------------------------------------

class SumNotification : public Poco::Notification {
public:
    explicit SumNotification(std::uint64_t value) : mValue(value) {}
    std::uint64_t value() const { return mValue; }

private:
    std::uint64_t mValue;
};

// Queued behind every job, as the job queue's flush does.
class DoneNotification : public Poco::Notification {
};

// Ends the consumer; a wake-up call could come before it waits and be lost.
class StopNotification : public Poco::Notification {
};

class PocoConsumer : public Poco::Runnable {
public:
    explicit PocoConsumer(Poco::PriorityNotificationQueue& queue) : mQueue(queue) {}
    void run() override
    {
        for (;;) {
            Poco::AutoPtr<Poco::Notification> notification(mQueue.waitDequeueNotification());
            if (notification.isNull() || dynamic_cast<const StopNotification*>(notification.get()) != nullptr)
                return;
            if (const SumNotification* job = dynamic_cast<const SumNotification*>(notification.get())) {
                sum += job->value();
                ++ran;
            } else {
                done.set();
            }
        }
    }
    std::uint64_t sum = 0;
    std::uint64_t ran = 0;
    Poco::Event done;

private:
    Poco::PriorityNotificationQueue& mQueue;
};

void JobQueuePoco(benchmark::State& state)
{
    const std::vector<int>& values = priorities();
    Poco::PriorityNotificationQueue queue;
    PocoConsumer consumer(queue);
    Poco::Thread thread;
    thread.start(consumer);
    for (auto _ : state) {
        for (std::size_t i = 0; i < values.size(); ++i)
            queue.enqueueNotification(new SumNotification(jobValue(values[i], i)), values[i]);
        queue.enqueueNotification(new DoneNotification, INT_MAX);
        consumer.done.wait();
    }
    queue.enqueueNotification(new StopNotification, INT_MAX);
    thread.join();
    finish(state, consumer.sum, consumer.ran);
}

// ---- std -----------------------------------------------------------------------------

struct StdJob {
    virtual ~StdJob() = default;
    virtual void run() = 0;
};

class StdSumJob : public StdJob {
public:
    StdSumJob(std::uint64_t value, std::uint64_t& sum, std::uint64_t& ran) : mValue(value), mSum(sum), mRan(ran) {}
    void run() override
    {
        mSum += mValue;
        ++mRan;
    }

private:
    std::uint64_t mValue;
    std::uint64_t& mSum;
    std::uint64_t& mRan;
};

class StdJobQueue {
public:
    StdJobQueue() : mWorker([this] { work(); }) {}
    ~StdJobQueue()
    {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mStop = true;
        }
        mWake.notify_one();
        mWorker.join();
        while (!mQueue.empty()) {
            delete mQueue.top().job;
            mQueue.pop();
        }
    }
    void insert(StdJob* job, int priority)
    {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mQueue.push(Entry{priority, mNextSequence++, job});
        }
        mWake.notify_one();
    }
    // Returns once the queue is empty and no job runs.
    void flush()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mIdle.wait(lock, [this] { return mQueue.empty() && !mRunning; });
    }

private:
    struct Entry {
        int priority;
        std::uint64_t sequence;
        StdJob* job;
        // Smaller priority first, equal priorities in the order inserted.
        bool operator<(const Entry& other) const
        {
            return priority != other.priority ? priority > other.priority : sequence > other.sequence;
        }
    };
    void work()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mWake.wait(lock, [this] { return mStop || !mQueue.empty(); });
            if (mStop)
                return;
            StdJob* job = mQueue.top().job;
            mQueue.pop();
            mRunning = true;
            lock.unlock();
            job->run();
            delete job;
            lock.lock();
            mRunning = false;
            if (mQueue.empty())
                mIdle.notify_all();
        }
    }
    std::mutex mMutex;
    std::condition_variable mWake;
    std::condition_variable mIdle;
    std::priority_queue<Entry> mQueue;
    std::uint64_t mNextSequence = 0;
    bool mRunning = false;
    bool mStop = false;
    std::thread mWorker;
};

void JobQueueStd(benchmark::State& state)
{
    const std::vector<int>& values = priorities();
    std::uint64_t sum = 0;
    std::uint64_t ran = 0;
    {
        StdJobQueue queue;
        for (auto _ : state) {
            for (std::size_t i = 0; i < values.size(); ++i)
                queue.insert(new StdSumJob(jobValue(values[i], i), sum, ran), values[i]);
            queue.flush();
        }
    }
    finish(state, sum, ran);
}

} // namespace

BENCHMARK(JobQueueOsalKit)->Name("JobQueueRandomPriorities/osal_kit")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(JobQueuePoco)
    ->Name("JobQueueRandomPriorities/Poco_PriorityNotificationQueue")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(JobQueueStd)->Name("JobQueueRandomPriorities/std")->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
