// DateAndTimeUtilities: the real-time clock, calendar arithmetic, week numbers,
// n-th weekdays, the text forms and time zone offsets.

#include "core/DateAndTimeUtilities.h"

#include "support/AllocationBalance.h"
#include "support/ReferenceCalendar.h"

#include "morvex_pal_clock.h"
#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using PAL::CDateAndTime;
using PAL::CString;
using osal_kit_test::referenceLeap;
using osal_kit_test::referenceMonthLength;
using osal_kit_test::referenceYearLength;
using namespace PAL::DateAndTimeUtilities;
typedef CDateAndTime::SDate SDate;
typedef CDateAndTime::STime STime;

CDateAndTime at(unsigned short year, unsigned char month, unsigned char day, unsigned char hour = 0,
                unsigned char minute = 0, unsigned char second = 0, unsigned int micros = 0)
{
    return CDateAndTime(SDate(year, month, day), STime(hour, minute, second, micros), 0);
}

// "2024-05-17 10:20:30.000040", so that a failed comparison shows readable values.
std::string show(const CDateAndTime& dt)
{
    SDate d;
    STime t;
    dt.getDateAndTime(d, t, 0);
    char text[64];
    snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%06u", d.mYear, d.mMonth, d.mDay, t.mHour,
             t.mMinute, t.mSecond, t.mMicros);
    return text;
}

class SystemTime : public ::testing::Test {
protected:
    void TearDown() override { Morvex_PAL_setFixedRealTime(nullptr); }
    osal_kit_test::FaultGuard mFaults;
};

TEST_F(SystemTime, TakesTheClockFieldsAsTheyComeAndAFailureLeavesTheValue)
{
    const sMorvex_PAL_RealTime fixed = {30, 20, 10, 17, 5, 124, 5, 137};
    Morvex_PAL_setFixedRealTime(&fixed);
    CDateAndTime dt(12345);
    osal_kit_test::failNext(MORVEX_FAULT_getRealTime, 1);
    EXPECT_FALSE(FromSystemTime(dt));
    EXPECT_EQ(12345u, dt.getMicroseconds());
    ASSERT_TRUE(FromSystemTime(dt));
    EXPECT_EQ("2024-05-17 10:20:30.000000", show(dt));
}

// Rows whose result wraps the 16-bit year leave a value nobody should rely on.
const CDateAndTime ANY_VALUE(~0ull);

typedef bool (*AddFunction)(CDateAndTime&, int const&, eSetMode const&);

struct AddRow {
    int line;
    AddFunction add;
    CDateAndTime start;
    int count;
    eSetMode mode;
    CDateAndTime expected;
    bool ok;
};

bool addWeeksFromMonday(CDateAndTime& dt, int const& n, eSetMode const& m) { return AddWeeks(dt, n, m, 0); }
bool addWeeksFromSunday(CDateAndTime& dt, int const& n, eSetMode const& m) { return AddWeeks(dt, n, m, 6); }
bool subWeeksFromMonday(CDateAndTime& dt, int const& n, eSetMode const& m) { return SubWeeks(dt, n, m, 0); }

