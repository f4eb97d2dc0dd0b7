// The first counter operations of a process create the process-wide counter mutex
// exactly once, even when several threads make them at the same moment, and a failed
// creation is tried again by the next operation. Runs as its own program so that
// nothing has made a counter operation before.

#include "os/pal_wrapper.h"

#include "morvex_pal_fault.h"

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

bool race()
{
    const unsigned long long initsBefore = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit);
    const int threads = 8, rounds = 1000;
    unsigned int counter = 0;
    std::atomic<int> arrived{0}; // released together, so that their first calls overlap
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            for (++arrived; arrived < threads;)
                std::this_thread::yield();
            for (int i = 0; i < rounds; ++i)
                PAL::Atomic::increment(counter);
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    return Morvex_Fault_Calls(MORVEX_FAULT_MutexInit) - initsBefore == 1 && counter == unsigned(threads * rounds);
}

bool failedCreation()
{
    Morvex_Fault_Arm(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 1);
    unsigned int counter = 0;
    PAL::Atomic::increment(counter);
    const bool stillCounted = counter == 1 && PAL::Atomic::spAtomicMutex == nullptr;
    PAL::Atomic::increment(counter);
    return stillCounted && counter == 2;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string scenario = argc > 1 ? argv[1] : "";
    if ((scenario != "race" && scenario != "failed-creation") || PAL::Atomic::spAtomicMutex != nullptr) {
        std::fprintf(stderr, "usage: %s race|failed-creation, before any counter operation\n", argv[0]);
        return 2;
    }
    const bool passed = (scenario == "race" ? race() : failedCreation()) && PAL::Atomic::spAtomicMutex != nullptr;
    std::printf("%s: %s\n", scenario.c_str(), passed ? "passed" : "failed");
    return passed ? 0 : 1;
}
