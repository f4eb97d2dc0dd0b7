// The memory stream pair: alignment by padding and by skipping, reads past the end,
// and an output stream that runs out of memory.

#include "core/MemoryStream.h"

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

namespace {

using PAL::CMemoryIStream;
using PAL::CMemoryOStream;
using osal_kit_test::Bytes;
using osal_kit_test::bufferOf;
using osal_kit_test::bytesOf;

TEST(MemoryStreamTest, AlignPadsWithZerosOnWriteAndSkipsOnRead)
{
    const struct { int line; unsigned int before, alignment, after; } rows[] = {
        {__LINE__, 1, 4, 4}, {__LINE__, 4, 4, 4}, {__LINE__, 0, 8, 0}, {__LINE__, 5, 8, 8},
        {__LINE__, 3, 0, 3}, {__LINE__, 3, 1, 3}, {__LINE__, 1, 200, 200}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CMemoryOStream out;
        out.write(Bytes(row.before, 0xAB).data(), row.before);
        EXPECT_TRUE(out.align(row.alignment));
        Bytes expected(row.before, 0xAB);
        expected.resize(row.after, 0);
        EXPECT_EQ(expected, bytesOf(out.getBuffer()));

        const CMemoryIStream in(bufferOf(Bytes(row.after + 1, 0)));
        Bytes skipped(row.before, 0);
        in.read(skipped.data(), row.before);
        EXPECT_TRUE(in.align(row.alignment));
        EXPECT_EQ(row.after, in.getPosition());
    }
}

TEST(MemoryStreamTest, ReadOrSkipPastTheEndDeliversNothingAndEndsTheStream)
{
    const CMemoryIStream in(bufferOf({1, 2, 3, 4, 5}));
    unsigned int value = 7;
    in >> value;
    EXPECT_EQ(0x04030201u, value);
    in >> value;
    EXPECT_EQ(0x04030201u, value);
    EXPECT_FALSE(in.isGood());
    EXPECT_EQ(5u, in.getPosition());
    EXPECT_EQ(0u, in.read(&value, 1));

    const CMemoryIStream skipping(bufferOf({1, 2, 3}));
    skipping.read(&value, 1);
    EXPECT_FALSE(skipping.align(8));
    EXPECT_EQ(0u, skipping.getAvailable());
}

TEST(MemoryStreamTest, InputKeepsTheBytesItWasGiven)
{
    PAL::CBuffer source = bufferOf({1, 2, 3, 4});
    const CMemoryIStream in(source);
    source.copyTo("\xFF", 1, 0);
    unsigned int value = 0;
    in >> value;
    EXPECT_EQ(0x04030201u, value);
}

TEST(MemoryStreamTest, AWriteWithoutMemoryFailsTheStreamForGood)
{
    osal_kit_test::FaultGuard guard;
    CMemoryOStream out(4);
    out << 1u;
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    out << 2u;
    EXPECT_FALSE(out.isGood());
    EXPECT_FALSE(out.flush());
    out << 3u;
    EXPECT_FALSE(out.align(8));
    EXPECT_EQ((Bytes{1, 0, 0, 0}), bytesOf(out.getBuffer()));
}

} // namespace
