#include "core/DateAndTime.h"

#include "core/private/TimeArithmetic.h"

namespace PAL {

using TimeArithmetic::MICROS_PER_SECOND;
using TimeArithmetic::MICROS_PER_HOUR;
using TimeArithmetic::MICROS_PER_DAY;
using TimeArithmetic::toBits;

const unsigned long long CDateAndTime::msMicrosIn1Day = 86400000000ull;
const unsigned long long CDateAndTime::msSecondsIn1Year = 31536000ull;

const unsigned short CDateAndTime::sDaysFromStartArray[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

namespace {

const unsigned long long UNIX_EPOCH_OFFSET_MICROS = 31536000ull * MICROS_PER_SECOND;

// Gregorian cycle lengths in days: 400, 100 and 4 years, and a common year.
const unsigned int DAYS_IN_400_YEARS = 146097u;
const unsigned int DAYS_IN_100_YEARS = 36524u;
const unsigned int DAYS_IN_4_YEARS = 1461u;
const unsigned int DAYS_IN_YEAR = 365u;

// Day 0, 1969-01-01, lies this many days after 0000-03-01 of the proleptic Gregorian
// calendar, the start of a 400-year cycle counted from March.
const unsigned int DAYS_FROM_MARCH_YEAR_0 = 719103u;
// The largest day number whose count from 0000-03-01, times four plus three, fits in
// 32 bits.
const unsigned int FAST_DAYS_LIMIT = (0xFFFFFFFFu - 3u) / 4u - DAYS_FROM_MARCH_YEAR_0;

const unsigned short EPOCH_YEAR = 1969u;
const unsigned short VALID_YEAR_SPAN = 1031u; // 1969 + 1031 = 3000

inline bool isLeap(unsigned int year)
{
    return year % 4u == 0u && (year % 100u != 0u || year % 400u == 0u);
}

// A month that cannot index the tables is pinned to the nearest real one.
inline unsigned int usableMonth(unsigned char month)
{
    if (month < 1u) {
        return 1u;
    }
    return month > 12u ? 12u : month;
}

// Shifts a count by whole hours modulo 2^64: added for a positive offset, the magnitude
// subtracted for a negative one.
inline unsigned long long shiftByHours(unsigned long long micros, int hourOffset)
{
    return micros + toBits(hourOffset) * MICROS_PER_HOUR;
}

} // namespace

CDateAndTime::SDate::SDate() : mYear(EPOCH_YEAR), mMonth(1), mDay(1)
{
}

CDateAndTime::SDate::SDate(unsigned short year, unsigned char month, unsigned char day)
    : mYear(year), mMonth(month), mDay(day)
{
}

bool CDateAndTime::SDate::operator==(SDate const& other) const
{
    return mYear == other.mYear && mMonth == other.mMonth && mDay == other.mDay;
}

bool CDateAndTime::SDate::isLeapYear() const
{
    return CDateAndTime::isLeapYear(mYear);
}

bool CDateAndTime::SDate::isValid() const
{
    return CDateAndTime::isDateValid(*this);
}

CDateAndTime::STime::STime() : mHour(0), mMinute(0), mSecond(0), mMicros(0)
{
}

CDateAndTime::STime::STime(unsigned char hour, unsigned char minute, unsigned char second, unsigned int micros)
    : mHour(hour), mMinute(minute), mSecond(second), mMicros(micros)
{
}

bool CDateAndTime::STime::operator==(STime const& other) const
{
    return mHour == other.mHour && mMinute == other.mMinute && mSecond == other.mSecond && mMicros == other.mMicros;
}

bool CDateAndTime::STime::isValid() const
{
    return CDateAndTime::isTimeValid(*this);
}

CDateAndTime::CDateAndTime(SDate const& date, STime const& time, int hourOffset) : mMicroseconds(0)
{
    setDateAndTime(date, time, hourOffset);
}

void CDateAndTime::setMicrosecondsFromUnixBaseTime(unsigned long long unixMicros)
{
    mMicroseconds = unixMicros + UNIX_EPOCH_OFFSET_MICROS;
}

unsigned long long CDateAndTime::getMicrosecondsForUnixBaseTime() const
{
    return mMicroseconds == 0 ? 0 : mMicroseconds - UNIX_EPOCH_OFFSET_MICROS;
}

void CDateAndTime::addTimeSpan(CTimeSpan const& span)
{
    mMicroseconds += span.getMicroseconds();
}

void CDateAndTime::subTimeSpan(CTimeSpan const& span)
{
    mMicroseconds -= span.getMicroseconds();
}

CTimeSpan CDateAndTime::subTimeStamp(CDateAndTime const& other) const
{
    return CTimeSpan(mMicroseconds - other.mMicroseconds);
}

int CDateAndTime::compareTo(CDateAndTime const& other) const
{
    if (mMicroseconds < other.mMicroseconds) {
        return -1;
    }
    return mMicroseconds > other.mMicroseconds ? 1 : 0;
}

void CDateAndTime::setDate(SDate const& date)
{
    const unsigned long long timeOfDay = mMicroseconds % MICROS_PER_DAY;
    mMicroseconds = static_cast<unsigned long long>(getDaysFromDate(date)) * MICROS_PER_DAY + timeOfDay;
}

void CDateAndTime::setDate(unsigned short year, unsigned char month, unsigned char day)
{
    setDate(SDate(year, month, day));
}

void CDateAndTime::getDate(SDate& date) const
{
    getDateFromDays(static_cast<unsigned int>(mMicroseconds / MICROS_PER_DAY), date);
}

void CDateAndTime::setTime(STime const& time, int hourOffset)
{
    mMicroseconds = (mMicroseconds - mMicroseconds % MICROS_PER_DAY) + getMicrosFromTime(time, hourOffset);
}

void CDateAndTime::setTime(unsigned char hour, unsigned char minute, unsigned char second, unsigned int micros)
{
    setTime(STime(hour, minute, second, micros), 0);
}

void CDateAndTime::getTime(STime& time, int hourOffset) const
{
    SDate date;
    getDateAndTime(date, time, hourOffset);
}

void CDateAndTime::setDateAndTime(SDate const& date, STime const& time, int hourOffset)
{
    mMicroseconds = static_cast<unsigned long long>(getDaysFromDate(date)) * MICROS_PER_DAY
        + getMicrosFromTime(time, hourOffset);
}

void CDateAndTime::setDateAndTime(unsigned short year, unsigned char month, unsigned char day, unsigned char hour,
                                  unsigned char minute, unsigned char second, unsigned int micros)
{
    setDateAndTime(SDate(year, month, day), STime(hour, minute, second, micros), 0);
}

void CDateAndTime::getDateAndTime(SDate& date, STime& time, int hourOffset) const
{
    const unsigned long long shifted = shiftByHours(mMicroseconds, hourOffset);
    getDateFromDays(static_cast<unsigned int>(shifted / MICROS_PER_DAY), date);
    getTimeFromMicros(shifted % MICROS_PER_DAY, time, 0);
}

bool CDateAndTime::isLeapYear(unsigned short year)
{
    return isLeap(year);
}

unsigned short const* CDateAndTime::getDaysFromStart(unsigned short year)
{
    return sDaysFromStartArray[isLeap(year) ? 1 : 0];
}

// Counted from 0000-03-01, years start after February, so the leap day is the last day
// of its year and the months from March on repeat 31, 30, 31, 30, 31 (153 days every
// five months). Both directions are then affine maps between day counts and years,
// months and days, evaluated with multiplications and shifts (as Neri and Schneider
// showed) instead of tables and loops. A day beyond the month's end simply counts on.
unsigned int CDateAndTime::getDaysFromDate(SDate const& date)
{
    const unsigned int years = static_cast<unsigned short>(date.mYear - EPOCH_YEAR);
    const unsigned int month = usableMonth(date.mMonth);
    const bool januaryOrFebruary = month <= 2u;
    const unsigned int year = EPOCH_YEAR + years - (januaryOrFebruary ? 1u : 0u); // below 1969: plus 65,536
    const unsigned int monthFromYear0 = januaryOrFebruary ? month + 12u : month;
    const unsigned int century = year / 100u;
    const unsigned int yearDays = DAYS_IN_4_YEARS * year / 4u - century + century / 4u;
    const unsigned int monthDays = (979u * monthFromYear0 - 2919u) / 32u;
    unsigned int days = yearDays + monthDays + date.mDay - 1u - DAYS_FROM_MARCH_YEAR_0;
    if (date.mYear < EPOCH_YEAR && !januaryOrFebruary) {
        // The whole years run to the year plus 65,536, but the months are those of the
        // year as given: its own 29 February or none.
        days = days - (isLeap(EPOCH_YEAR + years) ? 1u : 0u) + (isLeap(date.mYear) ? 1u : 0u);
    }
    return days;
}

void CDateAndTime::getDateFromDays(unsigned int days, SDate& date)
{
    if (days > FAST_DAYS_LIMIT) {
        getDateFromLargeDays(days, date);
        return;
    }
    const unsigned int fromYear0 = days + DAYS_FROM_MARCH_YEAR_0;
    const unsigned int quarterDays = 4u * fromYear0 + 3u;
    const unsigned int century = quarterDays / DAYS_IN_400_YEARS;
    const unsigned int ofCentury = (quarterDays % DAYS_IN_400_YEARS) / 4u;
    const unsigned long long yearPart = 2939745ull * (4u * ofCentury + 3u);
    const unsigned int yearOfCentury = static_cast<unsigned int>(yearPart >> 32);
    const unsigned int dayOfYear = static_cast<unsigned int>(yearPart & 0xFFFFFFFFull) / 2939745u / 4u;
    const unsigned int monthPart = 2141u * dayOfYear + 197913u;
    const unsigned int month = monthPart >> 16; // 3 .. 14, January and February last
    const bool januaryOrFebruary = dayOfYear >= 306u;
    date.mYear = static_cast<unsigned short>(100u * century + yearOfCentury + (januaryOrFebruary ? 1u : 0u));
    date.mMonth = static_cast<unsigned char>(januaryOrFebruary ? month - 12u : month);
    date.mDay = static_cast<unsigned char>((monthPart & 0xFFFFu) / 2141u + 1u);
}

// Day numbers whose count from year 0 no longer fits four times in 32 bits (years far
// beyond the valid range): whole 400-year cycles first, then the year, the day of the
// year and the month by divisions.
void CDateAndTime::getDateFromLargeDays(unsigned int days, SDate& date)
{
    unsigned int cycles = 0;
    unsigned int rest = days;
    if (rest > 0xFFFFFFFFu - DAYS_FROM_MARCH_YEAR_0) {
        cycles = rest / DAYS_IN_400_YEARS;
        rest %= DAYS_IN_400_YEARS;
    }
    rest += DAYS_FROM_MARCH_YEAR_0;
    cycles += rest / DAYS_IN_400_YEARS;
    rest %= DAYS_IN_400_YEARS;
    const unsigned int yearOfCycle =
        (rest - rest / (DAYS_IN_4_YEARS - 1u) + rest / DAYS_IN_100_YEARS - rest / (DAYS_IN_400_YEARS - 1u)) / DAYS_IN_YEAR;
    const unsigned int dayOfYear = rest - (DAYS_IN_YEAR * yearOfCycle + yearOfCycle / 4u - yearOfCycle / 100u);
    const unsigned int monthFromMarch = (5u * dayOfYear + 2u) / 153u;
    const unsigned int month = monthFromMarch < 10u ? monthFromMarch + 3u : monthFromMarch - 9u;
    date.mYear = static_cast<unsigned short>(cycles * 400u + yearOfCycle + (month <= 2u ? 1u : 0u));
    date.mMonth = static_cast<unsigned char>(month);
    date.mDay = static_cast<unsigned char>(dayOfYear - (153u * monthFromMarch + 2u) / 5u + 1u);
}

unsigned char CDateAndTime::getDayOfWeek(unsigned int days)
{
    return static_cast<unsigned char>((days % 7u + 2u) % 7u);
}

unsigned char CDateAndTime::getDayOfWeek(SDate const& date)
{
    return getDayOfWeek(getDaysFromDate(date));
}

unsigned long long CDateAndTime::getMicrosFromTime(STime const& time, int hourOffset)
{
    const long long hours = static_cast<long long>(time.mHour) + hourOffset;
    const long long seconds = hours * 3600 + time.mMinute * 60 + time.mSecond;
    return toBits(seconds) * MICROS_PER_SECOND + time.mMicros;
}

void CDateAndTime::getTimeFromMicros(unsigned long long micros, STime& time, int hourOffset)
{
    const unsigned long long shifted = shiftByHours(micros, hourOffset);
    time.mMicros = static_cast<unsigned int>(shifted % MICROS_PER_SECOND);
    const unsigned long long seconds = shifted / MICROS_PER_SECOND;
    time.mHour = static_cast<unsigned char>(seconds / 3600u);
    time.mMinute = static_cast<unsigned char>((seconds % 3600u) / 60u);
    time.mSecond = static_cast<unsigned char>(seconds % 60u);
}

bool CDateAndTime::isDateValid(SDate const& date)
{
    if (static_cast<unsigned short>(date.mYear - EPOCH_YEAR) > VALID_YEAR_SPAN) {
        return false;
    }
    if (date.mMonth < 1u || date.mMonth > 12u) {
        return false;
    }
    const unsigned short* table = getDaysFromStart(date.mYear);
    return date.mDay >= 1u && date.mDay <= table[date.mMonth] - table[date.mMonth - 1u];
}

bool CDateAndTime::isTimeValid(STime const& time)
{
    return time.mHour <= 23u && time.mMinute <= 59u && time.mSecond <= 59u && time.mMicros <= 999999u;
}

} // namespace PAL
