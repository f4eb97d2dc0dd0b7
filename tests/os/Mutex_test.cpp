// Named mutexes, scoped locks, their trace records, and the result-code texts.

#include "os/Mutex.h"
#include "os/Semaphore.h"

#include "support/AllocationBalance.h"
#include "support/TraceExpect.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using osal_kit_test::ExpectedTrace;
using osal_kit_test::TraceCapture;
using osal_kit_test::failNext;

const char* const kName = "jobs";
const ExpectedTrace kInfo = {0, nullptr, {}};
const ExpectedTrace kLockFailed = {4, nullptr, {}};

ExpectedTrace refused(const char* code, const char* name = kName)
{
    return {3, "%s%s", {code, name}};
}
const ExpectedTrace kNoHandle = {3, "%s", {kName}};

// The PAL handle of a live mutex (its first member), so that a test which made the PAL
// core keep a mutex alive can still release it.
sMorvex_PAL_Mutex* handleOf(const PAL::CMutex& mutex)
{
    static_assert(std::is_standard_layout<PAL::CMutex>::value, "the handle is the first member");
    sMorvex_PAL_Mutex* handle;
    std::memcpy(&handle, &mutex, sizeof handle);
    return handle;
}

class MutexTest : public ::testing::Test {
protected:
    MutexTest()
    {
        // The process's first string copy makes the counter mutex; make it here, so
        // that a fault armed for the next mutex creation reaches the CMutex.
        const PAL::CString name(kName);
        const PAL::CString copy(name);
    }
    static void expectRecords(const std::vector<ExpectedTrace>& expected, const TraceCapture& capture)
    {
        osal_kit_test::expectTraces(expected, osal_kit_test::recordsFrom(capture, "os/private/Mutex.cpp"));
    }

    osal_kit_test::FaultGuard faults;
};

TEST_F(MutexTest, LockAndUnlockSucceedWithoutTraceAndExtendedTraceIsNeverEnabled)
{
    const PAL::CMutex locking(kName, true);
    EXPECT_FALSE(locking.isExtendedTraceEnabled());
    TraceCapture capture;
    {
        PAL::CMutex mutex(kName, false);
        EXPECT_FALSE(mutex.isExtendedTraceEnabled());
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(mutex.Lock());
            EXPECT_TRUE(mutex.Unlock());
        }
    }
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MutexTest, FailedCreationLeavesAMutexThatRefusesEverythingByName)
{
    const osal_kit_test::PalCalls deInits{MORVEX_FAULT_MutexDeInit};
    TraceCapture capture;
    {
        failNext(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED);
        PAL::CMutex mutex(kName, false);
        EXPECT_FALSE(mutex.Lock());
        EXPECT_FALSE(mutex.Unlock());
        PAL::CMutex::CLock lock(mutex); // adds a failure record to each refusal
    }
    expectRecords({refused("MUTEX_ERROR_CREATE_FAILED"), kNoHandle, kNoHandle, kNoHandle, kLockFailed, kNoHandle,
                   kLockFailed},
                  capture);
    EXPECT_EQ(deInits.none(), deInits.since());
}

TEST_F(MutexTest, EachRefusalOfThePalCoreIsTracedWithItsTextAndTheName)
{
    const struct {
        int line;
        eMorvex_FaultFunction function;
        eMorvex_PAL_MutexError code;
        bool (PAL::CMutex::*operation)();
    } rows[] = {
        {__LINE__, MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, &PAL::CMutex::Lock},
        {__LINE__, MORVEX_FAULT_MutexWait, MUTEX_ERROR_INV_VALUE, &PAL::CMutex::Lock},
        {__LINE__, MORVEX_FAULT_MutexSignal, MUTEX_ERROR_SIGNAL_FAILED, &PAL::CMutex::Unlock},
        {__LINE__, MORVEX_FAULT_MutexSignal, MUTEX_ERROR_INTERNAL, &PAL::CMutex::Unlock},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        PAL::CMutex mutex("Wächter", false);
        TraceCapture capture;
        failNext(row.function, row.code);
        EXPECT_FALSE((mutex.*row.operation)());
        expectRecords({refused(PAL::MutexResultStrMap::Map(row.code), "Wächter")}, capture);
    }
}