const AddRow ADD_ROWS[] = {
    // Month ends clamp; the time of day stays.
    {__LINE__, AddMonths, at(2023, 1, 31, 10), 1, eKeep, at(2023, 2, 28, 10), true},
    {__LINE__, AddMonths, at(2024, 1, 31, 10), 1, eKeep, at(2024, 2, 29, 10), true},
    {__LINE__, AddMonths, at(2023, 3, 31, 10), -1, eKeep, at(2023, 2, 28, 10), true},
    {__LINE__, AddMonths, at(2023, 8, 31, 10), 1, eKeep, at(2023, 9, 30, 10), true},
    {__LINE__, SubMonths, at(2023, 3, 31, 10), 1, eKeep, at(2023, 2, 28, 10), true},
    {__LINE__, AddMonths, at(2023, 5, 17, 10), 0, eSetToEnd, at(2023, 5, 31, 23, 59, 59), true},
    {__LINE__, AddMonths, at(2023, 5, 17, 10), 0, eSetToStart, at(2023, 5, 1), true},
    {__LINE__, AddMonths, at(2024, 2, 10, 10), 0, eSetToEnd, at(2024, 2, 29, 23, 59, 59), true},
    {__LINE__, AddMonths, at(2023, 1, 15, 10), -1, eKeep, at(2022, 12, 15, 10), true},
    {__LINE__, AddMonths, at(2023, 1, 15, 10), -13, eKeep, at(2021, 12, 15, 10), true},
    {__LINE__, AddMonths, at(2023, 1, 15, 10), 12, eKeep, at(2024, 1, 15, 10), true},
    {__LINE__, AddMonths, at(3000, 12, 15, 10), 0, eSetToEnd, at(3000, 12, 31, 23, 59, 59), true},
    // Beyond the range the value is left as computed.
    {__LINE__, AddMonths, at(3000, 12, 15, 10), 1, eKeep, at(3001, 1, 15, 10), false},
    {__LINE__, AddMonths, at(2023, 1, 15, 10), INT_MIN, eKeep, ANY_VALUE, false},
    {__LINE__, SubMonths, at(2023, 1, 15, 10), INT_MIN, eKeep, ANY_VALUE, false},
    // Years.
    {__LINE__, AddYears, at(2024, 2, 29, 10), 1, eKeep, at(2025, 2, 28, 10), true},
    {__LINE__, AddYears, at(2024, 2, 29, 10), 1, eSetToEnd, at(2025, 12, 31, 23, 59, 59), true},
    {__LINE__, AddYears, at(2024, 2, 29, 10), 1, eSetToStart, at(2025, 1, 1), true},
    {__LINE__, SubYears, at(2024, 6, 15, 10), 4, eKeep, at(2020, 6, 15, 10), true},
    {__LINE__, AddYears, at(2024, 6, 15, 10), -55, eKeep, at(1969, 6, 15, 10), true},
    {__LINE__, AddYears, at(2024, 6, 15, 10), INT_MAX, eKeep, ANY_VALUE, false},
    // Days refuse to leave the range and restore the value.
    {__LINE__, AddDays, at(2024, 2, 28, 10), 1, eKeep, at(2024, 2, 29, 10), true},
    {__LINE__, AddDays, at(2100, 2, 28, 10), 1, eKeep, at(2100, 3, 1, 10), true},
    {__LINE__, SubDays, at(2024, 3, 1, 10), 1, eSetToStart, at(2024, 2, 29), true},
    {__LINE__, AddDays, at(2024, 5, 17, 10), 0, eSetToEnd, at(2024, 5, 17, 23, 59, 59), true},
    {__LINE__, AddDays, at(1969, 1, 1, 10), 376929, eKeep, at(3000, 12, 31, 10), true},
    {__LINE__, AddDays, at(3000, 12, 31, 10), 1, eKeep, at(3000, 12, 31, 10), false},
    {__LINE__, AddDays, at(1969, 1, 1, 10), -1, eKeep, at(1969, 1, 1, 10), false},
    {__LINE__, AddDays, at(2024, 5, 17, 10), INT_MAX, eKeep, at(2024, 5, 17, 10), false},
    {__LINE__, AddDays, at(2024, 5, 17, 10), INT_MIN, eKeep, at(2024, 5, 17, 10), false},
    {__LINE__, SubDays, at(2024, 5, 17, 10), INT_MIN, eKeep, at(2024, 5, 17, 10), false},
    {__LINE__, AddDays, at(3001, 1, 1, 10), -1, eKeep, at(3001, 1, 1, 10), false},
    // Weeks: 2024-05-15 is a Wednesday.
    {__LINE__, addWeeksFromMonday, at(2024, 5, 15, 10), 0, eSetToStart, at(2024, 5, 13), true},
    {__LINE__, addWeeksFromMonday, at(2024, 5, 15, 10), 0, eSetToEnd, at(2024, 5, 19, 23, 59, 59), true},
    {__LINE__, addWeeksFromMonday, at(2024, 5, 15, 10), 1, eKeep, at(2024, 5, 22, 10), true},
    {__LINE__, addWeeksFromSunday, at(2024, 5, 15, 10), -1, eSetToStart, at(2024, 5, 5), true},
    {__LINE__, subWeeksFromMonday, at(2024, 5, 15, 10), 1, eSetToEnd, at(2024, 5, 12, 23, 59, 59), true},
    {__LINE__, addWeeksFromMonday, at(1969, 1, 1, 10), 0, eSetToStart, at(1969, 1, 1, 10), false},
    {__LINE__, subWeeksFromMonday, at(2024, 5, 15, 10), INT_MIN, eKeep, at(2024, 5, 15, 10), false},
};

