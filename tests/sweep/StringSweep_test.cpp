// Strings, their conversions, stream forms and token lists with each allocation of an
// operation failing in turn: an operation that cannot get its memory leaves its target
// as it was (or, where it builds a new value, gives the empty one), and nothing leaks.

#include "core/MemoryStream.h"
#include "core/String.h"
#include "core/StringStream.h"
#include "core/StringUtilities.h"
#include "core/TokenSeparatedList.h"

#include "support/AllocationSweep.h"
#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using osal_kit_test::AllocationScenario;
using osal_kit_test::bytes;
using osal_kit_test::expectConsistent;
using osal_kit_test::failAllocationAfter;
using PAL::CString;
using PAL::TVector;
using Iterator = PAL::CString::const_iterator;

bool failureInjectedSince(unsigned long long before)
{
    return Morvex_Fault_Injected(MORVEX_FAULT_zmalloc) != before;
}

void expectText(const std::string& expected, const CString& s)
{
    EXPECT_EQ(expected, bytes(s));
    expectConsistent(s);
}

// Runs `edit` on a shared " ab %1 cd " (so it needs a block of its own). A failed edit
// leaves the string, its block and the caller's iterator as they were; one that ran
// clean gives what the edit gives with memory to spare.
typedef void (*Edit)(CString& s, Iterator& p);
AllocationScenario edit(int line, const char* name, Edit change, bool sameBlockOnFailure = true)
{
    return {line, name, [change, sameBlockOnFailure](unsigned int skip) {
                CString spare(" ab %1 cd ");
                Iterator sparePosition = spare.begin() + 2;
                change(spare, sparePosition);
                const std::string expected = bytes(spare);

                CString s(" ab %1 cd ");
                const CString holder = s;
                Iterator position = s.begin() + 2;
                const Iterator before = position;
                const unsigned long long injected = Morvex_Fault_Injected(MORVEX_FAULT_zmalloc);
                failAllocationAfter(skip);
                change(s, position);
                Morvex_Fault_DisarmAll();
                if (!sameBlockOnFailure) {
                    // An operation that may find another way to its memory: done, or not at all.
                    EXPECT_TRUE(bytes(s) == expected || bytes(s) == " ab %1 cd ") << bytes(s);
                    expectConsistent(s);
                } else if (failureInjectedSince(injected)) {
                    expectText(" ab %1 cd ", s);
                    EXPECT_EQ(holder.getBuffer(), s.getBuffer());
                    EXPECT_EQ(before, position);
                } else {
                    expectText(expected, s);
                }
            }};
}

#define EDIT(line, body) edit(line, #body, [](CString& s, Iterator& p) { (void)p; body; })

// A value built by `make` is either complete or empty.
typedef CString (*Make)();
AllocationScenario made(int line, const char* name, Make make, const char* expected)
{
    return {line, name, [make, expected](unsigned int skip) {
                failAllocationAfter(skip);
                const CString value = make();
                Morvex_Fault_DisarmAll();
                expectConsistent(value);
                EXPECT_TRUE(bytes(value).empty() || bytes(value) == expected) << bytes(value);
            }};
}

#define MADE(line, body, expected) made(line, #body, []() -> CString { return body; }, expected)

const unsigned short UCS2[] = {0x47, 0x72, 0xFC, 0xDF, 0x65};
const unsigned int UCS4[] = {0x47, 0x72, 0xFC, 0xDF, 0x65, 0x1F600, 0};

TEST(StringSweep, EditsAndBuildersAreAllOrNothing)
{
    static const CString x("x");
    static const CString space(" ");
    static const CString dots("..");
    const AllocationScenario scenarios[] = {
        EDIT(__LINE__, s.append(x)),
        EDIT(__LINE__, s.append(s)),
        EDIT(__LINE__, s.append("y")),
        EDIT(__LINE__, s.append("yz", 2)),
        EDIT(__LINE__, s.insert(p, x)),
        EDIT(__LINE__, s.remove(p, 2)),
        EDIT(__LINE__, s.replace(p, 2, s)),
        EDIT(__LINE__, s.replaceAll(space, x)),
        EDIT(__LINE__, s.replaceArg(x)),
        EDIT(__LINE__, s.truncate(4u)),
        EDIT(__LINE__, s.truncate(p)),
        EDIT(__LINE__, s.trim()),
        EDIT(__LINE__, (void)s.format("%s-%d", "new", 7)),
        EDIT(__LINE__, s.reserve(64)),
        EDIT(__LINE__, s.fromUCS2Sequence(UCS2, 5)),
        EDIT(__LINE__, s.fromUCS4Sequence(UCS4, 6)),
        edit(__LINE__, "truncateInByteUnits", [](CString& s, Iterator&) {
            (void)PAL::StringUtilities::truncateInByteUnits(s, 6, dots);
        }, false),
        MADE(__LINE__, CString("abc").getLeft(2u), "ab"),
        MADE(__LINE__, CString("abc").getRight(2u), "bc"),
        MADE(__LINE__, CString("abc").getMid(CString("abc").begin() + 1, 2), "bc"),
        MADE(__LINE__, CString(UCS4), "Gr\xC3\xBC\xC3\x9F" "e\xF0\x9F\x98\x80"),
    };
    osal_kit_test::sweepAllocations(scenarios);
}

