// Bounds how long a piece of test code may take, so that a hang fails the test with a
// name instead of stalling the whole run until the test runner kills it.
#ifndef OSAL_KIT_TEST_SUPPORT_WATCHDOG_H
#define OSAL_KIT_TEST_SUPPORT_WATCHDOG_H

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace osal_kit_test {

// One watching thread for many guarded runs. guard() starts the clock for one run,
// release() stops it. A run that is still guarded after `limit` cannot be interrupted
// (it may hold any lock), so the watchdog names it on stderr and ends the process with
// a failure.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit = std::chrono::seconds(10))
        : limit_(limit), thread_([this] { watch(); })
    {
    }
    ~Watchdog()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            quit_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    void guard(const std::string& what)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        what_ = what;
        deadline_ = std::chrono::steady_clock::now() + limit_;
        guarded_ = true;
        ++generation_;
        changed_.notify_all();
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        guarded_ = false;
        ++generation_;
        changed_.notify_all();
    }

private:
    void watch()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!quit_) {
            if (!guarded_) {
                changed_.wait(lock);
                continue;
            }
            const unsigned long long generation = generation_;
            if (changed_.wait_until(lock, deadline_, [&] { return quit_ || generation_ != generation; }))
                continue;
            std::fprintf(stderr, "\nFAILED: hang: %s did not finish within %lld s\n", what_.c_str(),
                         static_cast<long long>(limit_.count()));
            std::fflush(stderr);
            std::_Exit(3);
        }
    }

    const std::chrono::seconds limit_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool quit_ = false;
    bool guarded_ = false;
    unsigned long long generation_ = 0;
    std::string what_;
    std::chrono::steady_clock::time_point deadline_;
    std::thread thread_;
};

// Guards one run for as long as it lives.
class WatchdogGuard {
public:
    WatchdogGuard(Watchdog& watchdog, const std::string& what) : watchdog_(watchdog) { watchdog_.guard(what); }
    ~WatchdogGuard() { watchdog_.release(); }
    WatchdogGuard(const WatchdogGuard&) = delete;
    WatchdogGuard& operator=(const WatchdogGuard&) = delete;

private:
    Watchdog& watchdog_;
};

} // namespace osal_kit_test

#endif