TEST(CalendarArithmetic, AddAndSubMoveByCalendarUnits)
{
    for (const AddRow& row : ADD_ROWS) {
        SCOPED_TRACE(row.line);
        CDateAndTime dt = row.start;
        EXPECT_EQ(row.ok, row.add(dt, row.count, row.mode));
        if (row.expected.compareTo(ANY_VALUE) != 0) {
            EXPECT_EQ(show(row.expected), show(dt));
        }
    }
}

TEST(CalendarArithmetic, AddDaysRefusesAnInvalidStart)
{
    CDateAndTime dt(~0ull);
    EXPECT_FALSE(AddDays(dt, 0, eKeep));
    EXPECT_EQ(~0ull, dt.getMicroseconds());
}

TEST(CalendarArithmetic, DayOfYearWeekOffsetsAndDates)
{
    EXPECT_EQ(1u, GetYearDay(at(2024, 1, 1, 23)));
    EXPECT_EQ(61u, GetYearDay(at(2024, 3, 1, 12)));
    EXPECT_EQ(366u, GetYearDay(at(2024, 12, 31, 23, 59, 59, 999999)));
    EXPECT_EQ(365u, GetYearDay(at(2023, 12, 31)));
    EXPECT_EQ(SDate(2024, 1, 1), GetStartOfYear(at(2024, 7, 7, 7)));

    // 2024-05-15 is a Wednesday.
    EXPECT_EQ(2, GetWeekStartOffset(at(2024, 5, 15), 0));
    EXPECT_EQ(0, GetWeekStartOffset(at(2024, 5, 15), 2));
    EXPECT_EQ(6, GetWeekStartOffset(at(2024, 5, 15), 3));
    EXPECT_EQ(3, GetWeekStartOffset(at(2024, 5, 15), 6));
    EXPECT_EQ(0, GetWeekStartOffset(at(2024, 5, 15), 9));

    EXPECT_TRUE(CompareDates(at(2024, 5, 15), at(2024, 5, 15, 23, 59, 59, 999999)));
    EXPECT_FALSE(CompareDates(at(2024, 5, 15, 23, 59, 59, 999999), at(2024, 5, 16)));
}

TEST(CalendarArithmetic, WeekNumbersForOtherWeekStartsAndFirstWeeks)
{
    const struct {
        int line;
        CDateAndTime dt;
        unsigned char weekStart;
        unsigned char minDays;
        unsigned int week;
    } rows[] = {
        // (0, 4), ISO weeks, for every day: see below.
        {__LINE__, at(1969, 1, 1), 0, 7, 53},     // the week of 1968-12-31
        {__LINE__, at(2024, 1, 1), 6, 1, 1},
        {__LINE__, at(2024, 1, 7), 6, 1, 2},
        {__LINE__, at(2023, 12, 31), 6, 1, 53},
        {__LINE__, at(2000, 12, 31), 6, 1, 54},   // leap year starting the day before the week
        {__LINE__, at(2000, 12, 31), 13, 1, 54},  // week start taken modulo 7
        {__LINE__, at(2024, 1, 1), 0, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.week, GetWeekNumber(row.dt, row.weekStart, row.minDays));
    }
}

// ISO 8601 weeks by their usual formula; the last days that ISO gives to week 1 of the
// next year keep counting here.
unsigned int isoWeeksInYear(unsigned int year, unsigned int januaryFirst)
{
    return januaryFirst == 3 || (januaryFirst == 2 && referenceLeap(year)) ? 53 : 52;
}

TEST(CalendarArithmetic, EveryDayOfTheRangeHasItsIsoWeek)
{
    unsigned int januaryFirst = 2; // 1969-01-01, Wednesday
    unsigned int previousJanuaryFirst = 0; // 1968-01-01, Monday
    CDateAndTime dt(0);
    for (unsigned int year = 1969; year <= 3000; ++year) {
        unsigned int yearDay = 1;
        for (unsigned int month = 1; month <= 12; ++month) {
            for (unsigned int day = 1; day <= referenceMonthLength(year, month); ++day, ++yearDay) {
                const unsigned int weekday = (januaryFirst + yearDay - 1) % 7;
                unsigned int week = (yearDay - (weekday + 1) + 10) / 7;
                if (week == 0) {
                    week = isoWeeksInYear(year - 1, previousJanuaryFirst);
                }
                dt.setDate(static_cast<unsigned short>(year), static_cast<unsigned char>(month),
                           static_cast<unsigned char>(day));
                if (GetWeekNumber(dt, 0, 4) != week) {
                    FAIL() << show(dt) << ": " << GetWeekNumber(dt, 0, 4) << " instead of " << week;
                }
            }
        }
        previousJanuaryFirst = januaryFirst;
        januaryFirst = (januaryFirst + referenceYearLength(year)) % 7;
    }
}

