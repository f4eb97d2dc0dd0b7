// Buffers and streams: the shared memory block, the growable byte buffer (copy on write,
// also across threads), the byte-stream forms and the memory stream pair. Records of
// outside bytes read through every `>>` are the stream_read fuzz target's business.

#include "core/Buffer.h"
#include "core/DateAndTime.h"

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using PAL::CBuffer;
using PAL::CRCMemoryBuffer;
using osal_kit_test::Bytes;
using osal_kit_test::bufferOf;
using osal_kit_test::written;

CRCMemoryBuffer blockWith(const std::string& text)
{
    CRCMemoryBuffer block(static_cast<unsigned int>(text.size()));
    std::memcpy(block.getBuffer(), text.data(), text.size());
    return block;
}

CBuffer holding(const std::string& text, unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE)
{
    CBuffer buffer(0, blockSize);
    buffer.copyTo(text.data(), static_cast<unsigned int>(text.size()), 0);
    return buffer;
}

std::string textOf(const CBuffer& buffer)
{
    const Bytes bytes = osal_kit_test::bytesOf(buffer);
    return std::string(bytes.begin(), bytes.end());
}

// Empty handles share one static block and allocate nothing; the last handle frees a
// block; equal blocks have the same capacity and bytes.
TEST(RCMemoryBufferTest, BlocksAreSharedCountedAndComparedByContent)
{
    osal_kit_test::AllocationBalance balance;
    const CRCMemoryBuffer byDefault, sized0(0), impossible(0xFFFFFFFFu);
    EXPECT_EQ(0u, balance.allocationsSince());
    EXPECT_TRUE(byDefault.getBuffer() == nullptr && sized0.getBuffer() == nullptr && impossible.getBuffer() == nullptr);
    EXPECT_TRUE(byDefault == sized0 && byDefault != blockWith("a") && blockWith("a") != sized0);
    EXPECT_TRUE(blockWith("abcde") == blockWith("abcde") && blockWith("abcde") != blockWith("abcdf"));
    EXPECT_TRUE(CRCMemoryBuffer(5) != CRCMemoryBuffer(6) && CRCMemoryBuffer::sNullBuffer.mRefCount == 1);
    {
        CRCMemoryBuffer first = blockWith("abc"), second;
        second = first;
        first.removeRef();
        EXPECT_TRUE(balance.liveBlocksDelta() == 1 && first.getBuffer() == nullptr && second == blockWith("abc"));
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
    // The allocator is asked for the header plus the capacity rounded up to 8; the
    // bytes start zeroed.
    const CRCMemoryBuffer nine(9);
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
    EXPECT_TRUE(CBuffer(five).getMemoryBuffer() == five && CBuffer().getAlignedSize(0xFFFFFFF0u) == 0xFFFFFFF0u);
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
    EXPECT_EQ(0u, buffer.copyTo(nullptr, 1, 0) + buffer.copyTo("a", 2, 0xFFFFFFFFu));
}

// In every round all threads hold copies of one block and write into them at once: all
// but the last writer copy the block, the last writes in place while the others may
// still be reading it. Nobody sees another's byte, and every block goes.
TEST(BufferTest, CopiesOnDifferentThreadsWriteIndependently)
{
    const unsigned int threads = 4, rounds = 200;
    osal_kit_test::AllocationBalance balance;
    {
        std::vector<std::vector<CBuffer>> copies;
        for (unsigned int round = 0; round < rounds; ++round)
            copies.emplace_back(threads, holding("...."));
        std::atomic<unsigned int> ready{0};
        std::vector<std::thread> workers;
        for (unsigned int t = 0; t < threads; ++t) {
            workers.emplace_back([&, t] {
                for (++ready; ready.load() < threads;)
                    std::this_thread::yield();
                for (std::vector<CBuffer>& round : copies)
                    round[t].copyTo(&"ABCD"[t], 1, t);
            });
        }
        for (std::thread& worker : workers)
            worker.join();
        for (unsigned int t = 0; t < threads; ++t) {
            for (const std::vector<CBuffer>& round : copies)
                EXPECT_EQ(std::string("....").replace(t, 1, 1, "ABCD"[t]), textOf(round[t]));
        }
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

// Host byte order, no tags, no padding, one raw write per value; a buffer travels as its
// whole block.
TEST(StreamTest, ValuesAreWrittenAsTheyLieInMemory)
{
    CBuffer cut = holding("abcde");
    cut.resize(3);
    const struct { int line; Bytes actual, expected; } rows[] = {
        {__LINE__, written(0x04030201u), {1, 2, 3, 4}},
        {__LINE__, written(0x0807060504030201ull), {1, 2, 3, 4, 5, 6, 7, 8}},
        {__LINE__, written('\xFF'), {0xFF}},
        {__LINE__, written(PAL::CDateAndTime(0x0102030405060708ull)), {8, 7, 6, 5, 4, 3, 2, 1}},
        {__LINE__, written(blockWith("abcde")), {5, 0, 0, 0, 'a', 'b', 'c', 'd', 'e'}},
        {__LINE__, written(CRCMemoryBuffer()), {0, 0, 0, 0}},
        {__LINE__, written(cut), {16, 0, 0, 0, 'a', 'b', 'c', 'd', 'e', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, row.actual) << row.line;
    osal_kit_test::RecordingOStream out;
    out << 1u << 2ull << 'c' << PAL::CDateAndTime(3ull) << blockWith("ab");
    EXPECT_EQ((std::vector<std::string>{"write 4", "write 8", "write 1", "write 8", "write 4", "write 2"}), out.calls);
    // A stream that delivers part of a read overwrites only that part of the value, and
    // leaves the rest of a new block zero.
    unsigned int narrow = 0xAAAAAAAAu;
    osal_kit_test::ShortReadIStream(Bytes{0x01, 0x02}) >> narrow;
    CRCMemoryBuffer block;
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'x'}) >> block;
    EXPECT_TRUE(narrow == 0xAAAA0201u && block == blockWith(std::string("x\0\0", 3))) << std::hex << narrow;
}

// Writing pads with zeros to the alignment, reading skips; the input keeps the bytes it
// was given; an output that cannot get memory fails for good, keeping what it had.
TEST(MemoryStreamTest, AlignmentSharingAndFailure)
{
    for (const unsigned int alignment : {0u, 1u, 4u, 200u}) {
        PAL::CMemoryOStream out;
        out << 'a';
        EXPECT_TRUE(out.align(alignment) && out.getPosition() == (alignment > 1 ? alignment : 1)) << alignment;
        const PAL::CMemoryIStream in(out.getBuffer());
        char first = 0;
        in.read(&first, 1);
        EXPECT_TRUE(in.align(alignment) && in.getAvailable() == 0 && first == 'a') << alignment;
        EXPECT_EQ(std::string(out.getPosition() - 1, '\0'), textOf(out.getBuffer()).substr(1));
    }
    CBuffer source = bufferOf({1, 2, 3, 4});
    const PAL::CMemoryIStream in(source);
    source.copyTo("\xFF", 1, 0);
    unsigned int value = 0;
    in >> value;
    EXPECT_EQ(0x04030201u, value);
    osal_kit_test::FaultGuard faults;
    PAL::CMemoryOStream out(4);
    out << 1u;
    osal_kit_test::failNext(MORVEX_FAULT_zmalloc, 0);
    out << 2u;
    out << 3u;
    EXPECT_FALSE(out.isGood() || out.flush() || out.align(8));
    EXPECT_EQ((Bytes{1, 0, 0, 0}), osal_kit_test::bytesOf(out.getBuffer()));
}

} // namespace
