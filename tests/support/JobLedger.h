// Jobs that report what happens to them, for tests of the job queue: which ran, in
// what order, with which id, and how often and on which thread each was deleted.
// Header-only: it needs the library, which the support library does not link.
#ifndef OSAL_KIT_TEST_JOB_LEDGER_H
#define OSAL_KIT_TEST_JOB_LEDGER_H

#include "extensions/JobQueue.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace osal_kit_test {

// A counting semaphore of the standard library, so that tests which make the PAL
// core's semaphores fail can still synchronise.
class Gate {
public:
    void open()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        changed_.notify_one();
    }
    void pass()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return count_ > 0; });
        --count_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned int count_ = 0;
};

class JobLedger {
public:
    struct Entry {
        int runs = 0;
        int deletions = 0;
        unsigned int idWhenRun = 0;
        std::thread::id deletedOn;
    };

    void ran(int tag, unsigned int id)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Entry& entry = entries_[tag];
        ++entry.runs;
        entry.idWhenRun = id;
        order_.push_back(tag);
    }
    void deleted(int tag)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Entry& entry = entries_[tag];
        ++entry.deletions;
        entry.deletedOn = std::this_thread::get_id();
    }
    Entry entry(int tag) const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = entries_.find(tag);
        return found == entries_.end() ? Entry() : found->second;
    }
    // Tags in the order their jobs ran.
    std::vector<int> runOrder() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return order_;
    }

private:
    mutable std::mutex mutex_;
    std::map<int, Entry> entries_;
    std::vector<int> order_;
};

// A job named "job<tag>" that records itself in a ledger. With `started`, its Run()
// opens that gate first; with `release`, it then waits until that gate opens.
class LedgerJob : public PAL::CJobQueue::CJob {
public:
    LedgerJob(JobLedger& ledger, int tag, Gate* started = nullptr, Gate* release = nullptr)
        : CJob(("job" + std::to_string(tag)).c_str()), ledger_(ledger), tag_(tag), started_(started),
          release_(release)
    {
    }
    ~LedgerJob() override { ledger_.deleted(tag_); }

    void Run() override
    {
        if (started_ != nullptr)
            started_->open();
        if (release_ != nullptr)
            release_->pass();
        ledger_.ran(tag_, getId());
    }

private:
    JobLedger& ledger_;
    int tag_;
    Gate* started_;
    Gate* release_;
};

} // namespace osal_kit_test

#endif
