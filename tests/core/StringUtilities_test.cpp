// StringUtilities: case mapping through the shipped tables and the engine. The number
// parse fuzz target checks the parsers, the formatters and the byte-bounded cut against
// models; the sweep, the string-vector conversions.

#include "core/StringUtilities.h"

#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using PAL::CString;
using namespace PAL::StringUtilities;
using osal_kit_test::bytes;
using osal_kit_test::expectConsistent;
using CodePoints = std::vector<unsigned int>;

CString fromCodePoints(const CodePoints& cps) { return CString(cps.data(), cps.data() + cps.size()); }

// The text mapped by `table`, as bytes, so that characters after a NUL are compared too;
// mapped shared first, then private, with the same result.
std::string mapped(const SCaseMappingTable& table, const CodePoints& input)
{
    CString text = fromCodePoints(input), held = text;
    doCaseMapping(text, table);
    doCaseMapping(held, table);
    expectConsistent(text);
    EXPECT_EQ(bytes(text), bytes(held));
    return bytes(text);
}

const SCaseMappingTable& L = sToLowerCaseMappingTable;
const SCaseMappingTable& U = sToUpperCaseMappingTable;

// What each code point maps to, read from the table by linear scans, so that the engine's
// searches and its one-pass writing can be checked against it.
std::map<unsigned int, CodePoints> mappingsOf(const SCaseMappingTable& table)
{
    std::map<unsigned int, CodePoints> out;
    for (unsigned int i = 0; i < table.mNumSimple16; ++i)
        out[table.mpSimple16[i].mCharacter] = {table.mpSimple16[i].mMappedCharacter};
    for (unsigned int i = 0; i < table.mNumRange16; ++i) {
        for (unsigned int k = 0; k < table.mpRange16[i].mCount; ++k)
            out[table.mpRange16[i].mFirstCharacter + k] = {table.mpRange16[i].mFirstMappedCharacter + k};
    }
    for (unsigned int i = 0; i < table.mNumSpecial16; ++i) {
        const auto& rule = table.mpSpecial16[i];
        out[rule.mCharacter] = CodePoints(rule.mpReplacements, rule.mpReplacements + rule.mNumReplacements);
    }
    return out;
}

// The engine as the tables describe it: each mapped character replaced, from the last.
void replaceOneByOne(CString& text, const std::map<unsigned int, CodePoints>& mappings)
{
    for (unsigned int i = text.getLength(); i-- > 0;) {
        const auto found = mappings.find(text[i]);
        CString::const_iterator position = text.begin() + static_cast<int>(i);
        if (found != mappings.end())
            text.replace(position, 1, fromCodePoints(found->second));
    }
}

// `count` times each code point, as bytes.
std::string runs(std::initializer_list<std::pair<unsigned int, unsigned int>> list)
{
    std::string out;
    for (const auto& run : list)
        out += bytes(fromCodePoints(CodePoints(run.second, run.first)));
    return out;
}

