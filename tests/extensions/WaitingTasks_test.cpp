// The pool's dispatch pass against a plain walk of every waiting task, oldest first, on
// random scenarios: adds, completions, threads whose loop ends, failed thread creations
// and wake-ups, and restarts.

#include "extensions/private/WaitingTasks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct Task : PAL::CWaitingLinks {
    Task(unsigned int taskId, unsigned int queueId) : id(taskId), mQueueId(queueId) {}
    unsigned int id, mQueueId;
};
typedef PAL::TWaitingTasks<Task> WaitingTasks;

// A pool's threads as a pass sees them (per position the task id, 0 when idle, -1 when
// its loop has ended) and its busy queue ids, failing the planned thread creation or
// wake-up of a pass (counted from 0).
struct Threads {
    std::vector<int> slots;
    unsigned int maximum = 0;
    std::vector<unsigned int> busy;
    int addFailsAt = -1, wakeFailsAt = -1, adds = 0, wakes = 0;
    WaitingTasks* list = nullptr; // on the fast side: told of every queue id set free

    int firstIdleThread()
    {
        const auto idle = std::find(slots.begin(), slots.end(), 0);
        return idle == slots.end() ? -1 : static_cast<int>(idle - slots.begin());
    }
    PAL::CString uninitializedThreads(unsigned int& count)
    {
        count = maximum - static_cast<unsigned int>(slots.size());
        return PAL::CString();
    }
    PAL::CString addThread(unsigned int& position)
    {
        if (adds++ == addFailsAt)
            return "no thread";
        position = static_cast<unsigned int>(slots.size());
        slots.push_back(0);
        return PAL::CString();
    }
    PAL::CString attach(int position, Task* task, bool& needsWakeUp)
    {
        slots.at(static_cast<std::size_t>(position)) = static_cast<int>(task->id);
        needsWakeUp = true;
        return PAL::CString();
    }
    PAL::CString wake(int position, Task* task)
    {
        PAL::CString text;
        if (wakes++ == wakeFailsAt)
            (void)text.format("no wake-up for %u at %d", task->id, position);
        return text;
    }
    void takeBack(int position, Task* task)
    {
        slots.at(static_cast<std::size_t>(position)) = 0;
        setFree(task->mQueueId);
    }
    bool isFree(unsigned int queueId) const { return std::find(busy.begin(), busy.end(), queueId) == busy.end(); }
    void queueBecameBusy(unsigned int queueId)
    {
        if (isFree(queueId))
            busy.push_back(queueId);
    }
    void setFree(unsigned int queueId)
    {
        const auto found = std::find(busy.rbegin(), busy.rend(), queueId);
        if (found != busy.rend())
            busy.erase(std::next(found).base());
        if (list != nullptr)
            list->setQueueFree(queueId);
    }
};

// The pass as written out plainly: every waiting task, oldest first, skipping busy queue
// ids; a thread is woken as it is given its task; those handed out leave after the walk.
PAL::CString plainPass(std::vector<Task*>& waiting, Threads& threads)
{
    PAL::CString result;
    std::vector<std::size_t> handedOut;
    for (std::size_t i = 0; i < waiting.size() && result.isEmpty(); ++i) {
        Task* task = waiting[i];
        if (task->mQueueId != 0 && !threads.isFree(task->mQueueId))
            continue;
        int position = threads.firstIdleThread();
        if (position < 0) {
            unsigned int uninitialized = 0, created = 0;
            result = threads.uninitializedThreads(uninitialized);
            if (result.isEmpty() && uninitialized == 0)
                continue;
            if (result.isEmpty())
                result = threads.addThread(created);
            position = static_cast<int>(created);
        }
        if (result.isEmpty() && (result = threads.wake(position, task)).isEmpty()) {
            threads.slots[static_cast<std::size_t>(position)] = static_cast<int>(task->id);
            handedOut.push_back(i);
            if (task->mQueueId != 0)
                threads.queueBecameBusy(task->mQueueId);
        }
    }
    for (std::size_t j = 0; j < handedOut.size(); ++j)
        waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(handedOut[j] - j));
    return result;
}

// One side's state: the pass's result, the threads' tasks, the waiting tasks oldest first
// and the busy queue ids in the order they became busy.
std::string state(const PAL::CString& result, const Threads& threads, const std::vector<unsigned int>& waiting)
{
    std::string out = std::string(result.getBuffer()) + " | threads";
    for (int slot : threads.slots)
        out += " " + std::to_string(slot);
    out += " | waiting";
    for (unsigned int id : waiting)
        out += " " + std::to_string(id);
    out += " | busy";
    for (unsigned int queueId : threads.busy)
        out += " " + std::to_string(queueId);
    return out;
}

} // namespace

