#include "support/TraceCapture.h"

#include "morvex_traceout.h"

namespace osal_kit_test {

namespace {
std::string orEmpty(const char* text)
{
    return text ? std::string(text) : std::string();
}
} // namespace

TraceCapture::TraceCapture()
{
    Morvex_TraceOut_SetSink(&TraceCapture::sink, this);
}

TraceCapture::~TraceCapture()
{
    Morvex_TraceOut_SetSink(nullptr, nullptr);
}

std::vector<CapturedTrace> TraceCapture::records() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

void TraceCapture::clear()
{
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

void TraceCapture::sink(const sMorvex_TraceRecord* record, void* context)
{
    CapturedTrace copy{record->level, orEmpty(record->component), record->reserved, orEmpty(record->sourcePath),
                       orEmpty(record->traceId), record->line, record->format != nullptr, orEmpty(record->format),
                       std::vector<std::string>(record->values, record->values + record->valueCount)};
    auto* self = static_cast<TraceCapture*>(context);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->records_.push_back(std::move(copy));
}

} // namespace osal_kit_test
