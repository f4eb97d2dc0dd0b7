// Writing code points as UTF-8 in the six-byte scheme the strings store, shared by the
// string builders and the case mapping.
#ifndef OSAL_KIT_CORE_PRIVATE_UTF8ENCODING_H
#define OSAL_KIT_CORE_PRIVATE_UTF8ENCODING_H

namespace PAL {
namespace Utf8 {

// Bytes of the UTF-8 form of `cp`; 0 when it cannot be encoded (31 bits at most).
inline unsigned int encodedLength(unsigned int cp)
{
    if (cp < 0x80u) return 1;
    if (cp < 0x800u) return 2;
    if (cp < 0x10000u) return 3;
    if (cp < 0x200000u) return 4;
    if (cp < 0x4000000u) return 5;
    if (cp < 0x80000000u) return 6;
    return 0;
}

// Writes `cp` in `length` (its encodedLength, 1 to 6) bytes; returns the end.
inline char* encode(unsigned int cp, unsigned int length, char* out)
{
    static const unsigned char leads[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    if (length == 1) {
        *out = static_cast<char>(cp);
        return out + 1;
    }
    for (unsigned int i = length - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80u | (cp & 0x3Fu));
        cp >>= 6;
    }
    out[0] = static_cast<char>(leads[length] | cp);
    return out + length;
}

} // namespace Utf8
} // namespace PAL

#endif
