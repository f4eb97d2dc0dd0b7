// StringUtilities: case mapping through the shipped tables and the engine, the strict
// number parsers and formatters, byte-bounded truncation and string-vector conversions.

#include "core/StringUtilities.h"

#include "support/AllocationBalance.h"
#include "support/StringBlock.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using PAL::CString;
using PAL::TVector;
using namespace PAL::StringUtilities;
using osal_kit_test::AllocationBalance;
using osal_kit_test::FaultGuard;
using osal_kit_test::bytes;
using osal_kit_test::expectConsistent;

typedef std::vector<unsigned int> CodePoints;

CString fromCodePoints(const CodePoints& cps)
{
    return CString(cps.data(), cps.data() + cps.size());
}

// Decoded from the bytes, since iterators do not step past a NUL character.
CodePoints codePointsOf(const CString& s)
{
    CodePoints out;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.getBuffer());
    const unsigned char* const end = p + s.getSize();
    while (p < end) {
        const unsigned int n = PAL::UTF8LookUpTable[*p];
        unsigned int cp = n == 1 ? *p : *p & (0xFFu >> (n + 1));
        for (unsigned int k = 1; k < n; ++k) {
            cp = (cp << 6) | (p[k] & 0x3Fu);
        }
        out.push_back(cp);
        p += n;
    }
    return out;
}

// ---- case mapping

enum eDirection { eLower, eUpper };

CodePoints mapped(eDirection direction, const CodePoints& input)
{
    CString text = fromCodePoints(input);
    if (direction == eLower) {
        toLower(text);
    } else {
        toUpper(text);
    }
    expectConsistent(text);
    return codePointsOf(text);
}

struct CaseRow {
    int line;
    eDirection direction;
    CodePoints input;
    CodePoints expected;
};

TEST(CaseMappingTest, MapsCodePointsByTheShippedTables)
{
    const CaseRow rows[] = {
        // One character may become several; the length changes.
        {__LINE__, eUpper, {'s', 't', 'r', 'a', 0xDF, 'e'}, {'S', 'T', 'R', 'A', 'S', 'S', 'E'}},
        {__LINE__, eLower, {0x0130}, {0x0069, 0x0307}},
        {__LINE__, eUpper, {0xFB00}, {'F', 'F'}},
        {__LINE__, eUpper, {0xFB03, 'x'}, {'F', 'F', 'I', 'X'}},
        {__LINE__, eUpper, {0x0390}, {0x0399, 0x0308, 0x0301}},
        {__LINE__, eUpper, {0x1FB3}, {0x0391, 0x0399}},
        {__LINE__, eUpper, {'a', 0xDF, 'b', 0xDF}, {'A', 'S', 'S', 'B', 'S', 'S'}},
        // No context: sigma is never final.
        {__LINE__, eLower, {0x03A3, 0x03A3}, {0x03C3, 0x03C3}},
        {__LINE__, eUpper, {0x03C2}, {0x03A3}},
        // Simple entries, including several mapping to one.
        {__LINE__, eUpper, {0x0131}, {'I'}},
        {__LINE__, eLower, {0x212A}, {'k'}},
        {__LINE__, eLower, {0x0178}, {0x00FF}},
        {__LINE__, eLower, {0x01C4, 0x01C5, 0x01C6}, {0x01C6, 0x01C6, 0x01C6}},
        {__LINE__, eUpper, {0x01C4, 0x01C5, 0x01C6}, {0x01C4, 0x01C4, 0x01C4}},
        // Ranges, at their edges.
        {__LINE__, eUpper, {'a', 'z', '@', '[', '`', '{'}, {'A', 'Z', '@', '[', '`', '{'}},
        {__LINE__, eLower, {0x00C0, 0x00D6, 0x00D7, 0x00D8, 0x00DE}, {0x00E0, 0x00F6, 0x00D7, 0x00F8, 0x00FE}},
        {__LINE__, eLower, {0xFF21, 0xFF3A, 0xFF3B}, {0xFF41, 0xFF5A, 0xFF3B}},
        {__LINE__, eUpper, {0x1F70, 0x1F71, 0x1F72, 0x1F75}, {0x1FBA, 0x1FBB, 0x1FC8, 0x1FCB}},
        // Not letters, or mappings newer than the tables: unchanged.
        {__LINE__, eLower, {0x2160, 0x24B6}, {0x2160, 0x24B6}},
        {__LINE__, eUpper, {0x0345, 0x2170, 0x24D0}, {0x0345, 0x2170, 0x24D0}},
        {__LINE__, eLower, {0x10A0, 0x04C0, 0x1E9E}, {0x10A0, 0x04C0, 0x1E9E}},
        {__LINE__, eUpper, {0x0180, 0x2D00}, {0x0180, 0x2D00}},
        // Above the Basic Multilingual Plane: unchanged in both directions.
        {__LINE__, eLower, {0x10400}, {0x10400}},
        {__LINE__, eUpper, {0x10428}, {0x10428}},
        // Characters are found by walking, which stops at a NUL character: what follows
        // one stays as it is.
        {__LINE__, eUpper, {'a', '1', 0, 'b'}, {'A', '1', 0, 'b'}},
        {__LINE__, eLower, {}, {}},
    };
    for (const CaseRow& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.expected, mapped(row.direction, row.input));
    }
}

