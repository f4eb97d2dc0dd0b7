// CTokenSeparatedList: joining, splitting and finding tokens, the difference between no
// token and one empty token, conversions to and from vectors.

#include "core/TokenSeparatedList.h"

#include "support/AllocationBalance.h"
#include "support/StringBlock.h"

#include "morvex_pal_fault.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using PAL::CString;
using PAL::CTokenSeparatedList;
using PAL::TVector;
using osal_kit_test::FaultGuard;
using osal_kit_test::bytes;

typedef std::vector<std::string> Tokens;

Tokens tokensOf(const CTokenSeparatedList& list)
{
    TVector<CString> vector(0);
    EXPECT_TRUE(list.ToVector(vector));
    Tokens out;
    for (int i = 0; i < vector.size(); ++i) {
        out.push_back(bytes(*vector.get(i)));
    }
    return out;
}

TVector<CString> stringVector(const Tokens& tokens)
{
    TVector<CString> vector(0);
    for (const std::string& token : tokens) {
        vector.push_back(CString(token.c_str()));
    }
    return vector;
}

TVector<int> intVector(const std::vector<int>& values)
{
    TVector<int> vector(0);
    for (int value : values) {
        vector.push_back(value);
    }
    return vector;
}

std::vector<int> valuesOf(const TVector<int>& vector)
{
    std::vector<int> out;
    for (int i = 0; i < vector.size(); ++i) {
        out.push_back(*vector.get(i));
    }
    return out;
}

class TokenSeparatedListTest : public ::testing::Test {
protected:
    CTokenSeparatedList mList{CString(CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT), CString()};
};

TEST_F(TokenSeparatedListTest, JoinsTokensAndFindsThem)
{
    EXPECT_STREQ(",", CTokenSeparatedList::SEPARATOR_TOKEN_DEFAULT);
    EXPECT_TRUE(mList.Add(CString("red")));
    EXPECT_TRUE(mList.Add(CString("green")));
    EXPECT_TRUE(mList.Add(CString("blue")));
    EXPECT_EQ("red,green,blue", bytes(mList.Get()));
    EXPECT_FALSE(mList.IsEmpty());
    EXPECT_EQ(0, mList.Find(CString("red")));
    EXPECT_EQ(1, mList.Find(CString("green")));
    EXPECT_EQ(2, mList.Find(CString("blue")));
    EXPECT_EQ(-1, mList.Find(CString("black")));
    EXPECT_EQ(-1, mList.Find(CString("gree")));
    EXPECT_EQ(-1, mList.Find(CString()));
    EXPECT_EQ((Tokens{"red", "green", "blue"}), tokensOf(mList));
}

TEST_F(TokenSeparatedListTest, TellsNoTokenFromOneEmptyToken)
{
    EXPECT_TRUE(mList.IsEmpty());
    EXPECT_EQ(-1, mList.Find(CString()));
    EXPECT_EQ(Tokens{}, tokensOf(mList));

    EXPECT_TRUE(mList.Add(CString()));
    EXPECT_FALSE(mList.IsEmpty());
    EXPECT_EQ("", bytes(mList.Get()));
    EXPECT_EQ(0, mList.Find(CString()));
    EXPECT_EQ(Tokens{""}, tokensOf(mList));

    EXPECT_TRUE(mList.Add(CString("x")));
    EXPECT_EQ(",x", bytes(mList.Get()));
    EXPECT_EQ((Tokens{"", "x"}), tokensOf(mList));
}