TEST(WaitingTasks, DispatchDecidesAsThePlainWalkOnRandomScenarios)
{
    for (unsigned int seed = 20261123u; seed < 20261123u + 2000u; ++seed) {
        std::mt19937 random(seed);
        auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
        std::vector<std::unique_ptr<Task>> tasks; // task id n is tasks[n - 1]
        std::unique_ptr<WaitingTasks> fast;
        std::vector<Task*> plainWaiting;
        Threads fastThreads, plainThreads;
        unsigned int queues = 0;
        for (int step = 0; step < 150; ++step) {
            const int kind = step == 0 ? 99 : pick(0, 99);
            if (kind >= 96) { // a stopped pool started again
                fast.reset(new WaitingTasks);
                plainWaiting.clear();
                plainThreads = Threads();
                plainThreads.maximum = static_cast<unsigned int>(pick(1, 6));
                plainThreads.slots.resize(static_cast<std::size_t>(pick(1, static_cast<int>(plainThreads.maximum))));
                queues = static_cast<unsigned int>(pick(0, static_cast<int>(plainThreads.maximum)));
                fastThreads = plainThreads;
                fastThreads.list = fast.get();
                continue;
            }
            if (kind >= 92) { // the loop of the first idle thread ends
                const int position = plainThreads.firstIdleThread();
                if (position >= 0)
                    fastThreads.slots[static_cast<std::size_t>(position)] =
                        plainThreads.slots[static_cast<std::size_t>(position)] = -1;
                continue;
            }
            if (kind < 50) {
                const unsigned int queueId = static_cast<unsigned int>(pick(0, static_cast<int>(queues)));
                tasks.emplace_back(new Task(static_cast<unsigned int>(tasks.size() + 1), queueId));
                ASSERT_TRUE(fast->reserveQueue(queueId));
                fast->append(tasks.back().get());
                plainWaiting.push_back(tasks.back().get());
            } else { // a running task completes
                std::vector<std::size_t> busy;
                for (std::size_t i = 0; i < plainThreads.slots.size(); ++i)
                    if (plainThreads.slots[i] > 0)
                        busy.push_back(i);
                if (busy.empty())
                    continue;
                const std::size_t position = busy[static_cast<std::size_t>(pick(0, static_cast<int>(busy.size()) - 1))];
                const unsigned int queueId = tasks[static_cast<std::size_t>(plainThreads.slots[position]) - 1]->mQueueId;
                for (Threads* threads : {&fastThreads, &plainThreads}) {
                    threads->slots[position] = 0;
                    threads->setFree(queueId);
                }
            }
            const int failure = pick(0, 29);
            for (Threads* threads : {&fastThreads, &plainThreads}) {
                threads->adds = threads->wakes = 0;
                threads->addFailsAt = failure < 3 ? failure : -1;
                threads->wakeFailsAt = failure >= 3 && failure < 6 ? failure - 3 : -1;
            }
            // The wake-up a pass leaves due is sent as the pool sends it, once its lock is free.
            WaitingTasks::SWakeUp wakeUp;
            PAL::CString fastResult = fast->dispatch(fastThreads, wakeUp);
            if (fastResult.isEmpty())
                fastResult = fast->wake(fastThreads, wakeUp);
            const PAL::CString plainResult = plainPass(plainWaiting, plainThreads);

            std::vector<unsigned int> plainIds, oldestFirst, newestFirst;
            for (Task* task : plainWaiting)
                plainIds.push_back(task->id);
            for (Task* task = fast->oldest(); task != nullptr; task = WaitingTasks::newer(task))
                oldestFirst.push_back(task->id);
            for (Task* task = fast->newest(); task != nullptr; task = WaitingTasks::older(task))
                newestFirst.insert(newestFirst.begin(), task->id);
            ASSERT_EQ(state(plainResult, plainThreads, plainIds), state(fastResult, fastThreads, oldestFirst))
                << "seed " << seed << ", step " << step;
            ASSERT_EQ(oldestFirst, newestFirst) << "seed " << seed << ", step " << step;
            ASSERT_EQ(static_cast<int>(oldestFirst.size()), fast->size());
            for (unsigned int q = 1; q <= queues; ++q)
                ASSERT_NE(fast->isQueueBusy(q), fastThreads.isFree(q)) << "queue " << q << ", seed " << seed;
        }
    }
}

TEST(WaitingTasks, QueueIdsWithoutRoomAreRefused)
{
    WaitingTasks waiting;
    EXPECT_FALSE(waiting.reserveQueue(0xFFFFFFFFu));
    EXPECT_TRUE(waiting.reserveQueue(100));
    EXPECT_TRUE(waiting.reserveQueue(3));
}
