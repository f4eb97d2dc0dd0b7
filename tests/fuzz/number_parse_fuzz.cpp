// The strict number parsers over outside text, every width and mode, against a
// reference written here with strtoull and explicit range checks. A refused parse must
// leave its output as it was; numbers written by the library read back the same; the
// byte-bounded cut keeps to its limit and to character boundaries.

#include "FuzzSupport.h"

#include "core/StringUtilities.h"

#include <cerrno>

using osal_kit_fuzz::Input;
using PAL::CString;
namespace SU = PAL::StringUtilities;

namespace {

bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigitOf(char c, int base)
{
    if (c >= '0' && c <= '9') {
        return true;
    }
    return base == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
}

// Blanks, an optional sign (decimal) or "0x" (hexadecimal; required when `prefix` is
// mandatory), one or more digits, blanks, the end. `negative` tells about a '-'.
bool split(const char* text, int base, bool prefixMandatory, std::string& digits, bool& negative)
{
    const char* p = text;
    negative = false;
    while (isBlank(*p)) {
        ++p;
    }
    if (base == 16) {
        if (p[0] == '0' && p[1] == 'x') {
            p += 2;
        } else if (prefixMandatory) {
            return false;
        }
    } else if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    const char* first = p;
    while (isDigitOf(*p, base)) {
        ++p;
    }
    if (p == first) {
        return false;
    }
    digits.assign(first, p);
    while (isBlank(*p)) {
        ++p;
    }
    return *p == 0;
}

// The value of the digits when it fits in 64 bits.
bool valueOf(const std::string& digits, int base, unsigned long long& value)
{
    errno = 0;
    char* end = nullptr;
    value = std::strtoull(digits.c_str(), &end, base);
    return errno == 0 && *end == 0;
}

bool referenceUInt(const char* text, int base, bool prefixMandatory, unsigned long long max, unsigned long long& value)
{
    std::string digits;
    bool negative = false;
    if (!split(text, base, prefixMandatory, digits, negative) || !valueOf(digits, base, value) || value > max) {
        return false;
    }
    return !negative || value == 0;
}

bool referenceInt32(const char* text, int& value)
{
    std::string digits;
    bool negative = false;
    unsigned long long v = 0;
    if (!split(text, 10, false, digits, negative) || !valueOf(digits, 10, v)) {
        return false;
    }
    if (v > (negative ? 2147483648ull : 2147483647ull)) {
        return false;
    }
    value = negative ? static_cast<int>(-static_cast<long long>(v)) : static_cast<int>(v);
    return true;
}

template <class T, class Parse>
void checkUInt(const CString& text, bool isHex, bool mandatory, Parse parse)
{
    const T sentinel = static_cast<T>(0x5A5A5A5A5A5A5A5Aull);
    T value = sentinel;
    const bool accepted = parse(text, value, isHex, mandatory);
    unsigned long long expected = 0;
    const bool reference =
        referenceUInt(text.getBuffer(), isHex ? 16 : 10, isHex && mandatory, static_cast<T>(~T(0)), expected);
    FUZZ_CHECK(accepted == reference);
    FUZZ_CHECK(value == (accepted ? static_cast<T>(expected) : sentinel));
}

bool parse8(const CString& t, unsigned char& v, bool h, bool m) { return SU::toUInt8(t, v, h, m); }
bool parse16(const CString& t, unsigned short& v, bool h, bool m) { return SU::toUInt16(t, v, h, m); }
bool parse32(const CString& t, unsigned int& v, bool h, bool m) { return SU::toUInt32(t, v, h, m); }
bool parse64(const CString& t, unsigned long long& v, bool h, bool m) { return SU::toUInt64(t, v, h, m); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte();
    const bool isHex = (mode >> 4) & 1;
    const bool mandatory = (mode >> 5) & 1;
    const std::string bytes = in.rest();
    const CString text(bytes.data(), static_cast<unsigned int>(bytes.size()));
    switch (mode % 8) {
    case 0: {
        const int sentinel = 0x5A5A5A5A;
        int value = sentinel;
        int expected = 0;
        const bool accepted = SU::toInt32(text, value);
        FUZZ_CHECK(accepted == referenceInt32(text.getBuffer(), expected));
        FUZZ_CHECK(value == (accepted ? expected : sentinel));
        break;
    }
    case 1:
        checkUInt<unsigned char>(text, isHex, mandatory, parse8);
        break;
    case 2:
        checkUInt<unsigned short>(text, isHex, mandatory, parse16);
        break;
    case 3:
        checkUInt<unsigned int>(text, isHex, mandatory, parse32);
        break;
    case 4:
        checkUInt<unsigned long long>(text, isHex, mandatory, parse64);
        break;
    case 5: { // what the library writes, it reads back
        Input values(data, size);
        values.byte();
        const unsigned int u = values.u32();
        CString written;
        SU::fromUInt32(written, u, isHex);
        unsigned int back = ~u;
        FUZZ_CHECK(SU::toUInt32(written, back, isHex, isHex && mandatory));
        FUZZ_CHECK(back == u);
        SU::fromInt32(written, static_cast<int>(u));
        int signedBack = ~static_cast<int>(u);
        FUZZ_CHECK(SU::toInt32(written, signedBack));
        FUZZ_CHECK(signedBack == static_cast<int>(u));
        break;
    }
    case 6: { // the byte-bounded cut
        Input parts(data, size);
        parts.byte();
        const unsigned int maxBytes = parts.byte();
        const std::string suffixBytes = parts.bytes(parts.byte() % 8);
        const std::string body = parts.rest();
        CString cut(body.data(), static_cast<unsigned int>(body.size()));
        const CString original(cut);
        const CString suffix(suffixBytes.data(), static_cast<unsigned int>(suffixBytes.size()));
        const bool changed = SU::truncateInByteUnits(cut, maxBytes, suffix);
        osal_kit_fuzz::checkString(cut);
        if (maxBytes == 0 || original.isEmpty() || maxBytes >= original.getSize()) {
            FUZZ_CHECK(!changed);
            FUZZ_CHECK(osal_kit_fuzz::bytesOf(cut) == osal_kit_fuzz::bytesOf(original));
            break;
        }
        FUZZ_CHECK(changed);
        FUZZ_CHECK(cut.getSize() <= maxBytes);
        const bool withSuffix = maxBytes >= suffix.getSize();
        const std::string result = osal_kit_fuzz::bytesOf(cut);
        const std::string tail = withSuffix ? osal_kit_fuzz::bytesOf(suffix) : std::string();
        FUZZ_CHECK(result.size() >= tail.size() && result.compare(result.size() - tail.size(), tail.size(), tail) == 0);
        const std::string kept = result.substr(0, result.size() - tail.size());
        FUZZ_CHECK(osal_kit_fuzz::bytesOf(original).compare(0, kept.size(), kept) == 0);
        break;
    }
    default: { // the string-vector conversions keep order and content
        PAL::TVector<const char*> texts;
        std::vector<std::string> pieces;
        Input parts(data, size);
        parts.byte();
        while (!parts.empty() && pieces.size() < 16) {
            pieces.push_back(parts.text());
        }
        for (const std::string& piece : pieces) {
            texts.push_back((piece.size() & 3) == 3 ? nullptr : piece.c_str());
        }
        const PAL::TVector<CString> strings = SU::toStringVector(texts);
        FUZZ_CHECK(strings.size() == texts.size());
        const PAL::TVector<const char*> back = SU::fromStringVector(strings);
        FUZZ_CHECK(back.size() == strings.size());
        for (int i = 0; i < strings.size(); ++i) {
            osal_kit_fuzz::checkString(*strings.get(i));
            FUZZ_CHECK(*back.get(i) == strings.get(i)->getBuffer());
            FUZZ_CHECK(*strings.get(i) == CString(*texts.get(i)));
        }
        break;
    }
    }
    return 0;
}
