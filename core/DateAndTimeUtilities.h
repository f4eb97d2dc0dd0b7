#ifndef OSAL_KIT_CORE_DATEANDTIMEUTILITIES_H
#define OSAL_KIT_CORE_DATEANDTIMEUTILITIES_H

#include "core/DateAndTime.h"
#include "core/Export.h"
#include "core/String.h"
#include "core/TimeSpan.h"

namespace PAL {

/// Calendar arithmetic and text forms on top of `CDateAndTime`.
///
/// The functions keep no state: any thread may call them, and a value shared between
/// threads needs the caller's lock. Failures are reported by a false result (or an
/// empty string), never traced. Weekdays are 0 = Monday .. 6 = Sunday; a week start
/// day of 7 or more is taken modulo 7.
///
///     PAL::CDateAndTime when;
///     PAL::DateAndTimeUtilities::STimeZoneOffset zone;
///     if (PAL::DateAndTimeUtilities::FromString(when, "2024-01-31T10:00:00+02:00",
///                                               PAL::DateAndTimeUtilities::eFormatISO8601, &zone)) {
///         PAL::DateAndTimeUtilities::AddMonths(when, 1, PAL::DateAndTimeUtilities::eKeep);
///         // 2024-02-29T10:00:00+02:00: the zone is carried alongside, never applied
///         PAL::CString text = PAL::DateAndTimeUtilities::ToString(
///             when, PAL::DateAndTimeUtilities::eFormatISO8601, 0, zone);
///     }
namespace DateAndTimeUtilities {

/// Where the result of an Add/Sub operation lands within its target period (the year,
/// month, week, or the day itself for the day functions). Other values never crash
/// but give no defined result.
enum eSetMode : int {
    eKeep = 0,       ///< day of month and time of day stay (clamped to the month's end)
    eSetToStart = 1, ///< the period's first day at 00:00:00.000000
    eSetToEnd = 2    ///< the period's last day at 23:59:59.000000
};

/// The text forms of `FromString` / `ToString`. The type holds any int, so a value
/// outside the list is a defined value that is refused (false, or the empty string).
enum eDateTimeFormat : int {
    /// YYYY-MM-DDThh:mm:ss with optional fraction and zone; when read, the '-' and ':'
    /// separators may be left out (20240517T102030).
    eFormatISO8601 = 0,
    /// YYYY-MM-DD hh:mm:ss with optional fraction, no zone, every separator required.
    eFormatSpaceSeparated = 1
};

/// Option bits of `ToString`, in any combination.
enum eFormatOptions {
    eDateOnly = 1,       ///< the date only
    eWithFraction = 2,   ///< "." and the microseconds in decimal (5 us give ".5")
    eWithoutTimeZone = 4 ///< no zone suffix
};

/// An offset from UTC in whole minutes, -12:00 .. +14:00, as carried by ISO 8601 text.
/// Default: not valid. An offset is only ever handed back to the caller; nothing in
/// the library applies it to a `CDateAndTime`.
struct OSAL_KIT_API STimeZoneOffset {
    int mOffsetMinutes; ///< -720 .. 840 when valid
    bool mIsValid;      ///< false: `mOffsetMinutes` means nothing

    /// Offset 0, not valid.
    STimeZoneOffset();
    /// As `Set(hours, minutes)`; when that refuses, the offset is not valid.
    STimeZoneOffset(signed char const& hours, unsigned char const& minutes);

    /// Sets hours * 60 plus the minutes, which take the sign of the hours (so -00:30
    /// cannot be set: it is +00:30). Refuses, returning false and changing nothing, for
    /// minutes above 59 or a total outside -720 .. 840.
    bool Set(signed char const& hours, unsigned char const& minutes);
    /// Offset 0, valid.
    void SetUTC();
    /// False for a default offset, and for one whose constructor's `Set` refused.
    bool IsValid() const { return mIsValid; }
    /// Valid and 0.
    bool IsUTC() const { return mIsValid && mOffsetMinutes == 0; }
    ///@{
    /// Both valid with equal offsets; two offsets that are not valid are not equal.
    bool operator==(STimeZoneOffset const& other) const;
    bool operator!=(STimeZoneOffset const& other) const { return !(*this == other); }
    ///@}

