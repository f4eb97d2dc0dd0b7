// Memory blocks, byte buffers and their stream forms with each allocation failing in
// turn: a block that cannot be had gives an empty handle, a buffer step that cannot
// grow leaves the buffer (and the copies sharing its block) as it was, and a record
// that cannot be read leaves the target unchanged.

#include "core/Buffer.h"
#include "core/MemoryStream.h"
#include "core/RCMemoryBuffer.h"

#include "support/AllocationSweep.h"
#include "support/StreamBytes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using osal_kit_test::AllocationScenario;
using osal_kit_test::failAllocationAfter;
using PAL::CBuffer;
using PAL::CRCMemoryBuffer;

std::string textOf(const CBuffer& buffer)
{
    std::string text(buffer.getSize(), '\0');
    buffer.copyFrom(&text[0], buffer.getSize(), 0);
    return text;
}

CBuffer holding(const char* text, unsigned int blockSize = CBuffer::DEFAULT_BLOCK_SIZE)
{
    CBuffer buffer(0, blockSize);
    buffer.copyTo(text, static_cast<unsigned int>(std::strlen(text)), 0);
    return buffer;
}

TEST(BufferSweep, BuffersGrowWholeOrNotAtAll)
{
    const std::vector<AllocationScenario> scenarios{
        {__LINE__, "appending to a shared buffer", [](unsigned int skip) {
             CBuffer buffer = holding("abc", 4);
             const CBuffer copy = buffer;
             const void* const sharedBlock = copy.getMemoryBuffer().getBuffer();
             unsigned int copied[3] = {};
             unsigned int sizeAfterResize = 0;
             failAllocationAfter(skip);
             copied[0] = buffer.copyTo("XY", 2, 1);  // shared: needs its own block first
             copied[1] = buffer.copyTo("hello", 5, buffer.getSize());
             copied[2] = buffer.copyTo(" world", 6, buffer.getSize());
             buffer.resize(40);
             sizeAfterResize = buffer.getSize();
             Morvex_Fault_DisarmAll();

             EXPECT_TRUE(copied[0] == 0 || copied[0] == 2);
             std::string expected = copied[0] == 2 ? "aXY" : "abc";
             if (copied[1] == 5)
                 expected += "hello";
             if (copied[2] == 6)
                 expected += " world";
             EXPECT_TRUE(copied[1] == 0 || copied[1] == 5);
             EXPECT_TRUE(copied[2] == 0 || copied[2] == 6);
             EXPECT_TRUE(sizeAfterResize == 40 || sizeAfterResize == expected.size()) << sizeAfterResize;
             EXPECT_EQ(expected, textOf(buffer).substr(0, expected.size()));
             EXPECT_EQ("abc", textOf(copy)) << "the copy sharing the block saw a change";
             EXPECT_EQ(sharedBlock, copy.getMemoryBuffer().getBuffer());
         }},
        {__LINE__, "sized buffer and block", [](unsigned int skip) {
             failAllocationAfter(skip);
             const CBuffer buffer(5);
             const CRCMemoryBuffer block(16);
             Morvex_Fault_DisarmAll();
             EXPECT_TRUE(buffer.getSize() == 0 || buffer.getSize() == 5);
             EXPECT_TRUE(block.getBuffer() == nullptr ? block.getCapacity() == 0 : block.getCapacity() == 16);
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

// Written to a memory stream and read back: a write without room fails the stream for
// good; a read without memory leaves the target buffer or block as it was.
TEST(BufferSweep, StreamFormsReadWholeOrLeaveTheTarget)
{
    const std::vector<AllocationScenario> scenarios{
        {__LINE__, "buffer", [](unsigned int skip) {
             const CBuffer source = holding("payload", 4);
             CBuffer target = holding("old", 8);
             PAL::CMemoryOStream out;
             failAllocationAfter(skip);
             out << source;
             Morvex_Fault_DisarmAll();
             const PAL::CMemoryIStream in(out.getBuffer());
             failAllocationAfter(skip);
             in >> target;
             Morvex_Fault_DisarmAll();
             const std::string text = textOf(target);
             EXPECT_TRUE(text == "old" || text == std::string("payload\0", 8) || (!out.isGood() && text.empty()))
                 << text;
             EXPECT_EQ(8u, target.getBlockSize());
         }},
        {__LINE__, "memory block", [](unsigned int skip) {
             CRCMemoryBuffer source(4);
             std::memcpy(source.getBuffer(), "abcd", 4);
             CRCMemoryBuffer target(3);
             std::memcpy(target.getBuffer(), "old", 3);
             const PAL::CMemoryIStream in(osal_kit_test::bufferOf(osal_kit_test::written(source)));
             failAllocationAfter(skip);
             in >> target;
             Morvex_Fault_DisarmAll();
             const std::string text(static_cast<const char*>(target.getBuffer()), target.getCapacity());
             EXPECT_TRUE(text == "old" || text == "abcd") << text;
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