// Every day of 2024, at the first and the last microsecond of the day: it is the
// ((day - 1) / 7 + 1)-th of its weekday from the start and the ((length - day) / 7 + 1)-th
// from the end, of its month and of its year, and no other.
TEST(CalendarArithmetic, EveryDayIsItsOwnOccurrenceOfItsWeekday)
{
    for (const STime time : {STime(0, 0, 0, 0), STime(23, 59, 59, 999999)}) {
        unsigned int yearDay = 1;
        for (unsigned char month = 1; month <= 12; ++month) {
            const unsigned int length = referenceMonthLength(2024, month);
            for (unsigned int day = 1; day <= length; ++day, ++yearDay) {
                const CDateAndTime dt(SDate(2024, month, static_cast<unsigned char>(day)), time, 0);
                SCOPED_TRACE(show(dt));
                const unsigned char weekday = static_cast<unsigned char>((yearDay - 1) % 7); // 2024-01-01: Monday
                const unsigned char other = static_cast<unsigned char>((weekday + 1) % 7);
                const int inMonth[] = {static_cast<int>((day - 1) / 7 + 1), -static_cast<int>((length - day) / 7 + 1)};
                const int inYear[] = {static_cast<int>((yearDay - 1) / 7 + 1), -static_cast<int>((366 - yearDay) / 7 + 1)};
                for (int i = 0; i < 2; ++i) {
                    const int further = i == 0 ? 1 : -1;
                    EXPECT_TRUE(IsWeekdayOfMonth(dt, weekday, inMonth[i]) && IsWeekdayOfYear(dt, weekday, inYear[i]));
                    EXPECT_FALSE(IsWeekdayOfMonth(dt, weekday, inMonth[i] + further) ||
                                 IsWeekdayOfYear(dt, weekday, inYear[i] + further));
                }
                EXPECT_TRUE(IsWeekdayOfMonth(dt, weekday, 0));
                EXPECT_FALSE(IsWeekdayOfMonth(dt, other, inMonth[0]) || IsWeekdayOfYear(dt, other, 0));
            }
        }
    }
}

// 3000-12-31 is a Wednesday; the next period lies beyond the range and is still used.
TEST(CalendarArithmetic, LastWeekdaysAtTheEndOfTheRange)
{
    EXPECT_TRUE(IsWeekdayOfMonth(at(3000, 12, 31, 10), 2, -1));
    EXPECT_TRUE(IsWeekdayOfYear(at(3000, 12, 31, 10), 2, -1));
    EXPECT_FALSE(IsWeekdayOfMonth(at(2024, 3, 31), 7, 0));
}

struct ZoneRow {
    int line;
    const char* text;
    bool ok;
    int minutes;
};

const ZoneRow ZONE_ROWS[] = {
    {__LINE__, "", true, 0},          {__LINE__, "Z", true, 0},
    {__LINE__, "+0530", true, 330},   {__LINE__, "+05:30", true, 330},
    {__LINE__, "-03:30", true, -210}, {__LINE__, "-0330", true, -210},
    {__LINE__, "+14:00", true, 840},  {__LINE__, "-12:00", true, -720},
    {__LINE__, "+00:00", true, 0},    {__LINE__, "-00:30", true, 30}, // the sign travels on the hours
    {__LINE__, "+14:01", false, 0},   {__LINE__, "-12:30", false, 0},
    {__LINE__, "+5:30", false, 0},    {__LINE__, "05:30", false, 0},
    {__LINE__, "z", false, 0},        {__LINE__, "+05:60", false, 0},
    {__LINE__, "+05-30", false, 0},   {__LINE__, "+05:30Z", false, 0},
    {__LINE__, "UTC", false, 0},      {__LINE__, "+", false, 0},
};

