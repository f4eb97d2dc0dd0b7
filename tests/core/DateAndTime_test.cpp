// Date and time: CDateAndTime against a calendar counted plainly, CTimeSpan and its
// broken-down form, calendar arithmetic, and the text forms with their zone offsets.

#include "core/DateAndTimeUtilities.h"

#include "support/AllocationBalance.h"
#include "support/ReferenceCalendar.h"

#include "morvex_pal_clock.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

using PAL::CDateAndTime;
using PAL::CTimeSpan;
using osal_kit_test::referenceLeap;
using namespace PAL::DateAndTimeUtilities;
typedef CDateAndTime::SDate SDate;
typedef CDateAndTime::STime STime;
typedef CTimeSpan::Span Span;
typedef CDateAndTime DT;

const unsigned long long DAY = 24 * 3600000000ull;
const CDateAndTime UNCHANGED(12345);
const STimeZoneOffset NONE;

CDateAndTime at(unsigned short year, unsigned char month, unsigned char day, unsigned char hour = 0,
                unsigned char minute = 0, unsigned char second = 0, unsigned int micros = 0)
{
    return CDateAndTime(SDate(year, month, day), STime(hour, minute, second, micros), 0);
}

// "2024-05-17 10:20:30.000040", written independently of the library's text forms.
std::string text(const CDateAndTime& dt, int hourOffset = 0)
{
    SDate d;
    STime t;
    dt.getDateAndTime(d, t, hourOffset);
    char out[48];
    std::snprintf(out, sizeof out, "%04u-%02u-%02u %02u:%02u:%02u.%06u", d.mYear, d.mMonth, d.mDay, t.mHour,
                  t.mMinute, t.mSecond, t.mMicros);
    return out;
}

// Every day of the valid range, and the first and last day of each later 16-bit year,
// against a calendar counted plainly: its day number both ways, weekday and validity;
// in the range also its ISO 8601 week under (Monday, 4) and, alternately at its first
// and last microsecond, which occurrence of its weekday it is in its month and year.
TEST(DateAndTime, EveryDayAgreesWithACalendarCountedPlainly)
{
    auto agrees = [](const SDate& date, unsigned int number) {
        SDate back;
        CDateAndTime::getDateFromDays(number, back);
        return CDateAndTime::getDaysFromDate(date) == number && back == date
            && CDateAndTime::getDayOfWeek(date) == (number + 2) % 7 && date.isValid() == (date.mYear <= 3000);
    };
    for (unsigned int year = 1969, first = 0, previous = 0; year <= 65535; ++year) { // 1968-01-01 was a Monday
        const unsigned short y = static_cast<unsigned short>(year);
        const unsigned int length = referenceLeap(year) ? 366 : 365, januaryFirst = (first + 2) % 7;
        ASSERT_TRUE(referenceLeap(year) == CDateAndTime::isLeapYear(y) && CDateAndTime::getDaysFromStart(y)[12] == length
                    && agrees(SDate(y, 1, 1), first) && agrees(SDate(y, 12, 31), first + length - 1)) << year;
        for (unsigned int month = 1, number = first; month <= 12 && year <= 3000; ++month) {
            const int days = static_cast<int>(osal_kit_test::referenceMonthLength(year, month));
            for (int day = 1; day <= days; ++day, ++number) {
                const SDate date(y, month, day);
                const CDateAndTime dt(date, number % 2 ? STime(23, 59, 59, 999999) : STime(), 0);
                const int yearDay = static_cast<int>(number - first) + 1, yearLength = static_cast<int>(length);
                unsigned int week = (yearDay - (januaryFirst + yearDay - 1) % 7 + 9) / 7;
                if (week == 0)
                    week = previous == 3 || (previous == 2 && referenceLeap(year - 1)) ? 53 : 52;
                ASSERT_TRUE(agrees(date, number) && GetWeekNumber(dt, 0, 4) == week) << text(dt);
                const unsigned char weekday = (number + 2) % 7;
                const int inMonth = (day - 1) / 7 + 1, fromYearEnd = -((yearLength - yearDay) / 7 + 1);
                EXPECT_TRUE(year != 2024
                            || (GetYearDay(dt) == number - first + 1
                                && GetWeekStartOffset(dt, number % 10) == (weekday + 7 - number % 10 % 7) % 7
                                && IsWeekdayOfMonth(dt, weekday, inMonth) && IsWeekdayOfYear(dt, weekday, fromYearEnd)
                                && IsWeekdayOfMonth(dt, weekday, -((days - day) / 7 + 1))
                                && IsWeekdayOfYear(dt, weekday, (yearDay - 1) / 7 + 1)
                                && !IsWeekdayOfMonth(dt, weekday, inMonth + 1) && !IsWeekdayOfYear(dt, weekday, fromYearEnd - 1)
                                && IsWeekdayOfMonth(dt, weekday, 0) && IsWeekdayOfYear(dt, weekday, 0)
                                && !IsWeekdayOfMonth(dt, (weekday + 1) % 7, 0) && !IsWeekdayOfYear(dt, (weekday + 1) % 7, 1)))
                << text(dt);
            }
            ASSERT_FALSE(SDate(y, month, days + 1).isValid() || SDate(y, month, 0).isValid()) << year << "-" << month;
        }
        previous = januaryFirst;
        first += length;
    }
    EXPECT_FALSE(SDate(1968, 12, 31).isValid() || SDate(2024, 0, 1).isValid() || SDate(2024, 13, 1).isValid());
    EXPECT_TRUE(STime(23, 59, 59, 999999).isValid() && SDate(2024, 1, 1).isLeapYear());
    EXPECT_FALSE(STime(24, 0, 0, 0).isValid() || STime(0, 60, 0, 0).isValid() || STime(0, 0, 60, 0).isValid()
                 || CDateAndTime::isTimeValid(STime(0, 0, 0, 1000000)));
    // Far beyond the range a date keeps its year's low 16 bits; a year below 1969 runs
    // its whole years to that year plus 65,536 but keeps its own months; 100 has no 29 February.
    SDate far;
    CDateAndTime::getDateFromDays(~0u, far);
    EXPECT_TRUE(far == SDate(30246, 1, 20));
    EXPECT_TRUE(CDateAndTime::getDaysFromDate(SDate(100, 3, 1)) == 23253953u
                && CDateAndTime::getDaysFromDate(SDate(1968, 3, 1)) == 23936226u);
}