TEST_F(TokenSeparatedListTest, OnlyTheSharedEmptyStringMeansNoToken)
{
    CString emptied("ab");
    emptied.truncate(0u);

    struct Row {
        int line;
        CString list;
        bool noToken;
    };
    const Row rows[] = {
        {__LINE__, CString(), true},
        {__LINE__, CString::null, true},
        {__LINE__, CString(static_cast<const char*>(nullptr)), true},
        {__LINE__, CString(""), false},
        {__LINE__, emptied, false},
        {__LINE__, CString(0u), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const CTokenSeparatedList constructed(CString(","), row.list);
        EXPECT_EQ(row.noToken, constructed.IsEmpty());
        EXPECT_EQ(row.noToken ? Tokens{} : Tokens{""}, tokensOf(constructed));
        EXPECT_EQ(row.noToken ? -1 : 0, constructed.Find(CString()));

        CTokenSeparatedList set(CString(","), CString("a,b"));
        set.Set(row.list);
        EXPECT_EQ(row.noToken, set.IsEmpty());
    }
}

TEST(TokenSeparatedListSplitTest, SplitsAtEverySeparator)
{
    struct Row {
        int line;
        const char* separator;
        const char* text;
        Tokens tokens;
    };
    const Row rows[] = {
        {__LINE__, ",", "a,b,", {"a", "b", ""}},
        {__LINE__, ",", "1,,2", {"1", "", "2"}},
        {__LINE__, ",", ",", {"", ""}},
        {__LINE__, ",", ",a", {"", "a"}},
        {__LINE__, ",", "one", {"one"}},
        {__LINE__, ", ", "a, b,c, ", {"a", "b,c", ""}},
        {__LINE__, "::", "a:::b", {"a", ":b"}},
        {__LINE__, "→", "α→β→", {"α", "β", ""}},
        {__LINE__, "", "a,b", {"a,b"}},
        // EA C3 A9 is taken in as one character (followers need only the top bit), so
        // the separator's bytes inside it are no separator.
        {__LINE__, "é", "\xEA\xC3\xA9" "é" "x", {"\xEA\xC3\xA9", "x"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const CTokenSeparatedList list(CString(row.separator), CString(row.text));
        EXPECT_EQ(row.tokens, tokensOf(list));
        for (size_t i = 0; i < row.tokens.size(); ++i) {
            // The first of equal tokens wins.
            size_t first = 0;
            while (row.tokens[first] != row.tokens[i]) {
                ++first;
            }
            EXPECT_EQ(static_cast<int>(first), list.Find(CString(row.tokens[i].c_str()))) << row.tokens[i];
        }
        EXPECT_EQ(-1, list.Find(CString("absent")));
    }
}

TEST_F(TokenSeparatedListTest, RefusesTokensContainingTheSeparator)
{
    ASSERT_TRUE(mList.Add(CString("kept")));
    EXPECT_FALSE(mList.Add(CString("a,b")));
    EXPECT_FALSE(mList.Add(CString(",")));
    EXPECT_EQ("kept", bytes(mList.Get()));

    CTokenSeparatedList dashed(CString("-"), CString());
    EXPECT_TRUE(dashed.Add(5));
    EXPECT_FALSE(dashed.Add(-2));
    EXPECT_EQ("5", bytes(dashed.Get()));

    // A separator of several characters joins as one unit.
    CTokenSeparatedList spaced(CString(", "), CString());
    EXPECT_TRUE(spaced.Add(CString("a")));
    EXPECT_TRUE(spaced.Add(CString("b,c")));
    EXPECT_FALSE(spaced.Add(CString("d, e")));
    EXPECT_EQ("a, b,c", bytes(spaced.Get()));
}

TEST_F(TokenSeparatedListTest, ReadsIntegersOnlyFromAWellFormedList)
{
    struct Row {
        int line;
        const char* text;
        bool ok;
        std::vector<int> values;
    };
    const Row rows[] = {
        {__LINE__, "1,-2,30", true, {1, -2, 30}},
        {__LINE__, " 7 ,+8", true, {7, 8}},
        {__LINE__, "-2147483648,2147483647", true, {-2147483647 - 1, 2147483647}},
        {__LINE__, "a,b,", false, {}},
        {__LINE__, "1,2,", false, {}},
        {__LINE__, "1,,2", false, {}},
        {__LINE__, "1,x", false, {}},
        {__LINE__, "2147483648", false, {}},
        {__LINE__, "", false, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        mList.Set(CString(row.text));
        TVector<int> values = intVector({99, 98});
        EXPECT_EQ(row.ok, mList.ToVector(values));
        EXPECT_EQ(row.values, valuesOf(values));
    }

    mList.Set(CString());
    TVector<int> none = intVector({99});
    EXPECT_TRUE(mList.ToVector(none));
    EXPECT_EQ(0, none.size());
}

TEST_F(TokenSeparatedListTest, AddsIntegersAsDecimalText)
{
    EXPECT_TRUE(mList.Add(0));
    EXPECT_TRUE(mList.Add(-2147483647 - 1));
    EXPECT_EQ("0,-2147483648", bytes(mList.Get()));

    int value = 17;
    EXPECT_FALSE(CTokenSeparatedList::strToInt(CString("x"), value));
    EXPECT_EQ(17, value);
    CString text("old");
    EXPECT_TRUE(CTokenSeparatedList::intToStr(-5, text));
    EXPECT_EQ("-5", bytes(text));
}

TEST(TokenSeparatedListVectorTest, FromVectorReplacesTheWholeListOrNothing)
{
    CTokenSeparatedList list(CString(";"), CString("old"));
    EXPECT_TRUE(list.FromVector(intVector({1, -2, 30})));
    EXPECT_EQ("1;-2;30", bytes(list.Get()));

    EXPECT_TRUE(list.FromVector(stringVector({"x", "", "z"})));
    EXPECT_EQ("x;;z", bytes(list.Get()));
    EXPECT_EQ((Tokens{"x", "", "z"}), tokensOf(list));

    EXPECT_FALSE(list.FromVector(stringVector({"fine", "bad;token"})));
    EXPECT_EQ("x;;z", bytes(list.Get()));

    EXPECT_TRUE(list.FromVector(TVector<CString>(0)));
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(-1, list.Find(CString()));

    EXPECT_TRUE(list.FromVector(stringVector({""})));
    EXPECT_FALSE(list.IsEmpty());
    EXPECT_EQ(Tokens{""}, tokensOf(list));

    CTokenSeparatedList dashed(CString("-"), CString("kept"));
    EXPECT_FALSE(dashed.FromVector(intVector({1, -2, 30})));
    EXPECT_EQ("kept", bytes(dashed.Get()));
    EXPECT_FALSE(dashed.IsEmpty());
}

} // namespace
