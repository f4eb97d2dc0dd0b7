// Date, time and zone texts with each allocation failing in turn: a text that cannot
// be built is empty, never a wrong one; a text that cannot be read is refused and
// leaves the value (and a zone not yet read) as it was.

#include "core/DateAndTimeUtilities.h"

#include "support/AllocationSweep.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using osal_kit_test::AllocationScenario;
using osal_kit_test::failAllocationAfter;
using PAL::CDateAndTime;
using PAL::CString;
using PAL::DateAndTimeUtilities::STimeZoneOffset;
using namespace PAL::DateAndTimeUtilities;

const CDateAndTime WHEN(CDateAndTime::SDate(2024, 5, 17), CDateAndTime::STime(10, 20, 30, 250000), 0);
const CDateAndTime UNCHANGED(12345);

// Writes `dt` in `format`: the complete text or nothing.
AllocationScenario written(int line, const char* name, eDateTimeFormat format, unsigned int options,
                           const char* expected)
{
    return {line, name, [format, options, expected](unsigned int skip) {
                const STimeZoneOffset zone(2, 0);
                failAllocationAfter(skip);
                const CString text = ToString(WHEN, format, options, zone);
                Morvex_Fault_DisarmAll();
                EXPECT_TRUE(text.isEmpty() || std::string(text.getBuffer()) == expected) << text.getBuffer();
            }};
}

// Reads `text`: the right value and zone, or a refusal that leaves the value alone.
// A "+02:00" that cannot be held must not read as the empty zone, UTC.
AllocationScenario read(int line, const char* name, const char* text, eDateTimeFormat format,
                        unsigned long long expected, bool zoned)
{
    return {line, name, [text, format, expected, zoned](unsigned int skip) {
                const CString input(text);
                CDateAndTime dt = UNCHANGED;
                STimeZoneOffset zone;
                failAllocationAfter(skip);
                const bool accepted = FromString(dt, input, format, &zone);
                Morvex_Fault_DisarmAll();
                if (accepted) {
                    EXPECT_EQ(expected, dt.getMicroseconds());
                    EXPECT_TRUE(zone == STimeZoneOffset(2, 0) || !zoned);
                } else {
                    EXPECT_EQ(UNCHANGED.getMicroseconds(), dt.getMicroseconds());
                }
            }};
}

TEST(DateTextSweep, TextsAreCompleteOrRefused)
{
    const unsigned long long atTen = WHEN.getMicroseconds() - 250000;  // the written time; the zone comes apart
    const std::vector<AllocationScenario> scenarios{
        written(__LINE__, "ISO 8601 with fraction", eFormatISO8601, eWithFraction,
                "2024-05-17T10:20:30.250000+02:00"),
        written(__LINE__, "space separated", eFormatSpaceSeparated, 0, "2024-05-17 10:20:30"),
        read(__LINE__, "ISO 8601 with zone", "2024-05-17T10:20:30+02:00", eFormatISO8601, atTen, true),
        {__LINE__, "zone offset text", [](unsigned int skip) {
             const STimeZoneOffset zone(-3, 30);
             STimeZoneOffset back;
             failAllocationAfter(skip);
             const CString text = zone.ToString();
             const bool accepted = back.FromString(text);
             Morvex_Fault_DisarmAll();
             EXPECT_TRUE(text.isEmpty() || std::string(text.getBuffer()) == "-03:30") << text.getBuffer();
             EXPECT_TRUE(accepted ? back == zone || text.isEmpty() : !back.IsValid());
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
