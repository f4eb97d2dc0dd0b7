// CDateAndTime: day numbers, weekdays, validation, time of day with hour offsets and
// the Unix-base bridge.

#include "core/DateAndTime.h"

#include "support/ReferenceCalendar.h"

#include <gtest/gtest.h>

namespace {

using PAL::CDateAndTime;
using PAL::CTimeSpan;
using osal_kit_test::referenceMonthLength;
using osal_kit_test::referenceYearLength;
typedef CDateAndTime::SDate SDate;
typedef CDateAndTime::STime STime;

const unsigned long long DAY = 86400000000ull;
const unsigned long long HOUR = 3600000000ull;

SDate dateOf(const CDateAndTime& dt)
{
    SDate date;
    dt.getDate(date);
    return date;
}

STime timeOf(const CDateAndTime& dt, int hourOffset = 0)
{
    STime time;
    dt.getTime(time, hourOffset);
    return time;
}

struct KnownDate {
    int line;
    SDate date;
    unsigned int dayNumber;
    unsigned char weekday;
};

// Day numbers and weekdays taken from published calendars; the day numbers of every
// other date are checked against a plain count below.
const KnownDate KNOWN_DATES[] = {
    {__LINE__, SDate(1969, 1, 1), 0, 2},        {__LINE__, SDate(1970, 1, 1), 365, 3},
    {__LINE__, SDate(2000, 2, 29), 11381, 1},   {__LINE__, SDate(2024, 5, 17), 20225, 4},
    {__LINE__, SDate(2068, 12, 31), 36524, 0},  {__LINE__, SDate(2069, 1, 1), 36525, 1},
    {__LINE__, SDate(2100, 3, 1), 47906, 0},    {__LINE__, SDate(3000, 12, 31), 376929, 2},
};

TEST(DateAndTime, KnownDatesHaveTheirDayNumbersAndWeekdays)
{
    for (const KnownDate& row : KNOWN_DATES) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.dayNumber, CDateAndTime::getDaysFromDate(row.date));
        EXPECT_EQ(row.weekday, CDateAndTime::getDayOfWeek(row.date));
        EXPECT_EQ(row.weekday, CDateAndTime::getDayOfWeek(row.dayNumber));
    }
}

// The conversions use cycle arithmetic: every day up to 3000, and the first and last
// day of every later 16-bit year, must agree with a calendar counted plainly.
TEST(DateAndTime, DayNumbersAgreeWithAPlainCountUpToTheLast16BitYear)
{
    auto agrees = [](unsigned int year, unsigned int month, unsigned int day, unsigned int number) {
        const SDate date(static_cast<unsigned short>(year), static_cast<unsigned char>(month), static_cast<unsigned char>(day));
        SDate back;
        CDateAndTime::getDateFromDays(number, back);
        return CDateAndTime::getDaysFromDate(date) == number && back == date;
    };
    unsigned int first = 0;
    for (unsigned int year = 1969; year <= 65535; first += referenceYearLength(year), ++year) {
        ASSERT_TRUE(agrees(year, 1, 1, first) && agrees(year, 12, 31, first + referenceYearLength(year) - 1)) << year;
        for (unsigned int month = 1, number = first; month <= 12 && year <= 3000; ++month) {
            for (unsigned int day = 1; day <= referenceMonthLength(year, month); ++day, ++number)
                ASSERT_TRUE(agrees(year, month, day, number)) << year << "-" << month << "-" << day;
        }
    }
}

// Far beyond the valid range the conversions still count plainly: day numbers keep the
// year's low 16 bits (on either side of the point where the count from year 0 needs
// more than 30 bits), and a year below 1969 runs its whole years to that year plus
// 65,536 but has the months of the year as given (100 has no 29 February).
TEST(DateAndTime, ExtremeDayNumbersAndWrappedYearsFollowTheCalendar)
{
    struct Row {
        int line;
        unsigned int dayNumber;
        SDate date;
    };
    const Row fromDays[] = {
        {__LINE__, 1073022720u, SDate(56221, 6, 5)},
        {__LINE__, 1073022721u, SDate(56221, 6, 6)},
        {__LINE__, 0xFFFFFFFFu, SDate(30246, 1, 20)},
    };
    for (const Row& row : fromDays) {
        SCOPED_TRACE(row.line);
        SDate date;
        CDateAndTime::getDateFromDays(row.dayNumber, date);
        EXPECT_EQ(row.date, date);
    }
    const Row toDays[] = {
        {__LINE__, 23253953u, SDate(100, 3, 1)},
        {__LINE__, 23253953u, SDate(100, 2, 29)},
        {__LINE__, 23936226u, SDate(1968, 3, 1)},
        {__LINE__, 23936531u, SDate(1968, 12, 31)},
    };
    for (const Row& row : toDays) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.dayNumber, CDateAndTime::getDaysFromDate(row.date));
    }
}

