// Memory blocks, byte buffers and their stream forms with each allocation failing in
// turn: a buffer step that cannot get memory leaves the buffer (and the copies sharing
// its block) as it was, a block that cannot be had gives an empty handle, and a record
// that cannot be read leaves its target unchanged.

#include "core/Buffer.h"
#include "core/MemoryStream.h"

#include "support/AllocationSweep.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using PAL::CBuffer;
using PAL::CRCMemoryBuffer;
using osal_kit_test::failAllocationAfter;

std::string textOf(const CBuffer& buffer)
{
    std::string text(buffer.getSize(), '\0');
    buffer.copyFrom(&text[0], buffer.getSize(), 0);
    return text;
}

CBuffer holding(const char* text, unsigned int blockSize)
{
    CBuffer buffer(0, blockSize);
    buffer.copyTo(text, static_cast<unsigned int>(std::strlen(text)), 0);
    return buffer;
}

TEST(BufferSweep, BuffersAndBlocksGrowWholeOrNotAtAll)
{
    const std::vector<osal_kit_test::AllocationScenario> scenarios{
        {__LINE__, "writing into a shared buffer, appending, resizing", [](unsigned int skip) {
             CBuffer buffer = holding("abc", 4);
             const CBuffer copy = buffer;
             failAllocationAfter(skip);
             const unsigned int copied[] = {buffer.copyTo("XY", 2, 1), buffer.copyTo("hello", 5, buffer.getSize())};
             buffer.resize(40);
             const unsigned int size = buffer.getSize();
             Morvex_Fault_DisarmAll();
             const std::string expected = std::string(copied[0] == 2 ? "aXY" : "abc") + (copied[1] == 5 ? "hello" : "");
             EXPECT_TRUE((copied[0] == 0 || copied[0] == 2) && (copied[1] == 0 || copied[1] == 5));
             EXPECT_TRUE(size == 40 || size == expected.size()) << size;
             EXPECT_EQ(expected, textOf(buffer).substr(0, expected.size()));
             EXPECT_EQ("abc", textOf(copy)) << "the copy sharing the block saw a change";
         }},
        {__LINE__, "sized buffer and block", [](unsigned int skip) {
             failAllocationAfter(skip);
             const CBuffer buffer(5);
             const CRCMemoryBuffer block(16);
             Morvex_Fault_DisarmAll();
             EXPECT_TRUE(buffer.getSize() == 0 || buffer.getSize() == 5);
             EXPECT_EQ(block.getBuffer() == nullptr ? 0u : 16u, block.getCapacity());
         }},
        {__LINE__, "through a stream", [](unsigned int skip) {
             const CBuffer source = holding("payload", 4);
             CBuffer target = holding("old", 8);
             CRCMemoryBuffer block(3);
             PAL::CMemoryOStream out;
             failAllocationAfter(skip);
             out << source << source.getMemoryBuffer();
             Morvex_Fault_DisarmAll();
             const PAL::CMemoryIStream in(out.getBuffer());
             failAllocationAfter(skip);
             in >> target >> block;
             Morvex_Fault_DisarmAll();
             const std::string text = textOf(target);
             const std::string bytes(static_cast<const char*>(block.getBuffer()), block.getCapacity());
             EXPECT_TRUE(text == "old" || text == std::string("payload\0", 8) || (!out.isGood() && text.empty()));
             EXPECT_TRUE(bytes == std::string(3, '\0') || bytes == std::string("payload\0", 8) || !out.isGood());
             EXPECT_EQ(8u, target.getBlockSize());
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