// Setters replace one part and keep the other; an hour offset shifts the whole instant
// before it is broken down, so the hour read back stays 0..23. Calendar arithmetic clamps
// to month ends and keeps the time of day, Start and End snap to the unit; days refuse
// to leave the range, or to start outside it, and restore the value. 2020-06-06 is a Saturday.
TEST(DateAndTime, InstantsAreSetMovedAndBrokenDown)
{
    const struct { int line; bool (*change)(DT&); int offset; const char* expected; } rows[] = {
        {__LINE__, [](DT& d) { return d = CDateAndTime(~0ull), true; }, 0, "62235-01-19 08:01:49.551615"},
        {__LINE__, [](DT&) { return true; }, 14, "2020-06-07 00:20:30.000040"},
        {__LINE__, [](DT& d) { return d = CDateAndTime(SDate(2024, 1, 1), STime(0, 30, 0, 0), -1), true; }, 0,
         "2023-12-31 23:30:00.000000"},
        {__LINE__, [](DT& d) { return d.setDate(SDate(2023, 2, 31)), true; }, 0, "2023-03-03 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setDate(2024, 200, 5), true; }, 0, "2024-12-05 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setTime(STime(0, 30, 0, 0), -1), true; }, 0, "2020-06-05 23:30:00.000000"},
        {__LINE__, [](DT& d) { return d.setDateAndTime(2024, 5, 17, 1, 2, 3, 4), true; }, 0, "2024-05-17 01:02:03.000004"},
        {__LINE__, [](DT& d) { return d.setMicrosecondsFromUnixBaseTime(0), true; }, 0, "1970-01-01 00:00:00.000000"},
        {__LINE__, [](DT& d) { return d.subTimeSpan(CTimeSpan(0ull - DAY)), true; }, 0, "2020-06-07 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setDate(2024, 1, 31), AddMonths(d, 1, eKeep); }, 0, "2024-02-29 10:20:30.000040"},
        {__LINE__, [](DT& d) { return SubMonths(d, 13, eKeep); }, 0, "2019-05-06 10:20:30.000040"},
        {__LINE__, [](DT& d) { return AddMonths(d, 0, eSetToEnd); }, 0, "2020-06-30 23:59:59.000000"},
        {__LINE__, [](DT& d) { return d.setDate(3000, 12, 15), !AddMonths(d, 1, eKeep); }, 0, "3001-01-15 10:20:30.000040"},
        {__LINE__, [](DT& d) { return SubYears(d, -1, eSetToEnd); }, 0, "2021-12-31 23:59:59.000000"},
        {__LINE__, [](DT& d) { return !AddYears(d, INT_MAX, eKeep); }, 0, nullptr}, // a wrapped year is not defined
        {__LINE__, [](DT& d) { return SubDays(d, 1, eSetToStart); }, 0, "2020-06-05 00:00:00.000000"},
        {__LINE__, [](DT& d) { return !SubDays(d, INT_MIN, eKeep); }, 0, "2020-06-06 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setDate(1969, 1, 1), AddDays(d, 376929, eKeep); }, 0, "3000-12-31 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setDate(3000, 12, 31), !AddDays(d, 1, eKeep); }, 0, "3000-12-31 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setDate(3001, 1, 1), !AddDays(d, -1, eKeep); }, 0, "3001-01-01 10:20:30.000040"},
        {__LINE__, [](DT& d) { return d.setDate(1969, 1, 1), !AddDays(d, -1, eKeep); }, 0, "1969-01-01 10:20:30.000040"},
        {__LINE__, [](DT& d) { return AddWeeks(d, 0, eSetToStart, 0); }, 0, "2020-06-01 00:00:00.000000"},
        {__LINE__, [](DT& d) { return SubWeeks(d, 1, eSetToEnd, 0); }, 0, "2020-05-31 23:59:59.000000"},
    };
    for (const auto& row : rows) {
        CDateAndTime dt = at(2020, 6, 6, 10, 20, 30, 40);
        SDate shifted, date;
        STime time, timeOnly;
        EXPECT_TRUE(row.change(dt)) << row.line;
        dt.getDateAndTime(shifted, time, row.offset);
        dt.getTime(timeOnly, row.offset);
        dt.getDate(date);
        EXPECT_TRUE((!row.expected || row.expected == text(dt, row.offset)) && time == timeOnly
                    && (row.offset != 0 || date == shifted)) << row.line << ": " << text(dt, row.offset);
    }
    // Unix base time is one common year later; instants in 1969 wrap, the value 0 stays 0.
    for (const unsigned long long micros : {0ull, 365 * DAY, 366 * DAY + 5, 1ull})
        EXPECT_EQ(micros == 0 ? 0 : micros - 365 * DAY, CDateAndTime(micros).getMicrosecondsForUnixBaseTime());
}

