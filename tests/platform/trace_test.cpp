#include "morvex_traceout.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <thread>
#include <unistd.h>

using osal_kit_test::TraceCapture;

namespace {

#define TRACE_VALUES(...) Morvex_TraceOut_trace(2, "TEST", 0, "t.cpp", "id", 1, __VA_ARGS__)

TEST(Trace, EachConversionIsFormattedOnItsOwn)
{
    using Values = std::vector<std::string>;
    struct Row {
        int line;
        std::function<void()> trace;
        Values values;
    } const rows[] = {
        // The library's own formats are checked through its records.
        {__LINE__, [] { TRACE_VALUES("%d%s%d", 1, static_cast<const char*>(nullptr), 2); }, {"1", "(null)", "2"}},
        {__LINE__, [] { TRACE_VALUES("%5.2f%-3c|%e", 3.14159, 'z', 1.0); }, {" 3.14", "z  ", "1.000000e+00"}},
        {__LINE__, [] { TRACE_VALUES("%*d%.*s%%", -4, 7, 2, "abc"); }, {"7   ", "ab"}},
        {__LINE__, [] { TRACE_VALUES("%lld%hhu%zu%jd%tx", LLONG_MIN, 257, size_t(9), intmax_t(-1), ptrdiff_t(31)); },
         {"-9223372036854775808", "1", "9", "-1", "1f"}},
        {__LINE__, [] { TRACE_VALUES("%#o%+i%Lg", 8u, 5, 2.5L); }, {"010", "+5", "2.5"}},
        {__LINE__, [] { TRACE_VALUES("%s", std::string(300, 'y').c_str()); }, {std::string(MORVEX_TRACE_VALUE_SIZE - 1, 'y')}},
        // What can't be interpreted ends the list, and no further argument is read.
        {__LINE__, [] { TRACE_VALUES("%d%n%d", 1, static_cast<int*>(nullptr), 2); }, {"1"}},
        {__LINE__, [] { TRACE_VALUES("%d%Ls%d", 1, "x", 2); }, {"1"}},
        {__LINE__, [] { TRACE_VALUES("%d%", 1); }, {"1"}},
        {__LINE__, [] { TRACE_VALUES(nullptr); }, {}},
    };
    for (const auto& row : rows) {
        TraceCapture capture;
        row.trace();
        const auto records = capture.records();
        ASSERT_EQ(records.size(), 1u) << "row at line " << row.line;
        EXPECT_EQ(records[0].values, row.values) << "row at line " << row.line;
    }
}

// Swapping sinks while another thread traces: once SetSink returns, the old sink is done.
TEST(Trace, ANewSinkReplacesTheOldOneForGood)
{
    TraceCapture first;
    std::atomic<bool> stop{false};
    std::thread tracer([&] {
        while (!stop.load())
            Morvex_TraceOut_trace(1, "C", 0, "p", "i", 1, "%d", 1);
    });
    while (first.records().empty())
        std::this_thread::yield();
    {
        TraceCapture second;
        const size_t seenByFirst = first.records().size();
        while (second.records().size() < 10)
            std::this_thread::yield();
        EXPECT_EQ(first.records().size(), seenByFirst);
        stop.store(true);
        tracer.join();
    }
}

TEST(Trace, TheDefaultSinkWritesOneLineToStderrAtOrAboveTheLevel)
{
    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_NONBLOCK), 0);
    const int savedStderr = dup(STDERR_FILENO);
    dup2(pipeEnds[1], STDERR_FILENO);
    Morvex_TraceOut_SetLevel(3);
    Morvex_TraceOut_trace(3, "OSAL_KIT", 0, "os/private/Mutex.cpp", "0123", 120, "%s%s", "MUTEX_ERROR_INV_HANDLE",
                          "myMutex");
    Morvex_TraceOut_trace(2, "OSAL_KIT", 0, "quiet.cpp", "0", 1, nullptr);
    Morvex_TraceOut_SetLevel(5);
    dup2(savedStderr, STDERR_FILENO);
    close(savedStderr);
    char buffer[512] = {};
    const ssize_t n = read(pipeEnds[0], buffer, sizeof buffer - 1);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
    EXPECT_EQ(std::string(buffer, n > 0 ? size_t(n) : 0u),
              "[level 3] OSAL_KIT os/private/Mutex.cpp:120 id=0123 MUTEX_ERROR_INV_HANDLE|myMutex\n");
}

} // namespace
