// Date, time and zone texts with each allocation, then each scan, failing in turn: a
// text that cannot be built is empty, never a wrong one; a text that cannot be read is
// refused and leaves the value as it was.

#include "core/DateAndTimeUtilities.h"

#include "support/AllocationSweep.h"

#include <gtest/gtest.h>

namespace {

using namespace PAL::DateAndTimeUtilities;

// Writes two texts and reads one with a fault armed by `arm(skip)`; a "+02:00" that
// could not be held must not read as UTC. Returns whether the text was read.
bool writeAndReadArmed(void (*arm)(unsigned int), unsigned int skip)
{
    const char* const text = "2024-05-17T10:20:30.250000+02:00";
    const PAL::CString input(text);
    const PAL::CDateAndTime when(PAL::CDateAndTime::SDate(2024, 5, 17), PAL::CDateAndTime::STime(10, 20, 30, 250000), 0);
    const STimeZoneOffset plus2(2, 0), minus(-3, 30);
    PAL::CDateAndTime dt(12345);
    STimeZoneOffset zone;
    arm(skip);
    const PAL::CString written = ToString(when, eFormatISO8601, eWithFraction, plus2), zoneText = minus.ToString();
    const bool accepted = FromString(dt, input, eFormatISO8601, &zone);
    Morvex_Fault_DisarmAll();
    EXPECT_TRUE((written.isEmpty() || written == text) && (zoneText.isEmpty() || zoneText == "-03:30"));
    EXPECT_TRUE(dt.getMicroseconds() == (accepted ? when.getMicroseconds() : 12345u) && (!accepted || zone == plus2));
    return accepted;
}

TEST(DateTextSweep, TextsAreCompleteOrRefusedWhateverFails)
{
    osal_kit_test::sweepAllocations(osal_kit_test::AllocationScenario{
        __LINE__, "texts", [](unsigned int skip) { writeAndReadArmed(osal_kit_test::failAllocationAfter, skip); }});
    osal_kit_test::FaultGuard faults;
    const auto failScanAfter = [](unsigned int skip) { Morvex_Fault_ArmEx(MORVEX_FAULT_sscanf, -1, skip, 1, 1); };
    for (unsigned int skip = 0; skip < 8; ++skip) // one scan per field of the text
        EXPECT_FALSE(writeAndReadArmed(failScanAfter, skip)) << skip;
    EXPECT_TRUE(writeAndReadArmed(failScanAfter, 8));
}

} // namespace
