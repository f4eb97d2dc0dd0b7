// Allocation attribution, raw memory forwarding, counters and the trace convention.

#include "os/pal_wrapper.h"
#include "os/private/pal_trace.h"

#include "support/AllocationBalance.h"
#include "support/TraceCapture.h"

#include "morvex_pal_memory.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <thread>
#include <vector>

namespace {

using osal_kit_test::FaultGuard;
using osal_kit_test::failNext;

const char* const kWrapperPath = "os/private/pal_wrapper.cpp";

// Under a sanitizer the runtime's own global operator new serves the rest of the
// process (the library still binds its own internally), so tests that call the
// global operators directly only run where the library's are the process's.
bool processUsesLibraryNew()
{
    void* p = ::operator new(1);
    sMorvex_PAL_AllocInfo info;
    const bool tracked = Morvex_PAL_AllocLookup(p, &info) == 0;
    ::operator delete(p);
    return tracked;
}

sMorvex_PAL_AllocInfo lookup(const void* p)
{
    sMorvex_PAL_AllocInfo info{};
    EXPECT_EQ(0, Morvex_PAL_AllocLookup(p, &info));
    return info;
}

const struct EntryPoint {
    int line;
    const char* label;
    void* (*allocate)(std::size_t);
    void (*release)(void*);
} kEntryPoints[] = {
    {__LINE__, "new", [](std::size_t n) { return ::operator new(n); }, [](void* p) { ::operator delete(p); }},
    {__LINE__, "new", [](std::size_t n) { return ::operator new(n, std::nothrow); }, [](void* p) { ::operator delete(p); }},
    {__LINE__, "new[]", [](std::size_t n) { return ::operator new[](n); }, [](void* p) { ::operator delete[](p); }},
    {__LINE__, "new[](std::nothrow_t)", [](std::size_t n) { return ::operator new[](n, std::nothrow); },
     [](void* p) { ::operator delete[](p); }},
};

class MemoryTest : public ::testing::Test {
protected:
    FaultGuard faults;
};

TEST_F(MemoryTest, AllocAttributesToOsalKitAndReleaseFreesWhateverSizeIsGiven)
{
    osal_kit_test::AllocationBalance balance("osal_kit", "Memory::alloc");
    void* p = PAL::Memory::alloc(24);
    ASSERT_NE(nullptr, p);
    const sMorvex_PAL_AllocInfo info = lookup(p);
    EXPECT_STREQ("osal_kit", info.component);
    EXPECT_STREQ("Memory::alloc", info.label);
    EXPECT_STREQ(kWrapperPath, info.sourcePath);
    EXPECT_GT(info.line, 0);
    EXPECT_EQ(24u, info.size);
    EXPECT_EQ(1, balance.liveBlocksDelta());
    PAL::Memory::release(p, 0xFFFFFFFFu);
    EXPECT_EQ(0, balance.liveBlocksDelta());
    PAL::Memory::release(nullptr, 5);
}

TEST_F(MemoryTest, EveryEntryPointAttributesWithItsOwnLabelAndYieldsNullWithoutMemory)
{
    failNext(MORVEX_FAULT_zmalloc, 0);
    EXPECT_EQ(nullptr, PAL::Memory::alloc(8));
    if (!processUsesLibraryNew()) {
        GTEST_SKIP() << "a sanitizer runtime owns the process's global operator new";
    }
    std::vector<int> lines;
    for (const EntryPoint& entry : kEntryPoints) {
        SCOPED_TRACE(entry.line);
        void* p = entry.allocate(16);
        ASSERT_NE(nullptr, p);
        const sMorvex_PAL_AllocInfo info = lookup(p);
        EXPECT_STREQ("osal_kit", info.component);
        EXPECT_STREQ(entry.label, info.label);
        EXPECT_STREQ(kWrapperPath, info.sourcePath);
        lines.push_back(info.line);
        entry.release(p);
        failNext(MORVEX_FAULT_zmalloc, 0);
        EXPECT_EQ(nullptr, entry.allocate(8));
    }
    // The nothrow form of new is plain new; the array forms are entry points of their own.
    EXPECT_EQ(lines[0], lines[1]);
    EXPECT_NE(lines[0], lines[2]);
    EXPECT_NE(lines[2], lines[3]);
}

TEST_F(MemoryTest, RequestsBeyondThirtyTwoBitsFailInsteadOfShrinking)
{
    if (sizeof(std::size_t) <= sizeof(unsigned int) || !processUsesLibraryNew()) {
        GTEST_SKIP() << "only a 64-bit process using the library's operator new can ask for that much";
    }
    const std::size_t huge = static_cast<std::size_t>(UINT_MAX) + 17u;
    EXPECT_EQ(nullptr, ::operator new(huge, std::nothrow));
    EXPECT_EQ(nullptr, ::operator new[](huge, std::nothrow));
}

TEST_F(MemoryTest, RawMemoryFunctionsForwardToThePalCore)
{
    const char a[] = "abcd";
    const char b[] = "abce";
    EXPECT_EQ(0, PAL::Memory::memcmp(a, b, 3));
    EXPECT_LT(PAL::Memory::memcmp(a, b, 4), 0);
    char target[5] = {};
    EXPECT_EQ(target, PAL::Memory::memcpy(target, a, 5));
    EXPECT_STREQ("abcd", target);
    failNext(MORVEX_FAULT_memcmp, 42); // whatever the PAL core answers is the answer
    EXPECT_EQ(42, PAL::Memory::memcmp(a, a, 4));
}

TEST(AtomicTest, CountersWrapUpwardsAndStopAtZeroDownwards)
{
    const struct {
        int line;
        bool increment;
        unsigned int before, after;
        bool stillReferenced;
    } rows[] = {
        {__LINE__, false, 1u, 0u, false}, {__LINE__, false, 2u, 1u, true},
        {__LINE__, false, 0u, 0u, false}, {__LINE__, false, UINT_MAX, UINT_MAX - 1u, true},
        {__LINE__, true, UINT_MAX, 0u, false}, {__LINE__, true, 0u, 1u, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        unsigned int value = row.before;
        if (row.increment) {
            PAL::Atomic::increment(value);
        } else {
            EXPECT_EQ(row.stillReferenced, PAL::Atomic::testDecrement(value));
        }
        EXPECT_EQ(row.after, value);
    }
    EXPECT_NE(nullptr, PAL::Atomic::spAtomicMutex);
}

TEST(AtomicTest, ConcurrentCountingLosesNothing)
{
    unsigned int counter = 1;
    const int threads = 4, rounds = 20000;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&counter] {
            for (int i = 0; i < rounds; ++i) {
                PAL::Atomic::increment(counter);
                PAL::Atomic::increment(counter);
                PAL::Atomic::testDecrement(counter);
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(1u + threads * rounds, counter);
}

TEST(AtomicTest, FailingPalMutexCallsAreIgnored)
{
    FaultGuard faults;
    unsigned int value = 5;
    failNext(MORVEX_FAULT_MutexWait, MUTEX_ERROR_WAIT_FAILED);
    failNext(MORVEX_FAULT_MutexSignal, MUTEX_ERROR_SIGNAL_FAILED);
    PAL::Atomic::increment(value);
    EXPECT_EQ(6u, value);
    // The failed wait left the mutex unowned, the failed signal left it so: the next
    // operation takes and releases it normally.
    EXPECT_TRUE(PAL::Atomic::testDecrement(value));
    EXPECT_EQ(5u, value);
}

// Trace points of this file.
static const char* const sTraceId = "0123456789ABCDEF0123456789ABCDEF";

TEST(TraceTest, RecordsCarryTheConventionAndValuesButNoText)
{
    osal_kit_test::TraceCapture capture;
    const int withValues = __LINE__ + 1;
    OSAL_KIT_TRACE(3, "%s%u%s", "MUTEX_ERROR_INTERNAL", 7u, "name");
    const int withoutValues = __LINE__ + 1;
    OSAL_KIT_TRACE0(0);

    const std::vector<osal_kit_test::CapturedTrace> records = capture.records();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(3, records[0].level);
    EXPECT_EQ("OSAL_KIT", records[0].component);
    EXPECT_EQ(0, records[0].reserved);
    EXPECT_EQ("tests/os/pal_wrapper_test.cpp", records[0].sourcePath);
    EXPECT_EQ(sTraceId, records[0].traceId);
    EXPECT_EQ(withValues, records[0].line);
    EXPECT_TRUE(records[0].hasFormat);
    EXPECT_EQ("%s%u%s", records[0].format);
    EXPECT_EQ((std::vector<std::string>{"MUTEX_ERROR_INTERNAL", "7", "name"}), records[0].values);
    EXPECT_EQ(0, records[1].level);
    EXPECT_EQ(withoutValues, records[1].line);
    EXPECT_FALSE(records[1].hasFormat);
    EXPECT_TRUE(records[1].values.empty());
}

} // namespace
