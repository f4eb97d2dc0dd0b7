// Job queue: jobs run one at a time on the queue's own worker thread, smaller
// priorities first and equal ones in the order inserted. The queue owns every job
// from the call of Insert on and deletes it exactly once, run or not.

#include "extensions/JobQueue.h"

#include <atomic>
#include <cstdio>
#include <new>

namespace {

std::atomic<int> sJobsDeleted(0);

// Prints its text when run. The worker runs it while main() waits in Flush, so the
// two threads never print at the same time.
class CPrintJob : public PAL::CJobQueue::CJob {
public:
    explicit CPrintJob(const char* text) : CJob("print"), mText(text) {}
    ~CPrintJob() override { ++sJobsDeleted; }

    void Run() override { std::printf("  job %u runs: %s\n", getId(), mText.getBuffer()); }

private:
    PAL::CString mText;
};

void insert(PAL::CJobQueue& queue, const char* text, int priority)
{
    const unsigned int id = queue.Insert(new (std::nothrow) CPrintJob(text), priority);
    if (id == PAL::CJobQueue::JOB_ID_INVALID) {
        std::printf("\"%s\" refused (the job is deleted already)\n", text);
    } else {
        std::printf("\"%s\" queued as job %u with priority %d\n", text, id, priority);
    }
}

} // namespace

int main()
{
    std::printf("== Job queue ==\n");
    int inserted = 0;
    {
        // A deferred queue for at most 3 waiting jobs: nothing runs until asked, which
        // makes the order easy to see.
        PAL::CJobQueue queue(3, "example", PAL::CThread::PRIORITY_NORMAL, true);

        std::printf("-- priorities --\n");
        insert(queue, "second (priority 5)", 5);
        insert(queue, "first (priority 1)", 1);
        insert(queue, "third (priority 5, inserted later)", 5);
        insert(queue, "one too many", 9);
        inserted += 4;
        // Ids count sends: the refused one above used id 4, and each flush queues a
        // job of its own behind the others, which takes an id too.
        std::printf("waiting: %d\n", queue.GetFillLevel());
        std::printf("flush and run:\n");
        const bool flushed = queue.Flush(false);
        std::printf("flushed: %s, waiting: %d\n", flushed ? "yes" : "no", queue.GetFillLevel());

        std::printf("-- discarding --\n");
        insert(queue, "never runs", 1);
        inserted += 1;
        const bool discarded = queue.Flush(true);
        std::printf("flush, discarding: %s, waiting: %d\n", discarded ? "yes" : "no", queue.GetFillLevel());

        std::printf("-- refusals --\n");
        std::printf("a null job gets id %u\n", queue.Insert(0, 1));
        queue.AcceptJobs(false);
        insert(queue, "while not accepting", 1);
        inserted += 1;
        queue.AcceptJobs(true);

        std::printf("-- a running worker --\n");
        std::printf("start processing: %s\n", queue.StartProcessing() ? "yes" : "no");
        // The worker may run the job at once, so nothing is printed here until the
        // flush has returned.
        const unsigned int id = queue.Insert(new (std::nothrow) CPrintJob("taken by the running worker"), 3);
        inserted += 1;
        queue.Flush(false);
        std::printf("job %u was queued and has run\n", id);
        // Jobs still waiting here would be deleted unrun by the queue's destructor.
    }
    std::printf("jobs inserted: %d, deleted: %d\n", inserted, sJobsDeleted.load());
    return 0;
}
