// CString's byte-stream forms: the plain `<<` / `>>` form and the aligned, terminated
// Ipc form, with records cut short, bad text and no memory.

#include "core/StringStream.h"

#include "support/AllocationBalance.h"
#include "support/StreamBytes.h"
#include "support/StringBlock.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using PAL::CString;
using osal_kit_test::AllocationBalance;
using osal_kit_test::Bytes;
using osal_kit_test::FaultGuard;
using osal_kit_test::RecordingOStream;
using osal_kit_test::ShortReadIStream;
using osal_kit_test::bufferOf;
using osal_kit_test::bytes;
using osal_kit_test::bytesOf;
using osal_kit_test::fromBytes;

Bytes ipcBytes(const CString& text)
{
    PAL::CMemoryOStream out;
    CString::toIpcStream(out, text);
    return bytesOf(out.getBuffer());
}

TEST(StringStreamTest, PlainFormIsTheByteLengthThenTheText)
{
    RecordingOStream out;
    out << CString() << CString("hé");
    EXPECT_EQ((Bytes{0, 0, 0, 0, 3, 0, 0, 0, 'h', 0xC3, 0xA9}), out.bytes);
    EXPECT_EQ((std::vector<std::string>{"write 4", "write 0", "write 4", "write 3"}), out.calls);
}

TEST(StringStreamTest, IpcFormAlignsFirstAndEndsInAZeroByte)
{
    RecordingOStream out;
    CString::toIpcStream(out, CString());
    CString::toIpcStream(out, CString("ab"));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0}), out.bytes);
    EXPECT_EQ((std::vector<std::string>{"align 4", "write 4", "write 0", "write 1", "align 4", "write 4", "write 2",
                                        "write 1"}),
              out.calls);

    PAL::CMemoryOStream memory;
    memory << 'x';
    CString::toIpcStream(memory, CString("ab"));
    EXPECT_EQ((Bytes{'x', 0, 0, 0, 2, 0, 0, 0, 'a', 'b', 0}), bytesOf(memory.getBuffer()));
    PAL::CMemoryIStream in(memory.getBuffer());
    char x = 0;
    CString text;
    in.read(&x, 1);
    CString::fromIpcStream(in, text);
    EXPECT_EQ(CString("ab"), text);
    EXPECT_TRUE(in.isGood());
}

// Both forms read back the text up to its first 0 byte, cut at the first bad sequence.
TEST(StringStreamTest, BothFormsReadBackTheValidTextBeforeAnyZeroByte)
{
    const struct { int line; std::string written, read; } rows[] = {
        {__LINE__, "", ""},
        {__LINE__, "Grüße", "Grüße"},
        {__LINE__, "\xF4\x8F\xBF\xBF" "x", "\xF4\x8F\xBF\xBF" "x"},
        {__LINE__, std::string("ab\0cd", 5), "ab"},
        {__LINE__, "ab\x80" "cd", "ab"},
        {__LINE__, "ab\xC3", "ab"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Bytes record{static_cast<unsigned char>(row.written.size()), 0, 0, 0};
        record.insert(record.end(), row.written.begin(), row.written.end());
        CString plain("old"), ipc("old");
        PAL::CMemoryIStream(bufferOf(record)) >> plain;
        record.push_back('!'); // the Ipc terminator byte counts as 0 whatever it holds
        CString::fromIpcStream(PAL::CMemoryIStream(bufferOf(record)), ipc);
        EXPECT_EQ(row.read, bytes(plain));
        EXPECT_EQ(row.read, bytes(ipc));
        osal_kit_test::expectConsistent(plain);
    }
    const CString text("Grüße");
    EXPECT_EQ(text.getSize() + 5u, ipcBytes(text).size());
}

// A memory stream delivers nothing for a read it cannot fill: anything cut short reads
// as the empty string. A stream that delivers a prefix gives what arrived.
TEST(StringStreamTest, RecordsCutShortAtEveryLength)
{
    const Bytes plainRecord = osal_kit_test::written(CString("abc")), ipcRecord = ipcBytes(CString("abc"));
    for (unsigned int cut = 0; cut <= ipcRecord.size(); ++cut) {
        SCOPED_TRACE(cut);
        CString plain("old"), ipc("old");
        if (cut <= plainRecord.size()) {
            PAL::CMemoryIStream(bufferOf(Bytes(plainRecord.begin(), plainRecord.begin() + cut))) >> plain;
            EXPECT_EQ(cut == plainRecord.size() ? "abc" : "", bytes(plain));
        }
        CString::fromIpcStream(PAL::CMemoryIStream(bufferOf(Bytes(ipcRecord.begin(), ipcRecord.begin() + cut))), ipc);
        EXPECT_EQ(cut == ipcRecord.size() ? "abc" : "", bytes(ipc));
    }
    CString plain, ipc;
    ShortReadIStream(Bytes{3, 0, 0, 0, 'a'}) >> plain;
    ShortReadIStream partial(Bytes{3, 0, 0, 0, 'a', 'b', 'c'});
    CString::fromIpcStream(partial, ipc);
    EXPECT_EQ("a", bytes(plain));
    EXPECT_EQ("abc", bytes(ipc));
    EXPECT_EQ(std::vector<unsigned int>{4}, partial.aligns);
}

TEST(StringStreamTest, AnImpossibleLengthLeavesTheTextAlone)
{
    CString plain("old");
    const PAL::CMemoryIStream in(bufferOf(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 'a'}));
    AllocationBalance balance;
    in >> plain;
    EXPECT_EQ("old", bytes(plain));
    EXPECT_EQ(0, balance.liveBlocksDelta());
}

// A length field may lie. Up to 64 KiB a record is allocated for as its length says,
// and a stream that runs short ends it like any cut record; a longer length than the
// stream holds (0xFFFFFFFF, where n + 1 would wrap, among them) allocates nothing and
// leaves the text alone, in both forms and with 32-bit sizes as with 64-bit ones.
TEST(StringStreamTest, LengthFieldsBeyondTheStream)
{
    const std::string unchanged = "old", longText(0x10001, 'x');
    const struct { int line; unsigned int length; std::size_t present; std::string read; } rows[] = {
        {__LINE__, 4, 3, ""},
        {__LINE__, 0x10000, 3, ""},
        {__LINE__, 0x10001, 3, unchanged},
        {__LINE__, 0x10001, 0x10001, longText},
        {__LINE__, 0xFFFFFFFEu, 3, unchanged},
        {__LINE__, 0xFFFFFFFFu, 3, unchanged},
    };
    for (const auto& row : rows) {
        for (const bool ipc : {false, true}) {
            SCOPED_TRACE(::testing::Message() << row.line << (ipc ? " ipc" : " plain"));
            Bytes record = osal_kit_test::written(row.length);
            record.insert(record.end(), row.present + (ipc && row.present == row.length ? 1 : 0), 'x');
            const PAL::CMemoryIStream in(bufferOf(record));
            CString text(unchanged.c_str());
            AllocationBalance balance;
            if (ipc) {
                CString::fromIpcStream(in, text);
            } else {
                in >> text;
            }
            EXPECT_EQ(row.read, bytes(text));
            if (row.read == unchanged) {
                EXPECT_EQ(0u, balance.allocationsSince());
                EXPECT_EQ(4u, in.getPosition());
            }
            osal_kit_test::expectConsistent(text);
        }
    }
}

} // namespace
