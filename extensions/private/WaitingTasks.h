#ifndef OSAL_KIT_EXTENSIONS_PRIVATE_WAITINGTASKS_H
#define OSAL_KIT_EXTENSIONS_PRIVATE_WAITINGTASKS_H

// The thread pool's waiting tasks and its dispatch pass, apart from threads and locks so
// that the pass can be driven and checked without either.
//
// A pass gives the oldest dispatchable tasks the idle threads. A task is dispatchable
// when it belongs to no queue (queue id 0) or is the oldest waiting task of a queue id
// that has no running task: a younger task of a free queue id is never reached, since
// its queue's oldest task either took a thread (the queue is then busy) or found none
// (and then no younger task finds one). So besides the arrival order, which queries
// see, the tasks wait in one FIFO per queue id, and the free queue ids that have waiting
// tasks are kept in the order of their oldest task. A pass merges the queue-0 FIFO with
// that list, and ends at the first task for which there is no thread: every pass costs
// what it hands out, however many tasks wait behind busy queue ids.
//
// The wake-up of the last thread a pass gives a task to is left to the pass's caller,
// to be sent once the pool's lock is released: a thread woken while the lock is still
// held would only run into it. Wake-ups due earlier in the pass are sent before the
// pass goes on, so a failure still ends the pass where the wake-up was due. A thread
// that cannot be woken gives its task back (`takeBack`), which then waits in its old
// place, as if it had never been given out.

#include "core/String.h"

#include <new>

namespace PAL {

/// The links of a waiting task; the task type of `TWaitingTasks` derives from it.
class CWaitingLinks {
public:
    CWaitingLinks() : mArrival(0), mpOlder(0), mpNewer(0), mpNextOfQueue(0) {}

    unsigned long long mArrival; // order of arrival in its list, from 1
    CWaitingLinks* mpOlder;
    CWaitingLinks* mpNewer;
    CWaitingLinks* mpNextOfQueue;

private:
    CWaitingLinks(const CWaitingLinks&) = delete;
    CWaitingLinks& operator=(const CWaitingLinks&) = delete;
};

/// Tasks waiting for a thread, oldest first, with their queue ids' FIFOs. `T` derives
/// from `CWaitingLinks` and has an `unsigned int mQueueId`. The list owns nothing: the
/// caller deletes its tasks. One thread at a time (the pool's lock).
template <class T>
class TWaitingTasks {
public:
    TWaitingTasks() : mpOldest(0), mpNewest(0), mSize(0), mArrivals(0), mpQueues(0), mQueueCount(0), mFirstReady(0),
          mLastReady(0)
    {
    }
    ~TWaitingTasks() { delete[] mpQueues; }

    int size() const { return mSize; }
    T* oldest() const { return static_cast<T*>(mpOldest); }
    T* newest() const { return static_cast<T*>(mpNewest); }
    static T* newer(const T* task) { return static_cast<T*>(task->mpNewer); }
    static T* older(const T* task) { return static_cast<T*>(task->mpOlder); }

    /// Room for the FIFO of `queueId`; false when there is no memory for it. Called
    /// before `append` of a task of that queue id.
    bool reserveQueue(unsigned int queueId)
    {
        if (queueId < mQueueCount) {
            return true;
        }
        if (queueId == static_cast<unsigned int>(-1)) {
            return false;
        }
        unsigned int count = mQueueCount < 4u ? 4u : mQueueCount;
        while (count <= queueId && count < 0x80000000u) {
            count *= 2u;
        }
        if (count <= queueId) {
            count = queueId + 1u;
        }
        SQueue* queues = new (std::nothrow) SQueue[count];
        if (queues == 0) {
            return false;
        }
        for (unsigned int q = 0; q < mQueueCount; ++q) {
            queues[q] = mpQueues[q];
        }
        delete[] mpQueues;
        mpQueues = queues;
        mQueueCount = count;
        return true;
    }

    /// Appends `task` as the newest; its queue id must have been reserved.
    void append(T* task)
    {
        task->mArrival = ++mArrivals;
        task->mpOlder = mpNewest;
        task->mpNewer = 0;
        task->mpNextOfQueue = 0;
        if (mpNewest != 0) {
            mpNewest->mpNewer = task;
        } else {
            mpOldest = task;
        }
        mpNewest = task;
        ++mSize;

        SQueue& queue = mpQueues[task->mQueueId];
        if (queue.mpLast != 0) {
            queue.mpLast->mpNextOfQueue = task;
        } else {
            queue.mpFirst = task;
            if (task->mQueueId != 0 && !queue.mIsBusy) {
                linkReady(task->mQueueId);
            }
        }
        queue.mpLast = task;
    }

