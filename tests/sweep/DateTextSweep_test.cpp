// Date, time and zone texts with each allocation, then each scan, failing in turn: a
// text that cannot be built is empty, never a wrong one; a text that cannot be read is
// refused and leaves the value as it was.

#include "core/DateAndTimeUtilities.h"

#include "support/AllocationSweep.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace PAL::DateAndTimeUtilities;
using PAL::CDateAndTime;
using PAL::CString;
using osal_kit_test::failAllocationAfter;

const char* const TEXT = "2024-05-17T10:20:30.250000+02:00";
const CDateAndTime WHEN(CDateAndTime::SDate(2024, 5, 17), CDateAndTime::STime(10, 20, 30, 250000), 0);

// Reads TEXT with a fault armed by `arm(skip)`: the value and its zone, or a refusal that
// leaves the value alone. A "+02:00" that could not be held must not read as UTC.
bool readArmed(void (*arm)(unsigned int), unsigned int skip)
{
    const CString input(TEXT);
    CDateAndTime dt(12345);
    STimeZoneOffset zone;
    arm(skip);
    const bool accepted = FromString(dt, input, eFormatISO8601, &zone);
    Morvex_Fault_DisarmAll();
    EXPECT_EQ(accepted ? WHEN.getMicroseconds() : 12345u, dt.getMicroseconds());
    EXPECT_TRUE(!accepted || zone == STimeZoneOffset(2, 0));
    return accepted;
}

TEST(DateTextSweep, TextsAreCompleteOrRefused)
{
    const std::vector<osal_kit_test::AllocationScenario> scenarios{
        {__LINE__, "written", [](unsigned int skip) {
             const STimeZoneOffset zone(-3, 30);
             failAllocationAfter(skip);
             const CString texts[] = {ToString(WHEN, eFormatISO8601, eWithFraction, STimeZoneOffset(2, 0)),
                                      ToString(WHEN, eFormatSpaceSeparated, 0, zone), zone.ToString()};
             Morvex_Fault_DisarmAll();
             const char* const expected[] = {TEXT, "2024-05-17 10:20:30", "-03:30"};
             for (int i = 0; i < 3; ++i)
                 EXPECT_TRUE(texts[i].isEmpty() || texts[i] == expected[i]) << texts[i].getBuffer();
         }},
        {__LINE__, "read", [](unsigned int skip) { readArmed(failAllocationAfter, skip); }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

void failScanAfter(unsigned int skip)
{
    Morvex_Fault_ArmEx(MORVEX_FAULT_sscanf, -1, skip, 1, 1);
}

TEST(DateTextSweep, EachOfTheEightScansFailingRefusesTheText)
{
    osal_kit_test::FaultGuard faults;
    for (unsigned int skip = 0; skip < 8; ++skip)
        EXPECT_FALSE(readArmed(failScanAfter, skip)) << skip;
    EXPECT_TRUE(readArmed(failScanAfter, 8));
}

} // namespace