TEST_F(MutexTest, OwnerRelockingAndNonOwnerUnlockingAreRefused)
{
    PAL::CMutex mutex(kName, false);
    TraceCapture capture;
    EXPECT_FALSE(mutex.Unlock()); // nobody owns it
    ASSERT_TRUE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock());
    bool unlockedElsewhere = true;
    std::thread([&] { unlockedElsewhere = mutex.Unlock(); }).join();
    EXPECT_FALSE(unlockedElsewhere);
    EXPECT_TRUE(mutex.Unlock());
    expectRecords({refused("MUTEX_ERROR_SIGNAL_FAILED"), refused("MUTEX_ERROR_RECURSIVE"),
                   refused("MUTEX_ERROR_SIGNAL_FAILED")},
                  capture);
}

// A failing destruction is traced with the name, whether the PAL core refuses on its
// own or because the destroying thread still holds the mutex.
TEST_F(MutexTest, FailedDestructionIsTracedWithTheName)
{
    for (const bool held : {false, true}) {
        SCOPED_TRACE(held ? "held" : "refused");
        std::optional<PAL::CMutex> mutex;
        mutex.emplace(kName, false);
        ASSERT_TRUE(!held || mutex->Lock());
        sMorvex_PAL_Mutex* handle = handleOf(*mutex);
        TraceCapture capture;
        if (!held) {
            failNext(MORVEX_FAULT_MutexDeInit, MUTEX_ERROR_INV_HANDLE, 3);  // every attempt
        }
        mutex.reset();
        expectRecords({refused(held ? "MUTEX_ERROR_DEINIT_FAILED" : "MUTEX_ERROR_INV_HANDLE")}, capture);
        EXPECT_EQ(MUTEX_OK, held ? Morvex_PAL_MutexSignal(handle) : MUTEX_OK);
        EXPECT_EQ(MUTEX_OK, Morvex_PAL_MutexDeInit(&handle));
    }
}

