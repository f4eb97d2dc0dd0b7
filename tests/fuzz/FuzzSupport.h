// What the fuzz targets share: a reader that turns the fuzzer's bytes into choices, a
// check that aborts (so libFuzzer and the replay driver both see a failure), and a model
// of the strings' UTF-8 rules written from the rules, not from the library's table.
#ifndef OSAL_KIT_FUZZ_SUPPORT_H
#define OSAL_KIT_FUZZ_SUPPORT_H

#include "core/String.h"

#include <algorithm>
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
    Input(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
    bool empty() const { return mPos >= mSize; }
    uint8_t byte() { return empty() ? 0 : mData[mPos++]; }
    uint32_t u32()
    {
        const uint32_t low = byte(), next = byte(), high = byte();
        return low | next << 8 | high << 16 | static_cast<uint32_t>(byte()) << 24;
    }
    std::string bytes(size_t n)
    {
        const std::string out(reinterpret_cast<const char*>(mData + mPos), std::min(n, mSize - mPos));
        mPos += out.size();
        return out;
    }
    std::string text() { return bytes(byte()); }  // a length byte, then that many bytes
    std::string rest() { return bytes(mSize - mPos); }

private:
    const uint8_t* mData;
    size_t mSize, mPos = 0;
};

/// Length of the sequence a lead byte starts (the six-byte scheme), 0 for none.
inline unsigned int leadLength(unsigned char b)
{
    return b < 0x80 ? 1 : b < 0xC0 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF8 ? 4 : b < 0xFC ? 5 : b < 0xFE ? 6 : 0;
}

/// Bytes of the longest prefix of whole sequences as 8-bit intake takes them (a lead,
/// then followers with the top bit set); `chars` gets their count. With `strict`, a
/// follower must be 0x80-0xBF, as the iterator steps.
inline size_t acceptedPrefix(const std::string& bytes, unsigned int& chars, bool strict = false)
{
    size_t i = chars = 0;
    for (size_t n; i < bytes.size() && (n = leadLength(static_cast<unsigned char>(bytes[i]))) != 0 &&
                   n <= bytes.size() - i;
         i += n, ++chars) {
        for (size_t k = 1; k < n; ++k) {
            if ((static_cast<unsigned char>(bytes[i + k]) & (strict ? 0xC0 : 0x80)) != 0x80)
                return i;
        }
    }
    return i;
}

/// UTF-8 of one code point in the six-byte scheme; empty for 0x80000000 and above.
inline std::string encode(uint32_t cp)
{
    const int n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : cp < 0x200000 ? 4 : cp < 0x4000000 ? 5
                : cp < 0x80000000u ? 6 : 0;
    std::string out(static_cast<size_t>(n), '\0');
    for (int i = n - 1; i > 0; --i, cp >>= 6)
        out[static_cast<size_t>(i)] = static_cast<char>(0x80 | (cp & 0x3F));
    if (n != 0)
        out[0] = static_cast<char>((n == 1 ? 0 : 0xFF00 >> n) | cp);  // low byte: 0xC0, 0xE0, ... 0xFC
    return out;
}

inline std::string bytesOf(const PAL::CString& s) { return std::string(s.getBuffer(), s.getSize()); }

/// What every string must be: terminated, made of whole sequences and counted right;
/// where the iterator steps as the counts do, it walks the same characters, decoding each
/// as its lead's low bits followed by six bits of each follower.
inline void checkString(const PAL::CString& s)
{
    const std::string bytes = bytesOf(s);
    unsigned int chars = 0;
    FUZZ_CHECK(s.getBuffer()[s.getSize()] == 0);
    FUZZ_CHECK(acceptedPrefix(bytes, chars) == bytes.size() && chars == s.getLength());
    FUZZ_CHECK(s.isEmpty() == (chars == 0));
    if (acceptedPrefix(bytes, chars, true) != bytes.size() || bytes.find('\0') != std::string::npos)
        return;
    FUZZ_CHECK(s.end() - s.begin() == static_cast<int>(chars) && s.begin() + static_cast<int>(chars) == s.end());
    PAL::CString::const_iterator it = s.begin();
    for (size_t i = 0, n; i < bytes.size(); i += n, ++it) {
        n = leadLength(static_cast<unsigned char>(bytes[i]));
        uint32_t cp = static_cast<unsigned char>(bytes[i]) & (n == 1 ? 0x7F : 0x7F >> n);
        for (size_t k = 1; k < n; ++k)
            cp = cp << 6 | (static_cast<unsigned char>(bytes[i + k]) & 0x3F);
        FUZZ_CHECK(*it == cp);
    }
}

} // namespace osal_kit_fuzz

#endif
