// The mutex wrapper through a failure of each platform mutex call (and allocation), at
// every call of a mutex's life: create, lock and unlock directly, through a scoped lock
// and the static lock calls, and destroy it with a last lock. Whatever failed, nothing
// leaks or hangs, a failure in taking or releasing is traced, and nothing stays held:
// another thread can still take the mutex.

#include "os/Mutex.h"

#include "support/PlatformFaultSweep.h"
#include "support/WaitableCounter.h"

#include <gtest/gtest.h>

#include <new>
#include <thread>

namespace {

using osal_kit_test::FaultRun;
using PAL::CMutex;

// Both calls, whatever the first gave.
bool lockAndUnlock(CMutex& mutex) { return mutex.Lock() ? mutex.Unlock() : (mutex.Unlock(), false); }

void mutexLife(FaultRun& run)
{
    osal_kit_test::TraceTally tally;
    osal_kit_test::WaitableCounter go, done;
    CMutex* mutex = nullptr;
    bool lockedElsewhere = true;
    std::thread other([&] {
        go.waitFor(1);
        lockedElsewhere = mutex == nullptr || lockAndUnlock(*mutex);
        done.increment();
    });
    run.arm();
    mutex = run.step("Create", [] { return new (std::nothrow) CMutex("sweep-mutex", true); });
    (void)run.step("Lock", [&] { return mutex != nullptr && lockAndUnlock(*mutex); });
    run.step("CLock", [&] {
        if (mutex != nullptr) {
            { CMutex::CLock lock(*mutex); }
            CMutex::CLock::Lock(*mutex), CMutex::CLock::Unlock(*mutex);
        }
    });
    go.increment(), done.waitFor(1);
    run.step("Destroy", [&] { delete mutex; });
    run.disarm();
    other.join();
    EXPECT_TRUE(lockedElsewhere || run.failedIn("Create"));
    EXPECT_TRUE(!(run.failedIn("Lock") || run.failedIn("CLock")) || tally.has("os/private/Mutex.cpp", 3, "%s%s"));
}

TEST(MutexFaultSweep, EveryFailureIsTracedAndLeavesNothingHeld)
{
    osal_kit_test::Watchdog watchdog;
    for (const osal_kit_test::PalFault& fault :
         {OSAL_KIT_PAL_FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED), OSAL_KIT_PAL_FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
          OSAL_KIT_PAL_FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED),
          OSAL_KIT_PAL_FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED), OSAL_KIT_PAL_FAULT(zmalloc, 0)}) {
        SCOPED_TRACE(fault.name);
        EXPECT_GT(osal_kit_test::sweepPlatformFault(fault, watchdog, mutexLife, false), 0u);
    }
}

} // namespace