TEST(CaseMappingTest, MultiCharacterMappingGrowsTheBytes)
{
    CString text = fromCodePoints({0x0130});
    ASSERT_EQ(2u, text.getSize());
    toLower(text);
    EXPECT_EQ(2u, text.getLength());
    EXPECT_EQ(3u, text.getSize());
    EXPECT_EQ("i\xCC\x87", bytes(text));
}

TEST(CaseMappingTest, SharedCopiesAreNotChanged)
{
    const CString original("Grüße");
    CString upper = original;
    toUpper(upper);
    EXPECT_EQ("GRÜSSE", bytes(upper));
    EXPECT_EQ("Grüße", bytes(original));

    CString lower = original;
    toLower(lower);
    EXPECT_EQ("grüße", bytes(lower));
    EXPECT_EQ("Grüße", bytes(original));
}

TEST(CaseMappingTest, ReleasesEverythingItAllocates)
{
    AllocationBalance balance;
    {
        CString text("Straße ΣΊΣΥΦΟΣ ﬃ");
        toUpper(text);
        toLower(text);
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
    EXPECT_EQ(0, balance.liveBytesDelta());
}

// ---- the shipped tables

template <class Entry>
unsigned int firstOf(const Entry& entry)
{
    return entry.mCharacter;
}

template <class T>
unsigned int firstOf(const PAL::StringUtilities::TRangeCaseMappingTableEntry<T>& entry)
{
    return entry.mFirstCharacter;
}

template <class Entry>
void expectStrictlyAscending(const Entry* table, unsigned int count)
{
    for (unsigned int i = 1; i < count; ++i) {
        EXPECT_LT(firstOf(table[i - 1]), firstOf(table[i])) << "entry " << i;
    }
}

// The mapping of every code point of the plane, taken from the tables by linear scans,
// so that the engine's bisection can be checked against it.
std::map<unsigned int, CodePoints> expectedMappings(const SCaseMappingTable& table)
{
    std::map<unsigned int, CodePoints> expected;
    for (unsigned int i = 0; i < table.mNumSimple16; ++i) {
        expected[table.mpSimple16[i].mCharacter] = {table.mpSimple16[i].mMappedCharacter};
    }
    for (unsigned int i = 0; i < table.mNumRange16; ++i) {
        const auto& range = table.mpRange16[i];
        for (unsigned int k = 0; k < range.mCount; ++k) {
            expected[range.mFirstCharacter + k] = {range.mFirstMappedCharacter + k};
        }
    }
    for (unsigned int i = 0; i < table.mNumSpecial16; ++i) {
        const auto& rule = table.mpSpecial16[i];
        expected[rule.mCharacter] = CodePoints(rule.mpReplacements, rule.mpReplacements + rule.mNumReplacements);
    }
    return expected;
}

struct ShippedTableRow {
    int line;
    const SCaseMappingTable* table;
    unsigned int simple;
    unsigned int ranges;
    unsigned int special;
};

const ShippedTableRow sShippedTables[] = {
    {__LINE__, &sToLowerCaseMappingTable, 380, 31, 1},
    {__LINE__, &sToUpperCaseMappingTable, 386, 28, 102},
};

TEST(CaseMappingTablesTest, HaveTheShapeTheLookupNeeds)
{
    for (const ShippedTableRow& row : sShippedTables) {
        SCOPED_TRACE(row.line);
        const SCaseMappingTable& table = *row.table;
        EXPECT_EQ(row.simple, table.mNumSimple16);
        EXPECT_EQ(row.ranges, table.mNumRange16);
        EXPECT_EQ(row.special, table.mNumSpecial16);
        EXPECT_EQ(0u, table.mNumSimple32 + table.mNumRange32 + table.mNumSpecial32);
        EXPECT_TRUE(table.mpSimple32 == nullptr && table.mpRange32 == nullptr && table.mpSpecial32 == nullptr);
        expectStrictlyAscending(table.mpSimple16, table.mNumSimple16);
        expectStrictlyAscending(table.mpRange16, table.mNumRange16);
        expectStrictlyAscending(table.mpSpecial16, table.mNumSpecial16);
    }
    EXPECT_STREQ("4.0", TO_LOWER_CASE_MAP_UNICODE_VERSION);
    EXPECT_STREQ("4.0", TO_UPPER_CASE_MAP_UNICODE_VERSION);
    EXPECT_STREQ(TO_LOWER_CASE_MAP_SOURCE_DATA_VERSION, TO_UPPER_CASE_MAP_SOURCE_DATA_VERSION);
}

TEST(CaseMappingTablesTest, EveryCodePointOfThePlaneMapsAsItsTableSays)
{
    for (const ShippedTableRow& row : sShippedTables) {
        SCOPED_TRACE(row.line);
        const std::map<unsigned int, CodePoints> expected = expectedMappings(*row.table);
        unsigned int mismatches = 0;
        for (unsigned int cp = 1; cp <= 0xFFFF && mismatches < 10; ++cp) {
            const auto found = expected.find(cp);
            CString text = fromCodePoints({cp});
            doCaseMapping(text, *row.table);
            if (codePointsOf(text) != (found == expected.end() ? CodePoints{cp} : found->second)) {
                ADD_FAILURE() << "U+" << std::hex << cp;
                ++mismatches;
            }
        }
    }
}

// ---- the engine with other tables

const TSimpleCaseMappingTableEntry<unsigned int> sWideSimple[] = {{0x10400, 0x10428}, {0x10401, 0x20000}};
const TRangeCaseMappingTableEntry<unsigned int> sWideRange[] = {{0x10410, 4, 0x10438}};
const unsigned int sWideReplacements[] = {0x10428, 'x', 0x7FFFFFFF};
const TSpecialCaseMappingTableEntry<unsigned int> sWideSpecial[] = {{0x10500, 3, sWideReplacements}};
const TRangeCaseMappingTableEntry<unsigned short> sNarrowRange[] = {{'a', 3, 0x0430}};

TEST(CaseMappingEngineTest, UsesThe32BitTablesAboveThePlane)
{
    const SCaseMappingTable wide = {0, nullptr, 1, sNarrowRange, 0, nullptr,
                                    2, sWideSimple, 1, sWideRange, 1, sWideSpecial};
    CString text = fromCodePoints({0x10400, 'b', 0x10401, 0x10413, 0x10414, 0x10500, 'd'});
    doCaseMapping(text, wide);
    expectConsistent(text);
    EXPECT_EQ((CodePoints{0x10428, 0x0431, 0x20000, 0x1043B, 0x10414, 0x10428, 'x', 0x7FFFFFFF, 'd'}),
              codePointsOf(text));
}

TEST(CaseMappingEngineTest, AbsentTablesMapNothing)
{
    const SCaseMappingTable none = {0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr};
    CString text("Straße");
    doCaseMapping(text, none);
    EXPECT_EQ("Straße", bytes(text));
}

// The shipped tables are looked up through an index and texts are mapped in one pass;
// a copy of a table at another address is searched instead. Both must give what
// mapping each character by its table gives, on private and on shared strings.
TEST(CaseMappingEngineTest, OnePassAgreesWithMappingEachCharacter)
{
    const unsigned int pool[] = {'a', 'q', 'Z', '7', ' ', 0, 0xDF, 0xE9, 0xC9, 0xFF, 0x0130, 0x0131, 0x0149,
                                 0x0390, 0x03A3, 0x03C2, 0x0434, 0x0416, 0x0587, 0x1FB3, 0x212A, 0xFB03,
                                 0xFF41, 0x6F22, 0x10428, 0x7FFFFFFF};
    std::mt19937 random(7u);
    for (const ShippedTableRow& row : sShippedTables) {
        SCOPED_TRACE(row.line);
        const std::map<unsigned int, CodePoints> expected = expectedMappings(*row.table);
        const SCaseMappingTable searched = *row.table;
        for (int round = 0; round < 2000; ++round) {
            CodePoints input(random() % 24);
            for (unsigned int& cp : input) {
                cp = pool[random() % (sizeof(pool) / sizeof(pool[0]))];
            }
            // Characters are walked up to the first NUL; what follows it stays.
            CodePoints want;
            bool afterNul = false;
            for (unsigned int cp : input) {
                afterNul = afterNul || cp == 0;
                const auto found = expected.find(cp);
                if (afterNul || found == expected.end()) {
                    want.push_back(cp);
                } else {
                    want.insert(want.end(), found->second.begin(), found->second.end());
                }
            }
            for (const SCaseMappingTable* table : {row.table, &searched}) {
                for (bool shared : {false, true}) {
                    CString text = fromCodePoints(input);
                    const CString other = shared ? text : CString();
                    doCaseMapping(text, *table);
                    expectConsistent(text);
                    ASSERT_EQ(want, codePointsOf(text)) << "round " << round << (shared ? ", shared" : "");
                    if (shared) {
                        ASSERT_EQ(input, codePointsOf(other));
                    }
                }
            }
        }
    }
}

// A follower byte of 0xC0 or more is taken as a continuation where the string was
// built, but the iterator steps onto it: such texts are mapped as the iterator sees them.
TEST(CaseMappingEngineTest, FollowersThatStartCharactersAreSteppedOnAsTheIteratorDoes)
{
    CString text("a\xC3\xC3" "b", 4);
    ASSERT_EQ(3u, text.getLength());
    toLower(text);
    expectConsistent(text);
    EXPECT_EQ("a\xC3\xA3" "b", bytes(text));
}

// ---- number parsing

struct Int32Row {
    int line;
    const char* text;
    bool ok;
    int value;
};

TEST(NumberParsingTest, ToInt32AcceptsOnlyAWholeSignedDecimal)
{
    const Int32Row rows[] = {
        {__LINE__, " 42 ", true, 42},
        {__LINE__, "\t\n\v\f\r42\r\n", true, 42},
        {__LINE__, "-2147483648", true, -2147483647 - 1},
        {__LINE__, "2147483647", true, 2147483647},
        {__LINE__, "+7", true, 7},
        {__LINE__, "007", true, 7},
        {__LINE__, "-0", true, 0},
        {__LINE__, "", false, 0},
        {__LINE__, "   ", false, 0},
        {__LINE__, "-", false, 0},
        {__LINE__, "- 5", false, 0},
        {__LINE__, "2147483648", false, 0},
        {__LINE__, "4294967296", false, 0},
        {__LINE__, "99999999999999999999999", false, 0},
        {__LINE__, "12a", false, 0},
        {__LINE__, "0x10", false, 0},
        {__LINE__, "１", false, 0},  // a full-width digit is no digit
    };
    for (const Int32Row& row : rows) {
        SCOPED_TRACE(row.line);
        int value = 12345;
        EXPECT_EQ(row.ok, toInt32(CString(row.text), value));
        EXPECT_EQ(row.ok ? row.value : 12345, value);
    }
}

TEST(NumberParsingTest, ParsersStopAtAnEmbeddedNul)
{
    const CString text("12\0x", 4);
    int signedValue = 0;
    EXPECT_TRUE(toInt32(text, signedValue));
    EXPECT_EQ(12, signedValue);
    unsigned int unsignedValue = 0;
    EXPECT_TRUE(toUInt32(text, unsignedValue, true, false));
    EXPECT_EQ(0x12u, unsignedValue);
}

struct UIntRow {
    int line;
    int bits;
    const char* text;
    bool isHex;
    bool isPrefixMandatory;
    bool ok;
    unsigned long long value;
};

// Runs one row through the parser of one width; the value is read back widened.
template <class T>
bool parseAs(bool (*parse)(const CString&, T&, const bool&, const bool&), const UIntRow& row,
             unsigned long long& value)
{
    T narrow = 0xA5;
    const bool ok = parse(CString(row.text), narrow, row.isHex, row.isPrefixMandatory);
    value = narrow;
    return ok;
}

bool parseUInt(const UIntRow& row, unsigned long long& value)
{
    switch (row.bits) {
    case 8: return parseAs(toUInt8, row, value);
    case 16: return parseAs(toUInt16, row, value);
    case 32: return parseAs(toUInt32, row, value);
    default: return parseAs(toUInt64, row, value);
    }
}

TEST(NumberParsingTest, ToUIntFollowsBasePrefixAndRange)
{
    const bool dec = false, hex = true, optional = false, mandatory = true;
    const UIntRow rows[] = {
        {__LINE__, 32, "4294967295", dec, optional, true, 4294967295u},
        {__LINE__, 32, "4294967296", dec, optional, false, 0},
        {__LINE__, 32, "+5", dec, optional, true, 5},
        {__LINE__, 32, "-0", dec, optional, true, 0},
        {__LINE__, 32, " -000 ", dec, optional, true, 0},
        {__LINE__, 32, "-1", dec, optional, false, 0},
        {__LINE__, 32, "+ 5", dec, optional, false, 0},
        {__LINE__, 32, "0x10", dec, optional, false, 0},
        // Decimal text is walked in one straight pass: the same grammar at its edges.
        {__LINE__, 32, "00000000004294967295", dec, optional, true, 4294967295u},
        {__LINE__, 32, "4294967299", dec, optional, false, 0},
        {__LINE__, 32, "\t\n42\r\v\f", dec, optional, true, 42},
        {__LINE__, 32, "1 0", dec, optional, false, 0},
        {__LINE__, 32, "1/", dec, optional, false, 0},
        {__LINE__, 32, "1:", dec, optional, false, 0},
        {__LINE__, 32, "--5", dec, optional, false, 0},
        {__LINE__, 32, "-", dec, optional, false, 0},
        {__LINE__, 32, "+ ", dec, optional, false, 0},
        {__LINE__, 32, "", dec, optional, false, 0},
        {__LINE__, 32, "0xFFFFFFFF", hex, mandatory, true, 0xFFFFFFFFu},
        {__LINE__, 32, "0x100000000", hex, optional, false, 0},
        {__LINE__, 8, "255", dec, optional, true, 255},
        {__LINE__, 8, "256", dec, optional, false, 0},
        {__LINE__, 8, "ff", hex, optional, true, 0xFF},
        {__LINE__, 8, "0xff", hex, optional, true, 0xFF},
        {__LINE__, 8, "0", hex, optional, true, 0},
        {__LINE__, 8, " 0 ", hex, optional, true, 0},
        {__LINE__, 8, "0012", hex, optional, true, 0x12},
        {__LINE__, 8, "100", hex, optional, false, 0},
        {__LINE__, 8, "0xFF", hex, mandatory, true, 0xFF},
        {__LINE__, 8, " 0xaB\t", hex, mandatory, true, 0xAB},
        {__LINE__, 8, "ff", hex, mandatory, false, 0},
        {__LINE__, 8, "0", hex, mandatory, false, 0},
        {__LINE__, 8, "0x", hex, mandatory, false, 0},
        {__LINE__, 8, "0x", hex, optional, false, 0},
        {__LINE__, 8, "0x 1", hex, optional, false, 0},
        {__LINE__, 8, "-0", hex, optional, false, 0},
        {__LINE__, 8, "+1", hex, optional, false, 0},
        {__LINE__, 8, "fg", hex, optional, false, 0},
        {__LINE__, 16, "0X10", hex, optional, false, 0},
        {__LINE__, 16, "0X10", hex, mandatory, false, 0},
        {__LINE__, 16, "1 0", hex, optional, false, 0},
        {__LINE__, 16, "65535", dec, optional, true, 65535},
        {__LINE__, 16, "65536", dec, optional, false, 0},
        {__LINE__, 16, "0xFFFF", hex, optional, true, 0xFFFF},
        {__LINE__, 16, "", hex, optional, false, 0},
        {__LINE__, 16, "  ", dec, optional, false, 0},
        {__LINE__, 64, "18446744073709551615", dec, optional, true, 18446744073709551615ull},
        {__LINE__, 64, "18446744073709551616", dec, optional, false, 0},
        {__LINE__, 64, "0xFFFFFFFFFFFFFFFF", hex, mandatory, true, 0xFFFFFFFFFFFFFFFFull},
        {__LINE__, 64, "0x10000000000000000", hex, mandatory, false, 0},
        {__LINE__, 64, "0123456789abcdef", hex, optional, true, 0x0123456789ABCDEFull},
    };
    for (const UIntRow& row : rows) {
        SCOPED_TRACE(row.line);
        unsigned long long value = 0;
        EXPECT_EQ(row.ok, parseUInt(row, value));
        EXPECT_EQ(row.ok ? row.value : 0xA5u, value);
    }
}

// ---- number formatting

TEST(NumberFormattingTest, WritesDecimalAndCapitalHexadecimal)
{
    CString text("replaced");
    EXPECT_TRUE(fromUInt32(text, 255u, true));
    EXPECT_EQ("0xFF", bytes(text));
    EXPECT_TRUE(fromUInt32(text, 255u, false));
    EXPECT_EQ("255", bytes(text));
    EXPECT_TRUE(fromUInt32(text, 0u, true));
    EXPECT_EQ("0x0", bytes(text));
    EXPECT_TRUE(fromUInt32(text, 4294967295u, false));
    EXPECT_EQ("4294967295", bytes(text));
    EXPECT_TRUE(fromInt32(text, -1));
    EXPECT_EQ("-1", bytes(text));
    EXPECT_TRUE(fromInt32(text, -2147483647 - 1));
    EXPECT_EQ("-2147483648", bytes(text));
}

// ---- truncation

struct TruncateRow {
    int line;
    const char* text;
    unsigned int maxBytes;
    const char* suffix;
    bool cut;
    const char* expected;
};

TEST(TruncateTest, CutsAtACharacterBoundaryAndAddsTheSuffixWhenItFits)
{
    const TruncateRow rows[] = {
        {__LINE__, "abcdefghij", 8, "...", true, "abcde..."},
        {__LINE__, "abcdefghij", 3, "...", true, "..."},
        {__LINE__, "abcdefghij", 2, "...", true, "ab"},
        {__LINE__, "abcdefghij", 9, "", true, "abcdefghi"},
        {__LINE__, "abcdefghij", 10, "...", false, "abcdefghij"},
        {__LINE__, "abcdefghij", 0, "", false, "abcdefghij"},
        {__LINE__, "", 5, "...", false, ""},
        // Two-byte characters: an odd limit ends one byte short.
        {__LINE__, "éééééé", 7, "", true, "ééé"},
        {__LINE__, "éééééé", 7, "…", true, "éé…"},
        // Mixed widths, four-byte characters included.
        {__LINE__, "a😀b😀c😀", 6, "", true, "a😀b"},
        {__LINE__, "a😀b😀c😀", 5, "", true, "a😀"},
        {__LINE__, "😀😀😀😀😀😀😀😀😀😀", 39, "", true, "😀😀😀😀😀😀😀😀😀"},
        {__LINE__, "😀😀😀😀😀😀😀😀😀😀", 3, "", true, ""},
        {__LINE__, "😀😀😀😀😀😀😀😀😀😀", 7, "-", true, "😀-"},
    };
    for (const TruncateRow& row : rows) {
        SCOPED_TRACE(row.line);
        CString text(row.text);
        EXPECT_EQ(row.cut, truncateInByteUnits(text, row.maxBytes, CString(row.suffix)));
        EXPECT_EQ(row.expected, bytes(text));
        EXPECT_LE(text.getSize(), row.cut ? row.maxBytes : text.getSize());
        expectConsistent(text);
    }
}

TEST(TruncateTest, SixByteSequencesAreNeverCutShorterThanNeeded)
{
    // Characters of the six-byte form: a cut by characters must not overshoot.
    const unsigned int wide[] = {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF,
                                 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF};
    CString text(wide, wide + 10);
    ASSERT_EQ(60u, text.getSize());
    EXPECT_TRUE(truncateInByteUnits(text, 59, CString()));
    EXPECT_EQ(54u, text.getSize());
    EXPECT_TRUE(truncateInByteUnits(text, 30, CString()));
    EXPECT_EQ(5u, text.getLength());
    EXPECT_EQ(30u, text.getSize());
}

TEST(TruncateTest, LeavesSharedCopiesAlone)
{
    const CString original("abcdefghij");
    CString text = original;
    EXPECT_TRUE(truncateInByteUnits(text, 6, CString("..")));
    EXPECT_EQ("abcd..", bytes(text));
    EXPECT_EQ("abcdefghij", bytes(original));
}

// ---- string vectors

TEST(StringVectorTest, ToStringVectorMakesOneStringPerPointer)
{
    TVector<const char*> texts(0);
    texts.push_back("first");
    texts.push_back(nullptr);
    texts.push_back("ok\xC3");  // a lead byte without its continuation is dropped
    texts.push_back("");

    const TVector<CString> strings = toStringVector(texts);
    ASSERT_EQ(4, strings.size());
    EXPECT_EQ("first", bytes(*strings.get(0)));
    EXPECT_TRUE(strings.get(1)->isEmpty());
    EXPECT_EQ("ok", bytes(*strings.get(2)));
    EXPECT_TRUE(strings.get(3)->isEmpty());

    EXPECT_EQ(0, toStringVector(TVector<const char*>(0)).size());
}

TEST(StringVectorTest, FromStringVectorPointsIntoTheStrings)
{
    TVector<CString> strings(0);
    strings.push_back(CString("alpha"));
    strings.push_back(CString());
    strings.push_back(CString("γ"));

    const TVector<const char*> texts = fromStringVector(strings);
    ASSERT_EQ(3, texts.size());
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(strings.get(i)->getBuffer(), *texts.get(i));
    }
    EXPECT_STREQ("γ", *texts.get(2));
    EXPECT_STREQ("", *texts.get(1));
}

} // namespace
