// The waiting tasks and their dispatch pass, against the plain pass that walks every
// waiting task oldest first, on random scenarios: adds, completions, threads whose
// loop ends, thread creation and wake-up failures, stops, and the orders aborts see.

#include "extensions/private/WaitingTasks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Task : PAL::CWaitingLinks {
    Task(unsigned int taskId, unsigned int queue) : id(taskId), mQueueId(queue) {}
    unsigned int id;
    unsigned int mQueueId;
};

// The same task in the plain walk's list.
struct PlainTask {
    unsigned int id;
    unsigned int mQueueId;
};

typedef PAL::TWaitingTasks<Task> WaitingTasks;

// The pool's threads and busy queue ids as a pass sees them, with failures planned
// for the n-th thread creation or wake-up of the coming pass. The plain walk wakes a
// thread as it attaches the task; the fast pass attaches first and wakes later.
struct Threads {
    struct Slot {
        unsigned int task = 0; // 0: idle
        bool exited = false;
    };
    std::vector<Slot> slots;
    unsigned int maximum = 0;
    std::vector<unsigned int> busyQueueIds; // in the order they became busy
    int addFailsAt = -1, attachFailsAt = -1;
    int adds = 0, attaches = 0;
    WaitingTasks* list = nullptr; // the fast side's, whose queue ids a take-back frees

    void newPass(int addFailure, int attachFailure)
    {
        addFailsAt = addFailure;
        attachFailsAt = attachFailure;
        adds = attaches = 0;
    }
    int firstIdleThread()
    {
        for (std::size_t i = 0; i < slots.size(); ++i) {
            if (slots[i].task == 0 && !slots[i].exited) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    PAL::CString uninitializedThreads(unsigned int& count)
    {
        if (slots.size() > maximum) {
            return "too many threads";
        }
        count = maximum - static_cast<unsigned int>(slots.size());
        return PAL::CString();
    }
    PAL::CString addThread(unsigned int& position)
    {
        if (adds++ == addFailsAt) {
            return "no thread";
        }
        position = static_cast<unsigned int>(slots.size());
        slots.push_back(Slot());
        return PAL::CString();
    }
    PAL::CString attach(int position, PlainTask* task)
    {
        PAL::CString result = wake(position, task);
        if (result.isEmpty()) {
            slots[static_cast<std::size_t>(position)].task = task->id;
        }
        return result;
    }
    PAL::CString attach(int position, Task* task, bool& needsWakeUp)
    {
        needsWakeUp = true;
        if (position < 0 || static_cast<std::size_t>(position) >= slots.size()) {
            return "bad position";
        }
        slots[static_cast<std::size_t>(position)].task = task->id;
        return PAL::CString();
    }
    template <class AnyTask>
    PAL::CString wake(int position, AnyTask* task)
    {
        if (position < 0 || static_cast<std::size_t>(position) >= slots.size()) {
            return "bad position";
        }
        if (attaches++ == attachFailsAt) {
            PAL::CString text;
            (void)text.format("no wake-up for %u at %d", task->id, position);
            return text;
        }
        return PAL::CString();
    }
    void takeBack(int position, Task* task)
    {
        slots[static_cast<std::size_t>(position)].task = 0;
        if (task->mQueueId != 0) {
            queueBecameFree(task->mQueueId);
            list->setQueueFree(task->mQueueId);
        }
    }
    bool isQueueIdAvailable(unsigned int queueId) const
    {
        return std::find(busyQueueIds.begin(), busyQueueIds.end(), queueId) == busyQueueIds.end();
    }
    void queueBecameBusy(unsigned int queueId)
    {
        if (isQueueIdAvailable(queueId)) {
            busyQueueIds.push_back(queueId);
        }
    }
    void queueBecameFree(unsigned int queueId)
    {
        auto found = std::find(busyQueueIds.rbegin(), busyQueueIds.rend(), queueId);
        if (found != busyQueueIds.rend()) {
            busyQueueIds.erase(std::next(found).base());
        }
    }
};

// The pass written plainly: every waiting task, oldest first, skipping busy queue ids;
// the tasks handed out leave the list after the walk.
PAL::CString plainPass(std::vector<PlainTask>& waiting, Threads& threads)
{
    PAL::CString result;
    std::vector<std::size_t> handedOut;
    for (std::size_t i = 0; i < waiting.size() && result.isEmpty(); ++i) {
        PlainTask& task = waiting[i];
        if (task.mQueueId != 0 && !threads.isQueueIdAvailable(task.mQueueId)) {
            continue;
        }
        int position = threads.firstIdleThread();
        if (position < 0) {
            unsigned int uninitialized = 0;
            result = threads.uninitializedThreads(uninitialized);
            if (!result.isEmpty()) {
                break;
            }
            if (uninitialized == 0) {
                continue;
            }
            unsigned int newPosition = 0;
            result = threads.addThread(newPosition);
            if (!result.isEmpty()) {
                break;
            }
            position = static_cast<int>(newPosition);
        }
        result = threads.attach(position, &task);
        if (!result.isEmpty()) {
            break;
        }
        handedOut.push_back(i);
        if (task.mQueueId != 0) {
            threads.queueBecameBusy(task.mQueueId);
        }
    }
    for (std::size_t j = 0; j < handedOut.size(); ++j) {
        waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(handedOut[j] - j));
    }
    return result;
}

std::string ids(const std::vector<unsigned int>& values)
{
    std::ostringstream out;
    for (unsigned int value : values) {
        out << value << ' ';
    }
    return out.str();
}

// One pool's worth of both passes, driven step by step.
class Scenario {
public:
    explicit Scenario(std::uint32_t seed) : mRandom(seed) { restart(); }

