#ifndef OSAL_KIT_CORE_PRIVATE_TIMEARITHMETIC_H
#define OSAL_KIT_CORE_PRIVATE_TIMEARITHMETIC_H

// Unit sizes and the signed/unsigned bridge shared by the date and span sources.
// Every count is carried as an unsigned 64-bit pattern so that sums and products wrap
// modulo 2^64 instead of overflowing.

namespace PAL {
namespace TimeArithmetic {

const unsigned long long MICROS_PER_SECOND = 1000000ull;
const unsigned long long MICROS_PER_MINUTE = 60ull * MICROS_PER_SECOND;
const unsigned long long MICROS_PER_HOUR = 3600ull * MICROS_PER_SECOND;
const unsigned long long MICROS_PER_DAY = 86400ull * MICROS_PER_SECOND;

/// The two's-complement bit pattern of `value`.
inline unsigned long long toBits(long long value)
{
    return static_cast<unsigned long long>(value);
}

/// The two's-complement reading of `bits`, without relying on how the compiler narrows
/// an out-of-range unsigned value.
inline long long toSigned(unsigned long long bits)
{
    const unsigned long long largest = 0x7FFFFFFFFFFFFFFFull;
    if (bits <= largest) {
        return static_cast<long long>(bits);
    }
    return -static_cast<long long>(~bits) - 1;
}

} // namespace TimeArithmetic
} // namespace PAL

#endif
