// CString editing, cutting, searching, trimming and formatting: results in characters,
// the caller's iterators, sharing, and strings left whole when memory runs out.

#include "core/String.h"

#include "support/AllocationBalance.h"
#include "support/StringBlock.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using PAL::CString;
using Iterator = PAL::CString::const_iterator;
using osal_kit_test::AllocationBalance;
using osal_kit_test::blockOf;
using osal_kit_test::bytes;
using osal_kit_test::expectConsistent;
using osal_kit_test::sharesNullData;

const int END = -1;  // a position given as end() rather than as a character index
const int ANY = -2;  // the operation leaves the iterator undefined

CString S(const std::string& text)
{
    return osal_kit_test::fromBytes(text);
}

Iterator at(const CString& s, int index)
{
    return index == END ? s.end() : s.begin() + index;
}

int indexOf(const CString& s, const Iterator& it)
{
    return it == s.end() ? END : it - s.begin();
}

void expectText(const std::string& expected, const CString& s)
{
    EXPECT_EQ(expected, bytes(s));
    expectConsistent(s);
}

using Edit = std::function<void(CString&, Iterator&)>;

struct EditRow {
    int line;
    std::string start;
    int index;  // where the caller's iterator starts
    Edit edit;
    std::string expected;
    int expectedIndex;  // where it is afterwards
};

// Runs each edit on a private string and on a shared one: the results must agree and
// the other holder must keep its text.
void expectEdits(const std::vector<EditRow>& rows)
{
    for (const EditRow& row : rows) {
        SCOPED_TRACE(row.line);
        CString s = S(row.start);
        Iterator position = at(s, row.index);
        row.edit(s, position);
        expectText(row.expected, s);
        if (row.expectedIndex != ANY) {
            EXPECT_EQ(row.expectedIndex, indexOf(s, position));
        }

        CString shared = S(row.start);
        const CString holder = shared;
        Iterator sharedPosition = at(shared, row.index);
        row.edit(shared, sharedPosition);
        expectText(row.expected, shared);
        expectText(row.start, holder);
    }
}

#define EDIT(body) [&](CString & s, Iterator & p) { (void)p; body; }

class StringEditTest : public ::testing::Test {
protected:
    void TearDown() override { osal_kit_test::expectNullDataUntouched(); }

    osal_kit_test::FaultGuard mFaults;
};

TEST_F(StringEditTest, AppendAddsWholeCharacters)
{
    expectEdits({
        {__LINE__, "ab", 0, EDIT(s.append(S("cd"))), "abcd", ANY},
        {__LINE__, "", 0, EDIT(s += S("\xC3\xA9")), "\xC3\xA9", ANY},
        {__LINE__, "ab", 0, EDIT(s += "\xE2\x82\xAC!"), "ab\xE2\x82\xAC!", ANY},
        {__LINE__, "ab", 0, EDIT(s.append("a\xC3")), "aba", ANY},  // a lone lead byte is dropped
        {__LINE__, "x", 0, EDIT(s.append("\xC3\xA9", 2)), "x\xC3\xA9", ANY},
        {__LINE__, "x", 0, EDIT(s.append("a\0b", 3)), std::string("xa\0b", 4), ANY},
        {__LINE__, "x", 0, EDIT(s.append("\0ab", 3)), "x", ANY},   // a first byte of 0 adds nothing
        {__LINE__, "x", 0, EDIT(s.append("a\xE2\x82", 3)), "xa", ANY},  // neither does a cut sequence
        {__LINE__, "x", 0, EDIT(s.append("a\x80z", 3)), "xa", ANY},     // nor a byte that starts nothing
        {__LINE__, "a\xC3\xA9", 0, EDIT(s.append(s)), "a\xC3\xA9" "a\xC3\xA9", ANY},
        {__LINE__, "xyz", 0, EDIT(s.append(s.getBuffer() + 1, 2)), "xyzyz", ANY},
        {__LINE__, "ab", 0, EDIT(s = s + s + S("!")), "abab!", ANY},
    });

    CString s("abc");
    const CString copy = s;
    AllocationBalance balance;
    s.append(CString()).append("").append(static_cast<const char*>(nullptr)).append("xyz", 0);
    EXPECT_EQ(0u, balance.allocationsSince());
    EXPECT_EQ(2u, blockOf(s)->mRefCount);

    s.reserve(16);  // with room, appending itself happens in place
    const char* place = s.getBuffer();
    s.append(s).append(s.getBuffer() + 5);
    expectText("abcabcc", s);
    EXPECT_EQ(place, s.getBuffer());
}

