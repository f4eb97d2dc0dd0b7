#ifndef OSAL_KIT_CORE_DATEANDTIME_H
#define OSAL_KIT_CORE_DATEANDTIME_H

#include "core/Export.h"
#include "core/TimeSpan.h"

namespace PAL {

/// A point in time: an unsigned 64-bit count of microseconds since 1969-01-01
/// 00:00:00.000000 on the Gregorian calendar, with no time zone of its own.
///
/// Day number 0 is Wednesday 1969-01-01; the dates of the valid range, 1969-01-01 to
/// 3000-12-31, have day numbers 0 to 376,929. Day numbers and dates convert in constant
/// time. No set operation validates its input (check with `isDateValid` /
/// `isTimeValid` first): a day beyond the month's end counts on into the next month
/// (31 February 2023 is 3 March), and all arithmetic wraps modulo 2^64. Nothing is
/// reported and nothing is allocated. `hourOffset` shifts a conversion by whole hours;
/// the library itself always passes 0. Concurrent use of one object needs the caller's
/// lock.
///
///     PAL::CDateAndTime when(PAL::CDateAndTime::SDate(2024, 5, 17),
///                            PAL::CDateAndTime::STime(10, 20, 30, 0), 0);
///     PAL::CDateAndTime::SDate date;
///     when.getDate(date);                               // 2024-05-17
///     unsigned char weekday = PAL::CDateAndTime::getDayOfWeek(date);  // 4, Friday
class OSAL_KIT_API CDateAndTime {
public:
    /// A calendar date. Defaults to 1969-01-01.
    struct OSAL_KIT_API SDate {
        unsigned short mYear; ///< 1969..3000 in a valid date
        unsigned char mMonth; ///< 1..12
        unsigned char mDay;   ///< 1..31

        SDate();
        /// The fields as given; nothing is checked.
        SDate(unsigned short year, unsigned char month, unsigned char day);

        ///@{
        /// All three fields equal.
        bool operator==(SDate const& other) const;
        bool operator!=(SDate const& other) const { return !(*this == other); }
        ///@}
        /// As `CDateAndTime::isLeapYear(mYear)`.
        bool isLeapYear() const;
        /// As `CDateAndTime::isDateValid(*this)`.
        bool isValid() const;
    };

    /// A time of day. Defaults to 00:00:00.000000.
    struct OSAL_KIT_API STime {
        unsigned char mHour;   ///< 0..23
        unsigned char mMinute; ///< 0..59
        unsigned char mSecond; ///< 0..59
        unsigned int mMicros;  ///< 0..999,999

        STime();
        /// The fields as given; nothing is checked.
        STime(unsigned char hour, unsigned char minute, unsigned char second, unsigned int micros);

        ///@{
        /// All four fields equal.
        bool operator==(STime const& other) const;
        bool operator!=(STime const& other) const { return !(*this == other); }
        ///@}
        /// As `CDateAndTime::isTimeValid(*this)`.
        bool isValid() const;
    };

    /// Microseconds in one day: 86,400,000,000.
    static const unsigned long long msMicrosIn1Day;
    /// Seconds in 365 days, 31,536,000: also the distance from this epoch to the Unix
    /// epoch 1970-01-01.
    static const unsigned long long msSecondsIn1Year;

    /// 1969-01-01 00:00:00.000000.
    CDateAndTime() : mMicroseconds(0) {}
    /// `micros` microseconds after 1969-01-01 00:00:00.
    explicit CDateAndTime(unsigned long long micros) : mMicroseconds(micros) {}
    /// As `setDateAndTime(date, time, hourOffset)`.
    CDateAndTime(SDate const& date, STime const& time, int hourOffset);

    ///@{
    /// The value itself: microseconds since 1969-01-01 00:00:00.
    void setMicroseconds(unsigned long long micros) { mMicroseconds = micros; }
    unsigned long long getMicroseconds() const { return mMicroseconds; }
    ///@}

    /// From microseconds since 1970-01-01 00:00:00 (wrapping modulo 2^64).
    void setMicrosecondsFromUnixBaseTime(unsigned long long unixMicros);
    /// Microseconds since 1970-01-01 00:00:00; 0 for the value 0, and instants in 1969
    /// wrap to very large values.
    unsigned long long getMicrosecondsForUnixBaseTime() const;

