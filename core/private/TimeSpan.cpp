#include "core/TimeSpan.h"

#include "core/private/TimeArithmetic.h"

namespace PAL {

using TimeArithmetic::MICROS_PER_SECOND;
using TimeArithmetic::MICROS_PER_MINUTE;
using TimeArithmetic::MICROS_PER_HOUR;
using TimeArithmetic::MICROS_PER_DAY;
using TimeArithmetic::toSigned;
using TimeArithmetic::toBits;

CTimeSpan::Span::Span()
    : mIsNegative(false), mHours(0), mMinutes(0), mSeconds(0), mDays(0), mMicros(0)
{
}

CTimeSpan::Span::Span(bool isNegative, unsigned int days, unsigned char hours, unsigned char minutes,
                      unsigned char seconds, unsigned int micros)
    : mIsNegative(isNegative), mHours(hours), mMinutes(minutes), mSeconds(seconds), mDays(days), mMicros(micros)
{
}

bool CTimeSpan::Span::operator==(Span const& other) const
{
    return mIsNegative == other.mIsNegative && mHours == other.mHours && mMinutes == other.mMinutes
        && mSeconds == other.mSeconds && mDays == other.mDays && mMicros == other.mMicros;
}

bool CTimeSpan::Span::isValid() const
{
    return CTimeSpan::isSpanValid(*this);
}

CTimeSpan::CTimeSpan(Span const& span) : mMicroseconds(toBits(getMicrosFromSpan(span)))
{
}

void CTimeSpan::setSpan(Span const& span)
{
    mMicroseconds = toBits(getMicrosFromSpan(span));
}

void CTimeSpan::getSpan(Span& span) const
{
    getSpanFromMicros(toSigned(mMicroseconds), span);
}

// The products are formed on the bit patterns: they equal the signed products wherever
// those exist and wrap modulo 2^64 where they would overflow.
void CTimeSpan::setDays(int days)
{
    mMicroseconds = toBits(days) * MICROS_PER_DAY;
}

void CTimeSpan::setHours(long long hours)
{
    mMicroseconds = toBits(hours) * MICROS_PER_HOUR;
}

void CTimeSpan::setMinutes(long long minutes)
{
    mMicroseconds = toBits(minutes) * MICROS_PER_MINUTE;
}

void CTimeSpan::setSeconds(long long seconds)
{
    mMicroseconds = toBits(seconds) * MICROS_PER_SECOND;
}

int CTimeSpan::getDays() const
{
    const long long days = toSigned(mMicroseconds) / static_cast<long long>(MICROS_PER_DAY);
    // |days| stays below 2^27, so the 32-bit truncation never changes the value.
    return static_cast<int>(days);
}

long long CTimeSpan::getHours() const
{
    return toSigned(mMicroseconds) / static_cast<long long>(MICROS_PER_HOUR);
}

long long CTimeSpan::getMinutes() const
{
    return toSigned(mMicroseconds) / static_cast<long long>(MICROS_PER_MINUTE);
}

long long CTimeSpan::getSeconds() const
{
    return toSigned(mMicroseconds) / static_cast<long long>(MICROS_PER_SECOND);
}

int CTimeSpan::compareTo(CTimeSpan const& other) const
{
    const long long mine = toSigned(mMicroseconds);
    const long long theirs = toSigned(other.mMicroseconds);
    if (mine < theirs) {
        return -1;
    }
    return mine > theirs ? 1 : 0;
}

void CTimeSpan::getSpanFromMicros(long long micros, Span& span)
{
    span.mIsNegative = micros < 0;
    // Negating the bit pattern gives the magnitude even for the most negative count.
    const unsigned long long magnitude = micros < 0 ? 0ull - toBits(micros) : toBits(micros);
    span.mMicros = static_cast<unsigned int>(magnitude % MICROS_PER_SECOND);
    const unsigned long long seconds = magnitude / MICROS_PER_SECOND;
    span.mDays = static_cast<unsigned int>(seconds / 86400u);
    const unsigned int rest = static_cast<unsigned int>(seconds % 86400u);
    span.mHours = static_cast<unsigned char>(rest / 3600u);
    span.mMinutes = static_cast<unsigned char>((rest % 3600u) / 60u);
    span.mSeconds = static_cast<unsigned char>(rest % 60u);
}

long long CTimeSpan::getMicrosFromSpan(Span const& span)
{
    const unsigned long long seconds = (static_cast<unsigned long long>(span.mHours) * 3600u
                                        + static_cast<unsigned long long>(span.mMinutes) * 60u + span.mSeconds)
        + static_cast<unsigned long long>(span.mDays) * 86400u;
    const unsigned long long magnitude = seconds * MICROS_PER_SECOND + span.mMicros;
    return toSigned(span.mIsNegative ? 0ull - magnitude : magnitude);
}

bool CTimeSpan::isSpanValid(Span const& span)
{
    return span.mHours <= 23 && span.mMinutes <= 59 && span.mSeconds <= 59 && span.mMicros <= 999999u;
}

} // namespace PAL
