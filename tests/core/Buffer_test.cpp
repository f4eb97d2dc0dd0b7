// CBuffer: sizes in whole blocks, copy on write (also across threads), copying in and
// out, equality, and its byte-stream form.

#include "core/Buffer.h"

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using PAL::CBuffer;
using osal_kit_test::AllocationBalance;
using osal_kit_test::Bytes;
using osal_kit_test::FaultGuard;
using osal_kit_test::bufferOf;
using osal_kit_test::bytesOf;
using osal_kit_test::written;

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

TEST(BufferTest, SizesAreKeptInWholeBlocks)
{
    const PAL::CRCMemoryBuffer five(5);
    const struct { int line; CBuffer buffer; unsigned int blockSize, size, capacity; } rows[] = {
        {__LINE__, CBuffer(), 16, 0, 0},
        {__LINE__, CBuffer(5, 0), 16, 5, 16},
        {__LINE__, CBuffer(17, 16), 16, 17, 32},
        {__LINE__, CBuffer(0, 4), 4, 0, 0},
        {__LINE__, CBuffer(five), 16, 5, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.blockSize, row.buffer.getBlockSize());
        EXPECT_EQ(row.size, row.buffer.getSize());
        EXPECT_EQ(row.capacity, row.buffer.getCapacity());
    }
    EXPECT_EQ(five.getBuffer(), CBuffer(five).getMemoryBuffer().getBuffer());
    const struct { int line; unsigned int blockSize, n, aligned; } aligned[] = {
        {__LINE__, 16, 0, 0}, {__LINE__, 16, 1, 16}, {__LINE__, 16, 16, 16}, {__LINE__, 3, 4, 6},
        {__LINE__, 16, 0xFFFFFFF0u, 0xFFFFFFF0u}, {__LINE__, 16, 0xFFFFFFF1u, 0}};
    for (const auto& row : aligned) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.aligned, CBuffer(0, row.blockSize).getAlignedSize(row.n));
    }
}

TEST(BufferTest, ResizeMovesTheBytesOnlyWhenTheRoundedSizeChanges)
{
    CBuffer buffer = holding("abcde");
    const void* first = buffer.getMemoryBuffer().getBuffer();
    buffer.resize(10);
    EXPECT_EQ(first, buffer.getMemoryBuffer().getBuffer());
    buffer.resize(20);
    EXPECT_EQ(32u, buffer.getCapacity());
    EXPECT_EQ(std::string("abcde") + std::string(15, '\0'), textOf(buffer));
    buffer.resize(3);
    EXPECT_EQ(16u, buffer.getCapacity());
    EXPECT_EQ("abc", textOf(buffer));
    const void* before = buffer.getMemoryBuffer().getBuffer();
    buffer.reserve(2);
    EXPECT_EQ(before, buffer.getMemoryBuffer().getBuffer());
    buffer.reserve(2, true);
    EXPECT_NE(before, buffer.getMemoryBuffer().getBuffer());
    EXPECT_EQ("abc", textOf(buffer));
    buffer.resize(0xFFFFFFFFu);
    EXPECT_EQ("abc", textOf(buffer));
}

TEST(BufferTest, CopiesShareUntilOneOfThemWrites)
{
    AllocationBalance balance;
    const CBuffer original = holding("abc");
    CBuffer copy;
    copy = original;
    EXPECT_EQ(original.getMemoryBuffer().getBuffer(), copy.getMemoryBuffer().getBuffer());
    EXPECT_EQ(1u, copy.copyTo("X", 1, 0));
    EXPECT_EQ("abc", textOf(original));
    EXPECT_EQ("Xbc", textOf(copy));
    const void* own = copy.getMemoryBuffer().getBuffer();
    copy.copyTo("Y", 1, 1);
    EXPECT_EQ(own, copy.getMemoryBuffer().getBuffer());
    EXPECT_EQ(2, balance.liveBlocksDelta());
}