    /// Moves the instant by the span (backwards for a negative span), modulo 2^64.
    void addTimeSpan(CTimeSpan const& span);
    /// Moves the instant back by the span (forwards for a negative span), modulo 2^64.
    void subTimeSpan(CTimeSpan const& span);
    /// This instant minus `other`: negative when this one is earlier.
    CTimeSpan subTimeStamp(CDateAndTime const& other) const;
    /// -1, 0 or 1 as this instant is earlier than, equal to or later than `other`.
    int compareTo(CDateAndTime const& other) const;

    /// Replaces the day and keeps the time of day. A day beyond the month's end counts
    /// on into the following month; a month outside 1..12 is taken as 1 (below) or 12
    /// (above).
    void setDate(SDate const& date);
    /// As `setDate(SDate(year, month, day))`.
    void setDate(unsigned short year, unsigned char month, unsigned char day);
    /// The date of the instant (the year keeps its low 16 bits beyond 65,535).
    void getDate(SDate& date) const;

    /// Replaces the time of day and keeps the day; `hourOffset` is added to the hour,
    /// so a negative sum moves into the previous day.
    void setTime(STime const& time, int hourOffset);
    /// As `setTime(STime(hour, minute, second, micros), 0)`.
    void setTime(unsigned char hour, unsigned char minute, unsigned char second, unsigned int micros);
    /// The time of day of the instant shifted by `hourOffset` hours (hour 0..23).
    void getTime(STime& time, int hourOffset) const;

    /// Day number of `date` times one day plus the time of day with `hourOffset` added
    /// to its hour.
    void setDateAndTime(SDate const& date, STime const& time, int hourOffset);
    /// As `setDateAndTime(SDate(year, month, day), STime(hour, minute, second, micros), 0)`.
    void setDateAndTime(unsigned short year, unsigned char month, unsigned char day, unsigned char hour,
                        unsigned char minute, unsigned char second, unsigned int micros);
    /// Date and time of day of the instant shifted by `hourOffset` hours.
    void getDateAndTime(SDate& date, STime& time, int hourOffset) const;

    /// Divisible by 4 and either not by 100 or by 400: 2000 and 2004 are leap years,
    /// 1900 and 2100 are not.
    static bool isLeapYear(unsigned short year);
    /// 13 entries: the days of the year before each month (index month - 1), and the
    /// length of the year at index 12; the leap-year table for a leap year.
    static unsigned short const* getDaysFromStart(unsigned short year);
    /// Days from 1969-01-01 to `date`. The day is not checked against the month's
    /// length; a year below 1969 counts as that year plus 65,536.
    static unsigned int getDaysFromDate(SDate const& date);
    /// The date of day number `days`, the exact inverse of `getDaysFromDate`.
    static void getDateFromDays(unsigned int days, SDate& date);
    /// 0 = Monday .. 6 = Sunday; day 0 is a Wednesday (2).
    static unsigned char getDayOfWeek(unsigned int days);
    /// The weekday of `date`, as `getDayOfWeek(getDaysFromDate(date))`.
    static unsigned char getDayOfWeek(SDate const& date);
    /// Microseconds of the time of day, the hour shifted by `hourOffset`; a negative
    /// hour sum gives the count that, added to a day's start, lands that many hours
    /// before it (modulo 2^64).
    static unsigned long long getMicrosFromTime(STime const& time, int hourOffset);
    /// The time fields of `micros` (below one day) shifted by `hourOffset` hours; the
    /// hour is not reduced modulo 24.
    static void getTimeFromMicros(unsigned long long micros, STime& time, int hourOffset);
    /// Years 1969..3000, month 1..12, day 1..length of the month (29 February only in a
    /// leap year).
    static bool isDateValid(SDate const& date);
    /// Hour at most 23, minute and second at most 59, microseconds at most 999,999.
    static bool isTimeValid(STime const& time);

private:
    static void getDateFromLargeDays(unsigned int days, SDate& date);

    static const unsigned short sDaysFromStartArray[2][13];

    unsigned long long mMicroseconds;
};

} // namespace PAL

#endif
