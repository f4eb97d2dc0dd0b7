// Allocation attribution, raw memory forwarding and the counters.

#include "os/pal_wrapper.h"

#include "support/AllocationBalance.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <set>
#include <string>
#include <tuple>

// Declared here too: Clang leaves the sized forms undeclared unless sized deallocation is on.
void operator delete(void* p, std::size_t size) noexcept;
void operator delete[](void* p, std::size_t size) noexcept;

namespace {

using osal_kit_test::failNext;

// Each entry point attributes its block to "osal_kit" with its own label and line (the
// nothrow form of new is plain new), yields null without memory and refuses what 32 bits
// cannot count; every form of release frees through the PAL core whatever the size given.
TEST(MemoryTest, EveryEntryPointAttributesItsBlockToOsalKitAndYieldsNullWithoutMemory)
{
    osal_kit_test::FaultGuard faults;
    using Allocate = void* (*)(std::size_t);
    using Free = void (*)(void*);
    const std::tuple<std::string, Allocate, Free> rows[] = {
        {"Memory::alloc", [](std::size_t n) { return PAL::Memory::alloc(static_cast<unsigned int>(n)); },
         [](void* p) { PAL::Memory::release(p, 0xFFFFFFFFu); }},
        {"new", [](std::size_t n) { return ::operator new(n); }, [](void* p) { ::operator delete(p, std::size_t(3)); }},
        {"new", [](std::size_t n) { return ::operator new(n, std::nothrow); }, [](void* p) { ::operator delete(p, std::nothrow); }},
        {"new[]", [](std::size_t n) { return ::operator new[](n); }, [](void* p) { ::operator delete[](p, std::size_t(3)); }},
        {"new[](std::nothrow_t)", [](std::size_t n) { return ::operator new[](n, std::nothrow); },
         [](void* p) { ::operator delete[](p, std::nothrow); }},
    };
    std::set<int> lines;
    for (const auto& [label, allocate, free] : rows) {
        sMorvex_PAL_AllocInfo info{};
        void* p = allocate(24);
        if (Morvex_PAL_AllocLookup(p, &info) != 0 && label != "Memory::alloc") {
            label[3] == '[' ? ::operator delete[](p) : ::operator delete(p); // a sanitizer's runtime serves the test's new
            continue;
        }
        EXPECT_EQ("osal_kit " + label + " os/private/pal_wrapper.cpp 24",
                  std::string(info.component) + " " + info.label + " " + info.sourcePath + " " + std::to_string(info.size));
        lines.insert(info.line);
        free(p);
        EXPECT_NE(0, Morvex_PAL_AllocLookup(p, &info)) << label;
        failNext(MORVEX_FAULT_zmalloc, 0);
        EXPECT_EQ(nullptr, allocate(8)) << label;
        if (sizeof(std::size_t) > sizeof(unsigned int) && label != "Memory::alloc") {
            EXPECT_EQ(nullptr, allocate(std::size_t(UINT_MAX) + 17u)) << label << " of more than 32 bits";
        }
    }
    EXPECT_TRUE(lines.size() == 1 || lines.size() == 4);
    PAL::Memory::release(nullptr, 5);
    const char a[] = "abcd", b[] = "abce";
    char target[5] = {};
    EXPECT_EQ(target, PAL::Memory::memcpy(target, a, 5));
    EXPECT_EQ(0, PAL::Memory::memcmp(a, b, 3) + PAL::Memory::memcmp(a, target, 5));
    EXPECT_LT(PAL::Memory::memcmp(a, b, 4), 0);
}

// A failure of the counter mutex (the row's fault, COUNT: none) is ignored, and the next
// operation takes it normally.
TEST(AtomicTest, CountersWrapUpwardsAndStopAtZeroDownwards)
{
    osal_kit_test::FaultGuard faults;
    const struct { int line; unsigned int before, after; int result; eMorvex_FaultFunction fault; } rows[] = {
        {__LINE__, 1u, 0u, false, MORVEX_FAULT_COUNT}, // result: testDecrement's, or -1 for increment
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
        EXPECT_EQ(std::pair(row.result, row.after), std::pair(result, PAL::Atomic::peek(value))) << row.line;
    }
}

} // namespace
