// The value types with each allocation of an operation failing in turn: strings, their
// conversions, stream forms and token lists; buffers, blocks and their records; date
// texts. An operation that cannot get its memory leaves its target as it was (a copy
// sharing its block included), or, where it builds a new value, gives the empty one; a
// record or text that cannot be read leaves its target unchanged; nothing leaks.

#include "core/DateAndTimeUtilities.h"
#include "core/MemoryStream.h"
#include "core/StringStream.h"
#include "core/StringUtilities.h"
#include "core/TokenSeparatedList.h"

#include "support/AllocationSweep.h"
#include "support/StreamBytes.h"
#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using osal_kit_test::AllocationScenario;
using osal_kit_test::bytes;
using osal_kit_test::expectConsistent;
using osal_kit_test::failAllocationAfter;
using PAL::CString;
using PAL::StringUtilities::truncateInByteUnits;
using PAL::TVector;
using Iterator = PAL::CString::const_iterator;
namespace dates = PAL::DateAndTimeUtilities;

// Runs `change` on " ab %1 cd " shared with a holder, with allocation `skip` failing: a
// run that met no failure gives what the change gives with memory to spare; one that
// did leaves the string, its block and the caller's iterator as they were (`anyBlock`:
// or, for an operation that may find another way to its memory, the whole result).
AllocationScenario edit(int line, const char* name, void (*change)(CString&, Iterator&), bool anyBlock = false)
{
    return {line, name, [=](unsigned int skip) {
                CString spare(" ab %1 cd "), s(" ab %1 cd ");
                Iterator sparePosition = spare.begin() + 2, position = s.begin() + 2;
                change(spare, sparePosition);
                const CString holder = s;
                const Iterator before = position;
                const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_zmalloc);
                failAllocationAfter(skip);
                change(s, position);
                Morvex_Fault_DisarmAll();
                expectConsistent(s);
                const bool failed =
                    Morvex_Fault_Injected(MORVEX_FAULT_zmalloc) != injected && !(anyBlock && bytes(s) == bytes(spare));
                EXPECT_EQ(failed ? " ab %1 cd " : bytes(spare), bytes(s));
                EXPECT_TRUE(!failed || anyBlock || (holder.getBuffer() == s.getBuffer() && before == position));
            }};
}
#define EDIT(body) edit(__LINE__, #body, [](CString& s, Iterator& p) { (void)p; body; })
#define EDIT_ANY_BLOCK(body) edit(__LINE__, #body, [](CString& s, Iterator&) { body; }, true)

const unsigned int UCS4[] = {0x47, 0x72, 0xFC, 0xDF, 0x65, 0x1F600, 0};
const CString x("x"), space(" "), dots("..");

// Case mapping that cannot get its memory leaves the text as it was, whether it outgrows
// the room a shared block starts with or shrinks before it grows.
void caseMapping(unsigned int skip)
{
    std::string growing, shrinking;
    for (int i = 0; i < 100; ++i) {
        growing += i < 20 ? "\xCE\x90" : "";
        shrinking.insert(0, "\xC4\xB1").append(i < 10 ? "\xCE\x90" : "");
    }
    for (const std::string& text : {growing, shrinking}) {
        CString spare(text.c_str()), own(text.c_str()), shared(text.c_str());
        const CString holder = shared;
        PAL::StringUtilities::toUpper(spare);
        failAllocationAfter(skip);
        PAL::StringUtilities::toUpper(own);
        PAL::StringUtilities::toUpper(shared);
        Morvex_Fault_DisarmAll();
        for (const CString* mapped : {&own, &shared}) {
            expectConsistent(*mapped);
            EXPECT_TRUE(bytes(*mapped) == text || bytes(*mapped) == bytes(spare));
        }
        EXPECT_EQ(text, bytes(holder));
    }
}

PAL::CBuffer written(bool ipc)
{
    PAL::CMemoryOStream out;
    (void)(ipc ? CString::toIpcStream(out, CString("n\xC3\xA4me")) : out << CString("n\xC3\xA4me"));
    return out.getBuffer();
}
const PAL::CBuffer plainForm = written(false), ipcForm = written(true);

// Every refused step of a token list changes nothing, so the list holds exactly the
// tokens whose Add succeeded, and a failed split leaves no tokens behind; a string vector
// built from texts holds each text or an empty string.
void tokenList(unsigned int skip)
{
    PAL::CTokenSeparatedList list(CString(","), CString());
    const CString tokens[] = {CString("alpha"), CString("b\xC3\xA9ta"), CString("42")};
    TVector<CString> parts(0);
    parts.push_back(CString("stale"));
    failAllocationAfter(skip);
    const bool added[] = {list.Add(tokens[0]), list.Add(tokens[1]), list.Add(42)};
    const bool split = list.ToVector(parts);
    Morvex_Fault_DisarmAll();
    std::string expected;
    for (int i = 0; i < 3; ++i)
        expected += added[i] ? (expected.empty() ? "" : ",") + bytes(tokens[i]) : std::string();
    EXPECT_EQ(expected, bytes(list.Get()));
    EXPECT_EQ(split ? added[0] + added[1] + added[2] : 0, parts.size());
    TVector<const char*> texts(0);
    texts.push_back("first");
    texts.push_back(nullptr);
    failAllocationAfter(skip);
    const TVector<CString> strings = PAL::StringUtilities::toStringVector(texts);
    Morvex_Fault_DisarmAll();
    const TVector<const char*> back = PAL::StringUtilities::fromStringVector(strings);
    for (int i = 0; i < strings.size(); ++i) {
        EXPECT_TRUE(strings.get(i)->isEmpty() || bytes(*strings.get(i)) == *texts.get(i)) << i;
        EXPECT_EQ(strings.get(i)->getBuffer(), *back.get(i));
    }
}

