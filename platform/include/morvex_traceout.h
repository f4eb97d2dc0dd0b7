/* Trace output of the PAL core.
 *
 * Each call of Morvex_TraceOut_trace makes one record and hands it to the sink. The
 * default sink writes one readable line per record to standard error when the record's
 * level is at or above the chosen minimum (5 by default: quiet, no level reaches it).
 * A process may install its own sink; sinks are called one at a time, and once
 * Morvex_TraceOut_SetSink returns, the previous sink is never called again. */
#ifndef MORVEX_TRACEOUT_H
#define MORVEX_TRACEOUT_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

#define MORVEX_TRACE_MAX_VALUES 16
#define MORVEX_TRACE_VALUE_SIZE 256
#define MORVEX_TRACE_TEXT_SIZE 1024

/* One trace record. `format` is NULL for a trace point without values. `values` holds
 * each conversion of `format` formatted on its own (cut to fit); `text` all of them in
 * order. A conversion the record cannot interpret ends the value list. */
typedef struct sMorvex_TraceRecord {
    int level;
    const char* component;
    int reserved;
    const char* sourcePath;
    const char* traceId;
    int line;
    const char* format;
    unsigned int valueCount;
    char values[MORVEX_TRACE_MAX_VALUES][MORVEX_TRACE_VALUE_SIZE];
    char text[MORVEX_TRACE_TEXT_SIZE];
} sMorvex_TraceRecord;

typedef void (*tMorvex_TraceSink)(const sMorvex_TraceRecord* record, void* context);

/* Writes one trace record: `format` is made only of printf conversions, one per value
 * that follows, or NULL when no value follows. May be called from any thread. */
MORVEX_API void Morvex_TraceOut_trace(int level, const char* component, int reserved, const char* sourcePath,
                                      const char* traceId, int line, const char* format, ...);

/* Installs `sink` with `context` (NULL sink: the default stderr sink again). */
MORVEX_API void Morvex_TraceOut_SetSink(tMorvex_TraceSink sink, void* context);
/* Sets the lowest level the default sink prints. */
MORVEX_API void Morvex_TraceOut_SetLevel(int minimumLevel);

MORVEX_END_DECLS

#endif
