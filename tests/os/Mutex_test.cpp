// Named mutexes, scoped locks, their trace records, and the result-code texts.

#include "os/Mutex.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <thread>

namespace {

using osal_kit_test::ExpectedTrace;
using PAL::CMutex;

const ExpectedTrace kInfo = {0, nullptr, {}}, kLockFailed = {4, nullptr, {}}, kNoHandle = {3, "%s", {"jobs"}};
ExpectedTrace refused(const char* code) { return {3, "%s%s", {code, "jobs"}}; }

// The results of the calls in order, 'T' or 'F'.
std::string results(std::initializer_list<bool> calls)
{
    std::string out;
    for (bool call : calls)
        out += call ? 'T' : 'F';
    return out;
}

std::string lockAndUnlock(CMutex& m) { return results({m.Lock(), m.Unlock(), !m.isExtendedTraceEnabled()}); }
std::string scoped(CMutex& m)
{
    { CMutex::CLock lock(m); }
    return CMutex::CLock::Lock(m), CMutex::CLock::Unlock(m), "";
}
std::string alone(CMutex&) { return ""; }
// The PAL mutex is not recursive, and only its owner may release it.
std::string ownership(CMutex& m)
{
    bool elsewhere = true;
    const std::string calls = results({m.Unlock(), m.Lock(), m.Lock()});
    std::thread([&] { elsewhere = m.Unlock(); }).join();
    return calls + results({elsewhere, m.Unlock()});
}

// A failing PAL call leaves a level-3 record with its text and the name, a failing
// scoped lock adds a level-4 record, and lockOnDestruction takes the mutex between two
// level-0 records; the object is destroyed whatever failed. The failing call: the first
// `failures` calls of `fault` (COUNT: none).
TEST(MutexTest, EachRefusalOfThePalCoreIsTracedWithItsTextAndTheName)
{
    osal_kit_test::FaultGuard faults;
    const PAL::CString name("jobs"), copy(name); // the counter mutex exists before a fault is armed
    const struct {
        int line; bool lockOnDestruction; eMorvex_FaultFunction fault; eMorvex_PAL_MutexError code; unsigned int failures;
        std::string (*life)(CMutex&); const char* results; std::vector<ExpectedTrace> records;
    } rows[] = {
        {__LINE__, false, MORVEX_FAULT_COUNT, MUTEX_OK, 0, lockAndUnlock, "TTT", {}},
        {__LINE__, true, MORVEX_FAULT_COUNT, MUTEX_OK, 0, scoped, "", {kInfo, kInfo}},
        {__LINE__, false, MORVEX_FAULT_COUNT, MUTEX_OK, 0, ownership, "FTFFT",
         {refused("MUTEX_ERROR_SIGNAL_FAILED"), refused("MUTEX_ERROR_RECURSIVE"), refused("MUTEX_ERROR_SIGNAL_FAILED")}},
        {__LINE__, false, MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 1, lockAndUnlock, "FFT",
         {refused("MUTEX_ERROR_CREATE_FAILED"), kNoHandle, kNoHandle}},
        {__LINE__, true, MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED, 1, scoped, "",
         {refused("MUTEX_ERROR_CREATE_FAILED"), kNoHandle, kLockFailed, kNoHandle, kLockFailed, kNoHandle, kLockFailed,
          kNoHandle, kLockFailed, kInfo, kNoHandle, kInfo}},
        {__LINE__, false, MORVEX_FAULT_MutexWait, MUTEX_ERROR_INV_VALUE, 1, lockAndUnlock, "FFT",
         {refused("MUTEX_ERROR_INV_VALUE"), refused("MUTEX_ERROR_SIGNAL_FAILED")}},
        {__LINE__, false, MORVEX_FAULT_MutexSignal, MUTEX_ERROR_INTERNAL, 1, lockAndUnlock, "TFT",
         {refused("MUTEX_ERROR_INTERNAL")}},
        {__LINE__, false, MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, 2, scoped, "",
         {refused("MUTEX_ERROR_WAIT_FAILED"), kLockFailed, refused("MUTEX_ERROR_SIGNAL_FAILED"), kLockFailed,
          refused("MUTEX_ERROR_WAIT_FAILED"), kLockFailed, refused("MUTEX_ERROR_SIGNAL_FAILED"), kLockFailed}},
        {__LINE__, true, MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, 1, alone, "",
         {kInfo, refused("MUTEX_ERROR_WAIT_FAILED"), kInfo}},
        {__LINE__, false, MORVEX_FAULT_MutexDeInit, MUTEX_ERROR_INV_HANDLE, 3, alone, "", {refused("MUTEX_ERROR_INV_HANDLE")}},
        {__LINE__, true, MORVEX_FAULT_MutexDeInit, MUTEX_ERROR_DEINIT_FAILED, 4, alone, "",
         {kInfo, kInfo, refused("MUTEX_ERROR_DEINIT_FAILED")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        osal_kit_test::TraceCapture capture;
        // Armed after the name is copied (a counter operation takes a mutex), except for creation.
        const bool creation = row.fault == MORVEX_FAULT_MutexInit;
        osal_kit_test::failNext(row.fault, row.code, creation ? row.failures : 0);
        std::optional<CMutex> mutex(std::in_place, name, row.lockOnDestruction);
        osal_kit_test::failNext(row.fault, row.code, creation ? 0 : row.failures);
        sMorvex_PAL_Mutex* handle; // the first member
        std::memcpy(&handle, &*mutex, sizeof handle);
        EXPECT_EQ(row.results, row.life(*mutex));
        mutex.reset();
        osal_kit_test::expectTraces(row.records, osal_kit_test::recordsFrom(capture, "os/private/Mutex.cpp"));
        // Every attempt failed: the mutex is still there.
        EXPECT_EQ(MUTEX_OK, row.fault == MORVEX_FAULT_MutexDeInit ? Morvex_PAL_MutexDeInit(&handle) : MUTEX_OK);
    }
}

// Eleven codes map to their texts both ways; anything else maps to "?" or back to
// MUTEX_ERROR_INTERNAL (texts, not pointers, are compared).
TEST(MutexResultStrMapTest, CodesMapToTheirTextsBothWays)
{
    const std::string texts[] = {"MUTEX_O", "MUTEX_OK", "MUTEX_WOULD_BLOCK", "MUTEX_ERROR_INV_POINTER", "MUTEX_ERROR_INV_HANDLE",
                                 "MUTEX_ERROR_CREATE_FAILED", "MUTEX_ERROR_WAIT_FAILED", "MUTEX_ERROR_SIGNAL_FAILED",
                                 "MUTEX_ERROR_DEINIT_FAILED", "MUTEX_ERROR_RECURSIVE", "MUTEX_ERROR_INTERNAL",
                                 "MUTEX_ERROR_INV_VALUE", "?", "mutex_ok", "", "MUTEX_OK "};
    for (int code = -1; code <= 14; ++code) {
        eMorvex_PAL_MutexError value; // held in place: it may lie outside the enumeration
        std::memcpy(&value, &code, sizeof value);
        const bool known = code >= 0 && code <= 10;
        EXPECT_EQ(known ? texts[code + 1] : "?", PAL::MutexResultStrMap::Map(value)) << code;
        EXPECT_EQ(known ? value : MUTEX_ERROR_INTERNAL, PAL::MutexResultStrMap::Map(texts[code + 1].c_str())) << code;
    }
    EXPECT_EQ(MUTEX_ERROR_INTERNAL, PAL::MutexResultStrMap::Map(static_cast<const char*>(nullptr)));
}

} // namespace
