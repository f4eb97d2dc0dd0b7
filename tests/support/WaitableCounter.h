// A count that some threads raise and others wait for: a latch, a gate or a tally of
// events, for tests that synchronise threads without sleeping.
#ifndef OSAL_KIT_TEST_WAITABLE_COUNTER_H
#define OSAL_KIT_TEST_WAITABLE_COUNTER_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace osal_kit_test {

class WaitableCounter {
public:
    WaitableCounter() = default;
    WaitableCounter(const WaitableCounter&) = delete;
    WaitableCounter& operator=(const WaitableCounter&) = delete;

    void increment()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        changed_.notify_all();
    }

    // Blocks until the count reaches `target`. Gives up (false) after a limit far
    // beyond any healthy run, so that a broken test fails instead of hanging.
    bool waitFor(int target)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60), [&] { return count_ >= target; });
    }

    int value() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

} // namespace osal_kit_test

#endif
