// Jobs that report what happens to them, for tests of the job queue: which ran, in
// what order and with which id, and how often and on which thread each was deleted.
// Header-only: it needs the library, which the support library does not link.
#ifndef OSAL_KIT_TEST_JOB_LEDGER_H
#define OSAL_KIT_TEST_JOB_LEDGER_H

#include "extensions/JobQueue.h"

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace osal_kit_test {

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
        ++entries_[tag].runs;
        entries_[tag].idWhenRun = id;
        order_.push_back(tag);
    }
    void deleted(int tag)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++entries_[tag].deletions;
        entries_[tag].deletedOn = std::this_thread::get_id();
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
// signals that semaphore first; with `release`, it then waits for that one.
class LedgerJob : public PAL::CJobQueue::CJob {
public:
    LedgerJob(JobLedger& ledger, int tag, PAL::CSemaphore* started = nullptr, PAL::CSemaphore* release = nullptr)
        : CJob(("job" + std::to_string(tag)).c_str()), ledger_(ledger), tag_(tag), started_(started),
          release_(release)
    {
    }
    ~LedgerJob() override { ledger_.deleted(tag_); }

    void Run() override
    {
        if (started_ != nullptr)
            started_->Signal();
        if (release_ != nullptr)
            release_->Wait();
        ledger_.ran(tag_, getId());
    }

private:
    JobLedger& ledger_;
    int tag_;
    PAL::CSemaphore* started_;
    PAL::CSemaphore* release_;
};

} // namespace osal_kit_test

#endif
