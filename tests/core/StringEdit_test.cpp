// CString editing, cutting, searching, trimming and formatting: results in characters,
// the caller's iterators, and sharing. The edit fuzz target checks every edit against a
// model; these are the cases the design names and what a model cannot see.

#include "core/String.h"

#include "support/AllocationBalance.h"
#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using PAL::CString;
using Iterator = PAL::CString::const_iterator;
using osal_kit_test::blockOf;
using osal_kit_test::bytes;

CString S(const std::string& text) { return osal_kit_test::fromBytes(text); }

void expectText(const std::string& expected, const CString& s)
{
    EXPECT_EQ(expected, bytes(s));
    osal_kit_test::expectConsistent(s);
}

using Edit = std::function<void(CString&, Iterator&)>;
#define EDIT(body) [](CString & s, Iterator & p) { (void)p; body; }

class StringEditTest : public ::testing::Test {
protected:
    void TearDown() override { osal_kit_test::expectNullDataUntouched(); }
};

// The edit fuzz target edits shared strings only, and only over whole characters of its
// alphabet; these edit private ones with bytes it never makes.
TEST_F(StringEditTest, EditsWorkInWholeCharactersAndPlaceTheIterator)
{
    const struct { int line; std::string start; Edit edit; std::string expected; } rows[] = {
        {__LINE__, "ab", EDIT(s.append("a\xC3")), "aba"},  // a lone lead byte is dropped
        {__LINE__, "x", EDIT(s.append("\xC3\xA9", 2).append("\0ab", 3).append("a\x80z", 3).append("a\xE2\x82", 3)),
         "x\xC3\xA9" "aa"},
        {__LINE__, "ab", EDIT(s = s + s + S("!")), "abab!"},
        {__LINE__, std::string("a\0bc", 4), EDIT(s.remove(p, 3); EXPECT_EQ(s.begin(), p)),  // stops at a NUL
         std::string("\0bc", 3)},
        {__LINE__, "\xD0\xC3\xC3\x80", EDIT(s.replaceAll(S("\xC3\xC3"), CString())), "\xD0\xC3\xC3\x80"},
        {__LINE__, "%%1 %: %/", EDIT(s.replaceArg(S("x"))), "%x %: %/"},
        {__LINE__, "\x08\xC2\xA0x\x0E", EDIT(s.trim()), "\x08\xC2\xA0x\x0E"},  // the no-break space stays
        {__LINE__, std::string(" \0 ", 3), EDIT(s.trim()), std::string("\0", 1)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CString s = S(row.start);
        Iterator position = s.begin();
        row.edit(s, position);
        expectText(row.expected, s);
    }
}

// The edit fuzz target tries iterators of other strings, the sentinel and a default one;
// these are one left inside a character by an edit, and pieces from another string's.
TEST_F(StringEditTest, AnIteratorInsideACharacterChangesNothingAndPiecesStartAtItsCharacter)
{
    CString text("xy\xC3\xA9");
    const CString other("other");
    const Iterator stale = text.begin() + 2;
    Iterator first = text.begin();
    text.remove(first, 1);  // in place: `stale` now points into the middle of U+00E9
    ASSERT_EQ(text.getBuffer() + 2, stale.getPosition());
    for (const Edit& edit : {Edit(EDIT(s.insert(p, S("Z")))), Edit(EDIT(s.remove(p, 1))),
                             Edit(EDIT(s.replace(p, 1, S("Z")))), Edit(EDIT(s.truncate(p)))}) {
        Iterator position = stale;
        edit(text, position);
        expectText("y\xC3\xA9", text);
        EXPECT_EQ(stale, position);
    }
    expectText("\xC3\xA9" "\xC3\xA9" "y\xC3\xA9", text.getRight(stale) + text.getMid(stale, 1) + text.getLeft(stale));
    EXPECT_TRUE(text.getLeft(other.begin() + 1).isEmpty() && text.getMid(other.begin(), 3).isEmpty());
}

// A shared block is copied into one of exactly the new size; an edit that changes nothing
// allocates nothing.
TEST_F(StringEditTest, EditsCopySharedBlocksExactlyAndUnchangedOnesAllocateNothing)
{
    CString shared(" ab %1 cd ");
    const CString holder = shared;
    Iterator position = shared.begin() + 1;
    shared.replace(position, 2, CString("X")).append(CString("Y"));
    EXPECT_TRUE(shared.getSize() == blockOf(shared)->mCapacity && blockOf(holder)->mRefCount == 1u);
    CString untouched("abc");
    const CString x("x"), y("y");
    Iterator end = untouched.end();
    osal_kit_test::AllocationBalance balance;
    untouched.trim().replaceArg(x).replaceAll(y, x).remove(end, 1).replace(end, 1, x).insert(end, CString()).append("");
    untouched.append(static_cast<const char*>(nullptr)).append("xyz", 0).append(CString()).truncate(9u);
    EXPECT_EQ(0u, balance.allocationsSince());
}

// The intake fuzz target checks where formatting cuts its output; these are its failures.
TEST_F(StringEditTest, FormatFailsWithoutTextAndAnEmptyResultHasItsOwnBlock)
{
    CString s;
    EXPECT_TRUE(s.format("%s", "") && !osal_kit_test::sharesNullData(s));
    EXPECT_FALSE(s.format("%ls", L"\x20AC"));  // not representable in the C locale
    expectText("", s);
    s = "kept";
    char small[3];
    EXPECT_FALSE(s.format(nullptr) || s.strprintf(nullptr, 8, "%d", 1) || s.strprintf(small, 0, "%d", 1));
    expectText("kept", s);
}

} // namespace