// Whole units scale modulo 2^64 and are read back truncated toward zero; the broken-down
// form carries the sign apart; fields out of range still count as they stand.
TEST(TimeSpan, CountsBreakDownIntoSignedWholeUnits)
{
    const struct { int line; CTimeSpan span; Span parts; } rows[] = {
        {__LINE__, CTimeSpan(), Span()},
        {__LINE__, CTimeSpan(0ull - 1), Span(true, 0, 0, 0, 0, 1)},
        {__LINE__, [] { CTimeSpan s(9); s.setDays(-1); return s; }(), Span(true, 1, 0, 0, 0, 0)},
        {__LINE__, [] { CTimeSpan s(9); s.setMinutes(90); return s; }(), Span(false, 0, 1, 30, 0, 0)},
        {__LINE__, [] { CTimeSpan s(9); s.setHours(-25); return s; }(), Span(true, 1, 1, 0, 0, 0)},
        {__LINE__, CTimeSpan(Span(false, 0, 25, 0, 0, 0)), Span(false, 1, 1, 0, 0, 0)},
        {__LINE__, [] { CTimeSpan s(9); s.setSeconds(LLONG_MAX); return s; }(), Span(true, 0, 0, 0, 1, 0)}, // wraps
        {__LINE__, CTimeSpan(1ull << 63), Span(true, 106751991, 4, 0, 54, 775808)},
        {__LINE__, CTimeSpan(Span(true, 100000, 23, 59, 59, 999999)), Span(true, 100000, 23, 59, 59, 999999)},
    };
    for (const auto& row : rows) {
        const unsigned long long bits = row.span.getMicroseconds();
        const long long micros = static_cast<long long>(bits);
        Span parts(true, 9, 9, 9, 9, 9);
        row.span.getSpan(parts);
        const int sign = (micros > 0) - (micros < 0);
        EXPECT_TRUE(row.parts == parts && parts.isValid() && CTimeSpan(parts).getMicroseconds() == bits) << row.line;
        EXPECT_TRUE(row.span.getDays() == micros / 86400000000 && row.span.getHours() == micros / 3600000000
                    && row.span.getMinutes() == micros / 60000000 && row.span.getSeconds() == micros / 1000000) << row.line;
        EXPECT_TRUE(row.span.compareTo(CTimeSpan()) == sign && CTimeSpan().compareTo(row.span) == -sign) << row.line;
    }
    EXPECT_FALSE(Span(false, 0, 24, 0, 0, 0).isValid() || Span(false, 0, 0, 60, 0, 0).isValid()
                 || Span(false, 0, 0, 0, 60, 0).isValid() || CTimeSpan::isSpanValid(Span(false, 0, 0, 0, 0, 1000000)));
    EXPECT_TRUE(at(2024, 5, 17, 10).subTimeStamp(at(2024, 5, 18, 12, 30)).getMinutes() == -1590
                && at(2024, 5, 17).compareTo(at(2024, 5, 18)) == -1 && CDateAndTime(~0ull).compareTo(CDateAndTime(1)) == 1);
}

