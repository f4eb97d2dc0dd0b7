// Allocation attribution, raw memory forwarding and the counters.

#include "os/pal_wrapper.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using osal_kit_test::failNext;

TEST(MemoryTest, EveryEntryPointAttributesItsBlockToOsalKitAndYieldsNullWithoutMemory)
{
    osal_kit_test::FaultGuard faults;
    typedef void* (*Allocate)(std::size_t);
    const std::pair<const char*, Allocate> rows[] = {
        {"Memory::alloc", [](std::size_t n) { return PAL::Memory::alloc(static_cast<unsigned int>(n)); }},
        {"new", [](std::size_t n) { return ::operator new(n); }},
        {"new", [](std::size_t n) { return ::operator new(n, std::nothrow); }},
        {"new[]", [](std::size_t n) { return ::operator new[](n); }},
        {"new[](std::nothrow_t)", [](std::size_t n) { return ::operator new[](n, std::nothrow); }},
    };
    std::set<int> lines;
    for (const auto& [label, allocate] : rows) {
        SCOPED_TRACE(label);
        void* p = allocate(24);
        sMorvex_PAL_AllocInfo info{};
        // Under a sanitizer its runtime's global operator new serves the test code.
        if (Morvex_PAL_AllocLookup(p, &info) != 0 && label != rows[0].first) {
            ::operator delete(p);
            continue;
        }
        EXPECT_EQ((std::vector<std::string>{"osal_kit", label, "os/private/pal_wrapper.cpp", "24"}),
                  (std::vector<std::string>{info.component, info.label, info.sourcePath, std::to_string(info.size)}));
        lines.insert(info.line);
        PAL::Memory::release(p, 0xFFFFFFFFu); // frees the block of any entry point, whatever the size
        EXPECT_NE(0, Morvex_PAL_AllocLookup(p, &info));
        failNext(MORVEX_FAULT_zmalloc, 0);
        EXPECT_EQ(nullptr, allocate(8));
        const bool wide = sizeof(std::size_t) > sizeof(unsigned int) && label != rows[0].first;
        EXPECT_EQ(nullptr, wide ? allocate(std::size_t(UINT_MAX) + 17u) : nullptr) << "refused, not cut to 32 bits";
    }
    EXPECT_TRUE(lines.size() == 1 || lines.size() == 4) << "each entry point passes its own line; nothrow new is new";
    PAL::Memory::release(nullptr, 5);
    const char a[] = "abcd", b[] = "abce";
    char target[5] = {};
    EXPECT_EQ(target, PAL::Memory::memcpy(target, a, 5));
    EXPECT_EQ(0, PAL::Memory::memcmp(a, b, 3) + PAL::Memory::memcmp(a, target, 5));
    EXPECT_LT(PAL::Memory::memcmp(a, b, 4), 0);
    failNext(MORVEX_FAULT_memcmp, 42); // whatever the PAL core answers is the answer
    EXPECT_EQ(42, PAL::Memory::memcmp(a, a, 4));
}

// A failure of the counter mutex is ignored, and the next operation takes it normally.
TEST(AtomicTest, CountersWrapUpwardsStopAtZeroDownwardsAndLoseNothingBetweenThreads)
{
    osal_kit_test::FaultGuard faults;
    const struct {
        int line;
        unsigned int before, after;
        int result; // of testDecrement; -1: increment
        eMorvex_FaultFunction fault;
    } rows[] = {
        {__LINE__, 1u, 0u, false, MORVEX_FAULT_COUNT}, // COUNT: nothing fails
        {__LINE__, 2u, 1u, true, MORVEX_FAULT_MutexWait},
        {__LINE__, 0u, 0u, false, MORVEX_FAULT_MutexSignal},
        {__LINE__, UINT_MAX, UINT_MAX - 1u, true, MORVEX_FAULT_COUNT},
        {__LINE__, UINT_MAX, 0u, -1, MORVEX_FAULT_MutexWait},
        {__LINE__, 0u, 1u, -1, MORVEX_FAULT_MutexSignal},
    };
    for (const auto& row : rows) {
        unsigned int value = row.before;
        failNext(row.fault, row.fault == MORVEX_FAULT_MutexWait ? MUTEX_ERROR_WAIT_FAILED : MUTEX_ERROR_SIGNAL_FAILED);
        const int result = row.result < 0 ? (PAL::Atomic::increment(value), -1) : PAL::Atomic::testDecrement(value);
        EXPECT_EQ(row.result, result) << "row of line " << row.line;
        EXPECT_EQ(row.after, value);
        EXPECT_EQ(row.after, PAL::Atomic::peek(value));
    }
    EXPECT_NE(nullptr, PAL::Atomic::spAtomicMutex);
    unsigned int counter = 1;
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&counter] {
            for (int i = 0; i < 20000; ++i)
                PAL::Atomic::increment(counter), PAL::Atomic::increment(counter), PAL::Atomic::testDecrement(counter);
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(1u + 4 * 20000, counter);
}

} // namespace
