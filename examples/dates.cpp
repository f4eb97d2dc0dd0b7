// Dates: a microsecond value with its calendar fields, spans between instants,
// calendar arithmetic that keeps to the calendar, and ISO 8601 based text forms with
// the time zone carried alongside.

#include "core/DateAndTime.h"
#include "core/DateAndTimeUtilities.h"
#include "core/TimeSpan.h"

#include <cstdio>

namespace Dates = PAL::DateAndTimeUtilities;

namespace {

const char* const WEEKDAYS[7] = {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"};

PAL::CString iso(const PAL::CDateAndTime& when)
{
    return Dates::ToString(when, Dates::eFormatISO8601, Dates::eWithoutTimeZone, Dates::STimeZoneOffset());
}

void values()
{
    std::printf("-- values and calendar fields --\n");
    const PAL::CDateAndTime::SDate date(2024, 2, 29);
    const PAL::CDateAndTime when(date, PAL::CDateAndTime::STime(18, 30, 0, 0), 0);
    std::printf("%s is a %s, day %u of the year\n", iso(when).getBuffer(),
                WEEKDAYS[PAL::CDateAndTime::getDayOfWeek(date)], Dates::GetYearDay(when));
    std::printf("2024 leap year: %s, 2100 leap year: %s\n", PAL::CDateAndTime::isLeapYear(2024) ? "yes" : "no",
                PAL::CDateAndTime::isLeapYear(2100) ? "yes" : "no");
    // Setters do not validate: check first, or 31 February counts on into March.
    const PAL::CDateAndTime::SDate impossible(2023, 2, 31);
    std::printf("2023-02-31 valid: %s; set anyway it gives %s\n", impossible.isValid() ? "yes" : "no",
                iso(PAL::CDateAndTime(impossible, PAL::CDateAndTime::STime(), 0)).getBuffer());
}

void spans()
{
    std::printf("-- spans --\n");
    const PAL::CDateAndTime start(PAL::CDateAndTime::SDate(2024, 3, 30), PAL::CDateAndTime::STime(22, 0, 0, 0), 0);
    const PAL::CDateAndTime end(PAL::CDateAndTime::SDate(2024, 4, 1), PAL::CDateAndTime::STime(1, 30, 15, 0), 0);
    const PAL::CTimeSpan span = end.subTimeStamp(start);
    PAL::CTimeSpan::Span parts;
    span.getSpan(parts);
    std::printf("%s to %s: %u day(s) %02u:%02u:%02u, %lld minutes in all\n", iso(start).getBuffer(),
                iso(end).getBuffer(), parts.mDays, parts.mHours, parts.mMinutes, parts.mSeconds, span.getMinutes());
    start.subTimeStamp(end).getSpan(parts);
    std::printf("the other way round it is negative: %s\n", parts.mIsNegative ? "yes" : "no");

    PAL::CDateAndTime later = start;
    PAL::CTimeSpan ninetyMinutes;
    ninetyMinutes.setMinutes(90);
    later.addTimeSpan(ninetyMinutes);
    std::printf("90 minutes after the start: %s\n", iso(later).getBuffer());
}

void arithmetic()
{
    std::printf("-- calendar arithmetic --\n");
    PAL::CDateAndTime when(PAL::CDateAndTime::SDate(2024, 1, 31), PAL::CDateAndTime::STime(10, 20, 30, 0), 0);
    Dates::AddMonths(when, 1, Dates::eKeep);
    std::printf("2024-01-31 plus one month:   %s (the day is clamped to the month's end)\n", iso(when).getBuffer());
    Dates::AddYears(when, 1, Dates::eKeep);
    std::printf("plus one year:               %s\n", iso(when).getBuffer());
    Dates::AddDays(when, 1, Dates::eSetToStart);
    std::printf("start of the next day:       %s\n", iso(when).getBuffer());
    Dates::AddWeeks(when, 0, Dates::eSetToEnd, 0);
    std::printf("end of that week (Mon-Sun):  %s\n", iso(when).getBuffer());
    std::printf("ISO week number:             %u\n", Dates::GetWeekNumber(when, 0, 4));
    std::printf("first Sunday of its month:   %s\n", Dates::IsWeekdayOfMonth(when, 6, 1) ? "yes" : "no");

    // Results must stay within 1969..3000; a refusal is a false result.
    PAL::CDateAndTime edge(PAL::CDateAndTime::SDate(3000, 12, 31), PAL::CDateAndTime::STime(), 0);
    const PAL::CDateAndTime before = edge;
    const bool moved = Dates::AddDays(edge, 1, Dates::eKeep);
    std::printf("3000-12-31 plus one day: %s, value kept: %s\n", moved ? "done" : "refused",
                edge.compareTo(before) == 0 ? "yes" : "no");
}

void textForms()
{
    std::printf("-- text forms and zones --\n");
    PAL::CDateAndTime when;
    Dates::STimeZoneOffset zone;
    if (Dates::FromString(when, "2024-05-17T10:20:30.25+02:00", Dates::eFormatISO8601, &zone)) {
        // The zone is handed back, never applied: the value holds 10:20:30 as written.
        std::printf("read:            %s\n",
                    Dates::ToString(when, Dates::eFormatISO8601, Dates::eWithFraction, zone).getBuffer());
        PAL::CDateAndTime::STime time;
        when.getTime(time, 0);
        std::printf("fraction:        %u microseconds (its digits count microseconds)\n", time.mMicros);
        std::printf("zone:            %s, %lld minutes from UTC\n", zone.ToString().getBuffer(),
                    zone.GetAsTimeSpan().getMinutes());
        std::printf("space separated: %s\n",
                    Dates::ToString(when, Dates::eFormatSpaceSeparated, 0, zone).getBuffer());
        std::printf("date only:       %s\n", Dates::ToString(when, Dates::eFormatISO8601, Dates::eDateOnly, zone).getBuffer());
    }
    if (Dates::FromString(when, "20240517T102030Z", Dates::eFormatISO8601, &zone)) {
        std::printf("basic form:      %s\n", Dates::ToString(when, Dates::eFormatISO8601, 0, zone).getBuffer());
    }

    PAL::CDateAndTime refused(PAL::CDateAndTime::SDate(2000, 1, 1), PAL::CDateAndTime::STime(), 0);
    const char* const texts[] = {"2023-02-29T00:00:00Z", "2024-05-17T10:20", "2024-05-17 10:20:30+01:00"};
    const Dates::eDateTimeFormat formats[] = {Dates::eFormatISO8601, Dates::eFormatISO8601,
                                              Dates::eFormatSpaceSeparated};
    for (int i = 0; i < 3; ++i) {
        const bool read = Dates::FromString(refused, texts[i], formats[i], 0);
        std::printf("\"%s\": %s, value still %s\n", texts[i], read ? "read" : "refused", iso(refused).getBuffer());
    }

    Dates::STimeZoneOffset india;
    const bool read = india.FromString("+05:30");
    const bool readShort = india.FromString("+5:30");
    std::printf("offset \"+05:30\": %s, \"+5:30\": %s; the offset kept: %s\n", read ? "read" : "refused",
                readShort ? "read" : "refused", india.ToString().getBuffer());
}

void realTimeClock()
{
    std::printf("-- the real-time clock --\n");
    // The platform's clock in whole seconds. Only whether it could be read is shown:
    // the time itself differs from run to run.
    PAL::CDateAndTime now;
    std::printf("clock read: %s\n", Dates::FromSystemTime(now) ? "yes" : "no");
}

} // namespace

int main()
{
    std::printf("== Dates and text forms ==\n");
    values();
    spans();
    arithmetic();
    textForms();
    realTimeClock();
    return 0;
}
