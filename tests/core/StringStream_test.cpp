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
    osal_kit_test::RecordingOStream plain, ipc;
    plain << CString() << CString("h\xC3\xA9");
    CString::toIpcStream(CString::toIpcStream(ipc, CString()), CString("ab"));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 3, 0, 0, 0, 'h', 0xC3, 0xA9}), plain.bytes);
    EXPECT_EQ((std::vector<std::string>{"write 4", "write 0", "write 4", "write 3"}), plain.calls);
    EXPECT_EQ((Bytes{0, 0, 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0}), ipc.bytes);
    EXPECT_EQ((std::vector<std::string>{"align 4", "write 4", "write 0", "write 1", "align 4", "write 4", "write 2",
                                        "write 1"}), ipc.calls);
    osal_kit_test::ShortReadIStream partial(Bytes{3, 0, 0, 0, 'a', 'b', 'c'});
    CString text;
    CString::fromIpcStream(partial, text);  // the terminator byte need not arrive
    EXPECT_EQ("abc", osal_kit_test::bytes(text));
    EXPECT_EQ(std::vector<unsigned int>{4}, partial.aligns);
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'a'}) >> text;  // a stream that delivers a prefix
    EXPECT_EQ("a", osal_kit_test::bytes(text));
}

// Both forms read back the text up to its first 0 byte, cut at the first bad sequence;
// the Ipc terminator byte counts as 0 whatever it holds. A memory stream delivers nothing
// for a read it cannot fill, so a record cut short reads as the empty string; a length
// beyond the stream (up to 0xFFFFFFFF, where n + 1 would wrap) allocates nothing and
// leaves the text alone, unless the stream could hold it (64 KiB).
TEST(StringStreamTest, RecordsReadBackTheValidTextThatArrived)
{
    const struct { int line; unsigned int length; std::string written, read; } rows[] = {
        {__LINE__, 0, "", ""},
        {__LINE__, 7, "Gr\xC3\xBC\xC3\x9F" "e", "Gr\xC3\xBC\xC3\x9F" "e"},
        {__LINE__, 5, std::string("ab\0cd", 5), "ab"},
        {__LINE__, 5, "ab\x80" "cd", "ab"},
        {__LINE__, 3, "ab\xC3", "ab"},
        {__LINE__, 4, "abc", ""},
        {__LINE__, 0x10000, "abc", ""},
        {__LINE__, 0x10001, "abc", "old"},
        {__LINE__, 0xFFFFFFFFu, "abc", "old"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Bytes record = osal_kit_test::written(row.length);
        record.insert(record.end(), row.written.begin(), row.written.end());
        const osal_kit_test::AllocationBalance buffers("osal_kit", "new[](std::nothrow_t)");
        EXPECT_EQ(row.read, readBack(record, false));
        record.push_back('!');
        EXPECT_EQ(row.read, readBack(record, true));
        EXPECT_EQ(row.read == "old" ? 0u : 2u, buffers.allocationsSince());
        record.resize(record.size() - 2);
        EXPECT_EQ(row.read == "old" ? "old" : "", readBack(record, true));
    }
    const std::string longText(0x10001, 'x');
    Bytes record = osal_kit_test::written(CString(longText.c_str()));
    EXPECT_EQ(longText, readBack(record, false));
}

} // namespace