TEST_F(StringEditTest, InsertRemoveReplaceWorkInCharactersAndPlaceTheIterator)
{
    const std::string cjk = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E";
    expectEdits({
        {__LINE__, "abc", 1, EDIT(s.insert(p, S("XY"))), "aXYbc", 1},
        {__LINE__, "abc", END, EDIT(s.insert(p, S("\xC3\xA9"))), "abc\xC3\xA9", 3},
        {__LINE__, "a\xC3\xA9", 1, EDIT(s.insert(p, S("\xE2\x82\xAC"))), "a\xE2\x82\xAC\xC3\xA9", 1},
        {__LINE__, "abc", 1, EDIT(s.insert(p, CString())), "abc", 1},
        {__LINE__, "xy", 1, EDIT(s.insert(p, s)), "xxyy", 1},
        {__LINE__, "abc", 0, EDIT(s.remove(p, 100)), "", END},
        {__LINE__, "a\xC3\xA9" "bc", 1, EDIT(s.remove(p, 2)), "ac", 1},
        {__LINE__, "abc", 1, EDIT(s.remove(p, 0)), "abc", 1},
        {__LINE__, "abc", END, EDIT(s.remove(p, 5)), "abc", END},
        {__LINE__, std::string("a\0bc", 4), 0, EDIT(s.remove(p, 3)), std::string("\0bc", 3), 0},  // stops at a NUL
        {__LINE__, "abc", 1, EDIT(s.replace(p, 1, S("XYZ"))), "aXYZc", 1},
        {__LINE__, "abc", 1, EDIT(s.replace(p, 0, S("X"))), "aXbc", 1},
        {__LINE__, "abc", END, EDIT(s.replace(p, 1, S("X"))), "abc", END},
        {__LINE__, "a\xC3\xA9\xE2\x82\xAC", 1, EDIT(s.replace(p, 100, CString())), "a", END},
        {__LINE__, cjk, 1, EDIT(s.replace(p, 1, S("x"))), "\xE6\x97\xA5x\xE8\xAA\x9E", 1},
        {__LINE__, "a%1b", 1, EDIT(s.replace(p, 2, s)), "aa%1bb", 1},
    });

    CString empty;  // the shared empty block gets a block of its own
    Iterator position = empty.end();
    empty.insert(position, S("z"));
    expectText("z", empty);
    EXPECT_EQ(empty.begin(), position);
}

TEST_F(StringEditTest, AnIteratorThatIsNotACharacterStartOfTheStringChangesNothing)
{
    const CString other("other");
    CString text("xy\xC3\xA9");
    const Iterator stale = text.begin() + 2;
    Iterator first = text.begin();
    text.remove(first, 1);  // in place: `stale` now points into the middle of U+00E9
    ASSERT_EQ(text.getBuffer() + 2, stale.getPosition());

    const Edit edits[] = {EDIT(s.insert(p, S("Z"))), EDIT(s.remove(p, 1)), EDIT(s.replace(p, 1, S("Z"))),
                          EDIT(s.truncate(p))};
    for (const Iterator& bad : {other.begin() + 1, other.end(), stale, Iterator()}) {
        for (const Edit& edit : edits) {
            Iterator position = bad;
            edit(text, position);
            expectText("y\xC3\xA9", text);
            EXPECT_EQ(bad, position);
        }
    }
    // Pieces start at the first byte of the character the iterator is inside.
    expectText("\xC3\xA9", text.getRight(stale));
    expectText("\xC3\xA9", text.getMid(stale, 1));
    expectText("y\xC3\xA9", text.getLeft(stale));
    EXPECT_TRUE(text.getLeft(other.begin() + 1).isEmpty());
    EXPECT_TRUE(text.getMid(other.begin(), 3).isEmpty());
    EXPECT_TRUE(text.getRight(other.begin()).isEmpty());
}

// A shared block is copied into one of exactly the new size; a private one with room
// is edited where it is.
TEST_F(StringEditTest, EditsCopySharedBlocksExactlyAndKeepPrivateOnesInPlace)
{
    const Edit edits[] = {
        EDIT(s.append(S("X"))), EDIT(s.insert(p, S("X"))), EDIT(s.remove(p, 3)), EDIT(s.replace(p, 2, S("X"))),
        EDIT(s.replaceArg(S("X"))), EDIT(s.truncate(3u)), EDIT(s.truncate(p)), EDIT(s.trim()),
        EDIT(s.format("%d", 42)),
    };
    for (const Edit& edit : edits) {
        CString shared(" ab %1 cd ");
        const CString holder = shared;
        Iterator position = shared.begin() + 1;
        edit(shared, position);
        EXPECT_EQ(shared.getSize(), blockOf(shared)->mCapacity);
        EXPECT_EQ(1u, blockOf(holder)->mRefCount);

        CString roomy(" ab %1 cd ");
        roomy.reserve(64);
        const char* place = roomy.getBuffer();
        position = roomy.begin() + 1;
        edit(roomy, position);
        EXPECT_EQ(place, roomy.getBuffer());
        EXPECT_EQ(64u, blockOf(roomy)->mCapacity);
        expectText(bytes(shared), roomy);
    }
}

