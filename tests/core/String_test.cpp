// CString storage: intake of every encoding, sharing, the iterator, comparison, hashing.

#include "core/String.h"
#include "os/pal_wrapper.h"

#include "support/AllocationBalance.h"
#include "support/StringBlock.h"

#include "morvex_pal_fault.h"
#include "morvex_pal_memory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using PAL::CString;
using PAL::SStringData;
using osal_kit_test::AllocationBalance;
using osal_kit_test::FaultGuard;
using osal_kit_test::blockOf;
using osal_kit_test::bytes;
using osal_kit_test::expectConsistent;
using osal_kit_test::sharesNullData;

TEST(StringLayoutTest, BlocksAreSizedForTheTextAndAttributedToTheLibrary)
{
    const CString s("hello");
    const SStringData* block = blockOf(s);
    sMorvex_PAL_AllocInfo info;
    ASSERT_EQ(0, Morvex_PAL_AllocLookup(block, &info));
    EXPECT_EQ(sizeof(SStringData) + 5u, info.size);
    EXPECT_EQ(20u, sizeof(SStringData));
    EXPECT_EQ(sizeof(void*), sizeof(CString));
    EXPECT_STREQ("osal_kit", info.component);
    EXPECT_STREQ("new", info.label);
    EXPECT_STREQ("os/private/pal_wrapper.cpp", info.sourcePath);
    EXPECT_EQ(1u, block->mRefCount);
    EXPECT_EQ(5u, block->mCapacity);
}

