// The byte-stream forms of numbers, characters and dates: exact bytes, one raw transfer
// each, round trips, and what a read that gets too few bytes leaves behind.

#include "core/DateAndTime.h"
#include "core/Stream.h"

#include "support/StreamBytes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using osal_kit_test::Bytes;
using osal_kit_test::RecordingOStream;
using osal_kit_test::bufferOf;
using osal_kit_test::written;

struct LayoutRow {
    int line;
    Bytes actual;
    Bytes expected;
};

TEST(StreamTest, ValuesAreWrittenAsTheyLieInMemoryOnALittleEndianHost)
{
    const std::vector<LayoutRow> rows = {
        {__LINE__, written(0u), {0, 0, 0, 0}},
        {__LINE__, written(0x04030201u), {1, 2, 3, 4}},
        {__LINE__, written(0xFFFFFFFFu), {0xFF, 0xFF, 0xFF, 0xFF}},
        {__LINE__, written(0x0807060504030201ull), {1, 2, 3, 4, 5, 6, 7, 8}},
        {__LINE__, written(0ull), {0, 0, 0, 0, 0, 0, 0, 0}},
        {__LINE__, written('A'), {0x41}},
        {__LINE__, written('\xFF'), {0xFF}},
        {__LINE__, written(PAL::CDateAndTime(0x0102030405060708ull)), {8, 7, 6, 5, 4, 3, 2, 1}},
    };
    for (const LayoutRow& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.expected, row.actual);
    }
}

TEST(StreamTest, EachValueIsOneRawWrite)
{
    RecordingOStream out;
    out << 1u << 2ull << 'c' << PAL::CDateAndTime(3ull);
    EXPECT_EQ((std::vector<std::string>{"write 4", "write 8", "write 1", "write 8"}), out.calls);
}

TEST(StreamTest, ValuesReadBackInOrder)
{
    PAL::CMemoryOStream out;
    out << 0xDEADBEEFu << 0x0123456789ABCDEFull << 'z' << PAL::CDateAndTime(86400000000ull) << 7u;
    PAL::CMemoryIStream in(out.getBuffer());
    unsigned int first = 0, last = 0;
    unsigned long long wide = 0;
    char c = 0;
    PAL::CDateAndTime when;
    in >> first >> wide;
    in.read(&c, 1);
    in >> when >> last;
    EXPECT_EQ(0xDEADBEEFu, first);
    EXPECT_EQ(0x0123456789ABCDEFull, wide);
    EXPECT_EQ('z', c);
    EXPECT_EQ(86400000000ull, when.getMicroseconds());
    EXPECT_EQ(7u, last);
    EXPECT_TRUE(in.isGood());
    EXPECT_EQ(0u, in.getAvailable());
}

// A memory stream delivers all or nothing: a value cut short anywhere keeps its value.
TEST(StreamTest, ValueCutShortAtEveryLengthKeepsItsPreviousValue)
{
    for (unsigned int cut = 0; cut < 8; ++cut) {
        SCOPED_TRACE(cut);
        const Bytes full = written(0x1122334455667788ull);
        const PAL::CBuffer truncated = bufferOf(Bytes(full.begin(), full.begin() + cut));
        unsigned long long wide = 42;
        PAL::CDateAndTime when(43ull);
        unsigned int narrow = 44;
        PAL::CMemoryIStream(truncated) >> wide;
        PAL::CMemoryIStream(truncated) >> when;
        EXPECT_EQ(42ull, wide);
        EXPECT_EQ(43ull, when.getMicroseconds());
        if (cut < 4) {
            PAL::CMemoryIStream(truncated) >> narrow;
            EXPECT_EQ(44u, narrow);
        }
    }
}

// A stream that delivers part of a read fills only that part; the rest stays as it was.
TEST(StreamTest, PartialDeliveryOverwritesOnlyTheDeliveredBytes)
{
    unsigned int narrow = 0xAAAAAAAAu;
    osal_kit_test::ShortReadIStream in(Bytes{0x01, 0x02});
    in >> narrow;
    EXPECT_EQ(0xAAAA0201u, narrow);
}

} // namespace
