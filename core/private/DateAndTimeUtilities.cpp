#include "core/DateAndTimeUtilities.h"

#include "morvex_pal_clock.h"
#include "morvex_pal_scan.h"

namespace PAL {
namespace DateAndTimeUtilities {

namespace {

typedef CDateAndTime::SDate SDate;
typedef CDateAndTime::STime STime;

// Day numbers 0 .. 376,929 are the valid range; a step of more days than that leaves it
// from any valid date, whatever the 64-bit arithmetic would make of it.
const long long DAYS_IN_VALID_RANGE = 376930;

SDate dateOf(CDateAndTime const& dt)
{
    SDate date;
    dt.getDate(date);
    return date;
}

CDateAndTime startOfDay(SDate const& date)
{
    return CDateAndTime(date, STime(), 0);
}

unsigned char weekdayOf(CDateAndTime const& dt)
{
    return CDateAndTime::getDayOfWeek(dateOf(dt));
}

// The Add functions work on 64-bit counts so that a caller's count, scaled to months or
// days or negated by a Sub function, never overflows.

bool addMonths(CDateAndTime& dt, long long months, eSetMode mode)
{
    const SDate date = dateOf(dt);
    const unsigned char day = mode == eKeep ? date.mDay : 1;
    const long long count = months + (mode == eSetToEnd ? 1 : 0);
    const long long monthsFromJanuary = (date.mMonth - 1) + count;
    long long yearsOn = monthsFromJanuary / 12;
    long long monthIndex = monthsFromJanuary % 12;
    if (monthIndex < 0) {
        monthIndex += 12;
        --yearsOn;
    }
    const long long year = date.mYear + yearsOn;
    const unsigned char month = static_cast<unsigned char>(monthIndex + 1);

    // A day past the target month's end lands early in the next month; the clamp below
    // steps back by that many days to the target month's last day.
    dt.setDate(static_cast<unsigned short>(year), month, day);
    if (mode == eKeep) {
        const SDate landed = dateOf(dt);
        if (landed.mMonth != month && landed.mDay != day) {
            CTimeSpan overshoot;
            overshoot.setDays(landed.mDay);
            dt.subTimeSpan(overshoot);
        }
    } else {
        dt.setTime(0, 0, 0, 0);
        if (mode == eSetToEnd) {
            CTimeSpan oneSecond;
            oneSecond.setSeconds(1);
            dt.subTimeSpan(oneSecond);
        }
    }
    // A year that did not fit in 16 bits was cut to its low bits and may look valid.
    if (year < 0 || year > 0xFFFF) {
        return false;
    }
    return CDateAndTime::isDateValid(dateOf(dt));
}

bool addYears(CDateAndTime& dt, long long years, eSetMode mode)
{
    long long months = 12 * years;
    const int month = dateOf(dt).mMonth;
    if (mode == eSetToStart) {
        months += 1 - month;
    } else if (mode == eSetToEnd) {
        months += 12 - month;
    }
    return addMonths(dt, months, mode);
}

bool addDays(CDateAndTime& dt, long long days, eSetMode mode)
{
    if (!CDateAndTime::isDateValid(dateOf(dt))) {
        return false;
    }
    if (days > DAYS_IN_VALID_RANGE || days < -DAYS_IN_VALID_RANGE) {
        return false;
    }
    const CDateAndTime original = dt;
    if (days != 0) {
        CTimeSpan step;
        step.setDays(static_cast<int>(days));
        dt.addTimeSpan(step);
        const int moved = dt.compareTo(original);
        if ((days > 0 && moved < 0) || (days < 0 && moved > 0)) {
            dt = original;
            return false;
        }
    }
    if (!CDateAndTime::isDateValid(dateOf(dt))) {
        dt = original;
        return false;
    }
    if (mode == eSetToStart) {
        dt.setTime(0, 0, 0, 0);
    } else if (mode == eSetToEnd) {
        dt.setTime(23, 59, 59, 0);
    }
    return true;
}

bool addWeeks(CDateAndTime& dt, long long weeks, eSetMode mode, unsigned char weekStartDay)
{
    long long days = 7 * weeks;
    if (mode != eKeep) {
        days -= GetWeekStartOffset(dt, weekStartDay);
        if (mode == eSetToEnd) {
            days += 6;
        }
    }
    return addDays(dt, days, mode);
}

// Week of day `yearDay` (1-based) in a year whose 1 January falls on `januaryFirst`.
// 0 means the day lies in a short first week that belongs to the previous year.
unsigned int weekOfYear(unsigned int yearDay, unsigned int januaryFirst, unsigned int weekStartDay,
                        unsigned int minDaysInFirstWeek)
{
    // Days of the year before its first weekStartDay: the short first week.
    const unsigned int shortWeek =
        weekStartDay >= januaryFirst ? weekStartDay - januaryFirst : weekStartDay + 7u - januaryFirst;
    unsigned int week = 1u;
    if (yearDay > shortWeek) {
        week = (yearDay - 1u - shortWeek) / 7u + 1u + (shortWeek != 0u ? 1u : 0u);
    }
    const unsigned int firstWeekDays = shortWeek == 0u ? 7u : shortWeek;
    if (minDaysInFirstWeek <= firstWeekDays) {
        return week;
    }
    return week - 1u;
}

// Whether `dt` (known to fall on the wanted weekday) is the occurrence-th one between
// `periodStart` and `nextPeriodStart`.
bool isOccurrence(CDateAndTime const& dt, int occurrence, CDateAndTime const& periodStart,
                  CDateAndTime const& nextPeriodStart)
{
    if (occurrence > 0) {
        const int days = dt.subTimeStamp(periodStart).getDays();
        return days / 7 == occurrence - 1;
    }
    // Whole days after dt's own day, counted from that day's start: measured from dt
    // itself, an instant late in its last second would lose a day.
    const long long days = nextPeriodStart.subTimeStamp(startOfDay(dateOf(dt))).getDays() - 1;
    return days / 7 == -static_cast<long long>(occurrence) - 1;
}

// One row per field of the ISO 8601 based reader, in the order the fields appear. The
// date-time separator of the day is the caller's.
enum eSeparatorRule {
    SEPARATOR_REQUIRED,   // the separator must follow
    SEPARATOR_OPTIONAL,   // may be missing when separators are optional
    SEPARATOR_MAY_BE_MISSING // always optional
};

struct SParseField {
    unsigned int mChars;   // characters taken; 0 for the fraction's run of digits
    const char* mFormat;
    bool mHasSeparator;
    char mSeparator;
    eSeparatorRule mRule;
};

const unsigned int FIELD_DAY = 2;
const unsigned int FIELD_MINUTE = 4;
const unsigned int FIELD_SECOND = 5;
const unsigned int FIELD_FRACTION = 6;
const unsigned int FIELD_ZONE = 7;
const unsigned int FIELD_COUNT = 8;

const SParseField PARSE_TABLE[FIELD_ZONE] = {
    {4, "%04u", true, '-', SEPARATOR_OPTIONAL},
    {2, "%02u", true, '-', SEPARATOR_OPTIONAL},
    {2, "%02u", true, 'T', SEPARATOR_REQUIRED},
    {2, "%02u", true, ':', SEPARATOR_OPTIONAL},
    {2, "%02u", true, ':', SEPARATOR_OPTIONAL},
    {2, "%02u", true, '.', SEPARATOR_MAY_BE_MISSING},
    {0, "%u", false, '\0', SEPARATOR_MAY_BE_MISSING},
};

// Longest UTF-8 sequence of the string's encoding, for the scratch buffer of a field.
const unsigned int MAX_SEQUENCE_BYTES = 6;
// Digits of the largest fraction that passes validation, 999,999.
const unsigned int FRACTION_DIGITS = 6;
const unsigned int FRACTION_TOO_LARGE = 1000000;

// Bytes of the character at `text[offset]`; a NUL inside the text is a character too.
unsigned int characterBytes(const char* text, unsigned int offset, unsigned int size)
{
    unsigned int bytes = UTF8LookUpTable[static_cast<unsigned char>(text[offset])];
    if (bytes > MAX_SEQUENCE_BYTES) {
        bytes = 1;
    }
    return bytes > size - offset ? size - offset : bytes;
}

// Bytes of the next `chars` characters from `offset`, or false when fewer remain.
bool takeCharacters(const char* text, unsigned int offset, unsigned int size, unsigned int chars,
                    unsigned int& bytes)
{
    bytes = 0;
    for (unsigned int taken = 0; taken < chars; ++taken) {
        if (offset + bytes >= size) {
            return false;
        }
        bytes += characterBytes(text, offset + bytes, size);
    }
    return true;
}

// Scans exactly `bytes` bytes from `text` with `format`, as the platform's sscanf does.
bool scanField(const char* text, unsigned int bytes, const char* format, unsigned int& value)
{
    char field[4 * MAX_SEQUENCE_BYTES + 1];
    if (bytes >= sizeof field) {
        return false;
    }
    for (unsigned int i = 0; i < bytes; ++i) {
        field[i] = text[i];
    }
    field[bytes] = '\0';
    return Morvex_PAL_sscanf(field, format, &value) == 1;
}

// The run of digits is read as microseconds. A value above 999,999 fails validation
// later, so a longer run is not scanned at all: it is recorded as too large, which
// also keeps sscanf away from a number beyond 32 bits.
bool scanFraction(const char* digits, unsigned int count, unsigned int& value)
{
    if (count == 0) {
        return false;
    }
    unsigned int first = 0;
    while (first + 1 < count && digits[first] == '0') {
        ++first;
    }
    if (count - first > FRACTION_DIGITS) {
        value = FRACTION_TOO_LARGE;
        return true;
    }
    return scanField(digits + first, count - first, "%u", value);
}

bool FromStringISO8601based(CDateAndTime& dt, CString const& text, bool const& separatorsOptional,
                            char const& dateTimeSeparator, bool const& timeZoneAllowed, STimeZoneOffset* zone)
{
    const char* const chars = text.getBuffer();
    const unsigned int size = text.getSize();
    unsigned int values[FIELD_ZONE] = {0, 0, 0, 0, 0, 0, 0};
    unsigned int position = 0;
    unsigned int field = 0;
    bool ok = true;

    while (position < size && field != FIELD_COUNT && ok) {
        if (field == FIELD_ZONE) {
            if (!timeZoneAllowed) {
                ok = false;
                break;
            }
            const CString rest(chars + position, size - position);
            STimeZoneOffset scratch;
            // Without memory the rest would read as empty, which is UTC: refuse instead.
            ok = rest.getSize() == size - position && (zone != 0 ? *zone : scratch).FromString(rest);
            field = FIELD_COUNT;
            break;
        }

        const SParseField& row = PARSE_TABLE[field];
        unsigned int bytes = 0;
        if (field == FIELD_FRACTION) {
            while (position + bytes < size && chars[position + bytes] >= '0' && chars[position + bytes] <= '9') {
                ++bytes;
            }
            ok = scanFraction(chars + position, bytes, values[field]);
        } else {
            ok = takeCharacters(chars, position, size, row.mChars, bytes)
                && scanField(chars + position, bytes, row.mFormat, values[field]);
        }
        if (!ok) {
            break;
        }
        position += bytes;
        if (position == size) {
            break;
        }

        const char separator = field == FIELD_DAY ? dateTimeSeparator : row.mSeparator;
        if (row.mHasSeparator && chars[position] == separator) {
            ++position;
            if (position == size) {
                ok = false; // a trailing separator
            } else {
                ++field;
            }
        } else if (row.mRule == SEPARATOR_MAY_BE_MISSING
                   || (row.mRule == SEPARATOR_OPTIONAL && separatorsOptional)) {
            field += field == FIELD_SECOND ? 2 : 1;
        } else {
            ok = false;
        }
    }

    // The text may end after the day, or after the seconds, the fraction or the zone.
    if (!ok || (field != FIELD_DAY && field <= FIELD_MINUTE)) {
        return false;
    }
    // Values too wide for their fields would be cut to look like something else.
    if (values[0] > 0xFFFFu || values[1] > 0xFFu || values[2] > 0xFFu || values[3] > 0xFFu || values[4] > 0xFFu
        || values[5] > 0xFFu) {
        return false;
    }
    const SDate date(static_cast<unsigned short>(values[0]), static_cast<unsigned char>(values[1]),
                     static_cast<unsigned char>(values[2]));
    const STime time(static_cast<unsigned char>(values[3]), static_cast<unsigned char>(values[4]),
                     static_cast<unsigned char>(values[5]), values[FIELD_FRACTION]);
    if (!date.isValid() || !time.isValid()) {
        return false;
    }
    dt.setDateAndTime(date, time, 0);
    return true;
}

// Offsets from UTC that a zone may take, in minutes: -12:00 .. +14:00.
const int MIN_OFFSET_MINUTES = -720;
const int MAX_OFFSET_MINUTES = 840;

// |minutes| without overflow, whatever a caller stored in the public field.
unsigned int offsetMagnitude(int minutes)
{
    return minutes < 0 ? 0u - static_cast<unsigned int>(minutes) : static_cast<unsigned int>(minutes);
}

// Appends `part`; false when it did not fit in memory.
bool appendPart(CString& text, CString const& part)
{
    const unsigned int before = text.getSize();
    text.append(part);
    return text.getSize() == before + part.getSize();
}

CString ToStringISO8601based(CDateAndTime const& dt, unsigned int const& options, STimeZoneOffset const& zone,
                             char const& dateTimeSeparator, bool const& withTimeZone)
{
    SDate date;
    STime time;
    dt.getDateAndTime(date, time, 0);
    CString text;
    if (!text.format("%04u-%02u-%02u", static_cast<unsigned int>(date.mYear), static_cast<unsigned int>(date.mMonth),
                     static_cast<unsigned int>(date.mDay))) {
        return CString();
    }
    if ((options & eDateOnly) != 0) {
        return text;
    }
    CString part;
    if (!part.format("%c%02u:%02u:%02u", dateTimeSeparator, static_cast<unsigned int>(time.mHour),
                     static_cast<unsigned int>(time.mMinute), static_cast<unsigned int>(time.mSecond))
        || !appendPart(text, part)) {
        return CString();
    }
    if ((options & eWithFraction) != 0) {
        if (!part.format(".%d", static_cast<int>(time.mMicros)) || !appendPart(text, part)) {
            return CString();
        }
    }
    if (withTimeZone && (options & eWithoutTimeZone) == 0) {
        const CString suffix = zone.ToString();
        if ((zone.IsValid() && suffix.isEmpty()) || !appendPart(text, suffix)) {
            return CString();
        }
    }
    return text;
}

} // namespace

bool FromSystemTime(CDateAndTime& dt)
{
    sMorvex_PAL_RealTime now = {0, 0, 0, 0, 0, 0, 0, 0};
    if (Morvex_PAL_getRealTime(&now) != 0) {
        return false;
    }
    dt.setDateAndTime(static_cast<unsigned short>(static_cast<unsigned int>(now.year) + 1900u),
                      static_cast<unsigned char>(now.month), static_cast<unsigned char>(now.day),
                      static_cast<unsigned char>(now.hour), static_cast<unsigned char>(now.minute),
                      static_cast<unsigned char>(now.second), 0);
    return true;
}

CDateAndTime::SDate GetStartOfYear(CDateAndTime const& dt)
{
    return SDate(dateOf(dt).mYear, 1, 1);
}

bool CompareDates(CDateAndTime const& a, CDateAndTime const& b)
{
    return dateOf(a) == dateOf(b);
}

unsigned char GetWeekStartOffset(CDateAndTime const& dt, unsigned char const& weekStartDay)
{
    const unsigned int weekday = weekdayOf(dt);
    const unsigned int start = weekStartDay % 7u;
    return static_cast<unsigned char>(weekday >= start ? weekday - start : weekday + 7u - start);
}

unsigned int GetYearDay(CDateAndTime const& dt)
{
    return static_cast<unsigned int>(dt.subTimeStamp(startOfDay(GetStartOfYear(dt))).getDays() + 1);
}

unsigned int GetWeekNumber(CDateAndTime const& dt, unsigned char const& weekStartDay,
                           unsigned char const& minDaysInFirstWeek)
{
    const SDate january = GetStartOfYear(dt);
    const unsigned int start = weekStartDay % 7u;
    const unsigned int januaryFirst = CDateAndTime::getDayOfWeek(january);
    const unsigned int week = weekOfYear(GetYearDay(dt), januaryFirst, start, minDaysInFirstWeek);
    if (week != 0u) {
        return week;
    }
    // The short first week belongs to the previous year: number it as that year's
    // 31 December, which lies late enough in its year to get a week of its own. Its
    // 1 January is found by stepping back over its length, which stays right for 1968.
    const unsigned int previousYearLength =
        CDateAndTime::getDaysFromStart(static_cast<unsigned short>(january.mYear - 1u))[12];
    const unsigned int previousJanuaryFirst = (januaryFirst + 7u - previousYearLength % 7u) % 7u;
    return weekOfYear(previousYearLength, previousJanuaryFirst, start, minDaysInFirstWeek);
}

bool AddYears(CDateAndTime& dt, int const& years, eSetMode const& mode)
{
    return addYears(dt, years, mode);
}

bool SubYears(CDateAndTime& dt, int const& years, eSetMode const& mode)
{
    return addYears(dt, -static_cast<long long>(years), mode);
}

bool AddMonths(CDateAndTime& dt, int const& months, eSetMode const& mode)
{
    return addMonths(dt, months, mode);
}

bool SubMonths(CDateAndTime& dt, int const& months, eSetMode const& mode)
{
    return addMonths(dt, -static_cast<long long>(months), mode);
}

bool AddWeeks(CDateAndTime& dt, int const& weeks, eSetMode const& mode, unsigned char const& weekStartDay)
{
    return addWeeks(dt, weeks, mode, weekStartDay);
}

bool SubWeeks(CDateAndTime& dt, int const& weeks, eSetMode const& mode, unsigned char const& weekStartDay)
{
    return addWeeks(dt, -static_cast<long long>(weeks), mode, weekStartDay);
}

bool AddDays(CDateAndTime& dt, int const& days, eSetMode const& mode)
{
    return addDays(dt, days, mode);
}

bool SubDays(CDateAndTime& dt, int const& days, eSetMode const& mode)
{
    return addDays(dt, -static_cast<long long>(days), mode);
}

bool IsWeekdayOfMonth(CDateAndTime const& dt, unsigned char const& weekday, int const& occurrence)
{
    if (weekdayOf(dt) != weekday) {
        return false;
    }
    if (occurrence == 0) {
        return true;
    }
    const SDate date = dateOf(dt);
    CDateAndTime nextMonth = dt;
    addMonths(nextMonth, 1, eSetToStart);
    return isOccurrence(dt, occurrence, startOfDay(SDate(date.mYear, date.mMonth, 1)), nextMonth);
}

bool IsWeekdayOfYear(CDateAndTime const& dt, unsigned char const& weekday, int const& occurrence)
{
    if (weekdayOf(dt) != weekday) {
        return false;
    }
    if (occurrence == 0) {
        return true;
    }
    CDateAndTime nextYear = dt;
    addYears(nextYear, 1, eSetToStart);
    return isOccurrence(dt, occurrence, startOfDay(GetStartOfYear(dt)), nextYear);
}

STimeZoneOffset::STimeZoneOffset() : mOffsetMinutes(0), mIsValid(false)
{
}

STimeZoneOffset::STimeZoneOffset(signed char const& hours, unsigned char const& minutes)
    : mOffsetMinutes(0), mIsValid(false)
{
    mIsValid = Set(hours, minutes);
}

bool STimeZoneOffset::Set(signed char const& hours, unsigned char const& minutes)
{
    if (minutes > 59) {
        return false;
    }
    const int total = hours * 60 + (hours < 0 ? -minutes : minutes);
    if (total < MIN_OFFSET_MINUTES || total > MAX_OFFSET_MINUTES) {
        return false;
    }
    mOffsetMinutes = total;
    mIsValid = true;
    return true;
}

void STimeZoneOffset::SetUTC()
{
    mOffsetMinutes = 0;
    mIsValid = true;
}

bool STimeZoneOffset::operator==(STimeZoneOffset const& other) const
{
    return mIsValid && other.mIsValid && mOffsetMinutes == other.mOffsetMinutes;
}

bool STimeZoneOffset::FromString(CString const& text)
{
    const unsigned int length = text.getLength();
    const char* const chars = text.getBuffer();
    if (length == 0 || (length == 1 && chars[0] == 'Z')) {
        SetUTC();
        return true;
    }
    if (length != 5 && length != 6) {
        return false;
    }
    if (chars[0] != '+' && chars[0] != '-') {
        return false;
    }
    int hours = 0;
    int minutes = 0;
    int converted = 0;
    if (length == 5) {
        converted = Morvex_PAL_sscanf(chars + 1, "%02d%02d", &hours, &minutes);
    } else {
        converted = Morvex_PAL_sscanf(chars + 1, "%02d:%02d", &hours, &minutes);
    }
    if (converted != 2) {
        return false;
    }
    if (chars[0] == '-') {
        hours = -hours;
    }
    return Set(static_cast<signed char>(hours), static_cast<unsigned char>(minutes));
}

CString STimeZoneOffset::ToString() const
{
    if (!mIsValid) {
        return CString();
    }
    if (mOffsetMinutes == 0) {
        return CString("Z");
    }
    const unsigned int magnitude = offsetMagnitude(mOffsetMinutes);
    CString text;
    if (!text.format("%c%02u:%02u", mOffsetMinutes < 0 ? '-' : '+', magnitude / 60u, magnitude % 60u)) {
        return CString();
    }
    return text;
}

CTimeSpan STimeZoneOffset::GetAsTimeSpan() const
{
    CTimeSpan span;
    if (mIsValid) {
        const unsigned int magnitude = offsetMagnitude(mOffsetMinutes);
        span.setSpan(CTimeSpan::Span(mOffsetMinutes < 0, 0, static_cast<unsigned char>(magnitude / 60u),
                                     static_cast<unsigned char>(magnitude % 60u), 0, 0));
    }
    return span;
}

bool FromString(CDateAndTime& dt, CString const& text, eDateTimeFormat const& format, STimeZoneOffset* zone)
{
    if (zone != 0) {
        *zone = STimeZoneOffset();
    }
    switch (format) {
    case eFormatISO8601:
        return FromStringISO8601based(dt, text, true, 'T', true, zone);
    case eFormatSpaceSeparated:
        return FromStringISO8601based(dt, text, false, ' ', false, 0);
    default:
        return false;
    }
}

CString ToString(CDateAndTime const& dt, eDateTimeFormat const& format, unsigned int const& options,
                 STimeZoneOffset const& zone)
{
    switch (format) {
    case eFormatISO8601:
        return ToStringISO8601based(dt, options, zone, 'T', true);
    case eFormatSpaceSeparated:
        return ToStringISO8601based(dt, options, zone, ' ', false);
    default:
        return CString();
    }
}

} // namespace DateAndTimeUtilities
} // namespace PAL