    // One random step; returns what differs, or "" when both sides agree.
    std::string step()
    {
        const int kind = pick(0, 99);
        int addFailure = -1, attachFailure = -1;
        if (pick(0, 9) == 0) {
            (pick(0, 1) == 0 ? addFailure : attachFailure) = pick(0, 2);
        }
        if (kind < 50) {
            add(static_cast<unsigned int>(pick(0, static_cast<int>(mQueues))), addFailure, attachFailure);
        } else if (kind < 88) {
            complete(addFailure, attachFailure);
        } else if (kind < 92) {
            endIdleThreadLoop();
        } else if (kind < 94) {
            restart();
        } else {
            return compareAbortOrders();
        }
        return compare();
    }

private:
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(mRandom); }

    void restart()
    {
        mFast.reset(new WaitingTasks); // as a stopped pool's: nothing waits, no queue id is busy
        mOwned.clear();
        mPlain.clear();
        const unsigned int maximum = static_cast<unsigned int>(pick(1, 6));
        mQueues = static_cast<unsigned int>(pick(0, static_cast<int>(maximum)));
        for (Threads* threads : {&mFastThreads, &mPlainThreads}) {
            *threads = Threads();
            threads->maximum = maximum;
            threads->slots.resize(static_cast<std::size_t>(pick(1, static_cast<int>(maximum))));
        }
        mPlainThreads.slots = mFastThreads.slots;
        mFastThreads.list = mFast.get();
    }

    void add(unsigned int queueId, int addFailure, int attachFailure)
    {
        const unsigned int id = ++mNextId;
        if (!mFast->reserveQueue(queueId)) {
            mDifference = "no room for a queue";
            return;
        }
        mOwned.emplace_back(new Task(id, queueId));
        mFast->append(mOwned.back().get());
        mPlain.push_back({id, queueId});
        passes(addFailure, attachFailure);
    }

    void complete(int addFailure, int attachFailure)
    {
        std::vector<std::size_t> busy;
        for (std::size_t i = 0; i < mFastThreads.slots.size(); ++i) {
            if (mFastThreads.slots[i].task != 0) {
                busy.push_back(i);
            }
        }
        if (busy.empty()) {
            return;
        }
        const std::size_t position = busy[static_cast<std::size_t>(pick(0, static_cast<int>(busy.size()) - 1))];
        for (Threads* threads : {&mFastThreads, &mPlainThreads}) {
            const unsigned int id = threads->slots[position].task;
            threads->slots[position].task = 0;
            const unsigned int queueId = queueOf(id);
            if (queueId != 0) {
                threads->queueBecameFree(queueId);
                if (threads == &mFastThreads) {
                    mFast->setQueueFree(queueId);
                }
            }
        }
        passes(addFailure, attachFailure);
    }

    void endIdleThreadLoop()
    {
        const int position = mFastThreads.firstIdleThread();
        if (position >= 0) {
            mFastThreads.slots[static_cast<std::size_t>(position)].exited = true;
            mPlainThreads.slots[static_cast<std::size_t>(position)].exited = true;
        }
    }

    void passes(int addFailure, int attachFailure)
    {
        mFastThreads.newPass(addFailure, attachFailure);
        mPlainThreads.newPass(addFailure, attachFailure);
        // The wake-up left due is sent as the pool sends it, after its lock is released.
        WaitingTasks::SWakeUp wakeUp;
        PAL::CString fast = mFast->dispatch(mFastThreads, wakeUp);
        if (fast.isEmpty()) {
            fast = mFast->wake(mFastThreads, wakeUp);
        }
        mFastResult = fast.getBuffer();
        mPlainResult = plainPass(mPlain, mPlainThreads).getBuffer();
    }