// The destructor takes the mutex between two records, and destroys it whether or not
// the taking worked.
TEST_F(MutexTest, LockOnDestructionTakesTheMutexBetweenTwoRecordsAndDestroysIt)
{
    const struct {
        int line;
        eMorvex_FaultFunction fault; // MORVEX_FAULT_COUNT: none
        eMorvex_PAL_MutexError code;
        unsigned int count;
        std::vector<ExpectedTrace> records;
    } rows[] = {
        {__LINE__, MORVEX_FAULT_COUNT, MUTEX_OK, 0, {kInfo, kInfo}},
        {__LINE__, MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, 1, {kInfo, refused("MUTEX_ERROR_WAIT_FAILED"), kInfo}},
        {__LINE__, MORVEX_FAULT_MutexDeInit, MUTEX_ERROR_DEINIT_FAILED, 4,  // every attempt
         {kInfo, kInfo, refused("MUTEX_ERROR_DEINIT_FAILED")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        std::optional<PAL::CMutex> mutex;
        mutex.emplace(kName, true);
        sMorvex_PAL_Mutex* handle = handleOf(*mutex);
        TraceCapture capture;
        if (row.fault != MORVEX_FAULT_COUNT) {
            failNext(row.fault, row.code, row.count);
        }
        mutex.reset();
        expectRecords(row.records, capture);
        const std::vector<osal_kit_test::CapturedTrace> records = capture.records();
        EXPECT_LT(records.front().line, records.back().line);
        if (row.fault == MORVEX_FAULT_MutexDeInit) {
            EXPECT_EQ(MUTEX_OK, Morvex_PAL_MutexDeInit(&handle)) << "the destructor gave up its hold before its last attempt";
        }
    }
}

TEST_F(MutexTest, LockOnDestructionWaitsForTheThreadHoldingTheMutex)
{
    std::optional<PAL::CMutex> mutex;
    PAL::CMutex& held = mutex.emplace(kName, true);
    ASSERT_TRUE(held.Lock());
    TraceCapture capture;
    PAL::CSemaphore destroyed(0);
    std::thread destroyer([&] {
        mutex.reset();
        destroyed.Signal();
    });
    // While this thread holds the mutex, the destructor cannot get past its lock.
    const bool finishedWhileHeld = destroyed.TimedWait(50);
    EXPECT_FALSE(finishedWhileHeld);
    if (!finishedWhileHeld) {
        EXPECT_TRUE(held.Unlock());
        EXPECT_TRUE(destroyed.Wait());
    }
    destroyer.join();
    expectRecords({kInfo, kInfo}, capture);
}

TEST_F(MutexTest, ScopedLockHoldsTheMutexForItsScopeWithoutTrace)
{
    PAL::CMutex mutex(kName, false);
    {
        PAL::CMutex::CLock lock(mutex);
        TraceCapture capture;
        EXPECT_FALSE(mutex.Lock()); // already ours
        EXPECT_EQ(1u, capture.records().size());
    }
    TraceCapture capture;
    EXPECT_TRUE(mutex.Lock());
    EXPECT_TRUE(mutex.Unlock());
    PAL::CMutex::CLock::Lock(mutex);
    PAL::CMutex::CLock::Unlock(mutex);
    EXPECT_TRUE(capture.records().empty());
}

// The scoped lock unlocks even when taking failed (and the PAL core refuses that in
// turn); the static forms trace their failures the same way.
TEST_F(MutexTest, ScopedAndStaticLocksAddAFailureRecordToEachRefusal)
{
    const std::function<void(PAL::CMutex&)> ways[] = {
        [](PAL::CMutex& mutex) { PAL::CMutex::CLock lock(mutex); },
        [](PAL::CMutex& mutex) {
            PAL::CMutex::CLock::Lock(mutex);
            failNext(MORVEX_FAULT_MutexSignal, MUTEX_ERROR_SIGNAL_FAILED);
            PAL::CMutex::CLock::Unlock(mutex);
        },
    };
    for (const auto& way : ways) {
        PAL::CMutex mutex(kName, false);
        TraceCapture capture;
        failNext(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED);
        way(mutex);
        expectRecords({refused("MUTEX_ERROR_WAIT_FAILED"), kLockFailed, refused("MUTEX_ERROR_SIGNAL_FAILED"), kLockFailed},
                      capture);
    }
}

TEST_F(MutexTest, ScopedLocksSerialiseThreadsWithoutLosingAnUpdate)
{
    PAL::CMutex mutex("counter", false);
    unsigned int counter = 0;
    const int threads = 4, rounds = 5000;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                PAL::CMutex::CLock lock(mutex);
                ++counter;
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(static_cast<unsigned int>(threads * rounds), counter);
}

TEST(MutexResultStrMapTest, ElevenCodesMapToTheirTextsBothWays)
{
    const char* const texts[] = {"MUTEX_OK", "MUTEX_WOULD_BLOCK", "MUTEX_ERROR_INV_POINTER", "MUTEX_ERROR_INV_HANDLE",
                                 "MUTEX_ERROR_CREATE_FAILED", "MUTEX_ERROR_WAIT_FAILED", "MUTEX_ERROR_SIGNAL_FAILED",
                                 "MUTEX_ERROR_DEINIT_FAILED", "MUTEX_ERROR_RECURSIVE", "MUTEX_ERROR_INTERNAL",
                                 "MUTEX_ERROR_INV_VALUE"};
    for (int code = 0; code < 11; ++code) {
        SCOPED_TRACE(texts[code]);
        const eMorvex_PAL_MutexError value = static_cast<eMorvex_PAL_MutexError>(code);
        EXPECT_STREQ(texts[code], PAL::MutexResultStrMap::Map(value));
        EXPECT_EQ(value, PAL::MutexResultStrMap::Map(std::string(texts[code]).c_str())); // texts, not pointers
    }
}

TEST(MutexResultStrMapTest, UnknownCodesReadAsQuestionMarkAndUnknownTextsAsInternalError)
{
    for (const int code : {11, -1, 15, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(code);
        // Held in place and passed by reference: it lies outside the enumeration.
        eMorvex_PAL_MutexError unknown;
        std::memcpy(&unknown, &code, sizeof unknown);
        EXPECT_STREQ("?", PAL::MutexResultStrMap::Map(unknown));
    }
    // The comparison is exact and case-sensitive.
    for (const char* text : {"mutex_ok", "", static_cast<const char*>(nullptr), "MUTEX_OK ", "MUTEX_O", "?"}) {
        SCOPED_TRACE(text == nullptr ? "null" : text);
        EXPECT_EQ(MUTEX_ERROR_INTERNAL, PAL::MutexResultStrMap::Map(text));
    }
}

} // namespace
