// Strings, their conversions, stream forms and token lists with each allocation of an
// operation failing in turn: an operation that cannot get its memory leaves its target
// as it was (or, where it builds a new value, gives the empty one), and nothing leaks.

#include "core/MemoryStream.h"
#include "core/StringStream.h"
#include "core/StringUtilities.h"
#include "core/TokenSeparatedList.h"

#include "support/AllocationSweep.h"
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

TEST(StringSweep, EveryOperationIsAllOrNothing)
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
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
