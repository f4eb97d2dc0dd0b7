// Shared pieces of the fuzz targets: a reader that turns the fuzzer's bytes into
// choices and values, a check that aborts (so libFuzzer and the replay driver both see
// a failure), and independent models of the string rules the targets compare against.
#ifndef OSAL_KIT_FUZZ_SUPPORT_H
#define OSAL_KIT_FUZZ_SUPPORT_H

#include "core/String.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#define FUZZ_CHECK(condition)                                                                 \
    do {                                                                                      \
        if (!(condition)) {                                                                   \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                     \
        }                                                                                     \
    } while (0)

namespace osal_kit_fuzz {

/// Takes values from the front of the input; once it is used up every value is 0.
class Input {
public:
    Input(const uint8_t* data, size_t size) : mData(data), mSize(size), mPos(0) {}

    bool empty() const { return mPos >= mSize; }
    size_t remaining() const { return mSize - mPos; }

    uint8_t byte() { return empty() ? 0 : mData[mPos++]; }

    uint32_t u32()
    {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value |= static_cast<uint32_t>(byte()) << (8 * i);
        }
        return value;
    }

    /// Up to `n` bytes.
    std::string bytes(size_t n)
    {
        const size_t taken = n < remaining() ? n : remaining();
        std::string out(reinterpret_cast<const char*>(mData + mPos), taken);
        mPos += taken;
        return out;
    }

    /// A length byte, then that many bytes.
    std::string text() { return bytes(byte()); }

    std::string rest() { return bytes(remaining()); }

private:
    const uint8_t* mData;
    size_t mSize;
    size_t mPos;
};

/// Length of the sequence a lead byte starts (the six-byte scheme), 0 for a byte that
/// starts none. Written from the rules, not from the library's table.
inline unsigned int leadLength(unsigned char b)
{
    if (b < 0x80) return 1;
    if (b < 0xC0) return 0;
    if (b < 0xE0) return 2;
    if (b < 0xF0) return 3;
    if (b < 0xF8) return 4;
    if (b < 0xFC) return 5;
    if (b < 0xFE) return 6;
    return 0;
}

/// Bytes of the longest prefix of whole sequences, as 8-bit intake accepts them: a
/// known lead byte followed by bytes with the top bit set; `chars` gets their count.
inline size_t acceptedPrefix(const std::string& bytes, unsigned int& chars)
{
    size_t i = 0;
    chars = 0;
    while (i < bytes.size()) {
        const unsigned int n = leadLength(static_cast<unsigned char>(bytes[i]));
        if (n == 0 || n > bytes.size() - i) {
            break;
        }
        unsigned int k = 1;
        while (k < n && (static_cast<unsigned char>(bytes[i + k]) & 0x80) != 0) {
            ++k;
        }
        if (k < n) {
            break;
        }
        i += n;
        ++chars;
    }
    return i;
}

/// True when every follower byte is 0x80-0xBF, so iterators (which skip exactly
/// those) walk the same characters the counts are made of.
inline bool strictlyFormed(const std::string& bytes)
{
    for (size_t i = 0; i < bytes.size();) {
        const unsigned int n = leadLength(static_cast<unsigned char>(bytes[i]));
        if (n == 0 || n > bytes.size() - i) {
            return false;
        }
        for (unsigned int k = 1; k < n; ++k) {
            if ((static_cast<unsigned char>(bytes[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += n;
    }
    return true;
}

/// UTF-8 of one code point in the six-byte scheme; empty for 0x80000000 and above.
inline std::string encode(uint32_t cp)
{
    std::string out;
    if (cp < 0x80) {
        out += static_cast<char>(cp);
        return out;
    }
    int n = cp < 0x800 ? 2 : cp < 0x10000 ? 3 : cp < 0x200000 ? 4 : cp < 0x4000000 ? 5 : cp < 0x80000000u ? 6 : 0;
    if (n == 0) {
        return out;
    }
    static const unsigned char leads[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    out.resize(static_cast<size_t>(n));
    for (int i = n - 1; i > 0; --i) {
        out[static_cast<size_t>(i)] = static_cast<char>(0x80 | (cp & 0x3F));
        cp >>= 6;
    }
    out[0] = static_cast<char>(leads[n] | cp);
    return out;
}

inline std::string encode(const std::u32string& cps)
{
    std::string out;
    for (char32_t cp : cps) {
        out += encode(static_cast<uint32_t>(cp));
    }
    return out;
}

inline std::string bytesOf(const PAL::CString& s)
{
    return std::string(s.getBuffer(), s.getSize());
}

/// What every string must be: terminated, made of whole sequences and counted right.
inline void checkString(const PAL::CString& s)
{
    FUZZ_CHECK(s.getBuffer() != nullptr);
    FUZZ_CHECK(s.getBuffer()[s.getSize()] == 0);
    const std::string bytes = bytesOf(s);
    unsigned int chars = 0;
    FUZZ_CHECK(acceptedPrefix(bytes, chars) == bytes.size());
    FUZZ_CHECK(chars == s.getLength());
    FUZZ_CHECK(s.isEmpty() == (s.getLength() == 0));
    if (strictlyFormed(bytes) && bytes.find('\0') == std::string::npos) {
        FUZZ_CHECK(static_cast<unsigned int>(s.end() - s.begin()) == s.getLength());
        unsigned int steps = 0;
        for (PAL::CString::const_iterator it = s.begin(); it != s.end() && steps <= s.getLength(); ++it) {
            ++steps;
        }
        FUZZ_CHECK(steps == s.getLength());
    }
}

} // namespace osal_kit_fuzz

#endif