TEST(DateAndTime, AnyValueGivesFieldsInRange)
{
    unsigned long long value = 0xFFFFFFFFFFFFFFFFull;
    for (int i = 0; i < 2000; ++i, value = value * 6364136223846793005ull + 1442695040888963407ull) {
        SDate date;
        STime time;
        CDateAndTime(value).getDateAndTime(date, time, 0);
        ASSERT_TRUE(date.mMonth >= 1 && date.mMonth <= 12 && date.mDay >= 1 && date.mDay <= 31) << value;
        ASSERT_TRUE(time.isValid()) << value;
    }
}

TEST(DateAndTime, LeapYearsFollowTheGregorianRule)
{
    for (const unsigned short year : {1900, 2000, 2004, 2100, 2023, 2400})
        EXPECT_EQ(osal_kit_test::referenceLeap(year), CDateAndTime::isLeapYear(year)) << year;
    EXPECT_TRUE(SDate(2400, 1, 1).isLeapYear());
    EXPECT_EQ(366, CDateAndTime::getDaysFromStart(2024)[12]);
    EXPECT_EQ(59, CDateAndTime::getDaysFromStart(2100)[2]);
}

TEST(DateAndTime, ValidationCoversTheRangeAndMonthLengths)
{
    const struct {
        int line;
        SDate date;
        bool valid;
    } rows[] = {
        {__LINE__, SDate(1968, 12, 31), false}, {__LINE__, SDate(1969, 1, 1), true},
        {__LINE__, SDate(3000, 12, 31), true},  {__LINE__, SDate(3001, 1, 1), false},
        {__LINE__, SDate(2000, 2, 29), true},   {__LINE__, SDate(2100, 2, 29), false},
        {__LINE__, SDate(1999, 2, 29), false},  {__LINE__, SDate(2024, 4, 31), false},
        {__LINE__, SDate(2024, 0, 1), false},   {__LINE__, SDate(2024, 13, 1), false},
        {__LINE__, SDate(2024, 1, 0), false},   {__LINE__, SDate(0, 1, 1), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.valid, CDateAndTime::isDateValid(row.date));
        EXPECT_EQ(row.valid, row.date.isValid());
    }
    EXPECT_TRUE(STime(23, 59, 59, 999999).isValid());
    for (const STime& time : {STime(24, 0, 0, 0), STime(0, 60, 0, 0), STime(0, 0, 60, 0), STime(0, 0, 0, 1000000)})
        EXPECT_FALSE(CDateAndTime::isTimeValid(time));
}

TEST(DateAndTime, DefaultIsTheEpochAndUnixTimeIsAYearLater)
{
    CDateAndTime dt;
    SDate date(2000, 5, 5);
    STime time(1, 2, 3, 4);
    dt.getDateAndTime(date, time, 0);
    EXPECT_EQ(SDate(1969, 1, 1), date);
    EXPECT_EQ(STime(0, 0, 0, 0), time);
    EXPECT_EQ(0u, dt.getMicrosecondsForUnixBaseTime());

    dt.setMicrosecondsFromUnixBaseTime(0);
    EXPECT_EQ(SDate(1970, 1, 1), dateOf(dt));
    EXPECT_EQ(CDateAndTime::msSecondsIn1Year * 1000000ull, dt.getMicroseconds());
    EXPECT_EQ(0u, dt.getMicrosecondsForUnixBaseTime());
    EXPECT_EQ(365 * CDateAndTime::msMicrosIn1Day, dt.getMicroseconds());

    // Instants in 1969 lie before the Unix epoch and wrap.
    EXPECT_EQ(18446712537709551617ull, CDateAndTime(1).getMicrosecondsForUnixBaseTime());
}

