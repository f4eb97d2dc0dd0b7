#include "morvex_pal_scan.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>

namespace {

TEST(Scan, ConversionsFollowTheStandard)
{
    struct Row {
        int line;
        const char* text;
        const char* format;
        int converted;
        unsigned int value;
    } const rows[] = {
        {__LINE__, "42", "%u", 1, 42u},
        {__LINE__, "+7", "%u", 1, 7u},
        {__LINE__, "-1", "%u", 1, UINT_MAX}, // a sign is accepted and the value negated
        {__LINE__, "ff", "%x", 1, 0xffu},
        {__LINE__, "0x1F", "%i", 1, 0x1fu},
        {__LINE__, "id=12;", "id=%u;", 1, 12u},
        {__LINE__, "abc", "%u", 0, 0u},
        {__LINE__, "", "%u", EOF, 0u},
        {__LINE__, "   ", "%u", EOF, 0u},
        {__LINE__, nullptr, "%u", EOF, 0u},
    };
    for (const auto& row : rows) {
        unsigned int value = 0;
        EXPECT_EQ(Morvex_PAL_sscanf(row.text, row.format, &value), row.converted) << "row at line " << row.line;
        EXPECT_EQ(value, row.value) << "row at line " << row.line;
    }
}

} // namespace
