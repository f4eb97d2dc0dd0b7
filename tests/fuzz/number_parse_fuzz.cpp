// The strict number parsers over outside text, every width and mode, against a reference
// written here from the grammar with strtoull. A refused parse leaves its output as it
// was; the formatters write what printf does; the byte-bounded cut keeps to its limit and
// to character boundaries.

#include "FuzzSupport.h"

#include "core/StringUtilities.h"

#include <cctype>
#include <cerrno>
#include <limits>

using osal_kit_fuzz::Input;
using osal_kit_fuzz::bytesOf;
using PAL::CString;
namespace SU = PAL::StringUtilities;

namespace {

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Blanks, a sign (decimal) or "0x" (hexadecimal; required when `mandatory`), digits,
// blanks, the end. `value` gets the digits' value when it fits in 64 bits.
bool reference(const char* p, bool hex, bool mandatory, unsigned long long& value, bool& negative)
{
    while (isBlank(*p))
        ++p;
    negative = !hex && *p == '-';
    if (!hex && (*p == '-' || *p == '+'))
        ++p;
    else if (hex && p[0] == '0' && p[1] == 'x')
        p += 2;
    else if (mandatory)
        return false;
    const char* const digits = p;
    while ((*p >= '0' && *p <= '9') || (hex && std::isxdigit(static_cast<unsigned char>(*p))))
        ++p;
    const std::string number(digits, p);
    while (isBlank(*p))
        ++p;
    errno = 0;
    value = std::strtoull(number.c_str(), nullptr, hex ? 16 : 10);
    return !number.empty() && *p == 0 && errno == 0;
}

// `parse` against the reference, for T's range; a refused parse leaves the sentinel.
template <class T>
void checkNumber(bool (*parse)(const CString&, T&, const bool&, const bool&), const CString& text, bool hex,
                 bool mandatory)
{
    const T sentinel = static_cast<T>(0x5A5A5A5A5A5A5A5Aull);
    T value = sentinel;
    unsigned long long expected = 0;
    bool negative = false;
    const unsigned long long lowest = 0 - static_cast<unsigned long long>(std::numeric_limits<T>::min());
    const bool ok = reference(text.getBuffer(), hex, hex && mandatory, expected, negative) &&
                    expected <= (negative ? lowest : static_cast<unsigned long long>(std::numeric_limits<T>::max()));
    FUZZ_CHECK(parse(text, value, hex, mandatory) == ok);
    FUZZ_CHECK(value == (ok ? static_cast<T>(negative ? 0 - expected : expected) : sentinel));
}

bool toInt32(const CString& text, int& value, const bool&, const bool&) { return SU::toInt32(text, value); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte();
    const bool hex = (mode >> 4) & 1, mandatory = (mode >> 5) & 1;
    Input parts(data + (size != 0), size - (size != 0));
    const std::string bytes = in.rest();
    const CString text(bytes.data(), static_cast<unsigned int>(bytes.size()));
    const int width = mode % 8;
    if (width < 5) {
        width == 0   ? checkNumber(toInt32, text, false, false)
        : width == 1 ? checkNumber(SU::toUInt8, text, hex, mandatory)
        : width == 2 ? checkNumber(SU::toUInt16, text, hex, mandatory)
        : width == 3 ? checkNumber(SU::toUInt32, text, hex, mandatory)
                     : checkNumber(SU::toUInt64, text, hex, mandatory);
    } else if (width == 5) {  // the formatters write what printf writes, over what was there
        const unsigned int u = parts.u32();
        CString written("replaced");
        char expected[16];
        SU::fromUInt32(written, u, hex);
        FUZZ_CHECK(bytesOf(written) == (std::snprintf(expected, sizeof expected, hex ? "0x%X" : "%u", u), expected));
        SU::fromInt32(written, static_cast<int>(u));
        FUZZ_CHECK(bytesOf(written) == (std::snprintf(expected, sizeof expected, "%d", static_cast<int>(u)), expected));
    } else {  // the byte-bounded cut: a prefix at a character boundary, then the suffix
        const unsigned int maxBytes = parts.byte();
        const std::string suffixBytes = parts.bytes(parts.byte() % 8), body = parts.rest();
        CString cut(body.data(), static_cast<unsigned int>(body.size()));
        const CString original(cut), suffix(suffixBytes.data(), static_cast<unsigned int>(suffixBytes.size()));
        const bool changed = SU::truncateInByteUnits(cut, maxBytes, suffix);
        osal_kit_fuzz::checkString(cut);
        FUZZ_CHECK(changed == (maxBytes != 0 && maxBytes < original.getSize()));
        const std::string result = bytesOf(cut), tail = changed && maxBytes >= suffix.getSize() ? bytesOf(suffix) : "";
        const std::string kept = result.substr(0, result.size() - std::min(result.size(), tail.size()));
        FUZZ_CHECK(!changed || (result.size() <= maxBytes && result == kept + tail));
        FUZZ_CHECK(bytesOf(original).compare(0, kept.size(), kept) == 0);
        // Nothing more of the text would have fitted: the cut keeps as many characters as it can.
        const size_t next = osal_kit_fuzz::leadLength(static_cast<unsigned char>(bytesOf(original)[kept.size()]));
        FUZZ_CHECK(!changed || kept.size() + next > maxBytes - tail.size());
        FUZZ_CHECK(changed || result == bytesOf(original));
    }
    return 0;
}