std::string textOf(const PAL::CBuffer& buffer)
{
    const osal_kit_test::Bytes bytes = osal_kit_test::bytesOf(buffer);
    return std::string(bytes.begin(), bytes.end());
}

// A buffer step that cannot get memory leaves the buffer (and the copies sharing its
// block) as it was, a block that cannot be had gives an empty handle, and a record that
// cannot be read leaves its target unchanged.
void buffers(unsigned int skip)
{
    PAL::CBuffer buffer(0, 4), target(0, 8), source(0, 1);
    buffer.copyTo("abc", 3, 0), target.copyTo("old", 3, 0), source.copyTo("xyz", 3, 0);
    const PAL::CBuffer copy = buffer;
    PAL::CRCMemoryBuffer block = source.getMemoryBuffer();
    PAL::CMemoryOStream out;
    failAllocationAfter(skip);
    const unsigned int copied[] = {buffer.copyTo("XY", 2, 1), buffer.copyTo("hello", 5, buffer.getSize())};
    buffer.resize(40);
    const unsigned int size = buffer.getSize();
    const PAL::CBuffer sized(5);
    const PAL::CRCMemoryBuffer fresh(16);
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
    const std::string text = textOf(target), bytes = textOf(PAL::CBuffer(block)), sent("abc\0", 4);
    EXPECT_TRUE(text == "old" || text == sent || (!out.isGood() && text.empty())) << text;
    EXPECT_TRUE(bytes == "xyz" || bytes == sent || !out.isGood()) << bytes;
    EXPECT_EQ(8u, target.getBlockSize());
}

// Writes two texts and reads one with a fault armed by `arm(skip)`; a "+02:00" that
// could not be held must not read as UTC. Returns whether the text was read.
bool writeAndReadArmed(void (*arm)(unsigned int), unsigned int skip)
{
    const char* const text = "2024-05-17T10:20:30.250000+02:00";
    const CString input(text);
    const PAL::CDateAndTime when(PAL::CDateAndTime::SDate(2024, 5, 17), PAL::CDateAndTime::STime(10, 20, 30, 250000), 0);
    const dates::STimeZoneOffset plus2(2, 0), minus(-3, 30);
    PAL::CDateAndTime dt(12345);
    dates::STimeZoneOffset zone;
    arm(skip);
    const CString dateText = dates::ToString(when, dates::eFormatISO8601, dates::eWithFraction, plus2), zoneText = minus.ToString();
    const bool accepted = dates::FromString(dt, input, dates::eFormatISO8601, &zone);
    Morvex_Fault_DisarmAll();
    EXPECT_TRUE((dateText.isEmpty() || dateText == text) && (zoneText.isEmpty() || zoneText == "-03:30"));
    EXPECT_TRUE(dt.getMicroseconds() == (accepted ? when.getMicroseconds() : 12345u) && (!accepted || zone == plus2));
    return accepted;
}

TEST(ValueSweep, EveryOperationIsAllOrNothing)
{
    const AllocationScenario scenarios[] = {
        EDIT(s.append(s)), EDIT(s.insert(p, x)), EDIT(s.remove(p, 2)), EDIT(s.replace(p, 2, s)),
        EDIT(s.replaceAll(space, x)), EDIT(s.replaceArg(x)), EDIT(s.truncate(p)), EDIT(s.trim()),
        EDIT((void)s.format("%s-%d", "new", 7)), EDIT(s.fromUCS4Sequence(UCS4, 6)),
        EDIT(s.fromWCharSequence(UCS4, UCS4 + 6)),
        EDIT_ANY_BLOCK((void)truncateInByteUnits(s, 6, dots)),
        EDIT(const CString mid = s.getMid(p, 2); s = mid.isEmpty() ? s : mid),
        EDIT_ANY_BLOCK(CString mine = x; s.swap(mine)),
        EDIT(const PAL::CMemoryIStream in(plainForm); in >> s),
        EDIT(const PAL::CMemoryIStream in(ipcForm); CString::fromIpcStream(in, s)),
        {__LINE__, "case mapping", caseMapping},
        {__LINE__, "token list and string vector", tokenList},
        {__LINE__, "buffers, blocks and records", buffers},
        {__LINE__, "date texts", [](unsigned int skip) { writeAndReadArmed(failAllocationAfter, skip); }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

TEST(ValueSweep, DateTextsAreRefusedWhicheverScanFails)
{
    osal_kit_test::FaultGuard faults;
    const auto failScanAfter = [](unsigned int skip) { Morvex_Fault_ArmEx(MORVEX_FAULT_sscanf, -1, skip, 1, 1); };
    for (unsigned int skip = 0; skip < 8; ++skip) // one scan per field of the text
        EXPECT_FALSE(writeAndReadArmed(failScanAfter, skip)) << skip;
    EXPECT_TRUE(writeAndReadArmed(failScanAfter, 8));
}

} // namespace
