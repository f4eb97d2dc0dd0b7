// CTimeSpan: the signed microsecond count, its broken-down form and the unit accessors.

#include "core/TimeSpan.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using PAL::CTimeSpan;
typedef CTimeSpan::Span Span;

const long long MICROS_PER_DAY = 86400000000LL;

struct SpanRow {
    int line;
    long long micros;
    Span span;
};

// Each count and its broken-down form; the conversion must work both ways.
const SpanRow SPAN_ROWS[] = {
    {__LINE__, 0, Span()},
    {__LINE__, -1, Span(true, 0, 0, 0, 0, 1)},
    {__LINE__, 1, Span(false, 0, 0, 0, 0, 1)},
    {__LINE__, MICROS_PER_DAY * 3 / 2, Span(false, 1, 12, 0, 0, 0)},
    {__LINE__, -MICROS_PER_DAY, Span(true, 1, 0, 0, 0, 0)},
    {__LINE__, 93784000005LL, Span(false, 1, 2, 3, 4, 5)},
    {__LINE__, -93784000005LL, Span(true, 1, 2, 3, 4, 5)},
    {__LINE__, LLONG_MAX, Span(false, 106751991, 4, 0, 54, 775807)},
    // The magnitude of the most negative count does not fit in a signed 64-bit value.
    {__LINE__, LLONG_MIN, Span(true, 106751991, 4, 0, 54, 775808)},
};

TEST(TimeSpan, BreaksDownAndRebuildsSignedCounts)
{
    for (const SpanRow& row : SPAN_ROWS) {
        SCOPED_TRACE(row.line);
        Span span(true, 9, 9, 9, 9, 9);
        CTimeSpan::getSpanFromMicros(row.micros, span);
        EXPECT_EQ(row.span, span);
        EXPECT_TRUE(span.isValid());
        EXPECT_EQ(row.micros, CTimeSpan::getMicrosFromSpan(row.span));

        CTimeSpan fromSpan(row.span);
        EXPECT_EQ(static_cast<unsigned long long>(row.micros), fromSpan.getMicroseconds());
        Span back;
        fromSpan.getSpan(back);
        EXPECT_EQ(row.span, back);
    }
}

// Validity limits the clock fields only; fields out of range still count as they stand.
TEST(TimeSpan, ValidityLimitsTheClockFieldsOnly)
{
    EXPECT_TRUE(Span(true, 100000, 23, 59, 59, 999999).isValid());
    EXPECT_TRUE(CTimeSpan::isSpanValid(Span(false, 0xFFFFFFFFu, 0, 0, 0, 0)));
    for (const Span& span : {Span(false, 0, 24, 0, 0, 0), Span(false, 0, 0, 60, 0, 0), Span(false, 0, 0, 0, 60, 0),
                             Span(false, 0, 0, 0, 0, 1000000)})
        EXPECT_FALSE(span.isValid());
    EXPECT_EQ(25LL * 3600 * 1000000, CTimeSpan::getMicrosFromSpan(Span(false, 0, 25, 0, 0, 0)));
    EXPECT_EQ(-(MICROS_PER_DAY + 61000000LL + 1500000LL), CTimeSpan::getMicrosFromSpan(Span(true, 1, 0, 1, 1, 1500000)));
}

TEST(TimeSpan, NegativeDayIsStoredAsTwosComplement)
{
    CTimeSpan span;
    span.setDays(-1);
    EXPECT_EQ(0ull - 86400000000ull, span.getMicroseconds());
    Span parts;
    span.getSpan(parts);
    EXPECT_EQ(Span(true, 1, 0, 0, 0, 0), parts);
    EXPECT_EQ(-1, span.getDays());
    EXPECT_EQ(-1, span.compareTo(CTimeSpan()));
    EXPECT_EQ(1, CTimeSpan().compareTo(span));
    EXPECT_EQ(0, span.compareTo(span));
    // Signed: the bit pattern of -1 is the largest unsigned value.
    EXPECT_EQ(-1, CTimeSpan(0ull - 1ull).compareTo(CTimeSpan(1ull)));
}

TEST(TimeSpan, WholeUnitsTruncateTowardZero)
{
    CTimeSpan span(static_cast<unsigned long long>(MICROS_PER_DAY * 3 / 2));
    EXPECT_EQ(1, span.getDays());
    EXPECT_EQ(36, span.getHours());
    EXPECT_EQ(2160, span.getMinutes());
    EXPECT_EQ(129600, span.getSeconds());

    span.setMicroseconds(0ull - static_cast<unsigned long long>(MICROS_PER_DAY * 3 / 2));
    EXPECT_EQ(-1, span.getDays());
    EXPECT_EQ(-36, span.getHours());

    span.setMicroseconds(0ull - 999999ull);
    EXPECT_EQ(0, span.getSeconds());
}

TEST(TimeSpan, UnitSettersScaleAndWrap)
{
    CTimeSpan span;
    span.setHours(-2);
    EXPECT_EQ(-2, span.getHours());
    span.setMinutes(90);
    EXPECT_EQ(5400000000ull, span.getMicroseconds());
    span.setSeconds(-45);
    EXPECT_EQ(-45, span.getSeconds());
    // Products beyond 64 bits wrap instead of overflowing.
    span.setSeconds(LLONG_MAX);
    EXPECT_EQ(18446744073708551616ull, span.getMicroseconds());
    span.setDays(INT_MIN);
    EXPECT_EQ(17371597623605067776ull, span.getMicroseconds());
}

} // namespace
