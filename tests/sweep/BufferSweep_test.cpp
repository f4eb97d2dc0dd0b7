// Memory blocks, byte buffers and their stream forms with each allocation failing in
// turn: a buffer step that cannot get memory leaves the buffer (and the copies sharing
// its block) as it was, a block that cannot be had gives an empty handle, and a record
// that cannot be read leaves its target unchanged.

#include "support/AllocationSweep.h"
#include "support/StreamBytes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using PAL::CBuffer;
using PAL::CRCMemoryBuffer;

std::string textOf(const CBuffer& buffer)
{
    const osal_kit_test::Bytes bytes = osal_kit_test::bytesOf(buffer);
    return std::string(bytes.begin(), bytes.end());
}

TEST(BufferSweep, BuffersBlocksAndRecordsChangeWholeOrNotAtAll)
{
    osal_kit_test::sweepAllocations(osal_kit_test::AllocationScenario{__LINE__, "buffers", [](unsigned int skip) {
        CBuffer buffer(0, 4), target(0, 8), source(0, 1);
        buffer.copyTo("abc", 3, 0), target.copyTo("old", 3, 0), source.copyTo("xyz", 3, 0);
        const CBuffer copy = buffer;
        CRCMemoryBuffer block = source.getMemoryBuffer();
        PAL::CMemoryOStream out;
        osal_kit_test::failAllocationAfter(skip);
        const unsigned int copied[] = {buffer.copyTo("XY", 2, 1), buffer.copyTo("hello", 5, buffer.getSize())};
        buffer.resize(40);
        const unsigned int size = buffer.getSize();
        const CBuffer sized(5);
        const CRCMemoryBuffer fresh(16);
        out << copy << copy.getMemoryBuffer();
        const PAL::CMemoryIStream in(out.getBuffer());
        in >> target >> block;
        Morvex_Fault_DisarmAll();
        const std::string expected = std::string(copied[0] == 2 ? "aXY" : "abc") + (copied[1] == 5 ? "hello" : "");
        EXPECT_TRUE((copied[0] == 0 || copied[0] == 2) && (copied[1] == 0 || copied[1] == 5));
        EXPECT_TRUE((size == 40 || size == expected.size()) && expected == textOf(buffer).substr(0, expected.size()));
        EXPECT_EQ("abc", textOf(copy)) << "the copy sharing the block saw a change";
        EXPECT_TRUE((sized.getSize() == 0 || sized.getSize() == 5) && fresh.getCapacity() % 16 == 0);
        EXPECT_EQ(fresh.getBuffer() == nullptr, fresh.getCapacity() == 0);
        const std::string text = textOf(target), bytes = textOf(CBuffer(block)), sent("abc\0", 4);
        EXPECT_TRUE(text == "old" || text == sent || (!out.isGood() && text.empty())) << text;
        EXPECT_TRUE(bytes == "xyz" || bytes == sent || !out.isGood()) << bytes;
        EXPECT_EQ(8u, target.getBlockSize());
    }});
}

} // namespace
