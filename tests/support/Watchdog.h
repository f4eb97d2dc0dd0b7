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
// release() stops it. A run still guarded after `limit` cannot be interrupted (it may
// hold any lock), so the watchdog names it on stderr and ends the process with a failure.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit = std::chrono::seconds(10))
        : limit_(limit), thread_([this] { watch(); })
    {
    }
    ~Watchdog()
    {
        set(nullptr, true);
        thread_.join();
    }
    void guard(const std::string& what) { set(&what, false); }
    void release() { set(nullptr, false); }

private:
    void set(const std::string* what, bool quit)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (what != nullptr) {
            what_ = *what;
            deadline_ = std::chrono::steady_clock::now() + limit_;
        }
        guarded_ = what != nullptr;
        quit_ = quit;
        ++generation_;
        changed_.notify_all();
    }
    void watch()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!quit_) {
            const unsigned long long generation = generation_;
            if (!guarded_ || changed_.wait_until(lock, deadline_, [&] { return generation_ != generation; })) {
                changed_.wait(lock, [&] { return generation_ != generation; });
                continue;
            }
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
struct WatchdogGuard {
    WatchdogGuard(Watchdog& watchdog, const std::string& what) : watchdog_(watchdog) { watchdog_.guard(what); }
    ~WatchdogGuard() { watchdog_.release(); }
    Watchdog& watchdog_;
};

} // namespace osal_kit_test

#endif