    /// Reads "" or "Z" (UTC), or a sign followed by hhmm or hh:mm ("+05:30", "-0330").
    /// Anything else ("+5:30", "05:30", "z", "+14:01") returns false and changes nothing.
    bool FromString(CString const& text);
    /// "Z" for UTC, "+hh:mm" / "-hh:mm" otherwise, empty when not valid.
    CString ToString() const;
    /// The offset as a span (negative west of UTC); zero when not valid.
    CTimeSpan GetAsTimeSpan() const;
};

/// Reads the real-time clock into `dt` (whole seconds, as the platform delivers it).
/// Returns false and leaves `dt` unchanged when the clock cannot be read.
OSAL_KIT_API bool FromSystemTime(CDateAndTime& dt);

/// 1 January of `dt`'s year.
OSAL_KIT_API CDateAndTime::SDate GetStartOfYear(CDateAndTime const& dt);

/// True when both fall on the same calendar date, whatever their times.
OSAL_KIT_API bool CompareDates(CDateAndTime const& a, CDateAndTime const& b);

/// Days (0..6) since the most recent `weekStartDay` on or before `dt`'s date.
OSAL_KIT_API unsigned char GetWeekStartOffset(CDateAndTime const& dt, unsigned char const& weekStartDay);

/// Day of the year, 1..366.
OSAL_KIT_API unsigned int GetYearDay(CDateAndTime const& dt);

/// Week of the year for weeks starting on `weekStartDay`, where the first week must
/// hold at least `minDaysInFirstWeek` days of the year (otherwise its days belong to
/// the last week of the previous year). Days at the end of a year never get week 1 of
/// the next: numbering runs on to 53, or 54. With (0, 4) this is the ISO 8601 week
/// except for those last days: 2021-01-01 is week 53 (of 2020), 2024-12-30 is week 53.
OSAL_KIT_API unsigned int GetWeekNumber(CDateAndTime const& dt, unsigned char const& weekStartDay,
                                        unsigned char const& minDaysInFirstWeek);

/// Moves `dt` by whole years. `eKeep` keeps month, day and time (29 February becomes
/// 28 February in a common year); `eSetToStart` gives 1 January 00:00:00 and
/// `eSetToEnd` 31 December 23:59:59 of the target year. Returns false when the result
/// lies outside 1969..3000, leaving the computed value in `dt`.
OSAL_KIT_API bool AddYears(CDateAndTime& dt, int const& years, eSetMode const& mode);
/// `AddYears` by -`years`.
OSAL_KIT_API bool SubYears(CDateAndTime& dt, int const& years, eSetMode const& mode);

/// Moves `dt` by whole months. `eKeep` keeps day and time, clamped to the target
/// month's last day (2023-01-31 + 1 month is 2023-02-28); `eSetToStart` gives the 1st at
/// 00:00:00 and `eSetToEnd` the last day at 23:59:59. Returns false when the result
/// lies outside 1969..3000 (or the target year does not fit in 16 bits), leaving the
/// computed value in `dt`.
OSAL_KIT_API bool AddMonths(CDateAndTime& dt, int const& months, eSetMode const& mode);
/// `AddMonths` by -`months`.
OSAL_KIT_API bool SubMonths(CDateAndTime& dt, int const& months, eSetMode const& mode);

/// Moves `dt` by whole weeks. `eSetToStart` gives the target week's first day (its
/// `weekStartDay`) at 00:00:00 and `eSetToEnd` its seventh day at 23:59:59. Refuses as
/// `AddDays` does, restoring `dt`.
OSAL_KIT_API bool AddWeeks(CDateAndTime& dt, int const& weeks, eSetMode const& mode,
                           unsigned char const& weekStartDay);
/// `AddWeeks` by -`weeks`.
OSAL_KIT_API bool SubWeeks(CDateAndTime& dt, int const& weeks, eSetMode const& mode,
                           unsigned char const& weekStartDay);

/// Moves `dt` by whole days; `eSetToStart` then sets 00:00:00.000000 and `eSetToEnd`
/// 23:59:59.000000. Returns false and restores `dt` when its date is not valid to begin
/// with or the result would leave 1969-01-01 .. 3000-12-31.
OSAL_KIT_API bool AddDays(CDateAndTime& dt, int const& days, eSetMode const& mode);
/// `AddDays` by -`days`.
OSAL_KIT_API bool SubDays(CDateAndTime& dt, int const& days, eSetMode const& mode);

/// Whether `dt` is the `occurrence`-th `weekday` of its month, counted from the end
/// for a negative occurrence (-1: the last). An occurrence of 0 asks only for the
/// weekday; a weekday of 7 or more never matches.
OSAL_KIT_API bool IsWeekdayOfMonth(CDateAndTime const& dt, unsigned char const& weekday, int const& occurrence);
/// As `IsWeekdayOfMonth`, within the year.
OSAL_KIT_API bool IsWeekdayOfYear(CDateAndTime const& dt, unsigned char const& weekday, int const& occurrence);

/// Reads `text` in `format` into `dt`. A zone in the text goes to `*zone` (reset to
/// not valid first; may be null) and is not applied to `dt`, which holds the date and
/// time as written. The fraction's digits count microseconds ("10:20:30.5" is 5 us). A
/// refusal returns false and leaves `dt` unchanged (a zone read before it stays in
/// `*zone`): a date that does not exist (2024-02-30), a text that ends after the year,
/// month, hour or minute or on a separator, a missing date-time separator, or, for
/// `eFormatSpaceSeparated`, a missing separator or any zone.
OSAL_KIT_API bool FromString(CDateAndTime& dt, CString const& text, eDateTimeFormat const& format,
                             STimeZoneOffset* zone);

/// Writes `dt` in `format` with the `eFormatOptions` bits in `options`:
/// "2024-05-17T10:20:30+02:00" or "2024-05-17 10:20:30" (never a zone). An unknown
/// format, or no memory for the text, gives the empty string.
OSAL_KIT_API CString ToString(CDateAndTime const& dt, eDateTimeFormat const& format, unsigned int const& options,
                              STimeZoneOffset const& zone);

} // namespace DateAndTimeUtilities
} // namespace PAL

#endif
