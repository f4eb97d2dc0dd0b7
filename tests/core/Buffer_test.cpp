// Buffers and streams: the shared memory block, the growable byte buffer, the byte-stream
// forms and the memory stream pair. Records of outside bytes read through every `>>` are
// the stream_read fuzz target's business.

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using PAL::CBuffer;
using PAL::CRCMemoryBuffer;
using osal_kit_test::Bytes;

CBuffer holding(const std::string& text, unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE)
{
    CBuffer buffer(0, blockSize);
    buffer.copyTo(text.data(), static_cast<unsigned int>(text.size()), 0);
    return buffer;
}

CRCMemoryBuffer blockWith(const std::string& text) { return holding(text, 1).getMemoryBuffer(); }

std::string textOf(const CBuffer& buffer)
{
    const Bytes bytes = osal_kit_test::bytesOf(buffer);
    return std::string(bytes.begin(), bytes.end());
}

// Empty handles share one static block and allocate nothing; the last handle frees a
// block; equal blocks have the same capacity and bytes. The allocator is asked for the
// header plus the capacity rounded up to 8, and the bytes start zeroed.
TEST(RCMemoryBufferTest, BlocksAreSharedCountedAndComparedByContent)
{
    osal_kit_test::AllocationBalance balance;
    const CRCMemoryBuffer byDefault, sized0(0), impossible(0xFFFFFFFFu), nine(9);
    EXPECT_TRUE(balance.allocationsSince() == 1 && impossible.getBuffer() == nullptr && byDefault == sized0);
    EXPECT_TRUE(byDefault != blockWith("a") && blockWith("a") != sized0 && CRCMemoryBuffer(5) != CRCMemoryBuffer(6));
    EXPECT_TRUE(blockWith("abcde") == blockWith("abcde") && blockWith("abcde") != blockWith("abcdf"));
    {
        CRCMemoryBuffer first = blockWith("abc"), second;
        second = first;
        first.removeRef();
        EXPECT_TRUE(balance.liveBlocksDelta() == 2 && first.getBuffer() == nullptr && second == blockWith("abc"));
    }
    EXPECT_TRUE(balance.liveBlocksDelta() == 1 && CRCMemoryBuffer::sNullBuffer.mRefCount == 1);
    sMorvex_PAL_AllocInfo info{};
    const unsigned int header = sizeof(CRCMemoryBuffer::SHeader);
    ASSERT_EQ(0, Morvex_PAL_AllocLookup(static_cast<const char*>(nine.getBuffer()) - header, &info));
    EXPECT_TRUE(info.size == header + 16 && nine == blockWith(std::string(9, '\0'))) << info.size;
}

TEST(BufferTest, SizesAreKeptInWholeBlocksAndOnlyUsedBytesCompare)
{
    const CRCMemoryBuffer five(5);
    const struct { int line; CBuffer buffer; unsigned int blockSize, size, capacity; } rows[] = {
        {__LINE__, CBuffer(), 16, 0, 0},
        {__LINE__, CBuffer(5, 0), 16, 5, 16},
        {__LINE__, CBuffer(17, 16), 16, 17, 32},
        {__LINE__, CBuffer(13, 3), 3, 13, 15},
        {__LINE__, CBuffer(0xFFFFFFF1u, 16), 16, 0, 0}, // rounded up, the size would not fit in 32 bits
        {__LINE__, CBuffer(five), 16, 5, 5},
        {__LINE__, [] { CBuffer b(9, 9); return b = holding("abc", 4); }(), 4, 3, 4},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(row.blockSize == row.buffer.getBlockSize() && row.size == row.buffer.getSize()
                    && row.capacity == row.buffer.getCapacity()) << row.line;
    EXPECT_TRUE(CBuffer(five).getMemoryBuffer() == five && CBuffer().getAlignedSize(0xFFFFFFF0u) == 0xFFFFFFF0u
                && CBuffer(0, 3).getAlignedSize(0xFFFFFFFDu) == 0xFFFFFFFFu);
    EXPECT_TRUE(holding("abc", 4) == holding("abc", 64) && CBuffer() == CBuffer(0, 7));
    EXPECT_TRUE(holding("abc") != holding("abd") && holding("abc") != holding("ab"));
}

// The block moves only when the rounded size changes, or when forced, and keeps the
// bytes that still fit; copyTo grows the buffer, copyFrom stops at its used size.
TEST(BufferTest, ResizeReserveAndCopyKeepTheBytesThatFit)
{
    CBuffer buffer = holding("abcde");
    const void* block = buffer.getMemoryBuffer().getBuffer();
    buffer.resize(10);
    buffer.reserve(2);
    EXPECT_EQ(block, buffer.getMemoryBuffer().getBuffer());
    buffer.resize(20);
    EXPECT_EQ(std::string("abcde") + std::string(15, '\0'), textOf(buffer));
    buffer.resize(3);
    block = buffer.getMemoryBuffer().getBuffer();
    buffer.reserve(2, true);
    buffer.resize(0xFFFFFFFFu);
    EXPECT_TRUE(buffer.getCapacity() == 16 && block != buffer.getMemoryBuffer().getBuffer() && textOf(buffer) == "abc");
    EXPECT_EQ(4u, buffer.copyTo("wxyz", 4, 10));
    EXPECT_EQ(std::string("abc\0\0\0\0\0\0\0wxyz", 14), textOf(buffer));
    char out[100] = {};
    EXPECT_EQ(4u, buffer.copyFrom(out, 100, 10));
    EXPECT_EQ(0u, buffer.copyFrom(out, 1, 14) + buffer.copyFrom(nullptr, 1, 0));
    EXPECT_EQ(0u, buffer.copyTo(nullptr, 1, 0) + buffer.copyTo("a", 2, 0xFFFFFFFFu) + buffer.copyTo("a", 1, 0xFFFFFFF4u));
}

// A stream that delivers part of a read overwrites only that part of the value, and
// leaves the rest of a new block zero. A memory input keeps the bytes it was given; an
// output that cannot get memory, even for padding, fails for good, keeping what it had.
TEST(StreamTest, ShortReadsSharedInputsAndFailedOutputs)
{
    unsigned int narrow = 0xAAAAAAAAu, value = 0;
    osal_kit_test::ShortReadIStream(Bytes{0x01, 0x02}) >> narrow;
    CRCMemoryBuffer block;
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'x'}) >> block;
    EXPECT_TRUE(narrow == 0xAAAA0201u && block == blockWith(std::string("x\0\0", 3))) << std::hex << narrow;
    CBuffer source = holding("\x01\x02\x03\x04");
    const PAL::CMemoryIStream in(source);
    source.copyTo("\xFF", 1, 0);
    in >> value;
    osal_kit_test::FaultGuard faults;
    PAL::CMemoryOStream out(4);
    out << 1u;
    osal_kit_test::failNext(MORVEX_FAULT_zmalloc, 0);
    const bool aligned = out.align(8);
    out << 2u;
    EXPECT_FALSE(value != 0x04030201u || aligned || out.isGood() || out.flush() || out.align(8));
    EXPECT_EQ((Bytes{1, 0, 0, 0}), osal_kit_test::bytesOf(out.getBuffer()));
}

} // namespace