TEST(DateAndTime, SetDateKeepsTheTimeAndCountsOnPastTheMonthsEnd)
{
    CDateAndTime dt(SDate(2020, 6, 6), STime(10, 20, 30, 40), 0);
    dt.setDate(SDate(2023, 2, 31));
    EXPECT_EQ(SDate(2023, 3, 3), dateOf(dt));
    EXPECT_EQ(STime(10, 20, 30, 40), timeOf(dt));
    dt.setDate(2024, 2, 30);
    EXPECT_EQ(SDate(2024, 3, 1), dateOf(dt));
    // A month that cannot index the tables is pinned to January or December.
    dt.setDate(2024, 0, 5);
    EXPECT_EQ(SDate(2024, 1, 5), dateOf(dt));
    dt.setDate(2024, 200, 5);
    EXPECT_EQ(SDate(2024, 12, 5), dateOf(dt));
    // A year before 1969 counts as 65,536 years later.
    EXPECT_GT(CDateAndTime::getDaysFromDate(SDate(1968, 1, 1)),
              CDateAndTime::getDaysFromDate(SDate(65535, 12, 31)));
}

TEST(DateAndTime, SetTimeKeepsTheDay)
{
    CDateAndTime dt(SDate(2024, 5, 17), STime(10, 20, 30, 40), 0);
    dt.setTime(23, 59, 59, 999999);
    EXPECT_EQ(SDate(2024, 5, 17), dateOf(dt));
    EXPECT_EQ(STime(23, 59, 59, 999999), timeOf(dt));
    // The offset moves the hour, across midnight when the sum is negative.
    dt.setTime(STime(0, 30, 0, 0), -1);
    EXPECT_EQ(SDate(2024, 5, 16), dateOf(dt));
    EXPECT_EQ(STime(23, 30, 0, 0), timeOf(dt));
}

TEST(DateAndTime, HourOffsetsShiftTheWholeInstant)
{
    const CDateAndTime late(SDate(2023, 12, 31), STime(23, 30, 0, 0), 0);
    EXPECT_EQ(STime(1, 30, 0, 0), timeOf(late, 2));
    SDate date;
    STime time;
    late.getDateAndTime(date, time, 2);
    EXPECT_EQ(SDate(2024, 1, 1), date);

    const CDateAndTime early(SDate(2024, 1, 1), STime(0, 30, 0, 0), -1);
    early.getDateAndTime(date, time, 0);
    EXPECT_EQ(SDate(2023, 12, 31), date);
    EXPECT_EQ(STime(23, 30, 0, 0), time);
    early.getDateAndTime(date, time, 1);
    EXPECT_EQ(SDate(2024, 1, 1), date);
    EXPECT_EQ(STime(0, 30, 0, 0), time);

    EXPECT_EQ(0ull - HOUR / 2, CDateAndTime::getMicrosFromTime(STime(0, 30, 0, 0), -1));
    // A time of day is not reduced modulo 24 hours.
    CDateAndTime::getTimeFromMicros(23 * HOUR, time, 2);
    EXPECT_EQ(STime(25, 0, 0, 0), time);
    CDateAndTime::getTimeFromMicros(3 * HOUR + 1, time, -2);
    EXPECT_EQ(STime(1, 0, 0, 1), time);
}

TEST(DateAndTime, SpansMoveAndMeasureInstants)
{
    const CDateAndTime earlier(SDate(2024, 5, 17), STime(10, 0, 0, 0), 0);
    const CDateAndTime later(SDate(2024, 5, 18), STime(12, 30, 0, 0), 0);
    EXPECT_EQ(-1, earlier.compareTo(later));
    EXPECT_EQ(1, later.compareTo(earlier));
    EXPECT_EQ(0, earlier.compareTo(CDateAndTime(earlier.getMicroseconds())));

    CTimeSpan::Span span;
    earlier.subTimeStamp(later).getSpan(span);
    EXPECT_EQ(CTimeSpan::Span(true, 1, 2, 30, 0, 0), span);
    later.subTimeStamp(earlier).getSpan(span);
    EXPECT_EQ(CTimeSpan::Span(false, 1, 2, 30, 0, 0), span);

    CDateAndTime moved = later;
    moved.addTimeSpan(earlier.subTimeStamp(later));
    EXPECT_EQ(0, moved.compareTo(earlier));
    moved.subTimeSpan(earlier.subTimeStamp(later));
    EXPECT_EQ(0, moved.compareTo(later));
    moved.setMicroseconds(DAY);
    moved.subTimeSpan(CTimeSpan(2 * DAY));
    EXPECT_EQ(0ull - DAY, moved.getMicroseconds());
}

} // namespace
