#ifndef OSAL_KIT_OS_PRIVATE_PAL_TRACE_H
#define OSAL_KIT_OS_PRIVATE_PAL_TRACE_H

// The one way the library writes trace records. A record carries values but no
// message text: the trace point is identified by the file's trace id and the line.
// A file that traces defines `static const char* const sTraceId` with its own 32
// hexadecimal digits before using these.

#include "morvex_traceout.h"

namespace PAL {
namespace Trace {

/// The component of every trace record of the library.
static const char* const COMPONENT = "OSAL_KIT";

enum eLevel {
    LEVEL_INFO = 0,
    LEVEL_WARNING = 2,
    LEVEL_ERROR = 3,
    LEVEL_FAILURE = 4
};

} // namespace Trace
} // namespace PAL

/// A trace point with values: `format` holds one conversion per value and nothing else.
#define OSAL_KIT_TRACE(level, format, ...) \
    Morvex_TraceOut_trace((level), ::PAL::Trace::COMPONENT, 0, __FILE__, sTraceId, __LINE__, (format), __VA_ARGS__)

/// A trace point without values: the format is a null pointer, not an empty text.
#define OSAL_KIT_TRACE0(level) \
    Morvex_TraceOut_trace((level), ::PAL::Trace::COMPONENT, 0, __FILE__, sTraceId, __LINE__, static_cast<const char*>(0))

#endif
