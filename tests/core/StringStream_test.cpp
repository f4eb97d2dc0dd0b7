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
using osal_kit_test::bufferOf;
using osal_kit_test::bytes;
using Calls = std::vector<std::string>;

// Reads `record` in the plain or the Ipc form into a string that held "old".
std::string readBack(const Bytes& record, bool ipc)
{
    const PAL::CMemoryIStream in(bufferOf(record));
    CString text("old");
    if (ipc)
        CString::fromIpcStream(in, text);
    else
        in >> text;
    osal_kit_test::expectConsistent(text);
    return bytes(text);
}

TEST(StringStreamTest, PlainFormIsTheByteLengthThenTheTextAndIpcFormIsAlignedAndTerminated)
{
    osal_kit_test::RecordingOStream plain, ipc;
    plain << CString() << CString("h\xC3\xA9");
    CString::toIpcStream(CString::toIpcStream(ipc, CString()), CString("ab"));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 3, 0, 0, 0, 'h', 0xC3, 0xA9}), plain.bytes);
    EXPECT_EQ((Calls{"write 4", "write 0", "write 4", "write 3"}), plain.calls);
    EXPECT_EQ((Bytes{0, 0, 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0}), ipc.bytes);
    EXPECT_EQ((Calls{"align 4", "write 4", "write 0", "write 1", "align 4", "write 4", "write 2", "write 1"}), ipc.calls);

    PAL::CMemoryOStream memory;
    memory << 'x';
    CString::toIpcStream(memory, CString("ab"));
    EXPECT_EQ((Bytes{'x', 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0}), osal_kit_test::bytesOf(memory.getBuffer()));
    const PAL::CMemoryIStream in(memory.getBuffer());
    char x = 0;
    CString text;
    in.read(&x, 1);
    CString::fromIpcStream(in, text);
    EXPECT_EQ("ab", bytes(text));
    EXPECT_TRUE(in.isGood());
}

// Both forms read back the text up to its first 0 byte, cut at the first bad sequence;
// the Ipc terminator byte counts as 0 whatever it holds.
TEST(StringStreamTest, BothFormsReadBackTheValidTextBeforeAnyZeroByte)
{
    const struct { int line; std::string written, read; } rows[] = {
        {__LINE__, "", ""},
        {__LINE__, "Gr\xC3\xBC\xC3\x9F" "e", "Gr\xC3\xBC\xC3\x9F" "e"},
        {__LINE__, "\xF4\x8F\xBF\xBF" "x", "\xF4\x8F\xBF\xBF" "x"},
        {__LINE__, std::string("ab\0cd", 5), "ab"},
        {__LINE__, "ab\x80" "cd", "ab"},
        {__LINE__, "ab\xC3", "ab"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Bytes record = osal_kit_test::written(static_cast<unsigned int>(row.written.size()));
        record.insert(record.end(), row.written.begin(), row.written.end());
        EXPECT_EQ(row.read, readBack(record, false));
        record.push_back('!');
        EXPECT_EQ(row.read, readBack(record, true));
    }
}

// A memory stream delivers nothing for a read it cannot fill: a record cut short reads as
// the empty string. A stream that delivers a prefix gives what arrived.
TEST(StringStreamTest, RecordsCutShortAtEveryLength)
{
    const Bytes plain = osal_kit_test::written(CString("abc"));
    Bytes ipc = plain;
    ipc.push_back(0);
    for (size_t cut = 0; cut <= ipc.size(); ++cut) {
        SCOPED_TRACE(cut);
        EXPECT_EQ(cut == ipc.size() ? "abc" : "", readBack(Bytes(ipc.begin(), ipc.begin() + cut), true));
        if (cut <= plain.size()) {
            EXPECT_EQ(cut == plain.size() ? "abc" : "", readBack(Bytes(plain.begin(), plain.begin() + cut), false));
        }
    }
    CString shortPlain, shortIpc;
    osal_kit_test::ShortReadIStream(Bytes{3, 0, 0, 0, 'a'}) >> shortPlain;
    osal_kit_test::ShortReadIStream partial(Bytes{3, 0, 0, 0, 'a', 'b', 'c'});
    CString::fromIpcStream(partial, shortIpc);
    EXPECT_EQ("a", bytes(shortPlain));
    EXPECT_EQ("abc", bytes(shortIpc));
    EXPECT_EQ(std::vector<unsigned int>{4}, partial.aligns);
}

// A length field may lie. Up to 64 KiB a record is allocated for as its length says, and
// a stream that runs short ends it like any cut record; a longer length than the stream
// holds (0xFFFFFFFF, where n + 1 would wrap, among them) allocates nothing and leaves the
// text alone, in both forms.
TEST(StringStreamTest, LengthFieldsBeyondTheStream)
{
    const std::string longText(0x10001, 'x');
    const struct { int line; unsigned int length; size_t present; std::string read; } rows[] = {
        {__LINE__, 4, 3, ""},
        {__LINE__, 0x10000, 3, ""},
        {__LINE__, 0x10001, 3, "old"},
        {__LINE__, 0x10001, 0x10001, longText},
        {__LINE__, 0xFFFFFFFEu, 3, "old"},
        {__LINE__, 0xFFFFFFFFu, 3, "old"},
    };
    for (const auto& row : rows) {
        for (const bool ipc : {false, true}) {
            SCOPED_TRACE(::testing::Message() << row.line << (ipc ? " ipc" : " plain"));
            Bytes record = osal_kit_test::written(row.length);
            record.insert(record.end(), row.present + (ipc && row.present == row.length ? 1 : 0), 'x');
            const osal_kit_test::AllocationBalance buffers("osal_kit", "new[]");
            EXPECT_EQ(row.read, readBack(record, ipc));
            if (row.read == "old") {
                EXPECT_EQ(0u, buffers.allocationsSince());
            }
        }
    }
}

} // namespace