    unsigned int queueOf(unsigned int id) const
    {
        for (const std::unique_ptr<Task>& task : mOwned) {
            if (task->id == id) {
                return task->mQueueId;
            }
        }
        return 0;
    }

    std::vector<unsigned int> fastWaiting(bool newestFirst) const
    {
        std::vector<unsigned int> result;
        for (Task* task = newestFirst ? mFast->newest() : mFast->oldest(); task != 0;
             task = newestFirst ? WaitingTasks::older(task) : WaitingTasks::newer(task)) {
            result.push_back(task->id);
        }
        return result;
    }

    std::vector<unsigned int> plainWaiting() const
    {
        std::vector<unsigned int> result;
        for (const PlainTask& task : mPlain) {
            result.push_back(task.id);
        }
        return result;
    }

    std::string compare()
    {
        std::string out = mDifference.empty() ? std::string() : mDifference + "; ";
        if (mFastResult != mPlainResult) {
            out += "pass result '" + mFastResult + "' instead of '" + mPlainResult + "'; ";
        }
        bool sameSlots = mFastThreads.slots.size() == mPlainThreads.slots.size();
        for (std::size_t i = 0; sameSlots && i < mFastThreads.slots.size(); ++i) {
            sameSlots = mFastThreads.slots[i].task == mPlainThreads.slots[i].task;
        }
        if (!sameSlots) {
            out += "threads' tasks " + ids(slotTasks(mFastThreads)) + "instead of " + ids(slotTasks(mPlainThreads)) +
                   "; ";
        }
        const std::vector<unsigned int> waiting = plainWaiting();
        std::vector<unsigned int> backwards = fastWaiting(true);
        std::reverse(backwards.begin(), backwards.end());
        if (fastWaiting(false) != waiting || backwards != waiting ||
            mFast->size() != static_cast<int>(waiting.size())) {
            out += "waiting " + ids(fastWaiting(false)) + "instead of " + ids(waiting) + "; ";
        }
        if (mFastThreads.busyQueueIds != mPlainThreads.busyQueueIds) {
            out += "busy queue ids " + ids(mFastThreads.busyQueueIds) + "instead of " +
                   ids(mPlainThreads.busyQueueIds) + "; ";
        }
        for (unsigned int q = 1; q <= mQueues; ++q) {
            if (mFast->isQueueBusy(q) == mFastThreads.isQueueIdAvailable(q)) {
                out += "queue " + std::to_string(q) + " busy or free on one side only; ";
            }
        }
        return out;
    }

    static std::vector<unsigned int> slotTasks(const Threads& threads)
    {
        std::vector<unsigned int> result;
        for (const Threads::Slot& slot : threads.slots) {
            result.push_back(slot.task);
        }
        return result;
    }

    // What the selective aborts walk (newest first, one queue id) and AbortAllTasks
    // walks (oldest first) must come in the list's order.
    std::string compareAbortOrders()
    {
        const unsigned int queueId = static_cast<unsigned int>(pick(0, static_cast<int>(mQueues)));
        std::vector<unsigned int> fastOfQueue, plainOfQueue;
        for (Task* task = mFast->newest(); task != 0; task = WaitingTasks::older(task)) {
            if (task->mQueueId == queueId) {
                fastOfQueue.push_back(task->id);
            }
        }
        for (auto task = mPlain.rbegin(); task != mPlain.rend(); ++task) {
            if (task->mQueueId == queueId) {
                plainOfQueue.push_back(task->id);
            }
        }
        if (fastOfQueue != plainOfQueue || fastWaiting(false) != plainWaiting()) {
            return "queue " + std::to_string(queueId) + " walked as " + ids(fastOfQueue) + "instead of " +
                   ids(plainOfQueue);
        }
        return std::string();
    }

    std::mt19937 mRandom;
    std::unique_ptr<WaitingTasks> mFast;
    std::vector<std::unique_ptr<Task>> mOwned;
    std::vector<PlainTask> mPlain;
    Threads mFastThreads, mPlainThreads;
    unsigned int mQueues = 0;
    unsigned int mNextId = 0;
    std::string mFastResult, mPlainResult, mDifference;
};

} // namespace

TEST(WaitingTasks, DispatchDecidesAsThePlainWalkOnRandomScenarios)
{
    const std::uint32_t firstSeed = 20261123u;
    const int scenarios = 2000, steps = 150;
    for (int s = 0; s < scenarios; ++s) {
        const std::uint32_t seed = firstSeed + static_cast<std::uint32_t>(s);
        Scenario scenario(seed);
        for (int step = 0; step < steps; ++step) {
            const std::string difference = scenario.step();
            ASSERT_EQ("", difference) << "seed " << seed << ", step " << step;
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
