// The mutex wrapper and its scoped lock through a failure of each platform mutex call,
// at every call of a mutex's life: create, lock and unlock directly, through a scoped
// lock and through the static lock calls, and destroy with a last lock.

#include "os/Mutex.h"

#include "support/PlatformFaultSweep.h"

#include "morvex_pal.h"

#include <gtest/gtest.h>

#include <array>
#include <new>

namespace {

using osal_kit_test::ExpectedRecord;
using osal_kit_test::FaultRun;
using osal_kit_test::PalFault;
using osal_kit_test::TraceTally;
using PAL::CMutex;
using PAL::CString;

template <std::size_t N>
void mutexLife(FaultRun& run, std::array<ExpectedRecord, N>& records)
{
    TraceTally tally;
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
            run.step("Destroy", [&] { delete mutex; });
        }
        run.disarm();
    }
    osal_kit_test::noteRecords(records, run, tally);
}

const char* const MUTEX = "os/private/Mutex.cpp";

#define ROW(function, step, level, format, value) \
    ExpectedRecord{__LINE__, MORVEX_FAULT_##function, step, MUTEX, level, format, value, false}

// A failing call leaves a level-3 record with the cause and the name; a scoped lock adds
// its level-4 record.
std::array<ExpectedRecord, 17> expectedRecords()
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
        // A mutex left held is taken again by the same thread: the PAL core refuses that.
        ROW(MutexSignal, "Unlock", 3, "%s%s", "MUTEX_ERROR_RECURSIVE"),
        ROW(MutexDeInit, "Destroy", 3, "%s%s", "MUTEX_ERROR_DEINIT_FAILED"),
        ROW(MutexDeInit, "Destroy", 0, nullptr, nullptr),
    }};
}

const PalFault FAULTS[] = {
    OSAL_KIT_PAL_FAULT(MutexInit, MUTEX_ERROR_CREATE_FAILED), OSAL_KIT_PAL_FAULT(MutexWait, MUTEX_ERROR_WAIT_FAILED),
    OSAL_KIT_PAL_FAULT(MutexSignal, MUTEX_ERROR_SIGNAL_FAILED), OSAL_KIT_PAL_FAULT(MutexDeInit, MUTEX_ERROR_DEINIT_FAILED),
    OSAL_KIT_PAL_FAULT(strcmp, 1), OSAL_KIT_PAL_FAULT(zmalloc, 0),
};

TEST(MutexFaultSweep, EveryFailureIsTracedWithItsCauseAndTheName)
{
    osal_kit_test::Watchdog watchdog;
    std::array<ExpectedRecord, 17> records = expectedRecords();
    for (const PalFault& fault : FAULTS) {
        SCOPED_TRACE(fault.name);
        (void)osal_kit_test::sweepPlatformFault(fault, watchdog, [&](FaultRun& run) { mutexLife(run, records); },
                                                {false, 0});
        osal_kit_test::expectRowsSeen(records, fault.function);
    }
}

} // namespace
