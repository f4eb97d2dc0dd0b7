// CString storage: intake of every encoding, sharing, the iterator, comparison, hashing.

#include "core/String.h"
#include "os/pal_wrapper.h"

#include "support/AllocationBalance.h"
#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using PAL::CString;
using osal_kit_test::blockOf;
using osal_kit_test::bytes;
using osal_kit_test::fromBytes;
using osal_kit_test::sharesNullData;

// Equality compares counts, then the text up to its first NUL; the hash reads signed bytes.
TEST(StringTest, EqualityAndHashLookAtTheTextUpToItsFirstNul)
{
    const CString withNul = fromBytes(std::string("x\0y", 3));
    EXPECT_TRUE(withNul == fromBytes(std::string("x\0z", 3)) && withNul != CString("x") && CString("ab") != CString("ac"));
    EXPECT_EQ(PAL::getHashValueForString(CString("x")), PAL::getHashValueForString(withNul));
    EXPECT_EQ(3014u, PAL::getHashValueForString(CString("abc")));
    EXPECT_EQ(0xFFFFFE78u, PAL::getHashValueForString(CString("\xC3\xA9")));
}

TEST(StringTest, OnlyTextGivesAnEmptyStringABlockOfItsOwn)
{
    const CString byDefault, fromNull(static_cast<const char*>(nullptr)), fromEmpty(""), roomy(32u), five("hello");
    EXPECT_TRUE(sharesNullData(byDefault) && sharesNullData(fromNull) && sharesNullData(CString::null));
    EXPECT_TRUE(sharesNullData(CString(static_cast<const char*>(nullptr), 5)) && roomy.isEmpty());
    const unsigned int wide[] = {0x42}, *none = nullptr;  // the intake fuzz target cannot pass null pointers
    EXPECT_TRUE(CString(none, wide + 1).isEmpty() && CString(wide, none).isEmpty() && CString(none).isEmpty());
    EXPECT_TRUE(blockOf(fromEmpty)->mCapacity == 0u && blockOf(roomy)->mCapacity == 32u);
    sMorvex_PAL_AllocInfo info;
    ASSERT_EQ(0, Morvex_PAL_AllocLookup(blockOf(five), &info));
    EXPECT_TRUE(info.size == 20u + 5u && std::string("new") == info.label);

    osal_kit_test::AllocationBalance balance;
    const CString copies[] = {byDefault, fromNull, fromEmpty, CString(0xFFFFFFECu), CString(0xFFFFFFFFu)};
    EXPECT_EQ(0u, balance.allocationsSince());
    EXPECT_TRUE(blockOf(fromEmpty) == blockOf(copies[2]) && sharesNullData(copies[3]) && sharesNullData(copies[4]));
}

TEST(StringTest, CopiesShareAndWritesUnshare)
{
    CString a("alpha"), b = a, c;
    c = a;
    c = static_cast<const CString&>(c);
    EXPECT_EQ(3u, blockOf(a)->mRefCount);
    const char* before = a.getBuffer();
    EXPECT_EQ(before, (b.reserve(2), b.getBuffer()));  // large enough: still shared
    b.reserve(64);
    EXPECT_TRUE(before != b.getBuffer() && blockOf(a)->mRefCount == 2u && blockOf(b)->mCapacity == 64u);
    const char* grown = b.getBuffer();
    EXPECT_EQ(grown, (b.reserve(64), b.getBuffer()));  // private and large enough: in place
    CString full("abc");
    const char* room = (full.reserve(5), full.getBuffer());
    EXPECT_EQ(room, full.append("de").getBuffer());  // exactly full: still in place
    const unsigned int stopped[] = {'A', 0x80000000u};
    full.reserve(0xFFFFFFECu);  // no block is that large, not even for a text that stops at once
    full.fromUCS4Sequence(stopped, 0xFFFFFFF0u);
    EXPECT_TRUE(room == full.getBuffer() && blockOf(full)->mCapacity == 5u && bytes(full) == "abcde");
    c = "gamma";
    const CString third = c;
    a.swap(c);  // neither side keeps sharing with a third string, whichever side shared
    CString fourth = a;
    a.swap(b);
    EXPECT_EQ("alpha" "gamma" "alpha" "gamma" "gamma", bytes(a) + bytes(b) + bytes(c) + bytes(third) + bytes(fourth));
    for (const CString* s : std::initializer_list<const CString*>{&a, &b, &c, &third, &fourth})
        EXPECT_EQ(1u, blockOf(*s)->mRefCount);
}

// A lead whose followers reach the terminator takes it, and what would lie beyond it, as
// zero bits. Each text is one character; `steps` forward reach its last non-follower.
TEST(StringTest, DecodingNextToTheTerminatorGivesZeroBits)
{
    const struct { int line; const char* text; int steps; unsigned int atLast; } rows[] = {
        {__LINE__, "\xC3\xC3", 1, 0xC0u},
        {__LINE__, "\xE0\xC3\xEF", 2, 0xF000u},
        {__LINE__, "\xF0\x80\x80\xF7", 1, 0x1C0000u},
        {__LINE__, "\xF8\x80\x80\x80\xFB", 1, 0x3000000u},
        {__LINE__, "\xFC\x80\x80\x80\xFD\xBF", 1, 0x7F000000u},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CString one(row.text);
        ASSERT_EQ(1u, one.getLength());
        EXPECT_TRUE(row.atLast == *(one.begin() + row.steps) && row.atLast == *--one.end());
        EXPECT_EQ(row.atLast, one[static_cast<unsigned int>(row.steps)]);
    }
}

// The fuzz models walk whole texts and land past the end; these are the steps at the edges.
TEST(StringTest, IteratorStepsStopAtTheSentinelAndAtTheEnd)
{
    const CString s("\xE2\x82\xAC" "a\xC3\xA9"), empty, withNul("x\0yz", 4);
    CString::const_iterator it = s.begin();
    EXPECT_TRUE(*it++ == 0x20ACu && *it == 0x61u && s[3] == 0u && s[1000] == 0u && *s.end() == 0u);
    EXPECT_TRUE(s.end() == ++s.end() && s.begin() + 1 == s.end() + -2 && s.begin() == s.begin() + -2);
    EXPECT_TRUE(s.getBuffer() - 1 == (--s.begin()).getPosition() && *--s.begin() == 0u);  // the sentinel
    EXPECT_TRUE(s.begin() == (it += -5) && empty.getBuffer() - 1 == (--empty.end()).getPosition());
    EXPECT_TRUE(s.begin() - s.end() == -3 && s.end() - (s.begin() + 1) == 2);
    EXPECT_TRUE(s.end() - CString::const_iterator() == 0 && *it-- == 0x20ACu && it == --s.begin());
    EXPECT_TRUE(empty.end() - empty.begin() == 0 && withNul.end() - withNul.begin() == 1);  // a NUL ends the count
}

} // namespace