// The shipped tables are looked up through an index and texts are mapped in one pass,
// in place or into a new block; a copy of a table at another address is searched. Both
// must leave what replacing character by character leaves, block capacity included, on
// private, roomy and shared strings, and a shared copy must keep its text. The plane is
// taken in pieces, mixed with characters of other lengths, a NUL and unmapped ones. A
// shared block starts with a little room to spare: the runs below outgrow it at each kind
// of character (ASCII, two bytes to two, to more, unmapped), or shrink before growing.
// Texts the iterator steps differently from a decoder (0xC3 0xC3 is one character to it)
// are mapped as it steps, whether their first mapped character comes before or after.
TEST(CaseMappingTest, OnePassAgreesWithReplacingEachCharacterAsTheTablesSay)
{
    const unsigned int mixed[] = {'a', 0, 0xDF, 0x0390, 0xFB03, 0x10428, 0x7FFFFFFF};
    std::vector<std::string> pieces;
    for (unsigned int first = 1; first <= 0xFFFF; first += 61) {
        CodePoints input;
        for (unsigned int cp = first; cp < first + 61 && cp <= 0xFFFF; ++cp) {
            input.push_back(cp);
            if (cp % 5 == 0)
                input.push_back(mixed[cp / 5 % 7]);
        }
        pieces.push_back(bytes(fromCodePoints(input)));
    }
    const std::string everyWay[] = {runs({{0x390, 10}}), runs({{0x390, 10}, {'a', 180}}),
                                    runs({{0x390, 10}, {0xE9, 90}}), runs({{0x390, 10}, {0x4E2D, 60}}),
                                    runs({{0x131, 100}, {0x390, 10}}), "a\xC3\xC3" "b", "A\xC3\xC3" "b"};
    for (const SCaseMappingTable* shipped : {&L, &U}) {
        const std::map<unsigned int, CodePoints> mappings = mappingsOf(*shipped);
        const SCaseMappingTable searched = *shipped;
        EXPECT_EQ(0u, shipped->mNumSimple32 + shipped->mNumRange32 + shipped->mNumSpecial32);
        const auto agree = [&](const std::string& input, unsigned int way) {
            CString text = osal_kit_test::fromBytes(input), expected = osal_kit_test::fromBytes(input);
            for (CString* roomy : {&text, &expected})
                roomy->reserve(way % 3 == 1 ? text.getSize() + 40 : 0);
            const CString other = way % 3 == 2 ? text : CString(), otherExpected = way % 3 == 2 ? expected : other;
            if (way >= 3)
                doCaseMapping(text, searched);
            else
                shipped == &L ? toLower(text) : toUpper(text);
            replaceOneByOne(expected, mappings);
            expectConsistent(text);
            ASSERT_EQ(bytes(expected), bytes(text)) << "way " << way << " of " << ::testing::PrintToString(input);
            ASSERT_EQ(osal_kit_test::blockOf(expected)->mCapacity, osal_kit_test::blockOf(text)->mCapacity);
            ASSERT_EQ(bytes(otherExpected), bytes(other));
        };
        for (size_t i = 0; i < pieces.size(); ++i)
            agree(pieces[i], i % 6);
        for (const std::string& input : everyWay) {
            for (unsigned int way = 0; way < 6; ++way)
                agree(input, way);
        }
    }
}

const TSimpleCaseMappingTableEntry<unsigned int> sWideSimple[] = {{0x10400, 0x10428}, {0x10401, 0x20000}};
const TRangeCaseMappingTableEntry<unsigned int> sWideRange[] = {{0x10410, 4, 0x10438}};
const unsigned int sWideReplacements[] = {0x10428, 'x', 0x7FFFFFFF};
const TSpecialCaseMappingTableEntry<unsigned int> sWideSpecial[] = {{0x10500, 3, sWideReplacements},
                                                                   {0x10501, 0, nullptr}};
const TRangeCaseMappingTableEntry<unsigned short> sNarrowRange[] = {{'a', 3, 0x0430}};
const TSimpleCaseMappingTableEntry<unsigned short> sNarrowSimple[] = {{0, '0'}, {'d', 'D'}, {0xFFFF, 'f'}};

// A table that maps U+0000 is applied character by character; the result is the same.
TEST(CaseMappingTest, TheEngineUsesThe32BitTablesAboveThePlaneAndSkipsAbsentOnes)
{
    const SCaseMappingTable wide = {2, sNarrowSimple + 1, 1, sNarrowRange, 0, nullptr, 2, sWideSimple, 1, sWideRange,
                                    2, sWideSpecial};
    const SCaseMappingTable zero = {3, sNarrowSimple, 1, sNarrowRange, 0, nullptr, 2, sWideSimple, 1, sWideRange,
                                    2, sWideSpecial};
    const SCaseMappingTable none = {0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr};
    const CodePoints input = {0x10400, 'b', 0x10401, 0x10413, 0x10414, 0x10500, 0x104FF, 0x10501, 'd', 0xFFFF};
    const CodePoints expected = {0x10428, 0x0431, 0x20000, 0x1043B, 0x10414, 0x10428, 'x', 0x7FFFFFFF, 0x104FF,
                                 0x10501, 'D', 'f'};
    EXPECT_EQ(bytes(fromCodePoints(expected)), mapped(wide, input));
    EXPECT_EQ(bytes(fromCodePoints(expected)), mapped(zero, input));
    EXPECT_EQ(bytes(fromCodePoints(input)), mapped(none, input));
}

} // namespace
