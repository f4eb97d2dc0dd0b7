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

int main(int argc, char** argv)
{
    const std::string scenario = argc > 1 ? argv[1] : "";
    if ((scenario != "race" && scenario != "failed-creation") || PAL::Atomic::spAtomicMutex != nullptr) {
        std::fprintf(stderr, "usage: %s race|failed-creation, before any counter operation\n", argv[0]);
        return 2;
    }
    const unsigned long long initsBefore = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit);
    unsigned int counter = 0;
    bool passed = true;
    if (scenario == "race") {
        std::atomic<int> arrived{0}; // released together, so that their first calls overlap
        std::vector<std::thread> workers;
        for (int t = 0; t < 8; ++t) {
            workers.emplace_back([&] {
                for (++arrived; arrived < 8;)
                    std::this_thread::yield();
                for (int i = 0; i < 1000; ++i)
                    PAL::Atomic::increment(counter);
            });
        }
        for (std::thread& worker : workers)
            worker.join();
        passed = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit) - initsBefore == 1 && counter == 8000;
    } else {
        Morvex_Fault_Arm(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 1);
        PAL::Atomic::increment(counter);
        passed = PAL::Atomic::spAtomicMutex == nullptr; // and counted all the same
        PAL::Atomic::increment(counter);
        passed = passed && counter == 2;
    }
    passed = passed && PAL::Atomic::spAtomicMutex != nullptr;
    std::printf("%s: %s\n", scenario.c_str(), passed ? "passed" : "failed");
    return passed ? 0 : 1;
}