// The clock's fields are taken as they come; a clock that fails leaves the value.
TEST(CalendarArithmetic, SystemTimeWeekNumbersAndDayComparisons)
{
    osal_kit_test::FaultGuard faults;
    const sMorvex_PAL_RealTime fixed = {30, 20, 10, 17, 5, 124, 5, 137};
    Morvex_PAL_setFixedRealTime(&fixed);
    CDateAndTime dt = UNCHANGED;
    osal_kit_test::failNext(MORVEX_FAULT_getRealTime, 1);
    EXPECT_TRUE(!FromSystemTime(dt) && dt.compareTo(UNCHANGED) == 0 && FromSystemTime(dt));
    EXPECT_EQ("2024-05-17 10:20:30.000000", text(dt));
    Morvex_PAL_setFixedRealTime(nullptr);
    EXPECT_TRUE(GetWeekNumber(at(2000, 12, 31), 13, 1) == 54 && GetWeekNumber(at(2024, 1, 1), 0, 0) == 1);
    EXPECT_TRUE(GetStartOfYear(at(2024, 7, 7)) == SDate(2024, 1, 1)
                && CompareDates(at(2024, 5, 15), at(2024, 5, 15, 23, 59, 59, 999999)));
    EXPECT_FALSE(CompareDates(at(2024, 5, 15, 23, 59, 59, 999999), at(2024, 5, 16)));
}

TEST(TimeZoneOffset, RefusesWhatItCannotHoldAndComparesOnlyValidOffsets)
{
    STimeZoneOffset zone(-3, 30);
    EXPECT_FALSE(zone.Set(-13, 0) || zone.Set(1, 60) || STimeZoneOffset(15, 0).IsValid() || NONE == NONE);
    EXPECT_TRUE(zone == STimeZoneOffset(-3, 30) && zone != STimeZoneOffset(3, 30) && NONE != NONE && !NONE.IsUTC());
    EXPECT_TRUE(zone.GetAsTimeSpan().getMicroseconds() == 0ull - 210 * 60000000ull && NONE.GetAsTimeSpan().getMicroseconds() == 0);
    EXPECT_TRUE(zone.FromString("") && zone.IsUTC()); // an empty zone text is UTC
    EXPECT_TRUE(zone.FromString("-00:30") && zone.mOffsetMinutes == 30); // the sign travels on the hours
    for (const char* text : {"+14:01", "-12:30", "+5:30", "05:30", "z", "+05:60", "+05-30", "+05:30Z", "UTC", "+"}) {
        STimeZoneOffset kept(1, 0);
        EXPECT_FALSE(kept.FromString(text) || kept.mOffsetMinutes != 60) << text;
    }
}

