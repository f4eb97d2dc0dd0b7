#include "extensions/JobQueue.h"

#include "os/private/pal_release.h"

#include "extensions/private/JobId.h"
#include "os/private/pal_enum.h"
#include "os/private/pal_trace.h"

#include "msgqueue.h"

#include <climits>
#include <cstdint>
#include <new>

static const char* const sTraceId = "97A19241CE964F7D8DB562D6654889C6";

namespace PAL {

namespace {

static_assert(sizeof(tMsgQueueHandle) == sizeof(unsigned int), "message-queue handles are 32-bit");

// The flush's signal job comes after every job queued before it.
const int sSignalJobPriority = INT_MAX;
// The stop message only wakes the worker; its place in the queue does not matter.
const int sStopMessagePriority = 0;
// How often an unreadable fill level is asked again before a discard gives up rather
// than wait on a queue that may be empty.
const unsigned int sStatusReadAttempts = 3;
// How often a signal job tries to signal its semaphore.
const unsigned int sSignalAttempts = 3;
// How often the worker tries to receive while a flush waits for it.
const unsigned int sReceiveAttempts = 3;
// How often a stopping thread tries to join the worker.
const unsigned int sJoinAttempts = 3;

// The job pointer as the "%X" of the insertion record takes it: the whole pointer on
// the 32-bit target, its low half on a 64-bit host.
unsigned int pointerBits(const void* pointer)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pointer));
}

int toInt(unsigned int value)
{
    return value > static_cast<unsigned int>(INT_MAX) ? INT_MAX : static_cast<int>(value);
}

CString workerThreadName(const CString& queueName)
{
    return CString("CJobQueueworkerthread [") + queueName + CString("]");
}

} // namespace

const unsigned int CJobQueue::JOB_ID_INVALID;

CJobQueue::CJob::CJob(const CString& name) : mId(0), mName(name)
{
}

CJobQueue::CJob::~CJob()
{
}

unsigned int CJobQueue::CJob::getId() const
{
    return mId;
}

CJobQueue::CSignalJob::CSignalJob(CSemaphore& semaphore) : CJob(CString("SignalJob")), mSemaphore(semaphore)
{
    OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
}

CJobQueue::CSignalJob::~CSignalJob()
{
    OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
    if (!mSemaphore.Signal()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_FAILURE);
        // A flush waits for this signal: ask again, but give up on a semaphore that
        // keeps refusing (one that was never made).
        for (unsigned int attempt = 1; attempt < sSignalAttempts && !mSemaphore.Signal(); ++attempt) {
        }
    }
}

void CJobQueue::CSignalJob::Run()
{
}

CJobQueue::CJobQueue(const unsigned int& size, const CString& name, const CThread::ePriority& priority,
                     const bool& deferProcessing)
    : CThread(workerThreadName(name), priority), mName(name), mMutex(CString("CJobQueue::mMutex"), true),
      mMsgQueue(0), mLastJobId(0), mDiscardJobs(false), mStopRequested(false), mAcceptJobs(true),
      mWorkerStarted(false), mWorkerEnded(false), mFlushWaiting(false)
{
    OSAL_KIT_TRACE(Trace::LEVEL_INFO, "%d%s%d", toInt(size), mName.getBuffer(), EnumValue::raw(priority));
    if (MsgQueue_Init(&mMsgQueue, size) != MSGQUEUE_OK) {
        mMsgQueue = 0;
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        destroy();
        return;
    }
    if (deferProcessing) {
        return;
    }
    if (!startWorkerThread()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        destroy();
    }
}

// No other thread may use the queue any more, so the flags are written without the
// mutex. The mutex goes after this body, once any thread still holding it lets go.
CJobQueue::~CJobQueue()
{
    OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
    mAcceptJobs = false;
    mDiscardJobs = true;
    if (!mWorkerStarted && !discardAllQueueJobs()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
    }
    destroy();
}

unsigned int CJobQueue::Insert(CJob* job, const int& priority)
{
    OSAL_KIT_TRACE(Trace::LEVEL_INFO, "%X%d", pointerBits(job), priority);
    CMutex::CLock lock(mMutex);
    if (mAcceptJobs) {
        return insert(job, priority, true);
    }
    delete job;
    return JOB_ID_INVALID;
}

void CJobQueue::AcceptJobs(const bool& accept)
{
    OSAL_KIT_TRACE(Trace::LEVEL_INFO, "%d", static_cast<int>(accept));
    CMutex::CLock lock(mMutex);
    mAcceptJobs = accept;
}

bool CJobQueue::StartProcessing()
{
    OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
    CMutex::CLock lock(mMutex);
    reapEndedWorker();
    return startWorkerThread();
}

