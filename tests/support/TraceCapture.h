// Collects the trace records of the platform layer while it lives, so a test can
// check what was traced (records may arrive from any thread), and checks them against
// what a test expects of each.
#ifndef OSAL_KIT_TEST_TRACE_CAPTURE_H
#define OSAL_KIT_TEST_TRACE_CAPTURE_H

#include "morvex_traceout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace osal_kit_test {

// A copy of one trace record; NULL strings of the record arrive as empty strings.
struct CapturedTrace {
    int level;
    std::string component;
    int reserved;
    std::string sourcePath;
    std::string traceId;
    int line;
    bool hasFormat;
    std::string format;
    std::vector<std::string> values;
};

// Installs itself as the trace sink; the destructor puts the default sink back, after
// which it receives nothing more. Only one capture should be alive at a time. Records
// are kept in storage reserved up front (as the library's texts are literals, their
// pointers are kept), so a capture may listen while allocations are made to fail.
class TraceCapture {
public:
    explicit TraceCapture(std::size_t capacity = 1024) : slots_(new sMorvex_TraceRecord[capacity]), capacity_(capacity)
    {
        Morvex_TraceOut_SetSink(&TraceCapture::sink, this);
    }
    ~TraceCapture() { Morvex_TraceOut_SetSink(nullptr, nullptr); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<CapturedTrace> records() const
    {
        auto text = [](const char* t) { return t ? std::string(t) : std::string(); };
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<CapturedTrace> out;
        for (const sMorvex_TraceRecord* r = slots_.get(); r != slots_.get() + std::min(count_, capacity_); ++r)
            out.push_back({r->level, text(r->component), r->reserved, text(r->sourcePath), text(r->traceId), r->line,
                           r->format != nullptr, text(r->format),
                           std::vector<std::string>(r->values, r->values + r->valueCount)});
        return out;
    }

private:
    static void sink(const sMorvex_TraceRecord* record, void* context)
    {
        auto* self = static_cast<TraceCapture*>(context);
        std::lock_guard<std::mutex> lock(self->mutex_);
        if (self->count_ < self->capacity_)
            self->slots_[self->count_] = *record;
        ++self->count_;
    }

    mutable std::mutex mutex_;
    std::unique_ptr<sMorvex_TraceRecord[]> slots_;
    const std::size_t capacity_;
    std::size_t count_ = 0;
};

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
