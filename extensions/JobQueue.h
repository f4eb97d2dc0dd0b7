#ifndef OSAL_KIT_EXTENSIONS_JOBQUEUE_H
#define OSAL_KIT_EXTENSIONS_JOBQUEUE_H

#include "core/Export.h"
#include "core/String.h"
#include "os/Mutex.h"
#include "os/Semaphore.h"
#include "os/Thread.h"

#include <atomic>

namespace PAL {

/// Runs jobs one at a time, in priority order, on a worker thread of its own.
///
/// Any thread may `Insert` a heap-allocated `CJob` with an integer priority: smaller
/// values run first, equal values in the order inserted. From the call of `Insert` on,
/// the queue owns the job and deletes it exactly once: after its `Run()` on the worker,
/// unrun when it is discarded (`Flush(true)`, destruction), or at once when the
/// insertion is refused or fails. At most `size` jobs wait at a time.
///
/// Every public operation writes a level-0 trace record and every failure a level-3
/// (or level-4) record; nothing throws. Public operations serialise on one mutex, which
/// `Flush` keeps while it waits: a job's `Run()` must not call its own queue while a
/// flush may be waiting. The worker runs jobs without holding that mutex.
///
/// A deferred queue's worker runs for a `Flush(false)` only and stops after it; jobs
/// then wait again until `StartProcessing` or the next flush. Destroy the queue from a
/// thread other than the worker, once no other thread uses it.
///
///     class CPrint : public PAL::CJobQueue::CJob {
///     public:
///         explicit CPrint(const PAL::CString& text) : CJob("print"), mText(text) {}
///         void Run() { show(mText); }       // on the worker thread
///     private:
///         PAL::CString mText;
///     };
///     PAL::CJobQueue queue(16, "display", PAL::CThread::PRIORITY_NORMAL, false);
///     unsigned int id = queue.Insert(new (std::nothrow) CPrint("hello"), 5);
///     if (id == PAL::CJobQueue::JOB_ID_INVALID) { /* refused; the job is already deleted */ }
///     queue.Flush(false);                   // "hello" has been shown
class OSAL_KIT_API CJobQueue : private CThread {
public:
    /// A unit of work for a `CJobQueue`: derive from it and implement `Run()`.
    ///
    /// Create jobs with `new`; the queue deletes them through the virtual destructor,
    /// on the worker thread or on the thread whose call discards them. Do not touch a
    /// job after handing it to `Insert`. Not copyable.
    class OSAL_KIT_API CJob {
    public:
        /// A job named `name` (the name appears in the queue's trace records), id 0.
        explicit CJob(const CString& name);
        virtual ~CJob();

        /// The id the queue gave the job (0 before that); readable from `Run()`.
        unsigned int getId() const;

        /// The work, called at most once, on the worker thread.
        virtual void Run() = 0;

    private:
        friend class CJobQueue;
        CJob(const CJob&) = delete;
        CJob& operator=(const CJob&) = delete;

        unsigned int mId;
        CString mName;
    };

    /// The job a flush queues behind all others: it does nothing when run and signals
    /// its semaphore when deleted (a failed signal is traced at level 4). The semaphore
    /// must outlive the job.
    class OSAL_KIT_API CSignalJob : public CJob {
    public:
        /// A job named "SignalJob" that will signal `semaphore`.
        explicit CSignalJob(CSemaphore& semaphore);
        ~CSignalJob();

        /// Does nothing.
        void Run();

    private:
        CSemaphore& mSemaphore;
    };

    /// What `Insert` returns for a job it refused or could not queue; valid ids run
    /// from 1 to 4294967295 and then start again at 1. Ids need not be consecutive: a
    /// failed send uses one up, and so does the job each flush with a running worker
    /// queues behind the others.
    static const unsigned int JOB_ID_INVALID = 0;

    /// A queue named `name` for at most `size` waiting jobs, whose worker runs at
    /// `priority`. The worker starts at once unless `deferProcessing`: jobs then wait
    /// until `StartProcessing()` (or are run by a `Flush(false)`). When the message
    /// queue or the worker cannot be made, the failure is traced and the object lives
    /// on with every operation reporting failure.
    CJobQueue(const unsigned int& size, const CString& name, const CThread::ePriority& priority,
              const bool& deferProcessing);
    /// Stops accepting jobs, deletes the waiting ones unrun (a job already running
    /// finishes), stops the worker and waits for any thread still holding the mutex.
    virtual ~CJobQueue();

    /// Takes ownership of `job` and queues it with `priority` without waiting; returns
    /// its id. Returns `JOB_ID_INVALID`, having deleted `job`, when jobs are not accepted,
    /// `job` is null, the queue is full, or the message queue refuses it. A failed send
    /// uses up an id; a refused job does not. Any thread.
    unsigned int Insert(CJob* job, const int& priority);
    /// Switches the acceptance of new jobs; jobs already queued still run.
    void AcceptJobs(const bool& accept);
    /// Starts the worker of a deferred queue; true when it runs afterwards (also when
    /// it already ran), false (traced) when it cannot be started.
    bool StartProcessing();
    /// Returns once every job queued before the call has been run (`discard` false) or
    /// deleted unrun (`discard` true); true on success. Other callers wait meanwhile.
    /// On a deferred queue, `Flush(false)` starts the worker for its own duration and
    /// `Flush(true)` deletes the jobs on the calling thread.
    bool Flush(const bool& discard);
    /// The number of jobs waiting; -1 (traced) when it cannot be read.
    int GetFillLevel();

private:
    CJobQueue(const CJobQueue&) = delete;
    CJobQueue& operator=(const CJobQueue&) = delete;

    unsigned int insert(CJob* job, const int& priority, const bool& noWait);
    bool startWorkerThread();
    bool stopWorkerThread();
    void reapEndedWorker();
    bool joinWorker();
    void takeLeftovers();
    bool processNextJob(const bool& discard);
    int getFillLevel();
    bool discardAllQueueJobs();
    void destroy();
    int run();

    CString mName;
    CMutex mMutex;
    unsigned int mMsgQueue;
    unsigned int mLastJobId;
    // Read by the worker between jobs while a caller under mMutex writes them.
    std::atomic<bool> mDiscardJobs;
    std::atomic<bool> mStopRequested;
    bool mAcceptJobs;
    bool mWorkerStarted;
    // Set by the worker when its loop has ended, whether asked to or not.
    std::atomic<bool> mWorkerEnded;
    // Set while a flush may wait for its signal job: the worker then does not end at
    // a failed receive.
    std::atomic<bool> mFlushWaiting;
};

} // namespace PAL

#endif