// Case mapping can run out of memory part-way: what was mapped is mapped right, the
// rest is untouched, the string stays valid and its other holders see nothing.
TEST(StringSweep, CaseMappingCutShortKeepsAValidPartlyMappedString)
{
    const CString original("stra\xC3\x9F" "e \xEF\xAC\x83");
    osal_kit_test::sweepAllocations(std::vector<AllocationScenario>{{__LINE__, "toUpper", [&](unsigned int skip) {
        CString partial = original;
        failAllocationAfter(skip);
        PAL::StringUtilities::toUpper(partial);
        Morvex_Fault_DisarmAll();
        expectConsistent(partial);
        CString settled = partial;
        PAL::StringUtilities::toUpper(settled);
        EXPECT_EQ("STRASSE FFI", bytes(settled));
        EXPECT_EQ("stra\xC3\x9F" "e \xEF\xAC\x83", bytes(original));
    }}});
}

// Both stream forms: a record that cannot be read into memory leaves the target
// alone; one that cannot be written leaves the stream failed.
TEST(StringSweep, StreamFormsLeaveTheTargetAlone)
{
    const std::vector<AllocationScenario> scenarios{
        {__LINE__, "plain form", [](unsigned int skip) {
             PAL::CMemoryOStream out;
             out << CString("n\xC3\xA4me");
             CString target("old");
             const PAL::CMemoryIStream in(out.getBuffer());
             failAllocationAfter(skip);
             in >> target;
             Morvex_Fault_DisarmAll();
             EXPECT_TRUE(bytes(target) == "old" || bytes(target) == "n\xC3\xA4me") << bytes(target);
         }},
        {__LINE__, "Ipc form", [](unsigned int skip) {
             const CString payload("payload");
             PAL::CMemoryOStream out;
             failAllocationAfter(skip);
             CString::toIpcStream(out, payload);
             Morvex_Fault_DisarmAll();
             // A write that found no room marks the stream failed; a good one reads back.
             CString target("old");
             const PAL::CMemoryIStream in(out.getBuffer());
             CString::fromIpcStream(in, target);
             if (out.isGood()) {
                 EXPECT_EQ("payload", bytes(target));
             }
             const PAL::CMemoryIStream again(out.getBuffer());
             CString second("old");
             failAllocationAfter(skip);
             CString::fromIpcStream(again, second);
             Morvex_Fault_DisarmAll();
             EXPECT_TRUE(bytes(second) == "old" || bytes(second) == bytes(target)) << bytes(second);
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

std::vector<std::string> tokensOf(const PAL::CTokenSeparatedList& list)
{
    TVector<CString> tokens(0);
    std::vector<std::string> out;
    if (list.ToVector(tokens)) {
        for (int i = 0; i < tokens.size(); ++i)
            out.push_back(bytes(*tokens.get(i)));
    }
    return out;
}

// A token list built, searched and split: every refused step changes nothing, so the
// list holds exactly the tokens whose Add succeeded.
TEST(StringSweep, TokenListHoldsExactlyTheAcceptedTokens)
{
    const std::vector<AllocationScenario> scenarios{
        {__LINE__, "Add, Find, ToVector", [](unsigned int skip) {
             PAL::CTokenSeparatedList list(CString(","), CString());
             const CString tokens[] = {CString("alpha"), CString("b\xC3\xA9ta"), CString("gamma")};
             bool added[4] = {};
             int found = -2;
             bool split = false;
             TVector<CString> parts(0);
             parts.push_back(CString("stale"));
             failAllocationAfter(skip);
             for (int i = 0; i < 3; ++i)
                 added[i] = list.Add(tokens[i]);
             added[3] = list.Add(42);
             found = list.Find(tokens[2]);
             split = list.ToVector(parts);
             Morvex_Fault_DisarmAll();

             std::vector<std::string> expected;
             const char* const texts[] = {"alpha", "b\xC3\xA9ta", "gamma", "42"};
             for (int i = 0; i < 4; ++i) {
                 if (added[i])
                     expected.push_back(texts[i]);
             }
             EXPECT_EQ(expected, tokensOf(list));
             EXPECT_TRUE(found == -1 || (added[2] && found == (added[0] ? 1 : 0) + (added[1] ? 1 : 0))) << found;
             if (split) {
                 ASSERT_EQ(static_cast<int>(expected.size()), parts.size());
             } else {
                 EXPECT_EQ(0, parts.size()) << "a failed split leaves no tokens behind";
             }
         }},
        {__LINE__, "FromVector", [](unsigned int skip) {
             PAL::CTokenSeparatedList list(CString(";"), CString("kept"));
             TVector<CString> tokens(0);
             tokens.push_back(CString("one"));
             tokens.push_back(CString("two"));
             failAllocationAfter(skip);
             const bool built = list.FromVector(tokens);
             Morvex_Fault_DisarmAll();
             const std::vector<std::string> expected = built ? std::vector<std::string>{"one", "two"}
                                                             : std::vector<std::string>{"kept"};
             EXPECT_EQ(expected, tokensOf(list));
         }},
        {__LINE__, "toStringVector", [](unsigned int skip) {
             TVector<const char*> texts(0);
             texts.push_back("first");
             texts.push_back(nullptr);
             texts.push_back("third");
             failAllocationAfter(skip);
             const TVector<CString> strings = PAL::StringUtilities::toStringVector(texts);
             Morvex_Fault_DisarmAll();
             const char* const expected[] = {"first", "", "third"};
             ASSERT_LE(strings.size(), 3);
             for (int i = 0; i < strings.size(); ++i) {
                 expectConsistent(*strings.get(i));
                 EXPECT_TRUE(strings.get(i)->isEmpty() || bytes(*strings.get(i)) == expected[i]) << i;
             }
         }},
    };
    osal_kit_test::sweepAllocations(scenarios);
}

} // namespace
