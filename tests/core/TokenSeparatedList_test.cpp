// CTokenSeparatedList: joining, splitting and finding tokens, the difference between no
// token and one empty token, conversions to and from vectors.

#include "core/TokenSeparatedList.h"

#include "support/StringBlock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

using PAL::CString;
using PAL::CTokenSeparatedList;
using PAL::TVector;
using Tokens = std::vector<std::string>;

TVector<CString> strings(const Tokens& tokens)
{
    TVector<CString> out(0);
    for (const std::string& token : tokens)
        out.push_back(CString(token.c_str()));
    return out;
}

TVector<int> ints(std::initializer_list<int> values)
{
    TVector<int> out(0);
    for (int value : values)
        out.push_back(value);
    return out;
}

Tokens tokensOf(const CTokenSeparatedList& list)
{
    TVector<CString> vector = strings({"stale"});
    EXPECT_TRUE(list.ToVector(vector));
    Tokens out;
    for (int i = 0; i < vector.size(); ++i)
        out.push_back(osal_kit_test::bytes(*vector.get(i)));
    return out;
}

// Splitting, and Find of every token (the first of equal tokens wins) and of one absent.
void expectTokens(const Tokens& expected, const CTokenSeparatedList& list)
{
    EXPECT_EQ(expected, tokensOf(list));
    for (size_t i = 0; i < expected.size(); ++i) {
        const auto first = std::find(expected.begin(), expected.end(), expected[i]) - expected.begin();
        EXPECT_EQ(static_cast<int>(first), list.Find(CString(expected[i].c_str()))) << expected[i];
    }
    EXPECT_EQ(-1, list.Find(CString("absent")));
    EXPECT_EQ(expected.empty(), list.IsEmpty());
}

TEST(TokenSeparatedListTest, JoinsTokensAndTellsNoTokenFromOneEmptyToken)
{
    EXPECT_STREQ(",", CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT);
    CTokenSeparatedList list(CString(CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT), CString());
    expectTokens({}, list);
    EXPECT_EQ(-1, list.Find(CString()));
    EXPECT_TRUE(list.Add(CString()));
    expectTokens({""}, list);
    EXPECT_TRUE(list.Add(CString("red")) && list.Add(CString("green")) && list.Add(-2147483647 - 1));
    EXPECT_FALSE(list.Add(CString("a,b")) || list.Add(CString(",")));
    EXPECT_EQ(",red,green,-2147483648", osal_kit_test::bytes(list.Get()));
    expectTokens({"", "red", "green", "-2147483648"}, list);
    EXPECT_EQ(-1, list.Find(CString("gree")));

    CTokenSeparatedList dashed(CString("-"), CString()), spaced(CString(", "), CString());
    EXPECT_TRUE(dashed.Add(5) && !dashed.Add(-2));
    EXPECT_TRUE(spaced.Add(CString("a")) && spaced.Add(CString("b,c")) && !spaced.Add(CString("d, e")));
    EXPECT_EQ("5", osal_kit_test::bytes(dashed.Get()));
    EXPECT_EQ("a, b,c", osal_kit_test::bytes(spaced.Get()));
}

TEST(TokenSeparatedListTest, OnlyTheSharedEmptyStringMeansNoToken)
{
    CString emptied("ab");
    emptied.truncate(0u);
    const struct { int line; CString list; bool noToken; } rows[] = {
        {__LINE__, CString(), true},
        {__LINE__, CString::null, true},
        {__LINE__, CString(static_cast<const char*>(nullptr)), true},
        {__LINE__, CString(""), false},
        {__LINE__, emptied, false},
        {__LINE__, CString(0u), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        expectTokens(row.noToken ? Tokens{} : Tokens{""}, CTokenSeparatedList(CString(","), row.list));
        CTokenSeparatedList set(CString(","), CString("a,b"));
        set.Set(row.list);
        EXPECT_EQ(row.noToken, set.IsEmpty());
    }
}

TEST(TokenSeparatedListTest, SplitsAtEverySeparatorAndReadsIntegersOnlyFromAWellFormedList)
{
    const struct { int line; const char* separator; const char* text; Tokens tokens; bool numbers; } rows[] = {
        {__LINE__, ",", "a,b,", {"a", "b", ""}, false},
        {__LINE__, ",", "1,,2", {"1", "", "2"}, false},
        {__LINE__, ",", "1,2,", {"1", "2", ""}, false},
        {__LINE__, ",", ",", {"", ""}, false},
        {__LINE__, ",", ",a", {"", "a"}, false},
        {__LINE__, ",", "one", {"one"}, false},
        {__LINE__, ",", "1,-2,30", {"1", "-2", "30"}, true},
        {__LINE__, ",", " 7 ,+8", {" 7 ", "+8"}, true},
        {__LINE__, ",", "2147483648", {"2147483648"}, false},
        {__LINE__, ", ", "a, b,c, ", {"a", "b,c", ""}, false},
        {__LINE__, "::", "a:::b", {"a", ":b"}, false},
        {__LINE__, "::", "4::5", {"4", "5"}, true},
        {__LINE__, "→", "α→β→", {"α", "β", ""}, false},
        {__LINE__, "", "a,b", {"a,b"}, false},
        // EA C3 A9 is taken in as one character (followers need only the top bit), so the
        // separator's bytes inside it are no separator.
        {__LINE__, "é", "\xEA\xC3\xA9" "é" "x", {"\xEA\xC3\xA9", "x"}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const CTokenSeparatedList list(CString(row.separator), CString(row.text));
        expectTokens(row.tokens, list);
        TVector<int> values = ints({99, 98});
        EXPECT_EQ(row.numbers, list.ToVector(values));
        EXPECT_EQ(row.numbers ? static_cast<int>(row.tokens.size()) : 0, values.size());
        for (int i = 0; row.numbers && i < values.size(); ++i)
            EXPECT_EQ(std::stoi(row.tokens[static_cast<size_t>(i)]), *values.get(i));
    }
    TVector<int> none = ints({99});
    EXPECT_TRUE(CTokenSeparatedList(CString(","), CString()).ToVector(none));
    EXPECT_EQ(0, none.size());
    int value = 17;
    EXPECT_FALSE(CTokenSeparatedList::strToInt(CString("x"), value));
    EXPECT_EQ(17, value);
    CString text("old");
    EXPECT_TRUE(CTokenSeparatedList::intToStr(-5, text));
    EXPECT_EQ("-5", osal_kit_test::bytes(text));
}

TEST(TokenSeparatedListTest, FromVectorReplacesTheWholeListOrNothing)
{
    CTokenSeparatedList list(CString(";"), CString("old")), dashed(CString("-"), CString("kept"));
    EXPECT_TRUE(list.FromVector(ints({1, -2, 30})));
    EXPECT_EQ("1;-2;30", osal_kit_test::bytes(list.Get()));
    EXPECT_TRUE(list.FromVector(strings({"x", "", "z"})));
    expectTokens({"x", "", "z"}, list);
    EXPECT_FALSE(list.FromVector(strings({"fine", "bad;token"})));
    EXPECT_EQ("x;;z", osal_kit_test::bytes(list.Get()));
    EXPECT_TRUE(list.FromVector(TVector<CString>(0)));
    expectTokens({}, list);
    EXPECT_TRUE(list.FromVector(strings({""})));
    expectTokens({""}, list);
    EXPECT_FALSE(dashed.FromVector(ints({1, -2, 30})));
    expectTokens({"kept"}, dashed);
}

} // namespace
