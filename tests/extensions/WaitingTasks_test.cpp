// The pool's dispatch pass against a plain walk of every waiting task, oldest first, on
// random scenarios of adds, completions and failed thread creations and wake-ups.

#include "extensions/private/WaitingTasks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Task : PAL::CWaitingLinks {
    Task(unsigned int taskId, unsigned int queueId) : id(taskId), mQueueId(queueId) {}
    unsigned int id, mQueueId;
};
typedef PAL::TWaitingTasks<Task> WaitingTasks;

// A pool's threads as a pass sees them (the task id each runs, 0 when idle) and its busy
// queue ids, failing the planned call of each kind in a pass (counted down).
struct Threads {
    std::vector<unsigned int> slots, busy;
    unsigned int maximum = 0;
    int uninitializedFailsIn = -1, addFailsIn = -1, attachFailsIn = -1, wakeFailsIn = -1;
    WaitingTasks* list = nullptr; // on the fast side: told of every queue id set free

    int firstIdleThread()
    {
        const auto idle = std::find(slots.begin(), slots.end(), 0u);
        return idle == slots.end() ? -1 : static_cast<int>(idle - slots.begin());
    }
    PAL::CString uninitializedThreads(unsigned int& count)
    {
        count = maximum - unsigned(slots.size());
        return uninitializedFailsIn-- == 0 ? PAL::CString("no count") : PAL::CString();
    }
    PAL::CString addThread(unsigned int& position)
    {
        position = static_cast<unsigned int>(slots.size());
        return addFailsIn-- == 0 ? PAL::CString("no thread") : (slots.push_back(0), PAL::CString());
    }
    PAL::CString attach(int position, Task* task, bool& needsWakeUp)
    {
        if (attachFailsIn-- == 0)
            return "no attach";
        slots.at(std::size_t(position)) = task->id, needsWakeUp = true;
        return PAL::CString();
    }
    PAL::CString wake(int position, Task* task)
    {
        const std::string failure = "no wake-up for " + std::to_string(task->id) + " at " + std::to_string(position);
        return wakeFailsIn-- == 0 ? PAL::CString(failure.c_str()) : PAL::CString();
    }
    void takeBack(int position, Task* task)
    {
        slots.at(std::size_t(position)) = 0;
        const auto found = std::find(busy.begin(), busy.end(), task->mQueueId);
        if (found != busy.end())
            busy.erase(found);
        if (list != nullptr)
            list->setQueueFree(task->mQueueId);
    }
    bool isFree(unsigned int queueId) const { return std::find(busy.begin(), busy.end(), queueId) == busy.end(); }
    void queueBecameBusy(unsigned int queueId) { if (isFree(queueId)) busy.push_back(queueId); }
};

// The pass written out plainly: every waiting task, oldest first, skipping busy queue
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
        unsigned int uninitialized = 0, created = 0;
        if (position < 0 && ((result = threads.uninitializedThreads(uninitialized)).isEmpty() && uninitialized == 0))
            break;
        if (position < 0 && result.isEmpty() && (result = threads.addThread(created)).isEmpty())
            position = static_cast<int>(created);
        if (result.isEmpty() && threads.attachFailsIn-- == 0)
            result = "no attach";
        if (result.isEmpty() && (result = threads.wake(position, task)).isEmpty()) {
            threads.slots[static_cast<std::size_t>(position)] = task->id;
            handedOut.push_back(i);
            if (task->mQueueId != 0)
                threads.queueBecameBusy(task->mQueueId);
        }
    }
    for (std::size_t j = 0; j < handedOut.size(); ++j)
        waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(handedOut[j] - j));
    return result;
}

} // namespace

TEST(WaitingTasks, DispatchDecidesAsThePlainWalkOnRandomScenarios)
{
    for (unsigned int seed = 1; seed <= 2000; ++seed) {
        std::mt19937 random(seed);
        auto pick = [&](unsigned int high) { return std::uniform_int_distribution<unsigned int>(0, high)(random); };
        Threads plainThreads;
        plainThreads.maximum = 1 + pick(5);
        plainThreads.slots.resize(1 + pick(plainThreads.maximum - 1));
        const unsigned int queues = pick(plainThreads.maximum);
        WaitingTasks fast;
        ASSERT_FALSE(fast.reserveQueue(0xFFFFFFFFu)); // no room for so many queue ids
        Threads fastThreads = plainThreads;
        fastThreads.list = &fast;
        std::vector<std::unique_ptr<Task>> tasks; // task id n is tasks[n - 1]
        std::vector<Task*> plainWaiting;
        for (int step = 0; step < 150; ++step) {
            if (pick(1) == 0) {
                tasks.emplace_back(new Task(static_cast<unsigned int>(tasks.size() + 1), pick(queues)));
                ASSERT_TRUE(fast.reserveQueue(tasks.back()->mQueueId));
                fast.append(tasks.back().get());
                plainWaiting.push_back(tasks.back().get());
            } else { // the task at a random position, if any, completes
                const std::size_t position = pick(static_cast<unsigned int>(plainThreads.slots.size()) - 1);
                const unsigned int id = plainThreads.slots[position];
                if (id == 0)
                    continue;
                for (Threads* threads : {&fastThreads, &plainThreads})
                    threads->takeBack(static_cast<int>(position), tasks[id - 1].get());
            }
            const int plan[] = {int(pick(15)) - 12, int(pick(15)) - 12, int(pick(15)) - 12, int(pick(15)) - 12};
            for (Threads* threads : {&fastThreads, &plainThreads}) {
                threads->uninitializedFailsIn = plan[0], threads->addFailsIn = plan[1];
                threads->attachFailsIn = plan[2], threads->wakeFailsIn = plan[3];
            }
            // The wake-up a pass leaves due is sent as the pool sends it, once its lock is free.
            WaitingTasks::SWakeUp wakeUp;
            PAL::CString fastResult = fast.dispatch(fastThreads, wakeUp);
            if (fastResult.isEmpty())
                fastResult = fast.wake(fastThreads, wakeUp);
            const PAL::CString plainResult = plainPass(plainWaiting, plainThreads);

            const std::string where = "seed " + std::to_string(seed) + ", step " + std::to_string(step);
            std::vector<Task*> oldestFirst;
            for (Task* task = fast.oldest(); task != nullptr; task = WaitingTasks::newer(task))
                oldestFirst.push_back(task);
            ASSERT_EQ(std::make_tuple(std::string(plainResult.getBuffer()), plainThreads.slots, plainThreads.busy, plainWaiting),
                      std::make_tuple(std::string(fastResult.getBuffer()), fastThreads.slots, fastThreads.busy, oldestFirst))
                << where;
            ASSERT_EQ(static_cast<int>(plainWaiting.size()), fast.size()) << where;
        }
    }
}
