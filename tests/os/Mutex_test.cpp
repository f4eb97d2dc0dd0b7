// Named mutexes, scoped locks, their trace records, and the result-code texts.

#include "os/Mutex.h"
#include "os/Semaphore.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using osal_kit_test::CapturedTrace;
using osal_kit_test::FaultGuard;
using osal_kit_test::TraceCapture;

const char* const kMutexPath = "os/private/Mutex.cpp";
const char* const kName = "jobs";

// What a test expects of one record; the source path and the file's trace id are the
// same for every record of the mutex.
struct Expected {
    int level;
    const char* format; // nullptr: a trace point without values
    std::vector<std::string> values;
};

void expectRecords(const std::vector<Expected>& expected, const std::vector<CapturedTrace>& records)
{
    ASSERT_EQ(expected.size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE("record " + std::to_string(i));
        const CapturedTrace& record = records[i];
        EXPECT_EQ(expected[i].level, record.level);
        EXPECT_EQ("OSAL_KIT", record.component);
        EXPECT_EQ(0, record.reserved);
        EXPECT_EQ(kMutexPath, record.sourcePath);
        EXPECT_EQ(32u, record.traceId.size());
        EXPECT_EQ(std::string::npos, record.traceId.find_first_not_of("0123456789ABCDEF"));
        EXPECT_EQ(records[0].traceId, record.traceId);
        EXPECT_GT(record.line, 0);
        EXPECT_EQ(expected[i].format != nullptr, record.hasFormat);
        if (expected[i].format != nullptr) {
            EXPECT_EQ(expected[i].format, record.format);
        }
        EXPECT_EQ(expected[i].values, record.values);
    }
}

void failNext(eMorvex_FaultFunction function, int code, unsigned int count = 1)
{
    Morvex_Fault_ArmEx(function, code, 0, count, 1);
}

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

    FaultGuard faults;
};

TEST_F(MutexTest, LockAndUnlockSucceedWithoutTrace)
{
    TraceCapture capture;
    {
        PAL::CMutex mutex(kName, false);
        EXPECT_TRUE(mutex.Lock());
        EXPECT_TRUE(mutex.Unlock());
        EXPECT_TRUE(mutex.Lock());
        EXPECT_TRUE(mutex.Unlock());
    }
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MutexTest, ExtendedTraceIsNeverEnabled)
{
    PAL::CMutex plain(kName, false);
    PAL::CMutex locking(kName, true);
    EXPECT_FALSE(plain.isExtendedTraceEnabled());
    EXPECT_FALSE(locking.isExtendedTraceEnabled());
}

TEST_F(MutexTest, FailedCreationLeavesAMutexThatRefusesEverythingByName)
{
    const unsigned long long deInitsBefore = Morvex_Fault_Calls(MORVEX_FAULT_MutexDeInit);
    TraceCapture capture;
    {
        failNext(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED);
        PAL::CMutex mutex(kName, false);
        EXPECT_FALSE(mutex.Lock());
        EXPECT_FALSE(mutex.Unlock());
    }
    expectRecords({{3, "%s%s", {"MUTEX_ERROR_CREATE_FAILED", kName}},
                   {3, "%s", {kName}},
                   {3, "%s", {kName}}},
                  capture.records());
    EXPECT_EQ(deInitsBefore, Morvex_Fault_Calls(MORVEX_FAULT_MutexDeInit));
}

