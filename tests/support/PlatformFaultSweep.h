// Drives a scenario through a failure of one platform function at each of its calls in
// turn: the first call fails, then (in a fresh run) the second, and so on until every
// call the scenario makes has failed once. Each run must leave the library's
// allocations as it found them; a run that hangs is ended by the test runner's timeout.
#ifndef OSAL_KIT_TEST_SUPPORT_PLATFORMFAULTSWEEP_H
#define OSAL_KIT_TEST_SUPPORT_PLATFORMFAULTSWEEP_H

#include "support/AllocationSweep.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace osal_kit_test {

// One platform function and the code its injected failure returns.
struct PalFault {
    eMorvex_FaultFunction function;
    const char* name;
    int code;
};
#define OSAL_KIT_PAL_FAULT(function, code) ::osal_kit_test::PalFault{MORVEX_FAULT_##function, #function, code}

// One run of a scenario. The scenario does its set-up, calls arm(), runs the
// operations under test, each through step(), and calls disarm() before it checks
// anything; between arm() and disarm() the test's own code must not allocate on an
// armed thread (the process's operator new fails as well).
class FaultRun {
public:
    FaultRun(const PalFault& fault, long long failingCall, bool anyThread)
        : fault_(fault), failingCall_(failingCall), anyThread_(anyThread)
    {
    }

    void arm()
    {
        calls_ = Morvex_Fault_Calls(fault_.function);
        injected_ = Morvex_Fault_Injected(fault_.function);
        if (failingCall_ >= 0)
            Morvex_Fault_ArmEx(fault_.function, fault_.code, static_cast<unsigned int>(failingCall_), 1,
                               anyThread_ ? 0 : 1);
    }
    void disarm()
    {
        Morvex_Fault_Disarm(fault_.function);
        calls_ = Morvex_Fault_Calls(fault_.function) - calls_;
    }

    // Runs one operation and remembers it if the failure was injected while it ran.
    template <typename Operation>
    auto step(const char* name, Operation operation) -> decltype(operation())
    {
        const unsigned long long before = Morvex_Fault_Injected(fault_.function);
        struct Note {
            FaultRun& run;
            const char* name;
            unsigned long long before;
            ~Note()
            {
                if (run.failedStep_ == nullptr && Morvex_Fault_Injected(run.fault_.function) != before)
                    run.failedStep_ = name;
            }
        } note{*this, name, before};
        return operation();
    }

    const PalFault& fault() const { return fault_; }
    bool injected() const { return Morvex_Fault_Injected(fault_.function) != injected_; }
    bool failedIn(const char* step) const { return failedStep_ != nullptr && std::strcmp(failedStep_, step) == 0; }
    unsigned long long callsWhileArmed() const { return calls_; }

private:
    const PalFault fault_;
    const long long failingCall_;
    const bool anyThread_;
    unsigned long long calls_ = 0;
    unsigned long long injected_ = 0;
    const char* failedStep_ = nullptr;
};

// Whether `text` matches `pattern`, in which each '*' stands for any run of characters.
inline bool matchesPattern(const char* text, const char* pattern)
{
    if (*pattern == '\0')
        return *text == '\0';
    if (*pattern == '*')
        return matchesPattern(text, pattern + 1) || (*text != '\0' && matchesPattern(text + 1, pattern));
    return *text == *pattern && matchesPattern(text + 1, pattern + 1);
}

// A documented outcome of one platform failure in one step (a text it reports or a trace
// record it leaves), and whether a sweep met it.
struct ExpectedOutcome {
    int line;
    eMorvex_FaultFunction function;
    const char* step;
    const char* outcome;  // a pattern (see matchesPattern) of what the step reports
    bool seen;
};

// Marks each row whose function failed in its step of `run` and whose pattern matches
// `report`, something the run reported (in whichever step).
template <std::size_t N>
void noteOutcome(std::array<ExpectedOutcome, N>& rows, const FaultRun& run, const char* report)
{
    for (ExpectedOutcome& row : rows) {
        if (row.function == run.fault().function && run.failedIn(row.step) && matchesPattern(report, row.outcome))
            row.seen = true;
    }
}

// Fails for each row of `function` that no run met.
template <std::size_t N>
void expectRowsSeen(const std::array<ExpectedOutcome, N>& rows, eMorvex_FaultFunction function)
{
    for (const ExpectedOutcome& row : rows) {
        EXPECT_TRUE(row.function != function || row.seen)
            << "the failure never gave the outcome of the row of line " << row.line << " in " << row.step;
    }
}

// Runs `scenario(FaultRun&)` once clean to count the calls of `fault.function` between
// its arm() and disarm(), then once per call with that call failing: on the calling
// thread only, or (`anyThread`) on whichever thread makes it. Returns the number of
// runs that met the failure.
template <typename Scenario>
unsigned int sweepPlatformFault(const PalFault& fault, Scenario scenario, bool anyThread)
{
    FaultGuard faults;
    unsigned long long calls = 0;
    {
        FaultRun clean(fault, -1, anyThread);
        scenario(clean);
        calls = clean.callsWhileArmed();
    }
    unsigned int failedRuns = 0;
    const ::testing::TestResult* result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
    const int partsBefore = result->total_part_count();
    for (unsigned long long n = 0; n < calls && result->total_part_count() == partsBefore; ++n) {
        SCOPED_TRACE(std::string(fault.name) + " failing at call " + std::to_string(n));
        LiveCounts live;
        {
            FaultRun run(fault, static_cast<long long>(n), anyThread);
            scenario(run);
            Morvex_Fault_DisarmAll();
            failedRuns += run.injected() ? 1u : 0u;
        }
        live.expectUnchanged();
    }
    ::testing::Test::RecordProperty(std::string(fault.name) + (anyThread ? ".anyThread" : ".callingThread"),
                                    std::to_string(failedRuns) + " failed of " + std::to_string(calls) + " calls");
    return failedRuns;
}

} // namespace osal_kit_test

#endif
