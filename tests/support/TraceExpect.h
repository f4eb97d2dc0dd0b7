// Checking captured trace records against what a test expects of each.
#ifndef OSAL_KIT_TEST_TRACE_EXPECT_H
#define OSAL_KIT_TEST_TRACE_EXPECT_H

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace osal_kit_test {

// What a test expects of one record; nullptr format: a trace point without values.
struct ExpectedTrace {
    int level;
    const char* format;
    std::vector<std::string> values;
};

// The records written from one source file, in order.
inline std::vector<CapturedTrace> recordsFrom(const TraceCapture& capture, const std::string& sourcePath)
{
    std::vector<CapturedTrace> records = capture.records();
    records.erase(std::remove_if(records.begin(), records.end(),
                                 [&](const CapturedTrace& r) { return r.sourcePath != sourcePath; }),
                  records.end());
    return records;
}

// Checks level, format and values of each record, and the convention every record of
// the library keeps: component "OSAL_KIT", 0 as the third value, and one trace id of 32
// hexadecimal digits for all records of one file.
inline void expectTraces(const std::vector<ExpectedTrace>& expected, const std::vector<CapturedTrace>& records)
{
    ASSERT_EQ(expected.size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE("record " + std::to_string(i));
        const CapturedTrace& record = records[i];
        EXPECT_EQ(expected[i].level, record.level);
        EXPECT_EQ("OSAL_KIT", record.component);
        EXPECT_EQ(0, record.reserved);
        EXPECT_EQ(32u, record.traceId.size());
        EXPECT_EQ(std::string::npos, record.traceId.find_first_not_of("0123456789ABCDEF"));
        EXPECT_EQ(records[0].traceId, record.traceId);
        EXPECT_EQ(records[0].sourcePath, record.sourcePath);
        EXPECT_GT(record.line, 0);
        EXPECT_EQ(expected[i].format != nullptr, record.hasFormat);
        EXPECT_EQ(expected[i].format ? expected[i].format : "", record.format);
        EXPECT_EQ(expected[i].values, record.values);
    }
}

} // namespace osal_kit_test

#endif
