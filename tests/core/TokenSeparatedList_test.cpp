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
        {__LINE__, CString::null, true},
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

TEST(TokenSeparatedListTest, RefusedTokensAndVectorsLeaveTheListAsItWas)
{
    CTokenSeparatedList list(CString(";"), CString()), dashed(CString("-"), CString("kept"));
    EXPECT_TRUE(list.Add(CString("red")) && list.Add(CString("green")) && list.Add(-2147483647 - 1));
    EXPECT_FALSE(list.Add(CString("a;b")) || dashed.Add(-2));
    EXPECT_FALSE(list.FromVector(vectorOf({CString("fine"), CString("bad;token")})));
    EXPECT_FALSE(dashed.FromVector(vectorOf({1, -2, 30})));
    EXPECT_EQ("red;green;-2147483648" "kept", osal_kit_test::bytes(list.Get()) + osal_kit_test::bytes(dashed.Get()));
    EXPECT_TRUE(list.Find(CString("green")) == 1 && list.FromVector(vectorOf({1, -2, 30})));
    EXPECT_EQ("1;-2;30", osal_kit_test::bytes(list.Get()));
    TVector<int> values = vectorOf({99});
    list.Set(CString("1;;2"));
    EXPECT_TRUE(!list.ToVector(values) && values.size() == 0);
    EXPECT_TRUE(list.FromVector(TVector<CString>(0)) && list.IsEmpty());
    int value = 17;
    EXPECT_FALSE(CTokenSeparatedList::strToInt(CString("x"), value));
    EXPECT_EQ(17, value);
}

} // namespace