// Each byte range of the look-up table meets one row: as a lead byte, as a follower,
// or as a byte that starts nothing.
TEST(StringIntakeTest, EightBitTextKeepsItsLongestValidPrefix)
{
    const struct {
        int line;
        std::string input;
        unsigned int characters, bytes;
    } rows[] = {
        {__LINE__, "abc", 3, 3},
        {__LINE__, std::string("a\xC3", 2), 1, 1},
        {__LINE__, std::string("\x80" "ab", 3), 0, 0},
        {__LINE__, std::string("\xC3\xC3", 2), 1, 2},  // only the top bit of a follower is tested
        {__LINE__, std::string("x\0y", 3), 3, 3},
        {__LINE__, "Gr\xC3\xBC\xC3\x9F" "e", 5, 7},
        {__LINE__, "\x7F\xC0\xBF\xDF\x80", 3, 5},
        {__LINE__, "\xE2\x82\xAC", 1, 3},
        {__LINE__, "\xF0\x9F\x98\x80", 1, 4},
        {__LINE__, "\xF8\x88\x80\x80\x80", 1, 5},
        {__LINE__, "\xFD\xBF\xBF\xBF\xBF\xBF", 1, 6},
        {__LINE__, "ok\xF0\x9F\x98", 2, 2},     // cut inside the last sequence
        {__LINE__, "ok\xE2" "ab", 2, 2},        // follower without its top bit
        {__LINE__, "a\xFE\x80", 1, 1},
        {__LINE__, "a\xFF\x80", 1, 1},
        {__LINE__, "a\xBF\x80", 1, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CString s(row.input.data(), static_cast<unsigned int>(row.input.size()));
        EXPECT_EQ(row.characters, s.getLength());
        EXPECT_EQ(row.bytes, s.getSize());
        EXPECT_EQ(row.input.substr(0, row.bytes), bytes(s));
        expectConsistent(s);
    }
}

TEST(StringIntakeTest, EmptyStringsShareTheStaticBlockUnlessBuiltFromText)
{
    const CString byDefault;
    const CString fromNull(static_cast<const char*>(nullptr));
    const CString fromNullCounted(static_cast<const char*>(nullptr), 5);
    const CString fromEmpty("");
    for (const CString* s : {&byDefault, &fromNull, &fromNullCounted, &fromEmpty}) {
        EXPECT_TRUE(s->isEmpty());
        EXPECT_EQ(0u, s->getLength());
        EXPECT_STREQ("", s->getBuffer());
    }
    EXPECT_TRUE(sharesNullData(byDefault));
    EXPECT_TRUE(sharesNullData(fromNull));
    EXPECT_TRUE(sharesNullData(CString::null));
    ASSERT_FALSE(sharesNullData(fromEmpty));
    EXPECT_EQ(0u, blockOf(fromEmpty)->mCapacity);

    AllocationBalance balance;
    const CString copies[] = {byDefault, fromNull, fromEmpty, CString::null};
    EXPECT_EQ(0u, balance.allocationsSince());
    EXPECT_EQ(blockOf(fromEmpty), blockOf(copies[2]));
}

TEST(StringIntakeTest, CapacityConstructorGivesAnEmptyPrivateBlock)
{
    const CString roomy(32u);
    EXPECT_TRUE(roomy.isEmpty());
    ASSERT_FALSE(sharesNullData(roomy));
    EXPECT_EQ(32u, blockOf(roomy)->mCapacity);
    expectConsistent(roomy);

    AllocationBalance balance;
    EXPECT_TRUE(sharesNullData(CString(0xFFFFFFECu)));
    EXPECT_TRUE(sharesNullData(CString(0xFFFFFFFFu)));
    EXPECT_EQ(0u, balance.allocationsSince());
}

struct EncodingRow {
    int line;
    unsigned int codePoint;
    std::string utf8;
};

TEST(StringIntakeTest, CodePointsEncodeInOneToSixBytesAndDecodeBack)
{
    const EncodingRow rows[] = {
        {__LINE__, 0x41, "A"},
        {__LINE__, 0x7F, "\x7F"},
        {__LINE__, 0x80, "\xC2\x80"},
        {__LINE__, 0x7FF, "\xDF\xBF"},
        {__LINE__, 0x800, "\xE0\xA0\x80"},
        {__LINE__, 0xFFFF, "\xEF\xBF\xBF"},
        {__LINE__, 0x10000, "\xF0\x90\x80\x80"},
        {__LINE__, 0x1FFFFF, "\xF7\xBF\xBF\xBF"},
        {__LINE__, 0x200000, "\xF8\x88\x80\x80\x80"},
        {__LINE__, 0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"},
        {__LINE__, 0x4000000, "\xFC\x84\x80\x80\x80\x80"},
        {__LINE__, 0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
    };
    for (const EncodingRow& row : rows) {
        SCOPED_TRACE(row.line);
        CString ucs4;
        ucs4.fromUCS4Sequence(&row.codePoint, 1);
        EXPECT_EQ(row.utf8, bytes(ucs4));
        EXPECT_EQ(1u, ucs4.getLength());
        EXPECT_EQ(row.codePoint, *ucs4.begin());

        const CString wide(&row.codePoint, &row.codePoint + 1);
        EXPECT_EQ(row.utf8, bytes(wide));

        const CString parsed(row.utf8.c_str());
        EXPECT_EQ(1u, parsed.getLength());
        EXPECT_EQ(row.codePoint, *parsed.begin());
    }
}

TEST(StringIntakeTest, Ucs2UnitsEncodeAloneEvenAsSurrogatePairs)
{
    const unsigned short pair[] = {0xD83D, 0xDE00};
    CString s;
    s.fromUCS2Sequence(pair, 2);
    EXPECT_EQ(6u, s.getSize());
    EXPECT_EQ(2u, s.getLength());
    EXPECT_EQ("\xED\xA0\xBD\xED\xB8\x80", bytes(s));

    const unsigned short mixed[] = {0x41, 0xE9, 0x20AC, 0};
    s.fromUCS2Sequence(mixed, 4);
    EXPECT_EQ(std::string("A\xC3\xA9\xE2\x82\xAC\0", 7), bytes(s));
    EXPECT_EQ(4u, s.getLength());
    expectConsistent(s);
}

TEST(StringIntakeTest, Ucs4AndWideInputEndAtTheFirstValueBeyondThirtyOneBits)
{
    const unsigned int values[] = {0x41, 0x80000000u, 0x42};
    CString s("previous content");
    s.fromUCS4Sequence(values, 3);
    EXPECT_EQ("A", bytes(s));
    EXPECT_EQ(1u, s.getLength());
    expectConsistent(s);

    const CString wide(values, values + 3);
    EXPECT_EQ("A", bytes(wide));

    const unsigned int terminated[] = {0x48, 0x69, 0};
    EXPECT_EQ("Hi", bytes(CString(terminated)));

    EXPECT_TRUE(CString(static_cast<const unsigned int*>(nullptr), values + 1).isEmpty());
    EXPECT_TRUE(CString(values, static_cast<const unsigned int*>(nullptr)).isEmpty());
    EXPECT_TRUE(CString(static_cast<const unsigned int*>(nullptr)).isEmpty());
    s.fromWCharSequence(nullptr, nullptr);
    EXPECT_TRUE(s.isEmpty());
}

TEST(StringIntakeTest, BuildersLeaveAPrivateBlockAndKeepSharersIntact)
{
    const CString original("shared text");
    CString copy = original;
    const unsigned int values[] = {0x263A};
    copy.fromUCS4Sequence(values, 1);
    EXPECT_EQ("shared text", bytes(original));
    EXPECT_EQ(1u, blockOf(original)->mRefCount);
    EXPECT_EQ(1u, blockOf(copy)->mRefCount);
    EXPECT_EQ("\xE2\x98\xBA", bytes(copy));
}

TEST(StringSharingTest, CopiesShareAndWritesUnshare)
{
    CString a("alpha");
    CString b = a;
    EXPECT_EQ(a.getBuffer(), b.getBuffer());
    EXPECT_EQ(2u, blockOf(a)->mRefCount);

    CString c;
    c = a;
    EXPECT_EQ(3u, blockOf(a)->mRefCount);
    const CString& same = c;
    c = same;
    EXPECT_EQ(3u, blockOf(a)->mRefCount);

    b.reserve(64);
    EXPECT_NE(a.getBuffer(), b.getBuffer());
    EXPECT_EQ(2u, blockOf(a)->mRefCount);
    EXPECT_EQ(64u, blockOf(b)->mCapacity);
    EXPECT_EQ("alpha", bytes(a));
    EXPECT_EQ("alpha", bytes(b));
    expectConsistent(b);

    c = "gamma";
    EXPECT_EQ("gamma", bytes(c));
    EXPECT_EQ(1u, blockOf(a)->mRefCount);
}

TEST(StringSharingTest, ReserveNeverShrinksAndKeepsAPrivateBlockInPlace)
{
    CString s("abc");
    const char* before = s.getBuffer();
    s.reserve(2);
    EXPECT_EQ(before, s.getBuffer());
    EXPECT_EQ(3u, blockOf(s)->mCapacity);
    s.reserve(10);
    EXPECT_EQ(10u, blockOf(s)->mCapacity);
    const char* grown = s.getBuffer();
    s.reserve(10);
    EXPECT_EQ(grown, s.getBuffer());
}

TEST(StringSharingTest, SwapLeavesNoBlockSharedWithAThirdString)
{
    CString a("first");
    CString b("second");
    const CString third = b;
    a.swap(b);
    EXPECT_EQ("second", bytes(a));
    EXPECT_EQ("first", bytes(b));
    EXPECT_EQ("second", bytes(third));
    EXPECT_NE(third.getBuffer(), a.getBuffer());
    EXPECT_EQ(1u, blockOf(a)->mRefCount);
    EXPECT_EQ(1u, blockOf(b)->mRefCount);
    EXPECT_EQ(1u, blockOf(third)->mRefCount);
}

TEST(StringSharingTest, FailedAllocationLeavesTheStringAsItWas)
{
    FaultGuard faults;
    const CString original("kept");
    CString copy = original;

    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    copy.reserve(100);
    EXPECT_EQ(original.getBuffer(), copy.getBuffer());
    EXPECT_EQ("kept", bytes(copy));

    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    const CString lost("never stored");
    EXPECT_TRUE(lost.isEmpty());
    expectConsistent(lost);

    const unsigned int values[] = {0x41, 0x42};
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    copy.fromUCS4Sequence(values, 2);
    EXPECT_EQ("kept", bytes(copy));
}

// A holder that finds itself the only one writes in place; whatever the last other
// holder read before letting go must not race with that write.
TEST(StringSharingTest, WritingInPlaceAfterAnotherThreadLetGoDoesNotRace)
{
    for (int round = 0; round < 50; ++round) {
        CString mine("shared text that the other thread reads");
        mine.reserve(64);
        CString* theirs = new CString(mine);
        std::thread other([theirs] {
            EXPECT_NE(0u, PAL::getHashValueForString(*theirs));
            delete theirs;
        });
        while (PAL::Atomic::peek(blockOf(mine)->mRefCount) != 1u) {
            std::this_thread::yield();
        }
        const char* before = mine.getBuffer();
        mine.append("!");
        EXPECT_EQ(before, mine.getBuffer()) << "a private block with room is written in place";
        other.join();
    }
}

TEST(StringSharingTest, CopiesOnManyThreadsKeepTheCountExact)
{
    AllocationBalance balance;
    {
        const CString shared("shared across threads");
        std::vector<std::thread> workers;
        for (int t = 0; t < 4; ++t) {
            workers.emplace_back([&shared] {
                for (int i = 0; i < 5000; ++i) {
                    CString copy = shared;
                    CString other;
                    other = copy;
                    if (i % 100 == 0) {
                        other.reserve(other.getSize() + 1);  // unshares: a private copy, freed at once
                    }
                }
            });
        }
        for (std::thread& worker : workers)
            worker.join();
        EXPECT_EQ(1u, blockOf(shared)->mRefCount);
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

TEST(StringAccessTest, IndexWalksCharactersAndReadsZeroPastTheEnd)
{
    const CString s("a\xC3\xA9z");
    EXPECT_EQ(0x61u, s[0]);
    EXPECT_EQ(0xE9u, s[1]);
    EXPECT_EQ(0x7Au, s[2]);
    EXPECT_EQ(0u, s[3]);
    EXPECT_EQ(0u, s[1000]);
    EXPECT_EQ(0u, CString()[0]);

    // A lead whose following bytes reach the terminator takes it, and anything that
    // would lie beyond it, as zero bits. Each text is one accepted character; `steps`
    // forward from the start reach its last byte that is no continuation byte.
    struct Row {
        int line;
        const char* text;
        int steps;
        unsigned int atLast;
    };
    const Row rows[] = {
        {__LINE__, "\xC3\xC3", 1, 0xC0u},
        {__LINE__, "\xE0\x80\xC3", 1, 0xC0u},
        {__LINE__, "\xE0\xC3\xEF", 2, 0xF000u},
        {__LINE__, "\xF0\x80\x80\xF7", 1, 0x1C0000u},
        {__LINE__, "\xF8\x80\x80\x80\xFB", 1, 0x3000000u},
        {__LINE__, "\xFC\x80\x80\x80\x80\xFD", 1, 0x40000000u},
        {__LINE__, "\xFC\x80\x80\x80\xFD\xBF", 1, 0x7F000000u},
    };
    for (const Row& row : rows) {
        const CString one(row.text);
        ASSERT_EQ(1u, one.getLength()) << "row of line " << row.line;
        EXPECT_EQ(row.atLast, *(one.begin() + row.steps)) << "row of line " << row.line;
        EXPECT_EQ(row.atLast, *--one.end()) << "row of line " << row.line;
        EXPECT_EQ(row.atLast, one[static_cast<unsigned int>(row.steps)]) << "row of line " << row.line;
    }
}

TEST(StringIteratorTest, StepsBackStopAtTheSentinel)
{
    const CString two("\xC3\xA9z");
    CString::const_iterator it = two.begin();
    --it;
    EXPECT_EQ(two.getBuffer() - 1, it.getPosition());
    EXPECT_EQ(0u, *it);

    CString::const_iterator twice = two.begin();
    twice += -2;
    EXPECT_EQ(two.begin(), twice);
    EXPECT_EQ(two.begin(), two.begin() + -5);

    const CString empty;
    CString::const_iterator fromEnd = empty.end();
    --fromEnd;
    EXPECT_EQ(empty.getBuffer() - 1, fromEnd.getPosition());
}

TEST(StringIteratorTest, StepsForwardStopAtTheEnd)
{
    const CString s("\xE2\x82\xAC" "ab");
    CString::const_iterator it = s.begin();
    EXPECT_EQ(0x20ACu, *it++);
    EXPECT_EQ(0x61u, *it);
    EXPECT_EQ(s.end(), s.begin() + 100);
    CString::const_iterator end = s.end();
    ++end;
    EXPECT_EQ(s.end(), end);
    EXPECT_EQ(0u, *end);
    EXPECT_EQ(s.begin() + 1, s.end() + -2);
    EXPECT_EQ(s.begin() + 2, --s.end());
}

TEST(StringIteratorTest, DistanceCountsCharactersWithASign)
{
    for (const char* text : {"", "abc", "\xF0\x9F\x98\x80x\xC3\xA9", "\xFD\xBF\xBF\xBF\xBF\xBF"}) {
        SCOPED_TRACE(text);
        const CString s(text);
        EXPECT_EQ(static_cast<int>(s.getLength()), s.end() - s.begin());
        EXPECT_EQ(-static_cast<int>(s.getLength()), s.begin() - s.end());
        EXPECT_EQ(0, s.begin() - s.begin());
    }
    const CString s("a\xC3\xA9" "bc");
    EXPECT_EQ(2, (s.begin() + 3) - (s.begin() + 1));
    EXPECT_EQ(-2, (s.begin() + 1) - (s.begin() + 3));
    // A NUL inside the text ends the count.
    const CString withNul("x\0yz", 4);
    EXPECT_EQ(1, withNul.end() - withNul.begin());
}

TEST(StringCompareTest, EqualityLooksAtCountsThenTextUpToTheFirstNul)
{
    struct Row {
        int line;
        std::string a, b;
        bool equal;
    };
    const Row rows[] = {
        {__LINE__, "abc", "abc", true},
        {__LINE__, "abc", "abd", false},
        {__LINE__, "abc", "ab", false},
        {__LINE__, "", "", true},
        {__LINE__, std::string("x\0y", 3), std::string("x\0z", 3), true},  // same count, same text before NUL
        {__LINE__, std::string("x\0y", 3), "x", false},                    // counts differ
        {__LINE__, "\xC3\xA9", "\xC3\xA9", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const CString a(row.a.data(), static_cast<unsigned int>(row.a.size()));
        const CString b(row.b.data(), static_cast<unsigned int>(row.b.size()));
        EXPECT_EQ(row.equal, a == b);
        EXPECT_EQ(!row.equal, a != b);
    }
    const CString shared("same block");
    const CString copy = shared;
    EXPECT_TRUE(shared == copy);
}

TEST(StringHashTest, HashReadsSignedBytesUpToTheFirstNul)
{
    EXPECT_EQ(3014u, PAL::getHashValueForString(CString("abc")));
    EXPECT_EQ(0xFFFFFE78u, PAL::getHashValueForString(CString("\xC3\xA9")));
    EXPECT_EQ(0u, PAL::getHashValueForString(CString()));
    EXPECT_EQ(PAL::getHashValueForString(CString("x")), PAL::getHashValueForString(CString("x\0y", 3)));
}

} // namespace
