// CString's byte-stream forms: the plain `<<` / `>>` form and the aligned, terminated Ipc
// form, with records cut short, lying lengths and bad text.

#include "core/StringStream.h"

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"
#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using PAL::CString;
using osal_kit_test::Bytes;

// Reads `record` in the plain or the Ipc form into a string that held "old".
std::string readBack(const Bytes& record, bool ipc)
{
    const PAL::CMemoryIStream in(osal_kit_test::bufferOf(record));
    CString text("old");
    if (ipc)
        CString::fromIpcStream(in, text);
    else
        in >> text;
    osal_kit_test::expectConsistent(text);
    return osal_kit_test::bytes(text);
}

TEST(StringStreamTest, PlainFormIsTheByteLengthThenTheTextAndIpcFormIsAlignedAndTerminated)
{
    PAL::CMemoryOStream plain, ipc;
    plain << CString() << CString("h\xC3\xA9");
    ipc.write("x", 1);  // so that the alignment shows
    CString::toIpcStream(CString::toIpcStream(ipc, CString()), CString("ab"));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 3, 0, 0, 0, 'h', 0xC3, 0xA9}), osal_kit_test::bytesOf(plain.getBuffer()));
    EXPECT_EQ((Bytes{'x', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0}),
              osal_kit_test::bytesOf(ipc.getBuffer()));
    osal_kit_test::ShortReadIStream partial(Bytes{3, 0, 0, 0, 'a', 'b', 'c'});
    CString text;
    CString::fromIpcStream(partial, text);  // the terminator byte need not arrive
    EXPECT_EQ("abc", osal_kit_test::bytes(text));
    EXPECT_EQ(std::vector<unsigned int>{4}, partial.aligns);
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'a'}) >> text;  // a stream that delivers a prefix
    EXPECT_EQ("a", osal_kit_test::bytes(text));
    const PAL::CMemoryIStream done(osal_kit_test::bufferOf(Bytes{2, 0, 0, 0, 'h', 'i'}));
    text = "old";
    CString::fromIpcStream(CString::fromIpcStream(done >> text, text), text);  // nothing more is delivered: ""
    EXPECT_TRUE(text.isEmpty() && !done.isGood());
}

// The stream read fuzz target checks what both forms read against a model; what it cannot
// see is that a length beyond the stream (up to 0xFFFFFFFF, where n + 1 would wrap)
// allocates nothing and leaves the text alone, unless the stream could hold it (64 KiB).
TEST(StringStreamTest, ALengthBeyondTheStreamAllocatesNothing)
{
    const struct { int line; unsigned int length; std::string read; } rows[] = {
        {__LINE__, 3, "ab"},
        {__LINE__, 0x10000, ""},
        {__LINE__, 0x10001, "old"},
        {__LINE__, 0xFFFFFFFFu, "old"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Bytes record = osal_kit_test::written(row.length);
        record.insert(record.end(), {'a', 'b', 0xC3, '!'});
        const osal_kit_test::AllocationBalance buffers("osal_kit", "new[](std::nothrow_t)");
        EXPECT_EQ(row.read, readBack(record, false));
        EXPECT_EQ(row.read, readBack(record, true));
        EXPECT_EQ(row.read == "old" ? 0u : 2u, buffers.allocationsSince());
    }
    const std::string longText(0x10001, 'x');
    EXPECT_EQ(longText, readBack(osal_kit_test::written(CString(longText.c_str())), false));
}

} // namespace