// replaceAll goes left to right without searching its replacements; replaceArg takes the
// lowest single-digit placeholder; truncate and trim cut the ends.
TEST_F(StringEditTest, ReplaceAllReplaceArgTruncateAndTrim)
{
    const std::string text = "a\xC3\xA9" "b";
    expectEdits({
        {__LINE__, "aaa", 0, EDIT(s.replaceAll(S("a"), S("aa"))), "aaaaaa", ANY},
        {__LINE__, "aaa", 0, EDIT(s.replaceAll(CString(), S("x"))), "aaa", ANY},
        {__LINE__, "aaa", 0, EDIT(s.replaceAll(S("aa"), S("b"))), "ba", ANY},
        {__LINE__, "a/b/c", 0, EDIT(s.replaceAll(S("/"), S("::"))), "a::b::c", ANY},
        {__LINE__, "x\xC3\xA9x\xC3\xA9", 0, EDIT(s.replaceAll(S("\xC3\xA9"), CString())), "xx", ANY},
        {__LINE__, "abab", 0, EDIT(s.replaceAll(S("ab"), S("ab"))), "abab", ANY},
        {__LINE__, "ab", 0, EDIT(s.replaceAll(s, S("x"))), "x", ANY},
        {__LINE__, "ab", 0, EDIT(s.replaceAll(S("a"), s)), "abb", ANY},
        {__LINE__, "\xD0\xC3\xC3\x80", 0, EDIT(s.replaceAll(S("\xC3\xC3"), CString())), "\xD0\xC3\xC3\x80", ANY},
        {__LINE__, "%2 %1 %1", 0, EDIT(s.replaceArg(S("x"))), "%2 x %1", ANY},
        {__LINE__, "100%", 0, EDIT(s.replaceArg(S("x"))), "100%", ANY},
        {__LINE__, "%a%3", 0, EDIT(s.replaceArg(S("x"))), "%ax", ANY},
        {__LINE__, "%%1", 0, EDIT(s.replaceArg(S("x"))), "%x", ANY},
        {__LINE__, "%12", 0, EDIT(s.replaceArg(S("x"))), "x2", ANY},
        {__LINE__, "%9 %0", 0, EDIT(s.replaceArg(S("x"))), "%9 x", ANY},
        {__LINE__, "\xC3\xA9%5\xC3\xA9", 0, EDIT(s.replaceArg(S("x"))), "\xC3\xA9x\xC3\xA9", ANY},
        {__LINE__, "a%1", 0, EDIT(s.replaceArg(s)), "aa%1", ANY},
        {__LINE__, "%2 of %1", 0, EDIT(s.replaceArg(S("10")).replaceArg(S("3"))), "3 of 10", ANY},
        {__LINE__, text, END, EDIT(s.truncate(p)), text, ANY},
        {__LINE__, text, 0, EDIT(s.truncate(p)), "", ANY},
        {__LINE__, text, 2, EDIT(s.truncate(p)), "a\xC3\xA9", ANY},
        {__LINE__, text, 0, EDIT(s.truncate(3u)), text, ANY},
        {__LINE__, text, 0, EDIT(s.truncate(1u)), "a", ANY},
        {__LINE__, text, 0, EDIT(s.truncate(0u)), "", ANY},
        {__LINE__, " \t\n\v\f\rab c\r\n ", 0, EDIT(s.trim()), "ab c", ANY},
        {__LINE__, " \t ", 0, EDIT(s.trim()), "", ANY},
        {__LINE__, "\xC2\xA0x ", 0, EDIT(s.trim()), "\xC2\xA0x", ANY},  // the no-break space stays
        {__LINE__, std::string(" \0 ", 3), 0, EDIT(s.trim()), std::string("\0", 1), ANY},
    });
    CString untouched("abc");
    AllocationBalance balance;
    untouched.trim();
    EXPECT_EQ(0u, balance.allocationsSince());
}