    /// The queue id has a running task from now on; its tasks wait.
    void setQueueBusy(unsigned int queueId)
    {
        if (queueId == 0 || queueId >= mQueueCount || mpQueues[queueId].mIsBusy) {
            return;
        }
        mpQueues[queueId].mIsBusy = true;
        if (mpQueues[queueId].mpFirst != 0) {
            unlinkReady(queueId);
        }
    }

    /// The queue id's running task has ended; its oldest waiting task may go next.
    void setQueueFree(unsigned int queueId)
    {
        if (queueId == 0 || queueId >= mQueueCount || !mpQueues[queueId].mIsBusy) {
            return;
        }
        mpQueues[queueId].mIsBusy = false;
        if (mpQueues[queueId].mpFirst != 0) {
            linkReady(queueId);
        }
    }

    bool isQueueBusy(unsigned int queueId) const { return queueId < mQueueCount && mpQueues[queueId].mIsBusy; }

    /// Takes `task`, the oldest of its queue id, off the list, and marks its queue id busy.
    void dispatched(T* task)
    {
        const unsigned int queueId = task->mQueueId;
        if (queueId != 0) {
            setQueueBusy(queueId);
        }
        SQueue& queue = mpQueues[queueId];
        queue.mpFirst = task->mpNextOfQueue;
        if (queue.mpFirst == 0) {
            queue.mpLast = 0;
        }
        if (task->mpOlder != 0) {
            task->mpOlder->mpNewer = task->mpNewer;
        } else {
            mpOldest = task->mpNewer;
        }
        if (task->mpNewer != 0) {
            task->mpNewer->mpOlder = task->mpOlder;
        } else {
            mpNewest = task->mpOlder;
        }
        task->mpOlder = task->mpNewer = task->mpNextOfQueue = 0;
        --mSize;
    }

    /// Forgets every task (the caller has deleted them) and every busy queue id.
    void clear()
    {
        mpOldest = mpNewest = 0;
        mSize = 0;
        for (unsigned int q = 0; q < mQueueCount; ++q) {
            mpQueues[q] = SQueue();
        }
        mFirstReady = mLastReady = 0;
    }

    /// A thread that was given `mpTask` and still has to be woken for it; none while
    /// `mpTask` is null.
    struct SWakeUp {
        SWakeUp() : mPosition(-1), mpTask(0) {}
        int mPosition;
        T* mpTask;
    };

    /// One dispatch pass; see the top of this file. `Threads` offers:
    /// - `int firstIdleThread()`: the lowest position of an idle thread, or -1;
    /// - `CString uninitializedThreads(unsigned int& count)`: how many more may be made;
    /// - `CString addThread(unsigned int& position)`: makes one more thread;
    /// - `CString attach(int position, T* task, bool& needsWakeUp)`: gives the task to
    ///   that thread, which may have to be woken for it; on a failure the thread stays
    ///   idle;
    /// - `CString wake(int position, T* task)`: wakes the thread given `task`;
    /// - `void takeBack(int position, T* task)`: the thread, which could not be woken,
    ///   gives `task` back (already waiting again): it is idle, the queue id free;
    /// - `void queueBecameBusy(unsigned int queueId)`.
    /// The first non-empty text ends the pass and is returned; the tasks handed out
    /// before it stay handed out. The wake-up the pass leaves due is put in `wakeUp`,
    /// for `wake` after the lock is released (one due from before is sent before the
    /// pass gives out a task).
    template <class Threads>
    CString dispatch(Threads& threads, SWakeUp& wakeUp)
    {
        CString result;
        T* plain = queueFirst(0);
        unsigned int ready = mFirstReady;
        for (;;) {
            T* head = ready != 0 ? queueFirst(ready) : 0;
            T* task = plain;
            if (task == 0 || (head != 0 && head->mArrival < task->mArrival)) {
                task = head;
            }
            if (task == 0) {
                break;
            }
            int position = threads.firstIdleThread();
            if (position < 0) {
                unsigned int uninitialized = 0;
                result = threads.uninitializedThreads(uninitialized);
                if (!result.isEmpty() || uninitialized == 0) {
                    break; // no later task could get a thread either
                }
                // A thread is made only by a pass that has not failed before.
                result = wake(threads, wakeUp);
                if (!result.isEmpty()) {
                    break;
                }
                unsigned int newPosition = 0;
                result = threads.addThread(newPosition);
                if (!result.isEmpty()) {
                    break;
                }
                position = static_cast<int>(newPosition);
            }
            result = wake(threads, wakeUp);
            if (!result.isEmpty()) {
                break;
            }
            bool needsWakeUp = false;
            result = threads.attach(position, task, needsWakeUp);
            if (!result.isEmpty()) {
                break;
            }
            if (task == plain) {
                plain = static_cast<T*>(plain->mpNextOfQueue);
            } else {
                ready = mpQueues[ready].mNextReady;
            }
            dispatched(task);
            if (task->mQueueId != 0) {
                threads.queueBecameBusy(task->mQueueId);
            }
            if (needsWakeUp) {
                wakeUp.mPosition = position;
                wakeUp.mpTask = task;
            }
        }
        if (!result.isEmpty() && wakeUp.mpTask != 0) {
            // A wake-up due before this failure that fails as well is where the pass ended.
            CString earlier = wake(threads, wakeUp);
            if (!earlier.isEmpty()) {
                result = earlier;
            }
        }
        return result;
    }

