// The first counter operations of a process create the process-wide counter mutex
// exactly once, even when several threads make them at the same moment, and a failed
// creation is tried again by the next operation. Runs as its own program so that
// nothing has made a counter operation before.

#include "os/pal_wrapper.h"

#include "morvex_pal_fault.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

int main(int argc, char** argv)
{
    const bool race = argc > 1 && std::string(argv[1]) == "race";
    const unsigned long long initsBefore = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit);
    unsigned int counter = 0;
    std::atomic<int> arrived{0}; // released together, so that their first calls overlap
    std::vector<std::thread> workers;
    if (!race)
        Morvex_Fault_Arm(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 1);
    for (int t = 0; t < (race ? 8 : 1); ++t) {
        workers.emplace_back([&] {
            for (++arrived; arrived < (race ? 8 : 1);)
                std::this_thread::yield();
            for (int i = 0; i < 1000; ++i)
                PAL::Atomic::increment(counter);
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    const unsigned long long inits = Morvex_Fault_Calls(MORVEX_FAULT_MutexInit) - initsBefore;
    return inits == (race ? 1u : 2u) && counter == workers.size() * 1000 && PAL::Atomic::spAtomicMutex != nullptr ? 0 : 1;
}
