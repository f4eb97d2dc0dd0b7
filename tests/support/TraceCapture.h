// Collects the trace records of the platform layer while it lives, so a test can
// check what was traced. Records may arrive from any thread.
#ifndef OSAL_KIT_TEST_TRACE_CAPTURE_H
#define OSAL_KIT_TEST_TRACE_CAPTURE_H

#include "morvex_traceout.h"

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
// which it receives nothing more. Only one capture should be alive at a time.
class TraceCapture {
public:
    TraceCapture() { Morvex_TraceOut_SetSink(&TraceCapture::sink, this); }
    ~TraceCapture() { Morvex_TraceOut_SetSink(nullptr, nullptr); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<CapturedTrace> records() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return records_;
    }
    void clear()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        records_.clear();
    }

private:
    static void sink(const sMorvex_TraceRecord* r, void* context)
    {
        auto text = [](const char* t) { return t ? std::string(t) : std::string(); };
        CapturedTrace copy{r->level, text(r->component), r->reserved, text(r->sourcePath), text(r->traceId), r->line,
                           r->format != nullptr, text(r->format),
                           std::vector<std::string>(r->values, r->values + r->valueCount)};
        auto* self = static_cast<TraceCapture*>(context);
        std::lock_guard<std::mutex> lock(self->mutex_);
        self->records_.push_back(std::move(copy));
    }

    mutable std::mutex mutex_;
    std::vector<CapturedTrace> records_;
};

} // namespace osal_kit_test

#endif