TEST(TimeZoneOffset, ReadsUtcAndSignedOffsets)
{
    for (const ZoneRow& row : ZONE_ROWS) {
        SCOPED_TRACE(row.line);
        STimeZoneOffset zone(1, 0);
        EXPECT_EQ(row.ok, zone.FromString(row.text));
        EXPECT_TRUE(zone.IsValid());
        EXPECT_EQ(row.ok ? row.minutes : 60, zone.mOffsetMinutes); // a refusal changes nothing
    }
}

TEST(TimeZoneOffset, SetsWritesAndCompares)
{
    EXPECT_EQ(330, STimeZoneOffset(5, 30).mOffsetMinutes);
    EXPECT_FALSE(STimeZoneOffset(15, 0).IsValid());
    EXPECT_FALSE(STimeZoneOffset(1, 60).IsValid());
    STimeZoneOffset zone(-3, 30);
    EXPECT_EQ(-210, zone.mOffsetMinutes);
    EXPECT_FALSE(zone.Set(-13, 0));
    EXPECT_EQ(-210, zone.mOffsetMinutes);

    EXPECT_EQ(CString("-03:30"), zone.ToString());
    EXPECT_EQ(CString("+05:30"), STimeZoneOffset(5, 30).ToString());
    EXPECT_EQ(CString("Z"), STimeZoneOffset(0, 0).ToString());
    EXPECT_TRUE(STimeZoneOffset().ToString().isEmpty());

    EXPECT_FALSE(STimeZoneOffset() == STimeZoneOffset()); // two invalid offsets differ
    EXPECT_TRUE(STimeZoneOffset() != STimeZoneOffset());
    EXPECT_TRUE(STimeZoneOffset(5, 30) == STimeZoneOffset(5, 30));
    EXPECT_FALSE(STimeZoneOffset(5, 30) == STimeZoneOffset(-5, 30));
    STimeZoneOffset utc;
    EXPECT_FALSE(utc.IsUTC());
    utc.SetUTC();
    EXPECT_TRUE(utc.IsUTC());
    EXPECT_TRUE(utc == STimeZoneOffset(0, 0));

    PAL::CTimeSpan::Span span;
    zone.GetAsTimeSpan().getSpan(span);
    EXPECT_EQ(PAL::CTimeSpan::Span(true, 0, 3, 30, 0, 0), span);
    EXPECT_EQ(0u, STimeZoneOffset().GetAsTimeSpan().getMicroseconds());
}

const STimeZoneOffset NO_ZONE;
const STimeZoneOffset UTC(0, 0);
const STimeZoneOffset PLUS_2(2, 0);

struct ReadRow {
    int line;
    const char* text;
    eDateTimeFormat format;
    bool ok;
    CDateAndTime expected;
    STimeZoneOffset zone;
};

const CDateAndTime UNCHANGED(12345);

const ReadRow READ_ROWS[] = {
    // ISO 8601 based: separators may be left out, fraction and zone are optional.
    {__LINE__, "2024-05-17T10:20:30", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30), NO_ZONE},
    {__LINE__, "20240517T102030", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30), NO_ZONE},
    {__LINE__, "2024-0517T10:2030", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30), NO_ZONE},
    {__LINE__, "2024-05-17T10:20:30.250000+02:00", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30, 250000), PLUS_2},
    {__LINE__, "2024-05-17T10:20:30+0200", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30), PLUS_2},
    {__LINE__, "2024-05-17T10:20:30Z", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30), UTC},
    {__LINE__, "2024-05-17", eFormatISO8601, true, at(2024, 5, 17), NO_ZONE},
    {__LINE__, "20240517", eFormatISO8601, true, at(2024, 5, 17), NO_ZONE},
    {__LINE__, "2024-05-17T10:20:30.5", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30, 5), NO_ZONE},
    {__LINE__, "2024-05-17T10:20:30.0000000000005Z", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 30, 5), UTC},
    {__LINE__, "2024-05-17T10:20: 5", eFormatISO8601, true, at(2024, 5, 17, 10, 20, 5), NO_ZONE}, // as sscanf reads "%02u"
    {__LINE__, "1969-01-01T00:00:00", eFormatISO8601, true, at(1969, 1, 1), NO_ZONE},
    {__LINE__, "3000-12-31T23:59:59.999999-12:00", eFormatISO8601, true, at(3000, 12, 31, 23, 59, 59, 999999),
     STimeZoneOffset(-12, 0)},
    // A zone read before a refusal stays with the caller.
    {__LINE__, "2024-02-30T10:20:30+02:00", eFormatISO8601, false, UNCHANGED, PLUS_2},
    // Blank-separated: every separator required, no zone.
    {__LINE__, "2024-05-17 10:20:30", eFormatSpaceSeparated, true, at(2024, 5, 17, 10, 20, 30), NO_ZONE},
    {__LINE__, "2024-05-17 10:20:30.5", eFormatSpaceSeparated, true, at(2024, 5, 17, 10, 20, 30, 5), NO_ZONE},
    {__LINE__, "2024-05-17", eFormatSpaceSeparated, true, at(2024, 5, 17), NO_ZONE},
    {__LINE__, "2024-05-17 10:20:30", static_cast<eDateTimeFormat>(2), false, UNCHANGED, NO_ZONE},
};

