// Buffers and streams: the shared memory block, the growable byte buffer (copy on write,
// also across threads), the byte-stream forms and the memory stream pair. Reading
// records of outside bytes is the business of the stream_read fuzz target.

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
using osal_kit_test::bytesOf;
using osal_kit_test::written;

CRCMemoryBuffer blockWith(const std::string& text)
{
    CRCMemoryBuffer block(static_cast<unsigned int>(text.size()));
    std::memcpy(block.getBuffer(), text.data(), text.size());
    return block;
}

std::string textOf(const CRCMemoryBuffer& block)
{
    return std::string(static_cast<const char*>(block.getBuffer()), block.getCapacity());
}

CBuffer holding(const std::string& text, unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE)
{
    CBuffer buffer(0, blockSize);
    buffer.copyTo(text.data(), static_cast<unsigned int>(text.size()), 0);
    return buffer;
}

std::string textOf(const CBuffer& buffer)
{
    const Bytes bytes = bytesOf(buffer);
    return std::string(bytes.begin(), bytes.end());
}

const void* blockOf(const CBuffer& buffer) { return buffer.getMemoryBuffer().getBuffer(); }

// Empty handles share one static block and allocate nothing; a block is freed by its
// last handle; equal blocks have the same capacity and bytes.
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
        EXPECT_TRUE(first.getBuffer() == nullptr && textOf(second) == "abc" && balance.liveBlocksDelta() == 1);
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
    // The allocator is asked for the header plus the capacity rounded up to 8.
    const unsigned int header = sizeof(CRCMemoryBuffer::SHeader);
    for (const unsigned int capacity : {1u, 8u, 9u}) {
        const CRCMemoryBuffer block(capacity);
        sMorvex_PAL_AllocInfo info{};
        ASSERT_EQ(0, Morvex_PAL_AllocLookup(static_cast<const char*>(block.getBuffer()) - header, &info));
        EXPECT_EQ(header + (capacity + 7) / 8 * 8, info.size) << capacity;
        EXPECT_EQ(std::string(capacity, '\0'), textOf(block));
    }
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
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(row.blockSize == row.buffer.getBlockSize() && row.size == row.buffer.getSize()
                    && row.capacity == row.buffer.getCapacity()) << row.line;
    }
    EXPECT_TRUE(blockOf(CBuffer(five)) == five.getBuffer() && CBuffer().getAlignedSize(0xFFFFFFF0u) == 0xFFFFFFF0u);
    EXPECT_TRUE(holding("abc", 4) == holding("abc", 64) && CBuffer() == CBuffer(0, 7));
    EXPECT_TRUE(holding("abc") != holding("abd") && holding("abc") != holding("ab"));
}

// The block moves only when the rounded size changes, or when forced, and keeps the
// bytes that still fit; copyTo grows the buffer, copyFrom stops at its used size.
TEST(BufferTest, ResizeReserveAndCopyKeepTheBytesThatFit)
{
    CBuffer buffer = holding("abcde");
    const void* first = blockOf(buffer);
    buffer.resize(10);
    EXPECT_EQ(first, blockOf(buffer));
    buffer.resize(20);
    EXPECT_EQ(std::string("abcde") + std::string(15, '\0'), textOf(buffer));
    buffer.resize(3);
    EXPECT_EQ(16u, buffer.getCapacity());
    const void* before = blockOf(buffer);
    buffer.reserve(2);
    EXPECT_EQ(before, blockOf(buffer));
    buffer.reserve(2, true);
    EXPECT_NE(before, blockOf(buffer));
    buffer.resize(0xFFFFFFFFu);
    EXPECT_EQ("abc", textOf(buffer));
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
                const char mark = static_cast<char>('A' + t);
                for (std::vector<CBuffer>& round : copies)
                    round[t].copyTo(&mark, 1, t);
            });
        }
        for (std::thread& worker : workers)
            worker.join();
        for (unsigned int t = 0; t < threads; ++t) {
            for (const std::vector<CBuffer>& round : copies)
                EXPECT_EQ(std::string("....").replace(t, 1, 1, static_cast<char>('A' + t)), textOf(round[t]));
        }
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

// Host byte order, no tags, no padding; a buffer travels as its whole block.
TEST(StreamTest, ValuesAreWrittenAsTheyLieInMemoryOneRawWriteEach)
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
}

// A stream that delivers part of a read overwrites only that part of the value, and
// leaves the rest of a new block zero.
TEST(StreamTest, AShortReadKeepsWhatWasNotDelivered)
{
    unsigned int narrow = 0xAAAAAAAAu;
    osal_kit_test::ShortReadIStream(Bytes{0x01, 0x02}) >> narrow;
    EXPECT_EQ(0xAAAA0201u, narrow);
    CRCMemoryBuffer block;
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'x'}) >> block;
    EXPECT_EQ(std::string("x\0\0", 3), textOf(block));
}

TEST(MemoryStreamTest, AlignPadsWithZerosOnWriteAndSkipsOnRead)
{
    const struct { int line; unsigned int before, alignment, after; } rows[] = {
        {__LINE__, 1, 4, 4}, {__LINE__, 4, 4, 4}, {__LINE__, 0, 8, 0}, {__LINE__, 3, 1, 3}, {__LINE__, 1, 200, 200},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        PAL::CMemoryOStream out;
        Bytes expected(row.before, 0xAB);
        out.write(expected.data(), row.before);
        EXPECT_TRUE(out.align(row.alignment));
        expected.resize(row.after, 0);
        EXPECT_EQ(expected, bytesOf(out.getBuffer()));
        const PAL::CMemoryIStream in(bufferOf(Bytes(row.after + 1, 0)));
        in.read(expected.data(), row.before);
        EXPECT_TRUE(in.align(row.alignment) && in.getPosition() == row.after);
    }
}

TEST(MemoryStreamTest, InputKeepsItsBytesAndOutputWithoutMemoryFailsForGood)
{
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
    EXPECT_FALSE(out.isGood() || out.flush());
    out << 3u;
    EXPECT_FALSE(out.align(8));
    EXPECT_EQ((Bytes{1, 0, 0, 0}), bytesOf(out.getBuffer()));
}

} // namespace
