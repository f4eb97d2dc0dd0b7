#include "morvex_traceout.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>

#define TRACE(...) Morvex_TraceOut_trace(2, "TEST", 0, "t.cpp", "id", 1, __VA_ARGS__)

TEST(Trace, EachConversionIsFormattedOnItsOwn)
{
    const struct {
        int line;
        std::function<void()> trace;
        std::vector<std::string> values;
    } rows[] = {
        {__LINE__, [] { TRACE("%d%s%+i% d%05d", 1, (const char*)nullptr, 5, 3, 42); }, {"1", "(null)", "+5", " 3", "00042"}},
        {__LINE__, [] { TRACE("%9.2f%-3c|%e%Lg%G", 3.14159, 'z', 1.0, 2.5L, 1e-10); }, {"     3.14", "z  ", "1.000000e+00", "2.5", "1E-10"}},
        {__LINE__, [] { TRACE("%*d%.*s%.*s%%", -4, 7, 2, "abc", 0, "x"); }, {"7   ", "ab", ""}},
        {__LINE__, [] { TRACE("%lld%hhu%hd%zu%jd%tx", LLONG_MIN, 257, 65537, size_t(9), intmax_t(-1), ptrdiff_t(31)); }, {"-9223372036854775808", "1", "1", "9", "-1", "1f"}},
        {__LINE__, [] { TRACE("%#o%X%lu%p%ls%lc", 8u, 255u, 7ul, nullptr, L"wide", wint_t(L'c')); }, {"010", "FF", "7", "(nil)", "wide", "c"}},
        {__LINE__, [] { TRACE("%ld%zd%td%llu%ju%d%lc%d", -1L, ssize_t(-2), ptrdiff_t(-3), 4ull, uintmax_t(5), 6, wint_t(0x20AC), 7); },
         {"-1", "-2", "-3", "4", "5", "6", "", "7"}}, // the euro sign has no form in the C locale
        // Each value is cut to its size, and the text of all of them to the text's.
        {__LINE__, [y = std::string(300, 'y')] { TRACE("%s%s%s%s%s", y.c_str(), y.c_str(), y.c_str(), y.c_str(), y.c_str()); },
         std::vector<std::string>(5, std::string(MORVEX_TRACE_VALUE_SIZE - 1, 'y'))},
        // What can't be interpreted ends the list, and no further argument is read.
        {__LINE__, [] { TRACE("%d%n%d", 1, (int*)nullptr, 2); }, {"1"}},
        {__LINE__, [] { TRACE("%d%Ls%d", 1, "x", 2); }, {"1"}},
        {__LINE__, [] { TRACE("%d%", 1); }, {"1"}},
        {__LINE__, [] { TRACE(nullptr); }, {}},
    };
    for (const auto& row : rows) {
        osal_kit_test::TraceCapture capture;
        row.trace();
        ASSERT_EQ(capture.records().size(), 1u) << "row at line " << row.line;
        EXPECT_EQ(capture.records()[0].values, row.values) << "row at line " << row.line;
    }
}

TEST(Trace, TheDefaultSinkWritesOneLineToStderrAtOrAboveTheLevel)
{
    testing::internal::CaptureStderr();
    Morvex_TraceOut_SetLevel(3);
    Morvex_TraceOut_trace(3, "OSAL_KIT", 0, "os/private/Mutex.cpp", "0123", 120, "%s%s", "MUTEX_ERROR_INV_HANDLE", "m");
    Morvex_TraceOut_trace(2, "OSAL_KIT", 0, "quiet.cpp", "0", 1, nullptr);
    Morvex_TraceOut_SetLevel(5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[level 3] OSAL_KIT os/private/Mutex.cpp:120 id=0123 MUTEX_ERROR_INV_HANDLE|m\n");
}