TEST(BufferTest, CopyToGrowsCopyFromStopsAtTheUsedSize)
{
    CBuffer buffer;
    EXPECT_EQ(4u, buffer.copyTo("wxyz", 4, 10));
    EXPECT_EQ(14u, buffer.getSize());
    EXPECT_EQ(std::string(10, '\0') + "wxyz", textOf(buffer));
    char out[100] = {};
    EXPECT_EQ(4u, buffer.copyFrom(out, 100, 10));
    EXPECT_EQ(0u, buffer.copyFrom(out, 1, 14));
    EXPECT_EQ(0u, buffer.copyFrom(nullptr, 1, 0));
    EXPECT_EQ(0u, buffer.copyTo(nullptr, 1, 0));
    EXPECT_EQ(0u, buffer.copyTo("a", 2, 0xFFFFFFFFu));
    EXPECT_EQ(14u, buffer.getSize());
}

TEST(BufferTest, EqualityLooksAtTheUsedBytesOnly)
{
    EXPECT_TRUE(holding("abc", 4) == holding("abc", 64));
    EXPECT_TRUE(CBuffer() == CBuffer(0, 7));
    EXPECT_TRUE(holding("abc") != holding("abd"));
    EXPECT_TRUE(holding("abc") != holding("ab"));
}

TEST(BufferTest, StreamFormWritesTheWholeBlock)
{
    CBuffer cut = holding("abcde");
    cut.resize(3);
    const struct { int line; Bytes actual, expected; } rows[] = {
        {__LINE__, written(holding("abc", 4)), {4, 0, 0, 0, 'a', 'b', 'c', 0}},
        {__LINE__, written(holding("abcd", 4)), {4, 0, 0, 0, 'a', 'b', 'c', 'd'}},
        {__LINE__, written(CBuffer()), {0, 0, 0, 0}},
        {__LINE__, written(cut), {16, 0, 0, 0, 'a', 'b', 'c', 'd', 'e', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.expected, row.actual);
    }
}

TEST(BufferTest, ReadingTakesTheLengthAsSizeAndKeepsTheBlockSize)
{
    FaultGuard guard;
    CBuffer target = holding("old", 8);
    PAL::CMemoryIStream(bufferOf(written(holding("abc", 4)))) >> target;
    EXPECT_EQ(std::string("abc\0", 4), textOf(target));
    EXPECT_EQ(8u, target.getBlockSize());
    const PAL::CMemoryIStream other(bufferOf(written(holding("xyz"))));
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    other >> target;
    EXPECT_EQ(std::string("abc\0", 4), textOf(target));
    PAL::CMemoryIStream(bufferOf({0, 0, 0, 0})) >> target;
    EXPECT_EQ(0u, target.getSize());
}

// A length beyond 64 KiB that the stream does not hold is taken for a lie: nothing is
// allocated and the buffer stays as it was, size included.
TEST(BufferTest, ReadingALengthBeyondTheStreamLeavesTheBuffer)
{
    for (const unsigned int length : {0x10001u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        SCOPED_TRACE(length);
        Bytes record = written(length);
        record.insert(record.end(), {'a', 'b', 'c'});
        const PAL::CMemoryIStream in(bufferOf(record));
        CBuffer target = holding("old", 8);
        AllocationBalance balance;
        in >> target;
        EXPECT_EQ(0u, balance.allocationsSince());
        EXPECT_EQ(3u, target.getSize());
        EXPECT_EQ("old", textOf(target).substr(0, 3));
    }
}

// In every round all threads hold copies of one block and write into them at once: all
// but the last writer copy the block, the last writes in place while the others may
// still be reading it. Nobody sees another's byte, and every block goes.
TEST(BufferTest, CopiesOnDifferentThreadsWriteIndependently)
{
    const unsigned int threads = 4, rounds = 200;
    AllocationBalance balance;
    {
        std::vector<std::vector<CBuffer>> copies(rounds);
        for (std::vector<CBuffer>& round : copies)
            round.assign(threads, holding("...."));
        std::atomic<bool> go{false};
        std::vector<std::thread> workers;
        for (unsigned int t = 0; t < threads; ++t) {
            workers.emplace_back([&, t] {
                while (!go.load())
                    std::this_thread::yield();
                const char mark = static_cast<char>('A' + t);
                for (std::vector<CBuffer>& round : copies)
                    round[t].copyTo(&mark, 1, t);
            });
        }
        go.store(true);
        for (std::thread& worker : workers)
            worker.join();
        for (unsigned int t = 0; t < threads; ++t) {
            std::string expected("....");
            expected[t] = static_cast<char>('A' + t);
            for (const std::vector<CBuffer>& round : copies)
                EXPECT_EQ(expected, textOf(round[t]));
        }
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

} // namespace