TEST_F(StringEditTest, PiecesAreNewExactBlocksClippedAtTheEnds)
{
    const CString s("a\xC3\xA9" "b");
    struct Row {
        int line;
        CString piece;
        std::string expected;
    };
    const Row rows[] = {
        {__LINE__, s.getLeft(2u), "a\xC3\xA9"},          {__LINE__, s.getLeft(0u), ""},
        {__LINE__, s.getLeft(9u), "a\xC3\xA9" "b"},      {__LINE__, s.getLeft(s.begin() + 1), "a"},
        {__LINE__, s.getLeft(s.end()), "a\xC3\xA9" "b"}, {__LINE__, s.getMid(s.begin() + 1, 1), "\xC3\xA9"},
        {__LINE__, s.getMid(s.begin() + 1, 9), "\xC3\xA9" "b"}, {__LINE__, s.getMid(s.end(), 1), ""},
        {__LINE__, s.getMid(s.begin(), 0), ""},          {__LINE__, s.getRight(2u), "\xC3\xA9" "b"},
        {__LINE__, s.getRight(9u), "a\xC3\xA9" "b"},     {__LINE__, s.getRight(0u), ""},
        {__LINE__, s.getRight(s.begin() + 1), "\xC3\xA9" "b"}, {__LINE__, s.getRight(s.end()), ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        expectText(row.expected, row.piece);
        EXPECT_TRUE(row.piece.isEmpty() ? sharesNullData(row.piece) : blockOf(row.piece)->mCapacity == row.expected.size());
    }
    EXPECT_EQ(1u, blockOf(s)->mRefCount);
}

TEST_F(StringEditTest, FindStringSearchesWholeCharactersEitherWay)
{
    struct Row {
        int line;
        std::string text, what;
        int from;
        bool forward;
        int expected;
    };
    const Row rows[] = {
        {__LINE__, "abcabc", "bc", 0, true, 1},      {__LINE__, "abcabc", "bc", 2, true, 4},
        {__LINE__, "abcabc", "bc", END, false, 4},   {__LINE__, "abcabc", "bc", 3, false, 1},
        {__LINE__, "abcabc", "abc", 0, false, 0},    {__LINE__, "abcabc", "x", 0, true, END},
        {__LINE__, "abcabc", "", 0, true, END},      {__LINE__, "abcabc", "a", END, true, END},
        {__LINE__, "aba", "ab", 1, true, END},       {__LINE__, "aba", "ab", END, false, 0},  // no match past the end
        {__LINE__, "a\xC3\xA9\xC3\xA9", "\xC3\xA9", END, false, 2},
        {__LINE__, std::string("ab\0ab", 5), "ab", 1, true, END},  // a NUL ends the search
        {__LINE__, "", "a", END, false, END},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const CString s = S(row.text);
        EXPECT_EQ(row.expected, indexOf(s, s.findString(at(s, row.from), S(row.what), row.forward)));
        if (row.forward) {
            EXPECT_EQ(row.expected, indexOf(s, s.find(S(row.what), at(s, row.from))));
        }
    }
    const CString s("abc");
    const CString other("b");
    EXPECT_EQ(1, indexOf(s, s.find(other)));
    EXPECT_EQ(s.end(), s.find(other, other.begin()));
    EXPECT_EQ(s.end(), s.findString(Iterator(), other, false));
}

TEST_F(StringEditTest, FormatCutsOutputOnACharacterBoundary)
{
    struct Row {
        int line;
        std::string argument, expected;
        bool whole;
    };
    const Row rows[] = {
        {__LINE__, std::string(300, 'a'), std::string(256, 'a'), false},
        {__LINE__, std::string(256, 'a'), std::string(256, 'a'), true},
        {__LINE__, std::string(255, 'a') + "\xC3\xA9", std::string(255, 'a'), false},
        {__LINE__, "", "", true},  // still a block of its own
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        CString s;
        EXPECT_EQ(row.whole, s.format("%s", row.argument.c_str()));
        expectText(row.expected, s);
        EXPECT_FALSE(sharesNullData(s));
    }

    CString s;
    char small[3];
    EXPECT_FALSE(s.strprintf(small, sizeof small, "a\xC3\xA9"));
    expectText("a", s);
    EXPECT_STREQ("a\xC3", small);
    EXPECT_TRUE(s.strprintf(small, sizeof small, "%d", 42));
    EXPECT_STREQ("42", small);
    expectText("42", s);

    EXPECT_FALSE(s.format("%ls", L"\x20AC"));  // not representable in the C locale
    expectText("", s);
    s = "kept";
    EXPECT_FALSE(s.format(nullptr));
    EXPECT_FALSE(s.strprintf(nullptr, 8, "%d", 1));
    EXPECT_FALSE(s.strprintf(small, 0, "%d", 1));
    expectText("kept", s);
}

} // namespace
