// CString built from outside text: counted and NUL-terminated 8-bit text, UCS-2, UCS-4
// and wide ranges, appends, formatting and case mapping. The first byte picks the way in.

#include "FuzzSupport.h"

#include "core/StringUtilities.h"

#include <vector>

using osal_kit_fuzz::Input;
using PAL::CString;

namespace {

std::string accepted(const std::string& bytes)
{
    unsigned int chars = 0;
    return bytes.substr(0, osal_kit_fuzz::acceptedPrefix(bytes, chars));
}

// Sound, holding `expected`, and the same string again when its own bytes are taken in.
void check(const CString& s, const std::string& expected)
{
    osal_kit_fuzz::checkString(s);
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(s) == expected);
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(CString(s.getBuffer(), s.getSize())) == expected);
}

// The little-endian units of `width` bytes in `bytes`, and the model of the builders:
// each value encoded, up to the first that has no encoding (or, with `atZero`, is 0).
std::vector<unsigned int> units(const std::string& bytes, size_t width)
{
    std::vector<unsigned int> out(bytes.size() / width);
    for (size_t i = 0; i < out.size() * width; ++i)
        out[i / width] |= static_cast<unsigned int>(static_cast<unsigned char>(bytes[i])) << (8 * (i % width));
    return out;
}

std::string encoded(const std::vector<unsigned int>& values, bool atZero = false)
{
    std::string out;
    for (size_t i = 0; i < values.size() && !(atZero && values[i] == 0) && values[i] < 0x80000000u; ++i)
        out += osal_kit_fuzz::encode(values[i]);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte() % 8;
    const std::string first = mode == 5 ? in.text() : std::string(), bytes = in.rest();
    const std::string upToNul = bytes.substr(0, bytes.find('\0'));
    const unsigned int n = static_cast<unsigned int>(bytes.size());
    CString target("old");  // content of its own first, so every way in also replaces a block
    const CString copy(target);
    if (mode == 0) {  // counted 8-bit text: the longest valid prefix, NUL bytes included
        target = CString(bytes.data(), n);
        check(target, accepted(bytes));
    } else if (mode == 1) {  // NUL-terminated text, by assignment and by construction
        target = bytes.c_str();
        check(target, accepted(upToNul));
        check(CString(bytes.c_str()), accepted(upToNul));
    } else if (mode == 2) {  // UCS-2: every unit on its own, surrogates included
        const std::vector<unsigned int> values = units(bytes, 2);
        const std::vector<unsigned short> narrow(values.begin(), values.end());
        target.fromUCS2Sequence(narrow.data(), static_cast<unsigned int>(narrow.size()));
        check(target, encoded(values));
    } else if (mode == 3 || mode == 4) {  // UCS-4, a wide range, and zero-terminated wide text
        std::vector<unsigned int> values = units(bytes, 4);
        target.fromUCS4Sequence(values.data(), static_cast<unsigned int>(values.size()));
        check(target, encoded(values));
        check(CString(values.data(), values.data() + values.size()), encoded(values));
        values.push_back(0);
        check(CString(values.data()), encoded(values, true));
    } else if (mode == 5) {  // appends onto a string that has content; the counted one trusts its bytes
        const std::string head = accepted(first.substr(0, first.find('\0'))), trusted = accepted(upToNul);
        target.append(first.c_str());
        check(target, "old" + head);
        target.append(trusted.data(), static_cast<unsigned int>(trusted.size()));
        check(target, "old" + head + trusted);
        target += target;
        check(target, "old" + head + trusted + "old" + head + trusted);
    } else if (mode == 6) {  // formatting: at most 256 bytes, then the valid prefix
        FUZZ_CHECK(target.format("%s", upToNul.c_str()) == (upToNul.size() <= 256));
        check(target, accepted(upToNul.substr(0, 256)));
        char small[17];
        FUZZ_CHECK(target.strprintf(small, sizeof small, "%s", upToNul.c_str()) == (upToNul.size() <= 16));
        FUZZ_CHECK(small == upToNul.substr(0, 16));  // the buffer holds what fitted, cut where it ends
        check(target, accepted(upToNul.substr(0, 16)));
    } else {  // case mapping keeps the text sound and leaves copies alone
        const CString before = target = CString(bytes.data(), n);
        PAL::StringUtilities::toLower(target);
        osal_kit_fuzz::checkString(target);
        PAL::StringUtilities::toUpper(target);
        osal_kit_fuzz::checkString(target);
        FUZZ_CHECK(osal_kit_fuzz::bytesOf(before) == accepted(bytes));
    }
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(copy) == "old");  // building new content never touches a copy
    return 0;
}