int CJobQueue::GetFillLevel()
{
    OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
    CMutex::CLock lock(mMutex);
    return getFillLevel();
}

bool CJobQueue::Flush(const bool& discard)
{
    OSAL_KIT_TRACE(Trace::LEVEL_INFO, "%d", static_cast<int>(discard));
    // Declared before the lock, so it is destroyed after the lock is released.
    CSemaphore semaphore(0);
    CMutex::CLock lock(mMutex);
    // Set before the worker is looked at, so that a worker whose receive fails from now
    // on does not end under this flush.
    mFlushWaiting = true;
    // Read under the lock: another flush may be starting and stopping the worker.
    reapEndedWorker();
    const bool wasRunning = mWorkerStarted;
    bool result = true;

    if (!wasRunning) {
        if (discard) {
            if (!discardAllQueueJobs()) {
                OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
                result = false;
            }
        } else if (!startWorkerThread()) {
            OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
            result = false;
        }
    }

    if (mWorkerStarted && result) {
        // The signal job keeps a reference to the semaphore until the worker deletes
        // it, so the semaphore must be usable before the job is queued and must not go
        // before the job has signalled.
        bool wouldBlock = false;
        CSignalJob* signalJob = semaphore.TryWait(wouldBlock) ? new (std::nothrow) CSignalJob(semaphore) : 0;
        if (signalJob == 0) {
            OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
            result = false;
        } else {
            mDiscardJobs = discard;
            if (insert(signalJob, sSignalJobPriority, false) == JOB_ID_INVALID) {
                OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
                result = false;
            } else if (!semaphore.Wait()) {
                OSAL_KIT_TRACE0(Trace::LEVEL_FAILURE);
                result = false;
                while (!semaphore.Wait()) {
                }
            }
            mDiscardJobs = false;
        }
    }

    mFlushWaiting = false;
    if (!wasRunning && !discard && !stopWorkerThread()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        result = false;
    }
    return result;
}

unsigned int CJobQueue::insert(CJob* job, const int& priority, const bool& noWait)
{
    if (job == 0) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        return JOB_ID_INVALID;
    }
    mLastJobId = JobId::next(mLastJobId);
    job->mId = mLastJobId;

    sMsgQueueStatus status;
    if (MsgQueue_GetStatus(mMsgQueue, &status) == MSGQUEUE_OK) {
        OSAL_KIT_TRACE(Trace::LEVEL_INFO, "%s%d%d", mName.getBuffer(), toInt(status.count), toInt(status.capacity));
        // 64-bit, so that 100 times a large count cannot overflow.
        if (status.capacity != 0 && 100ULL * status.count / status.capacity > 80ULL) {
            OSAL_KIT_TRACE(Trace::LEVEL_WARNING, "%s%d%d", mName.getBuffer(), toInt(status.count),
                           toInt(status.capacity));
        }
    }

    OSAL_KIT_TRACE(Trace::LEVEL_INFO, "%s%u%s", mName.getBuffer(), mLastJobId, job->mName.getBuffer());
    // From a successful send on, the worker may already have deleted the job.
    const int sent = noWait ? MsgQueue_TrySendMsg(mMsgQueue, job, priority) : MsgQueue_SendMsg(mMsgQueue, job, priority);
    if (sent == MSGQUEUE_OK) {
        return mLastJobId;
    }
    // Two trace points, so that the line tells a full queue from any other refusal.
    if (sent == MSGQUEUE_ERROR_FULL) {
        OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s%s", mName.getBuffer(), job->mName.getBuffer());
    } else {
        OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s%s", mName.getBuffer(), job->mName.getBuffer());
    }
    delete job;
    return JOB_ID_INVALID;
}

bool CJobQueue::startWorkerThread()
{
    if (mWorkerStarted) {
        return true;
    }
    mWorkerEnded = false;
    // Without a message queue the worker would end at its first receive.
    if (mMsgQueue == 0 || !start()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        return false;
    }
    mWorkerStarted = true;
    return true;
}

bool CJobQueue::stopWorkerThread()
{
    if (!mWorkerStarted) {
        return true;
    }
    mStopRequested = true;
    const int sent = MsgQueue_TrySendMsg(mMsgQueue, 0, sStopMessagePriority);
    bool result = false;
    // A full queue keeps the worker busy until it drains, so it sees the request anyway.
    if (sent == MSGQUEUE_OK || sent == MSGQUEUE_ERROR_FULL) {
        if (joinWorker()) {
            takeLeftovers();
        }
        mWorkerStarted = false;
        result = true;
    } else {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
    }
    mStopRequested = false;
    return result;
}

