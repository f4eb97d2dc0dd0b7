#ifndef OSAL_KIT_CORE_STRINGUTILITIES_H
#define OSAL_KIT_CORE_STRINGUTILITIES_H

#include "core/Export.h"
#include "core/String.h"
#include "core/Vector.h"

namespace PAL {

/// Free functions over `CString`: Unicode case mapping, strict number parsing and
/// formatting, byte-bounded truncation and conversions between string vectors.
///
/// None of them keeps state or locks; each works on the arguments it is given, so any
/// thread may call them on strings it alone is using. Nothing throws or traces.
///
///     PAL::CString word("straße");
///     PAL::StringUtilities::toUpper(word);                       // "STRASSE"
///     unsigned short port = 0;
///     if (PAL::StringUtilities::toUInt16(" 8080 ", port, false, false))
///         connect(port);                                         // 8080
namespace StringUtilities {

/// One code point mapped to one code point.
template <class T>
struct TSimpleCaseMappingTableEntry {
    T mCharacter;       ///< the code point mapped
    T mMappedCharacter; ///< the code point it becomes
};

/// `mCount` consecutive code points from `mFirstCharacter`, mapped to as many
/// consecutive code points from `mFirstMappedCharacter`.
template <class T>
struct TRangeCaseMappingTableEntry {
    T mFirstCharacter;       ///< the range's first code point
    T mCount;                ///< code points in the range
    T mFirstMappedCharacter; ///< the code point `mFirstCharacter` becomes
};

/// One code point mapped to `mNumReplacements` code points (UCS-2 units in 16-bit tables).
template <class T>
struct TSpecialCaseMappingTableEntry {
    T mCharacter;            ///< the code point mapped
    T mNumReplacements;      ///< how many code points it becomes
    const T* mpReplacements; ///< the code points it becomes
};

/// One direction of case mapping: 16-bit tables for code points up to U+FFFF, 32-bit
/// tables above. A table with count 0 and a null pointer is absent. Each table is sorted
/// by ascending code point, ranges do not overlap, and no code point is in two tables of
/// one direction; `doCaseMapping` relies on that and never writes the tables.
struct SCaseMappingTable {
    ///@{
    /// A table: the count of its entries and the first of them, both 0 when absent.
    unsigned int mNumSimple16;
    const TSimpleCaseMappingTableEntry<unsigned short>* mpSimple16;
    unsigned int mNumRange16;
    const TRangeCaseMappingTableEntry<unsigned short>* mpRange16;
    unsigned int mNumSpecial16;
    const TSpecialCaseMappingTableEntry<unsigned short>* mpSpecial16;
    unsigned int mNumSimple32;
    const TSimpleCaseMappingTableEntry<unsigned int>* mpSimple32;
    unsigned int mNumRange32;
    const TRangeCaseMappingTableEntry<unsigned int>* mpRange32;
    unsigned int mNumSpecial32;
    const TSpecialCaseMappingTableEntry<unsigned int>* mpSpecial32;
    ///@}
};

/// The shipped mappings: Unicode 4.0 letters of the Basic Multilingual Plane, with
/// unconditional multi-character mappings (U+0130 to lower case; U+00DF, the ligatures
/// and others to upper case) and without locale or context rules such as final sigma.
/// Constant, readable from any thread.
///@{
OSAL_KIT_API extern const SCaseMappingTable sToLowerCaseMappingTable;
OSAL_KIT_API extern const SCaseMappingTable sToUpperCaseMappingTable;
///@}

/// The Unicode version whose case mappings the shipped tables hold ("4.0"), and the
/// version of the character database they were generated from.
///@{
OSAL_KIT_API extern const char TO_LOWER_CASE_MAP_UNICODE_VERSION[];
OSAL_KIT_API extern const char TO_LOWER_CASE_MAP_SOURCE_DATA_VERSION[];
OSAL_KIT_API extern const char TO_UPPER_CASE_MAP_UNICODE_VERSION[];
OSAL_KIT_API extern const char TO_UPPER_CASE_MAP_SOURCE_DATA_VERSION[];
///@}

/// Maps `text` to lower case in place, code point by code point, without locale or
/// context (U+03A3 always becomes U+03C3). One code point may become several (U+0130
/// becomes "i" and U+0307), so the length can change. Code points without a mapping,
/// above U+FFFF or not letters stay as they are, and so does everything after a NUL
/// character. A string shared with others is copied first, so the others never change;
/// when memory runs out, characters stay unmapped.
OSAL_KIT_API void toLower(CString& text);
/// As `toLower`, to upper case ("straße" becomes "STRASSE", U+FB03 becomes "FFI").
OSAL_KIT_API void toUpper(CString& text);
/// The engine of `toLower` and `toUpper`, for any table of the shape of
/// `SCaseMappingTable`. Costs O(n) in the length of `text`, with a lookup of O(1) in the
/// shipped tables and O(log m) in others. The result is that of replacing each mapped
/// character in turn; when memory runs out the text stays as it was.
OSAL_KIT_API void doCaseMapping(CString& text, const SCaseMappingTable& table);

/// Parses the whole of `text` (up to its first NUL) as a signed decimal number: white
/// space (space, `\t`, `\n`, `\v`, `\f`, `\r`) around it, at most one sign directly before the
/// digits. Returns false, leaving `value` unchanged, for anything else, for no digits
/// or for a value outside [-2147483648, 2147483647].
///
///     int n = 0;
///     PAL::StringUtilities::toInt32(" -42 ", n);   // true, n == -42
///     PAL::StringUtilities::toInt32("12a", n);     // false, n unchanged
OSAL_KIT_API bool toInt32(const CString& text, int& value);

/// Parses the whole of `text` (up to its first NUL) as an unsigned number no greater than
/// `max`, with white space around it.
///
/// Decimal (`isHex` false): an optional "+" or "-" directly before the digits; a minus
/// sign is accepted only before a zero value ("-0" gives 0). No prefix ("0x10" fails).
/// Hexadecimal: no sign; digits 0-9, a-f, A-F; the prefix is "0x" with a lower-case x
/// only. With `isPrefixMandatory` the prefix must be there ("ff" and "0" fail); without
/// it the prefix is optional and a leading 0 not followed by x is a digit ("012" is
/// 0x12).
///
/// Returns false, leaving `value` unchanged, for no digits, any other byte, or a value
/// above `max`.
template <class T, T max>
bool toUInt(const CString& text, T& value, const bool& isHex, const bool& isPrefixMandatory);

/// `toUInt<unsigned char, 255>`.
OSAL_KIT_API bool toUInt8(const CString& text, unsigned char& value, const bool& isHex,
                          const bool& isPrefixMandatory);
/// `toUInt<unsigned short, 65535>`.
OSAL_KIT_API bool toUInt16(const CString& text, unsigned short& value, const bool& isHex,
                           const bool& isPrefixMandatory);
/// `toUInt<unsigned int, 4294967295>`.
OSAL_KIT_API bool toUInt32(const CString& text, unsigned int& value, const bool& isHex,
                           const bool& isPrefixMandatory);
/// `toUInt<unsigned long long, 18446744073709551615>`.
OSAL_KIT_API bool toUInt64(const CString& text, unsigned long long& value, const bool& isHex,
                           const bool& isPrefixMandatory);

/// Replaces `text` with `value` in decimal, or with "0x" and capital hexadecimal digits
/// without leading zeros (255 gives "0xFF"). Returns the result of `CString::format`:
/// false, with `text` unchanged, only when memory runs out.
OSAL_KIT_API bool fromUInt32(CString& text, const unsigned int& value, const bool& isHex);
/// Replaces `text` with `value` in decimal ("-1"); false only when memory runs out.
OSAL_KIT_API bool fromInt32(CString& text, const int& value);

/// Cuts `text` to at most `maxBytes` bytes at a character boundary (the longest prefix
/// that fits) and marks the cut with `suffix` when the suffix fits in `maxBytes` as
/// well; otherwise cuts to `maxBytes` without it.
///
/// Returns false and changes nothing when there is nothing to cut (`maxBytes` 0, `text`
/// empty or no longer than `maxBytes`), and when memory runs out.
///
///     PAL::CString line("abcdefghij");
///     PAL::StringUtilities::truncateInByteUnits(line, 8, "...");   // "abcde..."
OSAL_KIT_API bool truncateInByteUnits(CString& text, const unsigned int& maxBytes, const CString& suffix);

/// One `CString` per pointer, in order: a null pointer gives the empty string, invalid
/// UTF-8 is cut at the first bad sequence. When memory runs out the result holds the
/// strings made up to that point.
OSAL_KIT_API TVector<CString> toStringVector(const TVector<const char*>& texts);
/// The `getBuffer()` pointer of each string, in order. The pointers point into the
/// strings' blocks: they stay valid only while the strings of `texts` exist unchanged.
/// When memory runs out the result holds the pointers taken up to that point.
OSAL_KIT_API TVector<const char*> fromStringVector(const TVector<CString>& texts);

namespace Detail {

// The POSIX-locale white space of `isspace`, without depending on the current locale.
inline bool isWhiteSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The value of `c` as a digit in `base` (10 or 16), or -1.
inline int digitValue(char c, unsigned int base)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (base == 16) {
        if (c >= 'a' && c <= 'f') {
            return c - 'a' + 10;
        }
        if (c >= 'A' && c <= 'F') {
            return c - 'A' + 10;
        }
    }
    return -1;
}

// The decimal branch of `toUInt` as a straight walk: leading space, one sign, digits,
// trailing space, the same text accepted and refused as by the general machine.
template <class T, T max>
bool parseDecimal(const char* p, T& value)
{
    const T limit = max / 10;
    const unsigned int lastDigitAtLimit = static_cast<unsigned int>(max - limit * 10);
    while (isWhiteSpace(*p)) {
        ++p;
    }
    const bool negative = *p == '-';
    if (negative || *p == '+') {
        ++p;
    }
    const char* const firstDigit = p;
    T result = 0;
    unsigned int digit = static_cast<unsigned int>(static_cast<unsigned char>(*p)) - '0';
    while (digit < 10u) {
        if (result > limit || (result == limit && digit > lastDigitAtLimit)) {
            return false;
        }
        result = static_cast<T>(result * 10 + digit);
        digit = static_cast<unsigned int>(static_cast<unsigned char>(*++p)) - '0';
    }
    const bool haveDigit = p != firstDigit;
    while (*p != '\0') {
        if (!isWhiteSpace(*p)) {
            return false;
        }
        ++p;
    }
    if (!haveDigit || (negative && result != 0)) {
        return false;
    }
    value = result;
    return true;
}

} // namespace Detail

template <class T, T max>
bool toUInt(const CString& text, T& value, const bool& isHex, const bool& isPrefixMandatory)
{
    if (!isHex) {
        return Detail::parseDecimal<T, max>(text.getBuffer(), value);
    }

    enum eState { eLeadingSpace, ePrefix, eX, eSign, eDigits, eTrailingSpace };

    const T base = isHex ? 16 : 10;
    const T limit = max / base;
    const T lastDigitAtLimit = static_cast<T>(max - limit * base);

    const char* p = text.getBuffer();
    const char* zero = nullptr;
    eState state = eLeadingSpace;
    T result = 0;
    bool haveDigit = false;
    bool negative = false;

    while (*p != '\0') {
        const char c = *p;
        switch (state) {
        case eLeadingSpace:
            if (Detail::isWhiteSpace(c)) {
                ++p;
            } else {
                state = isHex ? ePrefix : eSign;
            }
            break;
        case ePrefix:
            if (c == '0' && p[1] != '\0') {
                zero = p++;
                state = eX;
            } else if (c == '0') {
                if (isPrefixMandatory) {
                    return false;
                }
                state = eDigits;
            } else if (isPrefixMandatory) {
                return false;
            } else {
                state = eDigits;
            }
            break;
        case eX:
            if (c == 'x') {
                ++p;
                state = eDigits;
            } else if (isPrefixMandatory) {
                return false;
            } else {
                p = zero;
                state = eDigits;
            }
            break;
        case eSign:
            if (c == '+' || c == '-') {
                negative = (c == '-');
                ++p;
            }
            state = eDigits;
            break;
        case eDigits: {
            if (Detail::isWhiteSpace(c)) {
                ++p;
                state = eTrailingSpace;
                break;
            }
            const int digit = Detail::digitValue(c, static_cast<unsigned int>(base));
            if (digit < 0) {
                return false;
            }
            const T d = static_cast<T>(digit);
            if (result > limit || (result == limit && d > lastDigitAtLimit)) {
                return false;
            }
            result = static_cast<T>(result * base + d);
            haveDigit = true;
            ++p;
            break;
        }
        case eTrailingSpace:
            if (!Detail::isWhiteSpace(c)) {
                return false;
            }
            ++p;
            break;
        }
    }

    if (!haveDigit || (negative && result != 0)) {
        return false;
    }
    value = result;
    return true;
}

} // namespace StringUtilities
} // namespace PAL

#endif