TEST_F(MutexTest, EachRefusalOfThePalCoreIsTracedWithItsTextAndTheName)
{
    struct Row {
        int line;
        eMorvex_FaultFunction function;
        eMorvex_PAL_MutexError code;
        bool (PAL::CMutex::*operation)();
    };
    const Row rows[] = {
        {__LINE__, MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED, &PAL::CMutex::Lock},
        {__LINE__, MORVEX_FAULT_MutexWait, MUTEX_ERROR_INV_VALUE, &PAL::CMutex::Lock},
        {__LINE__, MORVEX_FAULT_MutexSignal, MUTEX_ERROR_SIGNAL_FAILED, &PAL::CMutex::Unlock},
        {__LINE__, MORVEX_FAULT_MutexSignal, MUTEX_ERROR_INTERNAL, &PAL::CMutex::Unlock},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        PAL::CMutex mutex("Wächter", false);
        TraceCapture capture;
        failNext(row.function, row.code);
        EXPECT_FALSE((mutex.*row.operation)());
        expectRecords({{3, "%s%s", {PAL::MutexResultStrMap::Map(row.code), "Wächter"}}}, capture.records());
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
    std::thread other([&] { unlockedElsewhere = mutex.Unlock(); });
    other.join();
    EXPECT_FALSE(unlockedElsewhere);
    EXPECT_TRUE(mutex.Unlock());
    expectRecords({{3, "%s%s", {"MUTEX_ERROR_SIGNAL_FAILED", kName}},
                   {3, "%s%s", {"MUTEX_ERROR_RECURSIVE", kName}},
                   {3, "%s%s", {"MUTEX_ERROR_SIGNAL_FAILED", kName}}},
                  capture.records());
}

TEST_F(MutexTest, FailedDestructionIsTracedWithTheName)
{
    std::optional<PAL::CMutex> mutex;
    mutex.emplace(kName, false);
    sMorvex_PAL_Mutex* handle = handleOf(*mutex);
    TraceCapture capture;
    failNext(MORVEX_FAULT_MutexDeInit, MUTEX_ERROR_INV_HANDLE);
    mutex.reset();
    expectRecords({{3, "%s%s", {"MUTEX_ERROR_INV_HANDLE", kName}}}, capture.records());
    EXPECT_EQ(MUTEX_OK, Morvex_PAL_MutexDeInit(&handle));
}

TEST_F(MutexTest, DestroyingAMutexItsOwnerStillHoldsIsRefusedAndTraced)
{
    std::optional<PAL::CMutex> mutex;
    mutex.emplace(kName, false);
    ASSERT_TRUE(mutex->Lock());
    sMorvex_PAL_Mutex* handle = handleOf(*mutex);
    TraceCapture capture;
    mutex.reset();
    expectRecords({{3, "%s%s", {"MUTEX_ERROR_DEINIT_FAILED", kName}}}, capture.records());
    EXPECT_EQ(MUTEX_OK, Morvex_PAL_MutexSignal(handle));
    EXPECT_EQ(MUTEX_OK, Morvex_PAL_MutexDeInit(&handle));
}

TEST_F(MutexTest, LockOnDestructionTakesTheMutexBetweenTwoRecordsAndDestroysIt)
{
    TraceCapture capture;
    { PAL::CMutex mutex(kName, true); }
    const std::vector<CapturedTrace> records = capture.records();
    expectRecords({{0, nullptr, {}}, {0, nullptr, {}}}, records);
    ASSERT_EQ(2u, records.size());
    EXPECT_LT(records[0].line, records[1].line);
}

TEST_F(MutexTest, LockOnDestructionThatCannotLockStillDestroys)
{
    TraceCapture capture;
    {
        PAL::CMutex mutex(kName, true);
        failNext(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED);
    }
    expectRecords({{0, nullptr, {}}, {3, "%s%s", {"MUTEX_ERROR_WAIT_FAILED", kName}}, {0, nullptr, {}}},
                  capture.records());
}

TEST_F(MutexTest, LockOnDestructionReportsADestructionThatKeepsFailing)
{
    std::optional<PAL::CMutex> mutex;
    mutex.emplace(kName, true);
    sMorvex_PAL_Mutex* handle = handleOf(*mutex);
    TraceCapture capture;
    failNext(MORVEX_FAULT_MutexDeInit, MUTEX_ERROR_DEINIT_FAILED, 2);
    mutex.reset();
    expectRecords({{0, nullptr, {}}, {0, nullptr, {}}, {3, "%s%s", {"MUTEX_ERROR_DEINIT_FAILED", kName}}},
                  capture.records());
    // The destructor gave up its hold before its last attempt.
    EXPECT_EQ(MUTEX_OK, Morvex_PAL_MutexDeInit(&handle));
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
    expectRecords({{0, nullptr, {}}, {0, nullptr, {}}}, capture.records());
}

class MutexLockTest : public MutexTest {};

TEST_F(MutexLockTest, HoldsTheMutexForItsScopeWithoutTrace)
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
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(MutexLockTest, OnAMutexThatWasNeverMadeAddsAFailureRecordToEachRefusal)
{
    failNext(MORVEX_FAULT_MutexInit, MUTEX_ERROR_CREATE_FAILED);
    PAL::CMutex mutex(kName, false);
    TraceCapture capture;
    { PAL::CMutex::CLock lock(mutex); }
    expectRecords({{3, "%s", {kName}}, {4, nullptr, {}}, {3, "%s", {kName}}, {4, nullptr, {}}}, capture.records());
}

TEST_F(MutexLockTest, UnlocksEvenWhenTakingFailed)
{
    PAL::CMutex mutex(kName, false);
    TraceCapture capture;
    {
        failNext(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED);
        PAL::CMutex::CLock lock(mutex);
    }
    // The unlock of a mutex nobody holds is refused by the PAL core in turn.
    expectRecords({{3, "%s%s", {"MUTEX_ERROR_WAIT_FAILED", kName}},
                   {4, nullptr, {}},
                   {3, "%s%s", {"MUTEX_ERROR_SIGNAL_FAILED", kName}},
                   {4, nullptr, {}}},
                  capture.records());
}

TEST_F(MutexLockTest, StaticLockAndUnlockTraceFailuresLikeTheScopedLock)
{
    PAL::CMutex mutex(kName, false);
    TraceCapture capture;
    PAL::CMutex::CLock::Lock(mutex);
    PAL::CMutex::CLock::Unlock(mutex);
    EXPECT_TRUE(capture.records().empty());

    failNext(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED);
    PAL::CMutex::CLock::Lock(mutex);
    failNext(MORVEX_FAULT_MutexSignal, MUTEX_ERROR_SIGNAL_FAILED);
    PAL::CMutex::CLock::Unlock(mutex);
    expectRecords({{3, "%s%s", {"MUTEX_ERROR_WAIT_FAILED", kName}},
                   {4, nullptr, {}},
                   {3, "%s%s", {"MUTEX_ERROR_SIGNAL_FAILED", kName}},
                   {4, nullptr, {}}},
                  capture.records());
}

TEST_F(MutexLockTest, SerialisesThreadsWithoutLosingAnUpdate)
{
    PAL::CMutex mutex("counter", false);
    unsigned int counter = 0;
    const int threads = 4;
    const int rounds = 5000;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                PAL::CMutex::CLock lock(mutex);
                ++counter;
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(static_cast<unsigned int>(threads * rounds), counter);
}

TEST(MutexResultStrMapTest, TableHoldsTheElevenCodesInOrder)
{
    const char* const texts[] = {"MUTEX_OK",
                                 "MUTEX_WOULD_BLOCK",
                                 "MUTEX_ERROR_INV_POINTER",
                                 "MUTEX_ERROR_INV_HANDLE",
                                 "MUTEX_ERROR_CREATE_FAILED",
                                 "MUTEX_ERROR_WAIT_FAILED",
                                 "MUTEX_ERROR_SIGNAL_FAILED",
                                 "MUTEX_ERROR_DEINIT_FAILED",
                                 "MUTEX_ERROR_RECURSIVE",
                                 "MUTEX_ERROR_INTERNAL",
                                 "MUTEX_ERROR_INV_VALUE"};
    ASSERT_EQ(11u, sizeof PAL::MutexResultStrMap::MAP_TABLE / sizeof PAL::MutexResultStrMap::MAP_TABLE[0]);
    for (int code = 0; code < 11; ++code) {
        SCOPED_TRACE(texts[code]);
        EXPECT_EQ(code, PAL::MutexResultStrMap::MAP_TABLE[code].mCode);
        EXPECT_STREQ(texts[code], PAL::MutexResultStrMap::MAP_TABLE[code].mText);
        const eMorvex_PAL_MutexError value = static_cast<eMorvex_PAL_MutexError>(code);
        EXPECT_STREQ(texts[code], PAL::MutexResultStrMap::Map(value));
        EXPECT_EQ(value, PAL::MutexResultStrMap::Map(texts[code]));
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
    // Texts are compared, not pointers.
    const std::string copy = "MUTEX_ERROR_RECURSIVE";
    EXPECT_EQ(MUTEX_ERROR_RECURSIVE, PAL::MutexResultStrMap::Map(copy.c_str()));
}

} // namespace