    /// Sends `wakeUp`, if one is due, and clears it. A thread that cannot be woken gives
    /// its task back; the text of `Threads::wake` is returned.
    template <class Threads>
    CString wake(Threads& threads, SWakeUp& wakeUp)
    {
        CString result;
        if (wakeUp.mpTask != 0) {
            const SWakeUp due = wakeUp;
            wakeUp = SWakeUp();
            result = threads.wake(due.mPosition, due.mpTask);
            if (!result.isEmpty()) {
                takeBack(threads, due);
            }
        }
        return result;
    }

    /// A task given out by the last pass that its thread could not be woken for: back in
    /// its place among the waiting tasks, its thread idle and its queue id free again.
    /// Nothing of its queue id can have been given out since, nor anything older of
    /// queue id 0, so it is again the oldest of its queue id.
    template <class Threads>
    void takeBack(Threads& threads, const SWakeUp& wakeUp)
    {
        T* task = wakeUp.mpTask;
        CWaitingLinks* older = mpNewest;
        while (older != 0 && older->mArrival > task->mArrival) {
            older = older->mpOlder;
        }
        CWaitingLinks* newer = older != 0 ? older->mpNewer : mpOldest;
        task->mpOlder = older;
        task->mpNewer = newer;
        if (older != 0) {
            older->mpNewer = task;
        } else {
            mpOldest = task;
        }
        if (newer != 0) {
            newer->mpOlder = task;
        } else {
            mpNewest = task;
        }
        ++mSize;

        // Its queue id is still busy (with this very task), so it is not linked as ready
        // before the thread frees it.
        SQueue& queue = mpQueues[task->mQueueId];
        task->mpNextOfQueue = queue.mpFirst;
        queue.mpFirst = task;
        if (queue.mpLast == 0) {
            queue.mpLast = task;
        }
        threads.takeBack(wakeUp.mPosition, task);
    }

private:
    TWaitingTasks(const TWaitingTasks&) = delete;
    TWaitingTasks& operator=(const TWaitingTasks&) = delete;

    // One FIFO per queue id; the free queue ids with waiting tasks are doubly linked
    // (by queue id, 0 ending the list) in the order of their oldest task.
    struct SQueue {
        SQueue() : mpFirst(0), mpLast(0), mIsBusy(false), mPrevReady(0), mNextReady(0) {}
        CWaitingLinks* mpFirst;
        CWaitingLinks* mpLast;
        bool mIsBusy;
        unsigned int mPrevReady;
        unsigned int mNextReady;
    };

    T* queueFirst(unsigned int queueId) const
    {
        return queueId < mQueueCount ? static_cast<T*>(mpQueues[queueId].mpFirst) : 0;
    }

    // A queue id that was busy can have its oldest task anywhere in the order; the
    // list is short (one entry per queue id with waiting tasks), searched from its end.
    void linkReady(unsigned int queueId)
    {
        const unsigned long long arrival = mpQueues[queueId].mpFirst->mArrival;
        unsigned int before = 0; // the queue id to link in front of; 0: at the end
        unsigned int after = mLastReady;
        while (after != 0 && mpQueues[after].mpFirst->mArrival > arrival) {
            before = after;
            after = mpQueues[after].mPrevReady;
        }
        SQueue& queue = mpQueues[queueId];
        queue.mPrevReady = after;
        queue.mNextReady = before;
        if (after != 0) {
            mpQueues[after].mNextReady = queueId;
        } else {
            mFirstReady = queueId;
        }
        if (before != 0) {
            mpQueues[before].mPrevReady = queueId;
        } else {
            mLastReady = queueId;
        }
    }

    void unlinkReady(unsigned int queueId)
    {
        SQueue& queue = mpQueues[queueId];
        if (queue.mPrevReady != 0) {
            mpQueues[queue.mPrevReady].mNextReady = queue.mNextReady;
        } else {
            mFirstReady = queue.mNextReady;
        }
        if (queue.mNextReady != 0) {
            mpQueues[queue.mNextReady].mPrevReady = queue.mPrevReady;
        } else {
            mLastReady = queue.mPrevReady;
        }
        queue.mPrevReady = queue.mNextReady = 0;
    }

    CWaitingLinks* mpOldest;
    CWaitingLinks* mpNewest;
    int mSize;
    unsigned long long mArrivals;
    SQueue* mpQueues;
    unsigned int mQueueCount;
    unsigned int mFirstReady;
    unsigned int mLastReady;
};

} // namespace PAL

#endif
