// Runs scenarios with their first, second, third, ... allocation failing until one
// completes without a failure. Vector storage, which comes from malloc rather than the
// tracked allocator, takes its turn in the same sequence.
#ifndef OSAL_KIT_TEST_SUPPORT_ALLOCATIONSWEEP_H
#define OSAL_KIT_TEST_SUPPORT_ALLOCATIONSWEEP_H

#include "core/VectorBase.h"

#include "support/AllocationBalance.h"

#include "morvex_pal_fault.h"
#include "morvex_pal_memory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

namespace osal_kit_test {

// A snapshot of every label the library allocates under, and of all of them together.
class LiveCounts {
public:
    // Adds a failure naming each label whose live blocks or bytes moved.
    void expectUnchanged() const
    {
        for (int i = 0; i < 5; ++i) {
            const char* name = kLabels[i] != nullptr ? kLabels[i] : "all labels";
            EXPECT_EQ(0, counts_[i].liveBlocksDelta()) << "live blocks of " << name;
            EXPECT_EQ(0, counts_[i].liveBytesDelta()) << "live bytes of " << name;
        }
    }

private:
    static constexpr const char* kLabels[5] = {nullptr, "new", "new[]", "new[](std::nothrow_t)", "Memory::alloc"};
    AllocationBalance counts_[5] = {AllocationBalance("osal_kit", kLabels[0]), AllocationBalance("osal_kit", kLabels[1]),
                                    AllocationBalance("osal_kit", kLabels[2]), AllocationBalance("osal_kit", kLabels[3]),
                                    AllocationBalance("osal_kit", kLabels[4])};
};

// While it lives, every vector storage request first asks the tracked allocator for a
// probe block (under its own component, so the library's counts do not see it): an
// armed allocation failure then fails the vector's request as well.
class VectorStorageInSequence {
public:
    VectorStorageInSequence() : previous_(PAL::CVectorBase::setMallocFunction(&allocate)) {}
    ~VectorStorageInSequence() { PAL::CVectorBase::setMallocFunction(previous_); }
    VectorStorageInSequence(const VectorStorageInSequence&) = delete;
    VectorStorageInSequence& operator=(const VectorStorageInSequence&) = delete;

private:
    static void* allocate(std::size_t size)
    {
        void* probe = Morvex_PAL_zmalloc(1, "osal_kit_test", "vector storage", __FILE__, __LINE__);
        if (probe == nullptr)
            return nullptr;
        Morvex_PAL_zfree(probe, __FILE__, __LINE__);
        return std::malloc(size);
    }

    PAL::CVectorBase::MallocFunction previous_;
};

// One scenario: `run(skip)` does its set-up, arms the failure with
// failAllocationAfter(skip), runs the operations under test, disarms with
// Morvex_Fault_DisarmAll() and checks the documented outcome. While armed, the test's
// own code must not allocate (the process's operator new fails as well).
struct AllocationScenario {
    int line;
    const char* name;
    std::function<void(unsigned int skip)> run;
};

// Sweeps one scenario: each run must leave the library's live allocations, by label,
// where they were. Returns the number of runs that met a failure.
inline unsigned int sweepAllocations(const AllocationScenario& scenario)
{
    SCOPED_TRACE(::testing::Message() << scenario.name << " (line " << scenario.line << ")");
    FaultGuard faults;
    VectorStorageInSequence vectors;
    const ::testing::TestResult* result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
    const int partsBefore = result->total_part_count();
    unsigned int failedRuns = 0;
    for (unsigned int skip = 0; result->total_part_count() == partsBefore; ++skip) {
        SCOPED_TRACE(::testing::Message() << "allocation " << skip << " fails");
        const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_zmalloc);
        {
            LiveCounts live;
            scenario.run(skip);
            Morvex_Fault_DisarmAll();
            live.expectUnchanged();
        }
        if (Morvex_Fault_Injected(MORVEX_FAULT_zmalloc) == injected)
            break;
        ++failedRuns;
    }
    EXPECT_GT(failedRuns, 0u) << "the scenario allocates nothing";
    ::testing::Test::RecordProperty(scenario.name, static_cast<int>(failedRuns));
    return failedRuns;
}

template <typename Scenarios>
void sweepAllocations(const Scenarios& scenarios)
{
    for (const AllocationScenario& scenario : scenarios)
        sweepAllocations(scenario);
}

} // namespace osal_kit_test

#endif