// A worker whose receive failed has ended on its own; treat it as stopped, so that a
// flush does not wait for it.
void CJobQueue::reapEndedWorker()
{
    if (mWorkerStarted && mWorkerEnded) {
        (void)joinWorker();
        mWorkerStarted = false;
    }
}

// A worker that was not joined may still read the queue's members, and the jobs it
// leaves are only taken once it has ended: a refused join is asked again.
bool CJobQueue::joinWorker()
{
    for (unsigned int attempt = 0; attempt < sJoinAttempts; ++attempt) {
        if (join()) {
            return true;
        }
    }
    return false;
}

// Called with the worker joined and the mutex held, so nothing else takes or queues
// messages. The worker ends once it sees the stop request and an empty queue, which
// can be before the stop message arrives: that message is still queued. After a
// failed receive ended the worker, the jobs it did not take are queued as well.
void CJobQueue::takeLeftovers()
{
    while (getFillLevel() > 0) {
        if (!processNextJob(false)) {
            return;
        }
    }
}

bool CJobQueue::processNextJob(const bool& discard)
{
    void* message = 0;
    if (MsgQueue_ReceiveMsg(mMsgQueue, &message) != MSGQUEUE_OK) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        return false;
    }
    CJob* job = static_cast<CJob*>(message);
    if (job != 0) {
        // The discard flag is read with the job in hand, not before the wait: a flush
        // sets it before queueing its signal job and clears it once that job is gone,
        // so it covers exactly the jobs taken in between, and never a job inserted
        // after the flush.
        if (!discard && !mDiscardJobs) {
            job->Run();
        }
        delete job;
    }
    return true;
}

int CJobQueue::getFillLevel()
{
    if (mMsgQueue == 0) {
        return -1;
    }
    sMsgQueueStatus status;
    if (MsgQueue_GetStatus(mMsgQueue, &status) != MSGQUEUE_OK) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
        return -1;
    }
    return toInt(status.count);
}

// Runs on the calling thread while no worker takes messages. A receive is only made
// when a message is known to be there, so it never waits on an empty queue.
bool CJobQueue::discardAllQueueJobs()
{
    int known = 0;
    unsigned int unreadable = 0;
    for (;;) {
        const int level = getFillLevel();
        if (level == 0) {
            return true;
        }
        if (level > 0) {
            known = level;
            unreadable = 0;
        } else if (known == 0 && mMsgQueue != 0) {
            if (++unreadable < sStatusReadAttempts) {
                continue;
            }
            OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
            return false;
        }
        if (!processNextJob(true)) {
            OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
            return false;
        }
        if (known > 0) {
            --known;
        }
    }
}

void CJobQueue::destroy()
{
    if (!stopWorkerThread()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
    }
    if (mWorkerStarted && mWorkerEnded) {
        // A failed receive ended the worker before the stop; what it left is discarded here.
        reapEndedWorker();
        takeLeftovers();
    } else if (mWorkerStarted) {
        // The stop message could not be queued without waiting: wait for room instead.
        mStopRequested = true;
        if (MsgQueue_SendMsg(mMsgQueue, 0, sStopMessagePriority) == MSGQUEUE_OK && joinWorker()) {
            mWorkerStarted = false;
            takeLeftovers();
        }
        mStopRequested = false;
    }
    if (mMsgQueue != 0) {
        // A worker still running reads mMsgQueue: destroy the queue through a copy.
        tMsgQueueHandle queue = mMsgQueue;
        if (MsgQueue_DeInit(&queue) != MSGQUEUE_OK) {
            OSAL_KIT_TRACE0(Trace::LEVEL_ERROR);
            PalRelease::retry(&MsgQueue_DeInit, queue);
            if (queue != 0) {
                return;
            }
        }
        // Without its queue, the worker's next receive fails and it ends; it must not
        // outlive the members it reads.
        if (mWorkerStarted) {
            (void)joinWorker();
            mWorkerStarted = false;
        }
        mMsgQueue = 0;
    }
}

int CJobQueue::run()
{
    unsigned int failedReceives = 0;
    for (;;) {
        if (!processNextJob(false)) {
            // A failed receive ends the worker, but not while a flush waits for its
            // signal job: that flush would wait for good. The receive is tried again.
            if (mFlushWaiting && ++failedReceives < sReceiveAttempts) {
                continue;
            }
            break;
        }
        failedReceives = 0;
        // An unreadable fill level ends the loop too: the stopping thread takes
        // whatever is left once the worker has been joined.
        if (mStopRequested && getFillLevel() <= 0) {
            break;
        }
    }
    mWorkerEnded = true;
    return 0;
}

} // namespace PAL
