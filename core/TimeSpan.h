#ifndef OSAL_KIT_CORE_TIMESPAN_H
#define OSAL_KIT_CORE_TIMESPAN_H

#include "core/Export.h"

namespace PAL {

/// A signed duration in microseconds: the difference of two `CDateAndTime` values and
/// the amount `CDateAndTime::addTimeSpan` / `subTimeSpan` move an instant by.
///
/// The count is kept as a 64-bit pattern read as two's complement: a negative span is
/// stored as 2^64 minus its magnitude, so adding it to an instant modulo 2^64 moves the
/// instant backwards. Nothing is ever refused: products and sums wrap modulo 2^64, and
/// fields out of range in a `Span` simply count (25 hours are 25 hours). A value that
/// allocates nothing; concurrent use of one object needs the caller's lock.
///
///     PAL::CTimeSpan span;
///     span.setHours(36);                    // getDays() == 1, getHours() == 36
///     PAL::CTimeSpan::Span parts;
///     span.getSpan(parts);                  // 1 day, 12:00:00.000000, not negative
class OSAL_KIT_API CTimeSpan {
public:
    /// A span broken down into a sign and a non-negative days/hours/minutes/seconds/
    /// microseconds split. `getSpan` fills it with hours 0..23, minutes and seconds
    /// 0..59 and microseconds 0..999,999; `isValid` checks those ranges.
    struct OSAL_KIT_API Span {
        bool mIsNegative;       ///< the sign of the whole span; the fields below are its size
        unsigned char mHours;   ///< 0..23 from `getSpan`
        unsigned char mMinutes; ///< 0..59 from `getSpan`
        unsigned char mSeconds; ///< 0..59 from `getSpan`
        unsigned int mDays;     ///< whole days
        unsigned int mMicros;   ///< 0..999,999 from `getSpan`

        /// Zero, not negative.
        Span();
        /// The fields as given; nothing is checked.
        Span(bool isNegative, unsigned int days, unsigned char hours, unsigned char minutes,
             unsigned char seconds, unsigned int micros);

        ///@{
        /// All six fields equal.
        bool operator==(Span const& other) const;
        bool operator!=(Span const& other) const { return !(*this == other); }
        ///@}
        /// As `CTimeSpan::isSpanValid(*this)`.
        bool isValid() const;
    };

    /// A zero span.
    CTimeSpan() : mMicroseconds(0) {}
    /// Stores the bit pattern `micros` (2^64 - n is the span of -n microseconds).
    explicit CTimeSpan(unsigned long long micros) : mMicroseconds(micros) {}
    /// The span `getMicrosFromSpan(span)`.
    explicit CTimeSpan(Span const& span);

    /// Replaces the span with `getMicrosFromSpan(span)`.
    void setSpan(Span const& span);
    /// The span broken down; the sign goes to `mIsNegative`, the rest is the magnitude.
    void getSpan(Span& span) const;

    /// `days` whole days (negative for a backward span).
    void setDays(int days);
    /// `hours` whole hours, modulo 2^64.
    void setHours(long long hours);
    /// `minutes` whole minutes, modulo 2^64.
    void setMinutes(long long minutes);
    /// `seconds` whole seconds, modulo 2^64.
    void setSeconds(long long seconds);
    /// Stores the raw bit pattern.
    void setMicroseconds(unsigned long long micros) { mMicroseconds = micros; }
    /// The raw bit pattern (a negative span reads as 2^64 minus its magnitude).
    unsigned long long getMicroseconds() const { return mMicroseconds; }

    /// Whole days, truncated toward zero and then to 32 bits.
    int getDays() const;
    /// Whole hours, truncated toward zero.
    long long getHours() const;
    /// Whole minutes, truncated toward zero.
    long long getMinutes() const;
    /// Whole seconds, truncated toward zero.
    long long getSeconds() const;

    /// -1 when this span is shorter (more negative) than `other`, 0 when equal, 1 when
    /// longer; the comparison is signed.
    int compareTo(CTimeSpan const& other) const;

    /// Breaks the signed count `micros` down into `span`.
    static void getSpanFromMicros(long long micros, Span& span);
    /// The signed count of `span`; fields out of range are counted as they stand.
    static long long getMicrosFromSpan(Span const& span);
    /// Hours at most 23, minutes and seconds at most 59, microseconds at most 999,999;
    /// the sign and the day count are not limited.
    static bool isSpanValid(Span const& span);

private:
    unsigned long long mMicroseconds;
};

} // namespace PAL

#endif
