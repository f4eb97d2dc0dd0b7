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

// 1601-01-01 starts a 400-year cycle; our day 0 lies this many days after it.
const unsigned int CYCLE_YEAR = 1601u;
const unsigned int DAYS_FROM_CYCLE_START = 134409u;

const unsigned short EPOCH_YEAR = 1969u;
const unsigned short VALID_YEAR_SPAN = 1031u; // 1969 + 1031 = 3000

inline bool isLeap(unsigned int year)
{
    return year % 4u == 0u && (year % 100u != 0u || year % 400u == 0u);
}

// Leap years among 1 .. year.
inline unsigned int leapYearsThrough(unsigned int year)
{
    return year / 4u - year / 100u + year / 400u;
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

// Whole years are counted by formula: 365 a year plus the leap days of the years from
// 1969 to the one before `date`'s, as the difference of two leap-year counts from year 1.
unsigned int CDateAndTime::getDaysFromDate(SDate const& date)
{
    const unsigned int years = static_cast<unsigned short>(date.mYear - EPOCH_YEAR);
    const unsigned int year = EPOCH_YEAR + years; // below 1969: plus 65,536
    const unsigned int leapDays = leapYearsThrough(year - 1u) - leapYearsThrough(EPOCH_YEAR - 1u);
    const unsigned short* table = getDaysFromStart(date.mYear);
    return years * DAYS_IN_YEAR + leapDays + table[usableMonth(date.mMonth) - 1u] + date.mDay - 1u;
}

// The Gregorian calendar repeats every 400 years; within a cycle a century has 36,524
// days, four years 1,461 and a year 365, except that the last century of a cycle and
// the last year of four have one day more. Counting from 1601-01-01, which starts a
// cycle, the quotients give the year directly. The last day of a long century or of
// a leap year gives a quotient of 4, which is pinned to 3.
void CDateAndTime::getDateFromDays(unsigned int days, SDate& date)
{
    // days + DAYS_FROM_CYCLE_START may not fit in 32 bits; split it into cycles first.
    unsigned int cycles = days / DAYS_IN_400_YEARS;
    unsigned int rest = days % DAYS_IN_400_YEARS + DAYS_FROM_CYCLE_START;
    if (rest >= DAYS_IN_400_YEARS) {
        rest -= DAYS_IN_400_YEARS;
        ++cycles;
    }
    unsigned int centuries = rest / DAYS_IN_100_YEARS;
    if (centuries == 4u) {
        centuries = 3u;
    }
    rest -= centuries * DAYS_IN_100_YEARS;
    const unsigned int olympiads = rest / DAYS_IN_4_YEARS;
    rest %= DAYS_IN_4_YEARS;
    unsigned int years = rest / DAYS_IN_YEAR;
    if (years == 4u) {
        years = 3u;
    }
    rest -= years * DAYS_IN_YEAR; // day of the year, 0..365

    const unsigned int year = CYCLE_YEAR + cycles * 400u + centuries * 100u + olympiads * 4u + years;
    const unsigned short* table = sDaysFromStartArray[isLeap(year) ? 1 : 0];
    unsigned int month = 1u;
    while (month < 12u && table[month] <= rest) {
        ++month;
    }
    date.mYear = static_cast<unsigned short>(year);
    date.mMonth = static_cast<unsigned char>(month);
    date.mDay = static_cast<unsigned char>(rest - table[month - 1u] + 1u);
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
