// The mutex wrapper and its scoped lock through a failure of each platform mutex call,
// at every call of a mutex's life: create, lock and unlock directly, through a scoped
// lock and through the static lock calls, take it from another thread, and destroy it
// with a last lock.

#include "os/Mutex.h"

#include "support/PlatformFaultSweep.h"
#include "support/WaitableCounter.h"

#include "morvex_pal.h"

#include <gtest/gtest.h>

#include <array>
#include <new>
#include <thread>

namespace {

using osal_kit_test::ExpectedRecord;
using osal_kit_test::FaultRun;
using osal_kit_test::PalFault;
using osal_kit_test::TraceTally;
using osal_kit_test::WaitableCounter;
using PAL::CMutex;
using PAL::CString;

// After the failure, another thread must still be able to take the mutex: nothing
// may stay held by the thread that met the failure.
template <std::size_t N>
void mutexLife(FaultRun& run, std::array<ExpectedRecord, N>& records)
{
    TraceTally tally;
    WaitableCounter go, done;
    CMutex* shared = nullptr;
    bool lockedElsewhere = false;
    std::thread other([&] {
        go.waitFor(1);
        if (shared != nullptr) {
            lockedElsewhere = shared->Lock();
            lockedElsewhere = shared->Unlock() && lockedElsewhere;
        }
        done.increment();
    });
    {
        const CString name("sweep-mutex");
        run.arm();
        CMutex* mutex = run.step("Create", [&] { return new (std::nothrow) CMutex(name, true); });
        if (mutex != nullptr) {
            (void)run.step("Lock", [&] { return mutex->Lock(); });
            (void)run.step("Unlock", [&] { return mutex->Unlock(); });
            run.step("CLock", [&] { CMutex::CLock lock(*mutex); });
            run.step("StaticLock", [&] { CMutex::CLock::Lock(*mutex); });
            run.step("StaticUnlock", [&] { CMutex::CLock::Unlock(*mutex); });
            shared = mutex;
            go.increment();
            done.waitFor(1);
            run.step("Destroy", [&] { delete mutex; });
        }
        run.disarm();
    }
    go.increment();
    other.join();
    EXPECT_TRUE(lockedElsewhere || shared == nullptr || run.failedIn("Create"));
    osal_kit_test::noteRecords(records, run, tally);
}

const char* const MUTEX = "os/private/Mutex.cpp";

#define ROW(function, step, level, format, value) \
    ExpectedRecord{__LINE__, MORVEX_FAULT_##function, step, MUTEX, level, format, value, false}

// A failing call leaves a level-3 record with the cause and the name; a scoped lock adds
// its level-4 record.
std::array<ExpectedRecord, 16> expectedRecords()
{
    return {{
        ROW(MutexInit, "Create", 3, "%s%s", "MUTEX_ERROR_CREATE_FAILED"),
        ROW(MutexInit, "Create", 3, "%s", "sweep-mutex"),  // every later use of the missing mutex
        ROW(MutexInit, "Create", 4, nullptr, nullptr),
        ROW(MutexWait, "Lock", 3, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
        ROW(MutexWait, "CLock", 3, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
        ROW(MutexWait, "CLock", 4, nullptr, nullptr),
        ROW(MutexWait, "StaticLock", 3, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
        ROW(MutexWait, "StaticLock", 4, nullptr, nullptr),
        ROW(MutexWait, "Destroy", 3, "%s%s", "MUTEX_ERROR_WAIT_FAILED"),
        ROW(MutexSignal, "Unlock", 3, "%s%s", "MUTEX_ERROR_SIGNAL_FAILED"),
        ROW(MutexSignal, "CLock", 3, "%s%s", "MUTEX_ERROR_SIGNAL_FAILED"),
        ROW(MutexSignal, "CLock", 4, nullptr, nullptr),
        ROW(MutexSignal, "StaticUnlock", 3, "%s%s", "MUTEX_ERROR_SIGNAL_FAILED"),
        ROW(MutexSignal, "StaticUnlock", 4, nullptr, nullptr),
        ROW(MutexDeInit, "Destroy", 3, "%s%s", "MUTEX_ERROR_DEINIT_FAILED"),
        ROW(MutexDeInit, "Destroy", 0, nullptr, nullptr),
    }};
}

const PalFault FAULTS[] = {
    OSAL_KIT_PAL_FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED), OSAL_KIT_PAL_FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
    OSAL_KIT_PAL_FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED), OSAL_KIT_PAL_FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED),
    OSAL_KIT_PAL_FAULT(zmalloc, 0),
};

TEST(MutexFaultSweep, EveryFailureIsTracedWithItsCauseAndTheName)
{
    osal_kit_test::Watchdog watchdog;
    std::array<ExpectedRecord, 16> records = expectedRecords();
    for (const PalFault& fault : FAULTS) {
        SCOPED_TRACE(fault.name);
        (void)osal_kit_test::sweepPlatformFault(fault, watchdog, [&](FaultRun& run) { mutexLife(run, records); },
                                                false);
        osal_kit_test::expectRowsSeen(records, fault.function);
    }
}

} // namespace
