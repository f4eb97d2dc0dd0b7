// CTokenSeparatedList: what a caller sees that the token list fuzz target's model does
// not: no token against one empty token, and refusals that leave the list as it was.

#include "core/TokenSeparatedList.h"

#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace {

using PAL::CString;
using PAL::CTokenSeparatedList;
using PAL::TVector;

template <class T>
TVector<T> vectorOf(std::initializer_list<T> items)
{
    TVector<T> out(0);
    for (const T& item : items)
        out.push_back(item);
    return out;
}

// Only the shared empty string means no token; an empty string with a block of its own
// is one empty token.
TEST(TokenSeparatedListTest, OnlyTheSharedEmptyStringMeansNoToken)
{
    CString emptied("ab");
    emptied.truncate(0u);
    const struct { int line; CString list; bool noToken; } rows[] = {
        {__LINE__, CString(), true},
        {__LINE__, CString(""), false},
        {__LINE__, emptied, false},
        {__LINE__, CString(0u), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CTokenSeparatedList list(CString(CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT), CString("a"));
        list.Set(row.list);
        TVector<CString> tokens = vectorOf({CString("stale")});
        EXPECT_TRUE(list.ToVector(tokens) && tokens.size() == (row.noToken ? 0 : 1) && list.IsEmpty() == row.noToken);
        EXPECT_EQ(row.noToken ? -1 : 0, list.Find(CString()));
        EXPECT_EQ(row.noToken ? -1 : 0, CTokenSeparatedList(CString(","), row.list).Find(CString()));
        EXPECT_TRUE(list.Add(CString("x")));
        EXPECT_EQ(row.noToken ? "x" : ",x", osal_kit_test::bytes(list.Get()));
    }
}

// The fuzz model sees refused tokens; a vector refused part-way must change nothing
// either. Numbers go out as decimal tokens and come back; one token that is not a number
// fails the whole vector and leaves it empty.
TEST(TokenSeparatedListTest, VectorsGoInWholeOrNotAtAll)
{
    CTokenSeparatedList list(CString(";"), CString("red;green")), dashed(CString("-"), CString("kept"));
    CTokenSeparatedList numbers(CString(","));
    EXPECT_FALSE(list.FromVector(vectorOf({CString("fine"), CString("bad;token")})));
    EXPECT_FALSE(dashed.FromVector(vectorOf({1, -2, 30})));
    EXPECT_EQ("red;green" "kept", osal_kit_test::bytes(list.Get()) + osal_kit_test::bytes(dashed.Get()));
    TVector<int> back = vectorOf({99});
    EXPECT_TRUE(numbers.FromVector(vectorOf({1, -2147483647 - 1, 30})) && numbers.ToVector(back));
    EXPECT_EQ("1,-2147483648,30", osal_kit_test::bytes(numbers.Get()));
    EXPECT_TRUE(back.size() == 3 && *back.get(1) == -2147483647 - 1 && *back.get(2) == 30);
    EXPECT_TRUE(numbers.Add(CString("x")) && !numbers.ToVector(back) && back.size() == 0);
    int value = 17;
    EXPECT_FALSE(CTokenSeparatedList::strToInt(CString("x"), value));
    EXPECT_EQ(17, value);
}

} // namespace
