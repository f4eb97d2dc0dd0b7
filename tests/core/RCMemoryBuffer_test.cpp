// CRCMemoryBuffer: block layout and lifetime, equality, and its byte-stream form.

#include "core/RCMemoryBuffer.h"

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"

#include "morvex_pal_fault.h"
#include "morvex_pal_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using PAL::CRCMemoryBuffer;
using osal_kit_test::AllocationBalance;
using osal_kit_test::Bytes;
using osal_kit_test::FaultGuard;
using osal_kit_test::bufferOf;
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

TEST(RCMemoryBufferTest, EmptyHandlesShareTheNullBlockAndEqualOnlyEachOther)
{
    AllocationBalance balance;
    const CRCMemoryBuffer byDefault, sized0(0);
    EXPECT_EQ(0u, balance.allocationsSince());
    EXPECT_EQ(nullptr, byDefault.getBuffer());
    EXPECT_EQ(nullptr, sized0.getBuffer());
    EXPECT_TRUE(byDefault == sized0);
    EXPECT_FALSE(byDefault == blockWith("a"));
    EXPECT_EQ(1u, CRCMemoryBuffer::sNullBuffer.mRefCount);
}

TEST(RCMemoryBufferTest, BlockIsHeaderPlusCapacityRoundedToEightAndStartsZeroed)
{
    const unsigned int header = sizeof(CRCMemoryBuffer::SHeader);
    const struct { int line; unsigned int capacity, allocated; } rows[] = {
        {__LINE__, 1, header + 8}, {__LINE__, 8, header + 8}, {__LINE__, 9, header + 16}, {__LINE__, 100, header + 104}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CRCMemoryBuffer block(row.capacity);
        sMorvex_PAL_AllocInfo info{};
        ASSERT_EQ(0, Morvex_PAL_AllocLookup(static_cast<const char*>(block.getBuffer()) - header, &info));
        EXPECT_EQ(row.allocated, info.size);
        EXPECT_STREQ("Memory::alloc", info.label);
        EXPECT_EQ(row.capacity, block.getCapacity());
        EXPECT_EQ(std::string(row.capacity, '\0'), textOf(block));
    }
}

TEST(RCMemoryBufferTest, EqualityComparesCapacityThenBytes)
{
    EXPECT_TRUE(blockWith("abcde") == blockWith("abcde"));
    EXPECT_TRUE(blockWith("abcde") != blockWith("abcdf"));
    EXPECT_TRUE(blockWith("abcde") != blockWith(std::string("abcde\0", 6)));
    EXPECT_TRUE(CRCMemoryBuffer(5) != CRCMemoryBuffer(6));
}

TEST(RCMemoryBufferTest, CopiesShareTheBlockUntilTheLastOneGoes)
{
    AllocationBalance balance;
    {
        CRCMemoryBuffer first = blockWith("abc");
        CRCMemoryBuffer second;
        second = first;
        EXPECT_EQ(first.getBuffer(), second.getBuffer());
        first.removeRef();
        EXPECT_EQ(nullptr, first.getBuffer());
        EXPECT_EQ("abc", textOf(second));
        EXPECT_EQ(1, balance.liveBlocksDelta());
    }
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

TEST(RCMemoryBufferTest, NoMemoryOrAnImpossibleSizeGivesAnEmptyHandle)
{
    FaultGuard guard;
    Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
    EXPECT_EQ(nullptr, CRCMemoryBuffer(16).getBuffer());
    AllocationBalance balance;
    EXPECT_EQ(nullptr, CRCMemoryBuffer(0xFFFFFFFFu).getBuffer());
    EXPECT_EQ(0u, balance.allocationsSince());
}

TEST(RCMemoryBufferTest, StreamFormIsTheCapacityThenTheBytes)
{
    EXPECT_EQ((Bytes{5, 0, 0, 0, 'a', 'b', 'c', 'd', 'e'}), written(blockWith("abcde")));
    EXPECT_EQ((Bytes{0, 0, 0, 0}), written(CRCMemoryBuffer()));
}

TEST(RCMemoryBufferTest, ReadingALengthOfZeroEmptiesTheHandle)
{
    AllocationBalance balance;
    CRCMemoryBuffer target = blockWith("old");
    PAL::CMemoryIStream(bufferOf({0, 0, 0, 0})) >> target;
    EXPECT_EQ(nullptr, target.getBuffer());
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

// Cut inside the length, nothing was read (n is 0): the handle empties. Cut inside the
// data, the block is there and the missing bytes are 0.
TEST(RCMemoryBufferTest, RecordCutShortAtEveryLength)
{
    const Bytes full = written(blockWith("xyz"));
    for (unsigned int cut = 0; cut <= full.size(); ++cut) {
        SCOPED_TRACE(cut);
        CRCMemoryBuffer target = blockWith("old");
        PAL::CMemoryIStream(bufferOf(Bytes(full.begin(), full.begin() + cut))) >> target;
        const std::string expected = cut < 4 ? "" : cut < full.size() ? std::string(3, '\0') : "xyz";
        EXPECT_EQ(expected, target.getBuffer() == nullptr ? "" : textOf(target));
    }
    CRCMemoryBuffer target;
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'x'}) >> target;
    EXPECT_EQ(std::string("x\0\0", 3), textOf(target));
}

TEST(RCMemoryBufferTest, NoBlockForTheLengthLeavesHandleAndDataBytesAlone)
{
    FaultGuard guard;
    for (unsigned int length : {3u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(length);
        CRCMemoryBuffer target = blockWith("old");
        PAL::CMemoryOStream out;
        out << length << 'x';
        PAL::CMemoryIStream in(out.getBuffer());
        AllocationBalance balance;
        Morvex_Fault_ArmEx(MORVEX_FAULT_zmalloc, 0, 0, 1, 1);
        in >> target;
        Morvex_Fault_DisarmAll();
        EXPECT_EQ("old", textOf(target));
        EXPECT_EQ(4u, in.getPosition());
        EXPECT_EQ(0, balance.liveBlocksDelta());
    }
}

// A length field may lie: up to 64 KiB the block is allocated as the length says and
// keeps zeros where the stream ran short; beyond that, a length the stream does not hold
// allocates nothing, leaves the handle alone and the bytes unread, as no memory would.
TEST(RCMemoryBufferTest, LengthFieldsBeyondTheStream)
{
    const std::string unchanged = "old";
    const struct { int line; unsigned int length; std::size_t present; std::string read; } rows[] = {
        {__LINE__, 4, 3, std::string(4, '\0')},
        {__LINE__, 0x10000, 3, std::string(0x10000, '\0')},
        {__LINE__, 0x10001, 3, unchanged},
        {__LINE__, 0x10001, 0x10001, std::string(0x10001, 'y')},
        {__LINE__, 0xFFFFFFF0u, 3, unchanged},
        {__LINE__, 0xFFFFFFFFu, 3, unchanged},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Bytes record = written(row.length);
        record.insert(record.end(), row.present, 'y');
        const PAL::CMemoryIStream in(bufferOf(record));
        CRCMemoryBuffer target = blockWith(unchanged);
        AllocationBalance balance;
        in >> target;
        EXPECT_EQ(row.read, textOf(target));
        if (row.read == unchanged) {
            EXPECT_EQ(0u, balance.allocationsSince());
            EXPECT_EQ(4u, in.getPosition());
        }
    }
}

} // namespace
