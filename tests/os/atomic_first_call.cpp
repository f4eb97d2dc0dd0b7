// The first counter operations of a process, made by several threads at the same
// moment, create the process-wide counter mutex exactly once. Runs as its own
// program so that nothing has made a counter operation before.

#include "os/pal_wrapper.h"

#include "morvex_pal_fault.h"

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

namespace {

int fail(const char* what)
{
    std::fprintf(stderr, "FAILED: %s\n", what);
    return 1;
}

// Releases every thread at once, so their first calls overlap as much as possible.
class StartingGate {
public:
    explicit StartingGate(int parties) : mWaiting(parties) {}
    void arriveAndWait()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        if (--mWaiting == 0) {
            mCondition.notify_all();
        } else {
            mCondition.wait(lock, [this] { return mWaiting == 0; });
        }
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    int mWaiting;
};

int race()
{
    if (PAL::Atomic::spAtomicMutex != nullptr) {
        return fail("the counter mutex exists before the first counter operation");
    }
    const unsigned long long initsBefore = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit);
    const int threads = 8;
    const int rounds = 1000;
    unsigned int counter = 0;
    StartingGate gate(threads);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            gate.arriveAndWait();
            for (int i = 0; i < rounds; ++i) {
                PAL::Atomic::increment(counter);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    if (Morvex_Fault_Calls(MORVEX_FAULT_MutexInit) - initsBefore != 1) {
        return fail("the counter mutex was created more than once");
    }
    if (PAL::Atomic::spAtomicMutex == nullptr) {
        return fail("the counter mutex was not kept");
    }
    if (counter != static_cast<unsigned int>(threads * rounds)) {
        return fail("increments were lost");
    }
    return 0;
}

// A failed creation is not the end: the next operation tries again.
int failedCreation()
{
    Morvex_Fault_Arm(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 1);
    unsigned int counter = 0;
    PAL::Atomic::increment(counter);
    if (counter != 1 || PAL::Atomic::spAtomicMutex != nullptr) {
        return fail("a failed creation must leave no mutex and still count");
    }
    PAL::Atomic::increment(counter);
    if (counter != 2 || PAL::Atomic::spAtomicMutex == nullptr) {
        return fail("the second operation must create the mutex");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const char* scenario = argc > 1 ? argv[1] : "";
    int result = 1;
    if (std::strcmp(scenario, "race") == 0) {
        result = race();
    } else if (std::strcmp(scenario, "failed-creation") == 0) {
        result = failedCreation();
    } else {
        std::fprintf(stderr, "usage: %s race|failed-creation\n", argv[0]);
        return 2;
    }
    std::printf("%s: %s\n", scenario, result == 0 ? "passed" : "failed");
    return result;
}
