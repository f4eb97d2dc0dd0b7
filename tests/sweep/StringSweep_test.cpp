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

// A value built by `make` is either complete or empty.
AllocationScenario made(int line, const char* name, CString (*make)(), const char* expected)
{
    return {line, name, [=](unsigned int skip) {
                failAllocationAfter(skip);
                const CString value = make();
                Morvex_Fault_DisarmAll();
                expectConsistent(value);
                EXPECT_TRUE(bytes(value).empty() || bytes(value) == expected) << bytes(value);
            }};
}
#define MADE(body, expected) made(__LINE__, #body, []() -> CString { return body; }, expected)

const unsigned int UCS4[] = {0x47, 0x72, 0xFC, 0xDF, 0x65, 0x1F600, 0};
const CString x("x"), space(" "), dots("..");

// Case mapping, stream forms, token lists and vector conversions may stop part-way: what
// they produced is sound and right, and their inputs are untouched.
void caseMapping(unsigned int skip)
{
    const CString original("stra\xC3\x9F" "e \xEF\xAC\x83");
    CString partial = original;
    failAllocationAfter(skip);
    PAL::StringUtilities::toUpper(partial);
    Morvex_Fault_DisarmAll();
    expectConsistent(partial);
    PAL::StringUtilities::toUpper(partial);
    EXPECT_EQ("STRASSE FFI" "stra\xC3\x9F" "e \xEF\xAC\x83", bytes(partial) + bytes(original));
}

// A write that found no room leaves its stream failed; a read gets the text or leaves "old".
void streamForms(unsigned int skip)
{
    const CString name("n\xC3\xA4me");
    PAL::CMemoryOStream out;
    failAllocationAfter(skip);
    CString::toIpcStream(out << name, name);
    Morvex_Fault_DisarmAll();
    CString plain("old"), ipc("old");
    const PAL::CMemoryIStream in(out.getBuffer());
    failAllocationAfter(skip);
    CString::fromIpcStream(in >> plain, ipc);
    Morvex_Fault_DisarmAll();
    for (const CString* read : {&plain, &ipc})
        EXPECT_TRUE(bytes(*read) == "old" || bytes(*read) == bytes(name) || !out.isGood()) << bytes(*read);
}

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
        edit(__LINE__, "truncateInByteUnits", [](CString& s, Iterator&) {
            (void)PAL::StringUtilities::truncateInByteUnits(s, 6, dots); }, true),
        MADE(CString("abc").getMid(CString("abc").begin() + 1, 2), "bc"),
        {__LINE__, "toUpper", caseMapping},
        {__LINE__, "stream forms", streamForms},
        {__LINE__, "token list and string vector", tokenList},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