// Texts each format refuses, leaving the value unchanged (and no zone read).
const char* const REFUSED_ISO[] = {
    "2024-05-17T10:20", "2024-05-17T10", "2024-05-17T", "2024-05", "2024", "", "2024-05-1", "2024-05-17T10:20:3",
    "2024-05-17 10:20:30", "2024-05-17Z", "2024-02-30T00:00:00", "2024-05-17T24:00:00", "1968-12-31T23:59:59",
    "2024-05-17T10:20:30.", "2024-05-17T10:20:30.Z", "2024-05-17T10:20:30.1000000",
    "2024-05-17T10:20:30.99999999999999999999", "2024-05-17T10:20:30+14:01", "2024-05-17T10:20:30z",
    "2024-05-17T10:20:30 ",
};
const char* const REFUSED_SPACE_SEPARATED[] = {
    "20240517 102030", "2024-05-17 102030", "2024-05-17 10:20:30Z", "2024-05-17 10:20:30+02:00",
    "2024-05-17T10:20:30",
};

void expectSameZone(const STimeZoneOffset& expected, const STimeZoneOffset& got)
{
    EXPECT_EQ(expected.IsValid(), got.IsValid());
    if (expected.IsValid()) {
        EXPECT_EQ(expected.mOffsetMinutes, got.mOffsetMinutes);
    }
}

TEST(TextForms, ReadsExactlyTheAcceptedTexts)
{
    std::vector<ReadRow> rows(std::begin(READ_ROWS), std::end(READ_ROWS));
    for (const char* text : REFUSED_ISO)
        rows.push_back({__LINE__, text, eFormatISO8601, false, UNCHANGED, NO_ZONE});
    for (const char* text : REFUSED_SPACE_SEPARATED)
        rows.push_back({__LINE__, text, eFormatSpaceSeparated, false, UNCHANGED, NO_ZONE});
    for (const ReadRow& row : rows) {
        SCOPED_TRACE(testing::Message() << row.line << ": \"" << row.text << "\"");
        CDateAndTime dt = UNCHANGED;
        STimeZoneOffset zone(5, 0);
        EXPECT_EQ(row.ok, FromString(dt, row.text, row.format, &zone));
        EXPECT_EQ(show(row.expected), show(dt));
        expectSameZone(row.zone, zone);
        // The zone pointer is optional.
        CDateAndTime again = UNCHANGED;
        EXPECT_EQ(row.ok, FromString(again, row.text, row.format, nullptr));
        EXPECT_EQ(show(row.expected), show(again));
    }
}

