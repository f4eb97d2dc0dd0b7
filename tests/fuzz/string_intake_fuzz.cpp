// CString built from outside text: 8-bit text (counted and NUL-terminated), UCS-2,
// UCS-4 and wide ranges, appends, formatting and case mapping. The first byte picks the way in.

#include "FuzzSupport.h"

#include "core/StringUtilities.h"

#include <algorithm>
#include <vector>

using osal_kit_fuzz::Input;
using PAL::CString;

namespace {

// What the result must hold whatever the way in: sound in itself, and the same string
// again when its own bytes are taken in.
void checkIntake(const CString& s, const std::string& expected)
{
    osal_kit_fuzz::checkString(s);
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(s) == expected);
    const CString again(s.getBuffer(), s.getSize());
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(again) == expected);
    FUZZ_CHECK(again.getLength() == s.getLength());
}

std::string acceptedOf(const std::string& bytes)
{
    unsigned int chars = 0;
    return bytes.substr(0, osal_kit_fuzz::acceptedPrefix(bytes, chars));
}

// The model of the UCS-4 and wide builders: each value encoded, up to the first one
// that has no encoding.
std::string encodedUntilStop(const std::vector<unsigned int>& values)
{
    std::string out;
    for (unsigned int cp : values) {
        const std::string one = osal_kit_fuzz::encode(cp);
        if (one.empty()) {
            break;
        }
        out += one;
    }
    return out;
}

std::vector<unsigned int> words(const std::string& bytes)
{
    std::vector<unsigned int> out;
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        out.push_back(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8 |
                      static_cast<unsigned char>(bytes[i + 2]) << 16 |
                      static_cast<unsigned int>(static_cast<unsigned char>(bytes[i + 3])) << 24);
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in(data, size);
    const uint8_t mode = in.byte();
    // A string with content of its own first, so every way in also replaces a block.
    CString target("old");
    const CString copy(target);
    switch (mode % 8) {
    case 0: { // counted 8-bit text: the longest valid prefix, NUL bytes included
        const std::string bytes = in.rest();
        target = CString(bytes.data(), static_cast<unsigned int>(bytes.size()));
        checkIntake(target, acceptedOf(bytes));
        break;
    }
    case 1: { // NUL-terminated text, by construction and by assignment
        const std::string bytes = in.rest();
        const std::string upToNul = bytes.substr(0, bytes.find('\0'));
        target = bytes.c_str();
        checkIntake(target, acceptedOf(upToNul));
        checkIntake(CString(bytes.c_str()), acceptedOf(upToNul));
        break;
    }
    case 2: { // UCS-2: every unit on its own, surrogates included
        const std::string bytes = in.rest();
        std::vector<unsigned short> units;
        std::string expected;
        for (size_t i = 0; i + 2 <= bytes.size(); i += 2) {
            const unsigned short unit = static_cast<unsigned short>(
                static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
            units.push_back(unit);
            expected += osal_kit_fuzz::encode(unit);
        }
        target.fromUCS2Sequence(units.data(), static_cast<unsigned int>(units.size()));
        checkIntake(target, expected);
        FUZZ_CHECK(target.getLength() == units.size());
        break;
    }
    case 3: { // UCS-4
        const std::vector<unsigned int> values = words(in.rest());
        target.fromUCS4Sequence(values.data(), static_cast<unsigned int>(values.size()));
        checkIntake(target, encodedUntilStop(values));
        break;
    }
    case 4: { // wide range and zero-terminated wide text
        std::vector<unsigned int> values = words(in.rest());
        const std::string expected = encodedUntilStop(values);
        target = CString(values.data(), values.data() + values.size());
        checkIntake(target, expected);
        values.push_back(0);
        std::vector<unsigned int> upToZero(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(
                                                                         std::find(values.begin(), values.end(), 0u) -
                                                                         values.begin()));
        checkIntake(CString(values.data()), encodedUntilStop(upToZero));
        break;
    }
    case 5: { // appends of outside text onto a string that has content
        const std::string first = in.text();
        const std::string second = in.rest();
        std::string expected = "old";
        const std::string firstUpToNul = first.substr(0, first.find('\0'));
        target.append(firstUpToNul.c_str());
        expected += acceptedOf(firstUpToNul);
        checkIntake(target, expected);
        // The counted append trusts its bytes, so it gets only bytes intake accepted.
        const std::string trusted = acceptedOf(second.substr(0, second.find('\0')));
        target.append(trusted.data(), static_cast<unsigned int>(trusted.size()));
        expected += trusted;
        checkIntake(target, expected);
        target += target;
        checkIntake(target, expected + expected);
        break;
    }
    case 6: { // formatting outside text: at most 256 bytes, then the valid prefix
        const std::string bytes = in.rest();
        const std::string upToNul = bytes.substr(0, bytes.find('\0'));
        const bool whole = target.format("%s", upToNul.c_str());
        FUZZ_CHECK(whole == (upToNul.size() <= 256));
        checkIntake(target, acceptedOf(upToNul.substr(0, 256)));
        char small[17];
        CString viaBuffer;
        const bool fitted = viaBuffer.strprintf(small, sizeof(small), "%s", upToNul.c_str());
        FUZZ_CHECK(fitted == (upToNul.size() <= 16));
        checkIntake(viaBuffer, acceptedOf(upToNul.substr(0, 16)));
        break;
    }
    case 7: { // case mapping of outside text keeps it sound and leaves copies alone
        const std::string bytes = in.rest();
        target = CString(bytes.data(), static_cast<unsigned int>(bytes.size()));
        const CString before(target);
        const std::string original = osal_kit_fuzz::bytesOf(target);
        PAL::StringUtilities::toLower(target);
        osal_kit_fuzz::checkString(target);
        PAL::StringUtilities::toUpper(target);
        osal_kit_fuzz::checkString(target);
        FUZZ_CHECK(osal_kit_fuzz::bytesOf(before) == original);
        target = "old";
        break;
    }
    }
    // Building the new content never touches a copy of the old.
    FUZZ_CHECK(osal_kit_fuzz::bytesOf(copy) == "old");
    return 0;
}