// Texts and the instants they stand for; a row with options was written by ToString
// from its instant and zone. A refused text leaves the value as it was.
TEST(TextForms, TextsAreReadAndWrittenExactly)
{
    const CDateAndTime t = at(2024, 5, 17, 10, 20, 30), frac = at(2024, 5, 17, 10, 20, 30, 250000);
    const STimeZoneOffset plus2(2, 0), utc(0, 0);
    const eDateTimeFormat ISO = eFormatISO8601, BLANK = eFormatSpaceSeparated, OTHER = static_cast<eDateTimeFormat>(2);
    const int READ = -1, FRAC = eWithFraction;
    struct Row { int line; const char* text; eDateTimeFormat format; int options; CDateAndTime dt; STimeZoneOffset zone; };
    std::vector<Row> rows = {
        {__LINE__, "2024-05-17T10:20:30.250000-03:30", ISO, FRAC, frac, STimeZoneOffset(-3, 30)},
        {__LINE__, "2024-05-17", ISO, eDateOnly | FRAC, at(2024, 5, 17), plus2},
        {__LINE__, "2024-05-17T10:20:30", ISO, eWithoutTimeZone, t, plus2},
        {__LINE__, "1969-01-01T00:00:00.5Z", ISO, FRAC, CDateAndTime(5), utc},
        {__LINE__, "2024-05-17 10:20:30.250000", BLANK, FRAC, frac, plus2},
        {__LINE__, "", OTHER, 0, UNCHANGED, plus2},
        {__LINE__, "20240517T102030", ISO, READ, t, NONE},
        {__LINE__, "2024-05-17T10:20:30+0530", ISO, READ, t, STimeZoneOffset(5, 30)},
        {__LINE__, "20240517", ISO, READ, at(2024, 5, 17), NONE},
        {__LINE__, "2024-05-17T10:20:30.000000000005Z", ISO, READ, at(2024, 5, 17, 10, 20, 30, 5), utc},
        {__LINE__, "2024-05-17T10:20: 5", ISO, READ, at(2024, 5, 17, 10, 20, 5), NONE}, // as sscanf reads "%02u"
        {__LINE__, "2024-02-30T10:20:30+02:00", ISO, READ, UNCHANGED, plus2}, // the zone was read first
    };
    for (const char* refused : {"2024-05-17T10:20", "2024-05-1", "2024-05-17T10:20:3", "2024-05-17Z", "2024-05-17T24:00:00",
                                "1968-12-31T23:59:59", "2024-05-17T10:20:30.", "2024-05-17T10:20:30.1000000",
                                "-001-05-17"})
        rows.push_back({__LINE__, refused, ISO, READ, UNCHANGED, NONE});
    for (const char* refused : {"20240517 102030", "2024-05-17 10:20:30Z", "2024-05-17T10:20:30"})
        rows.push_back({__LINE__, refused, BLANK, READ, UNCHANGED, NONE});
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.line << ": \"" << row.text << "\"");
        const PAL::CString written =
            row.options == READ ? row.text : ToString(row.dt, row.format, static_cast<unsigned int>(row.options), row.zone);
        CDateAndTime dt = UNCHANGED;
        STimeZoneOffset zone(5, 0);
        const bool zoneWritten = row.options == READ || (row.options & (eDateOnly | eWithoutTimeZone)) == 0;
        const STimeZoneOffset& expected = row.format == ISO && zoneWritten ? row.zone : NONE;
        EXPECT_STREQ(row.text, written.getBuffer());
        EXPECT_TRUE(FromString(dt, row.text, row.format, &zone) == (row.dt.compareTo(UNCHANGED) != 0)
                    && text(row.dt) == text(dt)) << text(dt);
        EXPECT_TRUE(zone.IsValid() == expected.IsValid() && zone.mOffsetMinutes == expected.mOffsetMinutes);
    }
}

} // namespace
