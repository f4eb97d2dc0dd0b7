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
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<CapturedTrace> records() const;
    void clear();

private:
    static void sink(const sMorvex_TraceRecord* record, void* context);

    mutable std::mutex mutex_;
    std::vector<CapturedTrace> records_;
};

} // namespace osal_kit_test

#endif