TEST(TextForms, WritesTheDocumentedForms)
{
    const CDateAndTime dt = at(2024, 5, 17, 10, 20, 30, 250000);
    const struct {
        int line;
        CDateAndTime dt;
        eDateTimeFormat format;
        unsigned int options;
        STimeZoneOffset zone;
        const char* text;
    } rows[] = {
        {__LINE__, dt, eFormatISO8601, 0, PLUS_2, "2024-05-17T10:20:30+02:00"},
        {__LINE__, dt, eFormatISO8601, eWithFraction, PLUS_2, "2024-05-17T10:20:30.250000+02:00"},
        {__LINE__, dt, eFormatISO8601, eDateOnly, PLUS_2, "2024-05-17"},
        {__LINE__, dt, eFormatISO8601, eDateOnly | eWithFraction, PLUS_2, "2024-05-17"},
        {__LINE__, dt, eFormatISO8601, eWithoutTimeZone, PLUS_2, "2024-05-17T10:20:30"},
        {__LINE__, dt, eFormatISO8601, 0, NO_ZONE, "2024-05-17T10:20:30"},
        {__LINE__, dt, eFormatISO8601, 0, UTC, "2024-05-17T10:20:30Z"},
        {__LINE__, dt, eFormatISO8601, 0, STimeZoneOffset(-3, 30), "2024-05-17T10:20:30-03:30"},
        {__LINE__, at(1969, 1, 1, 0, 0, 0, 5), eFormatISO8601, eWithFraction, UTC, "1969-01-01T00:00:00.5Z"},
        {__LINE__, dt, eFormatSpaceSeparated, 0, PLUS_2, "2024-05-17 10:20:30"},
        {__LINE__, dt, eFormatSpaceSeparated, eWithFraction, PLUS_2, "2024-05-17 10:20:30.250000"},
        {__LINE__, dt, eFormatSpaceSeparated, eDateOnly, PLUS_2, "2024-05-17"},
        {__LINE__, dt, static_cast<eDateTimeFormat>(2), 0, PLUS_2, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_STREQ(row.text, ToString(row.dt, row.format, row.options, row.zone).getBuffer());
    }
}

// Written and read back, every instant keeps its value (whole seconds without the
// fraction) and the zone comes back with it.
TEST(TextForms, RoundTripKeepsValueAndZone)
{
    const STimeZoneOffset zones[] = {NO_ZONE, UTC, PLUS_2, STimeZoneOffset(-12, 0), STimeZoneOffset(5, 45)};
    const unsigned long long last = at(3000, 12, 31, 23, 59, 59, 999999).getMicroseconds();
    unsigned long long seed = 42;
    for (int i = 0; i < 500; ++i) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        const CDateAndTime dt(i == 0 ? 0 : i == 1 ? last : seed % (last + 1));
        const STimeZoneOffset& zone = zones[i % 5];
        for (const eDateTimeFormat format : {eFormatISO8601, eFormatSpaceSeparated}) {
            for (const unsigned int options : {0u, static_cast<unsigned int>(eWithFraction)}) {
                const CString text = ToString(dt, format, options, zone);
                SCOPED_TRACE(text.getBuffer());
                CDateAndTime back;
                STimeZoneOffset zoneBack;
                ASSERT_TRUE(FromString(back, text, format, &zoneBack));
                const unsigned long long expected =
                    options == 0 ? dt.getMicroseconds() - dt.getMicroseconds() % 1000000 : dt.getMicroseconds();
                ASSERT_EQ(expected, back.getMicroseconds());
                expectSameZone(format == eFormatISO8601 ? zone : NO_ZONE, zoneBack);
            }
        }
    }
}

class TextFormFaults : public ::testing::Test {
protected:
    osal_kit_test::FaultGuard mFaults;
};

TEST_F(TextFormFaults, AScanFailureRefusesTheText)
{
    CDateAndTime dt = UNCHANGED;
    STimeZoneOffset zone;
    for (unsigned int skip = 0; skip < 8; ++skip) { // eight fields, eight scans
        SCOPED_TRACE(skip);
        Morvex_Fault_ArmEx(MORVEX_FAULT_sscanf, -1, skip, 1, 1);
        EXPECT_FALSE(FromString(dt, "2024-05-17T10:20:30.5+02:00", eFormatISO8601, &zone));
        EXPECT_EQ(UNCHANGED.getMicroseconds(), dt.getMicroseconds());
    }
}

// Nothing is shared between calls: threads reading the clock and converting text at
// once all get their own results.
TEST(TextForms, ThreadsConvertIndependently)
{
    std::vector<std::thread> threads;
    std::atomic<int> mismatches(0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &mismatches] {
            const CDateAndTime dt = at(static_cast<unsigned short>(2000 + t), 5, 17, 10, 20, 30, 250000);
            const STimeZoneOffset zone(static_cast<signed char>(t), 30);
            for (int i = 0; i < 300; ++i) {
                CDateAndTime back;
                STimeZoneOffset zoneBack;
                CDateAndTime now;
                if (!FromString(back, ToString(dt, eFormatISO8601, eWithFraction, zone), eFormatISO8601, &zoneBack)
                    || back.compareTo(dt) != 0 || zoneBack != zone || !FromSystemTime(now)) {
                    ++mismatches;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, mismatches.load());
}

} // namespace
