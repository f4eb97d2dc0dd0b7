#include "morvex_traceout.h"

#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>
#include <wchar.h>

#define DEFAULT_MINIMUM_LEVEL 5
#define SINGLE_FORMAT_SIZE 32 /* '%', five flags, two clamped numbers, length, conversion */

typedef enum Length { LEN_NONE, LEN_HH, LEN_H, LEN_L, LEN_LL, LEN_Z, LEN_J, LEN_T, LEN_BIG_L } Length;

/* One conversion, parsed fully before any argument is taken, so a conversion the
 * record can't interpret consumes nothing. */
typedef struct Conversion {
    char flags[6];
    int widthStar;
    int width;     /* -1: none */
    int precisionStar;
    int precision; /* -1: none */
    Length length;
    char kind;
    const char* next;
} Conversion;

static int parseNumber(const char** cursor)
{
    long value = 0;
    while (**cursor >= '0' && **cursor <= '9') {
        /* Widths and precisions are capped at the size of a value: a huge one would
         * keep snprintf padding for a long time, only for the result to be cut. */
        if (value < MORVEX_TRACE_VALUE_SIZE)
            value = value * 10 + (**cursor - '0');
        ++*cursor;
    }
    return value < MORVEX_TRACE_VALUE_SIZE ? (int)value : MORVEX_TRACE_VALUE_SIZE;
}

static Length parseLength(const char** cursor)
{
    const char* p = *cursor;
    Length length = LEN_NONE;
    switch (*p) {
    case 'h': length = (p[1] == 'h') ? LEN_HH : LEN_H; break;
    case 'l': length = (p[1] == 'l') ? LEN_LL : LEN_L; break;
    case 'z': length = LEN_Z; break;
    case 'j': length = LEN_J; break;
    case 't': length = LEN_T; break;
    case 'L': length = LEN_BIG_L; break;
    default: return LEN_NONE;
    }
    *cursor = p + ((length == LEN_HH || length == LEN_LL) ? 2 : 1);
    return length;
}

static int lengthFits(char kind, Length length)
{
    switch (kind) {
    case 'd': case 'i': case 'u': case 'x': case 'X': case 'o':
        return length != LEN_BIG_L;
    case 'c': case 's':
        return length == LEN_NONE || length == LEN_L;
    case 'p':
        return length == LEN_NONE;
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
        return length == LEN_NONE || length == LEN_L || length == LEN_BIG_L;
    default:
        return 0; /* %n among others: never written through */
    }
}

/* `at` points at the '%'. Returns 0 when the conversion can't be interpreted. */
static int parseConversion(const char* at, Conversion* conversion)
{
    const char* p = at + 1;
    size_t flagCount = 0;
    while (*p != '\0' && strchr("-+ #0", *p) != Morvex_NULL) {
        if (flagCount == sizeof conversion->flags - 1u)
            return 0;
        conversion->flags[flagCount++] = *p++;
    }
    conversion->flags[flagCount] = '\0';
    conversion->widthStar = (*p == '*');
    conversion->width = -1;
    if (conversion->widthStar)
        ++p;
    else if (*p >= '0' && *p <= '9')
        conversion->width = parseNumber(&p);
    conversion->precisionStar = 0;
    conversion->precision = -1;
    if (*p == '.') {
        ++p;
        conversion->precisionStar = (*p == '*');
        if (conversion->precisionStar)
            ++p;
        else
            conversion->precision = parseNumber(&p);
    }
    conversion->length = parseLength(&p);
    conversion->kind = *p;
    if (!lengthFits(conversion->kind, conversion->length))
        return 0;
    conversion->next = p + 1;
    return 1;
}

static const char* const g_lengthText[] = {"", "hh", "h", "l", "ll", "z", "j", "t", "L"};

/* Rebuilds the conversion with '*' replaced by the numbers taken from the arguments. */
static void buildSingleFormat(Conversion* conversion, va_list* arguments, char* single)
{
    if (conversion->widthStar) {
        int width = va_arg(*arguments, int);
        if (width < 0) {
            /* A negative width is a '-' flag; keep it if the flags are full. */
            size_t flagCount = strlen(conversion->flags);
            if (flagCount < sizeof conversion->flags - 1u) {
                conversion->flags[flagCount] = '-';
                conversion->flags[flagCount + 1u] = '\0';
            }
            width = (width < -MORVEX_TRACE_VALUE_SIZE) ? MORVEX_TRACE_VALUE_SIZE : -width;
        }
        conversion->width = width > MORVEX_TRACE_VALUE_SIZE ? MORVEX_TRACE_VALUE_SIZE : width;
    }
    if (conversion->precisionStar) {
        int precision = va_arg(*arguments, int);
        conversion->precision = precision < 0 ? -1 : (precision > MORVEX_TRACE_VALUE_SIZE ? MORVEX_TRACE_VALUE_SIZE : precision);
    }
    size_t n = (size_t)snprintf(single, SINGLE_FORMAT_SIZE, "%%%s", conversion->flags);
    if (conversion->width >= 0)
        n += (size_t)snprintf(single + n, SINGLE_FORMAT_SIZE - n, "%d", conversion->width);
    if (conversion->precision >= 0)
        n += (size_t)snprintf(single + n, SINGLE_FORMAT_SIZE - n, ".%d", conversion->precision);
    snprintf(single + n, SINGLE_FORMAT_SIZE - n, "%s%c", g_lengthText[conversion->length], conversion->kind);
}

#define FORMAT_AS(type) written = snprintf(out, MORVEX_TRACE_VALUE_SIZE, single, va_arg(*arguments, type))

/* Takes the conversion's arguments and formats its value alone into `out`. */
static void formatValue(Conversion* conversion, va_list* arguments, char* out)
{
    char single[SINGLE_FORMAT_SIZE];
    buildSingleFormat(conversion, arguments, single);
    int written = 0;
    switch (conversion->kind) {
    case 'd': case 'i':
        switch (conversion->length) {
        case LEN_L: FORMAT_AS(long); break;
        case LEN_LL: FORMAT_AS(long long); break;
        case LEN_Z: FORMAT_AS(ssize_t); break;
        case LEN_J: FORMAT_AS(intmax_t); break;
        case LEN_T: FORMAT_AS(ptrdiff_t); break;
        default: FORMAT_AS(int); break; /* hh and h arrive promoted */
        }
        break;
    case 'u': case 'x': case 'X': case 'o':
        switch (conversion->length) {
        case LEN_L: FORMAT_AS(unsigned long); break;
        case LEN_LL: FORMAT_AS(unsigned long long); break;
        case LEN_Z: FORMAT_AS(size_t); break;
        case LEN_J: FORMAT_AS(uintmax_t); break;
        case LEN_T: FORMAT_AS(ptrdiff_t); break;
        default: FORMAT_AS(unsigned int); break;
        }
        break;
    case 'c':
        if (conversion->length == LEN_L)
            FORMAT_AS(wint_t);
        else
            FORMAT_AS(int);
        break;
    case 's':
        if (conversion->length == LEN_L) {
            const wchar_t* text = va_arg(*arguments, const wchar_t*);
            written = snprintf(out, MORVEX_TRACE_VALUE_SIZE, single, text ? text : L"(null)");
        } else {
            const char* text = va_arg(*arguments, const char*);
            written = snprintf(out, MORVEX_TRACE_VALUE_SIZE, single, text ? text : "(null)");
        }
        break;
    case 'p':
        FORMAT_AS(void*);
        break;
    default:
        if (conversion->length == LEN_BIG_L)
            FORMAT_AS(long double);
        else
            FORMAT_AS(double);
        break;
    }
    if (written < 0)
        out[0] = '\0'; /* e.g. a wide character the locale can't write */
}

static void append(sMorvex_TraceRecord* record, size_t* textLength, const char* text, size_t length)
{
    size_t room = sizeof record->text - 1u - *textLength;
    if (length > room)
        length = room;
    memcpy(record->text + *textLength, text, length);
    *textLength += length;
    record->text[*textLength] = '\0';
}

static void fillValues(sMorvex_TraceRecord* record, const char* format, va_list* arguments)
{
    size_t textLength = 0;
    const char* p = format;
    while (*p != '\0') {
        if (*p != '%' || p[1] == '%') {
            /* Literal text between conversions goes to the text only. */
            append(record, &textLength, p, 1u);
            p += (*p == '%') ? 2 : 1;
            continue;
        }
        Conversion conversion;
        if (record->valueCount == MORVEX_TRACE_MAX_VALUES || !parseConversion(p, &conversion))
            break;
        char* value = record->values[record->valueCount++];
        formatValue(&conversion, arguments, value);
        append(record, &textLength, value, strlen(value));
        p = conversion.next;
    }
}

static pthread_mutex_t g_sinkLock = PTHREAD_MUTEX_INITIALIZER;
static tMorvex_TraceSink g_sink; /* under g_sinkLock; NULL: the default sink */
/* Whether g_sink is set, readable without the lock: while the default sink is in
 * place, a record below its level is dropped before any formatting. */
static atomic_int g_customSink;
static void* g_sinkContext;
static _Thread_local int t_inSink __attribute__((tls_model("initial-exec")));

static pthread_once_t g_levelOnce = PTHREAD_ONCE_INIT;
static atomic_int g_minimumLevel = DEFAULT_MINIMUM_LEVEL;

static void readLevelFromEnvironment(void)
{
    const char* text = getenv("MORVEX_TRACE_LEVEL");
    if (text == Morvex_NULL || text[0] == '\0')
        return;
    char* end;
    long level = strtol(text, &end, 10);
    if (*end == '\0' && level >= INT_MIN && level <= INT_MAX)
        atomic_store_explicit(&g_minimumLevel, (int)level, memory_order_relaxed);
}

static const char* orDash(const char* text)
{
    return text ? text : "-";
}

static void appendBounded(char* buffer, size_t limit, size_t* length, const char* text)
{
    size_t n = strlen(text);
    if (n > limit - *length)
        n = limit - *length;
    memcpy(buffer + *length, text, n);
    *length += n;
}

/* One line per record, written with a single write() so lines from several
 * processes sharing stderr do not interleave. */
static void defaultSink(const sMorvex_TraceRecord* record)
{
    pthread_once(&g_levelOnce, readLevelFromEnvironment);
    if (record->level < atomic_load_explicit(&g_minimumLevel, memory_order_relaxed))
        return;
    char line[MORVEX_TRACE_TEXT_SIZE + 512];
    const size_t limit = sizeof line - 1u; /* the last byte is kept for the newline */
    int n = snprintf(line, limit, "[level %d] %s %s:%d id=%s ", record->level, orDash(record->component),
                     orDash(record->sourcePath), record->line, orDash(record->traceId));
    size_t length = (n < 0) ? 0u : ((size_t)n < limit ? (size_t)n : limit - 1u);
    for (unsigned int i = 0; i < record->valueCount; ++i) {
        if (i > 0)
            appendBounded(line, limit, &length, "|");
        appendBounded(line, limit, &length, record->values[i]);
    }
    line[length++] = '\n';
    ssize_t ignored = write(STDERR_FILENO, line, length);
    (void)ignored;
}

void Morvex_TraceOut_trace(int level, const char* component, int reserved, const char* sourcePath,
                           const char* traceId, int line, const char* format, ...)
{
    if (!atomic_load_explicit(&g_customSink, memory_order_acquire)) {
        pthread_once(&g_levelOnce, readLevelFromEnvironment);
        if (level < atomic_load_explicit(&g_minimumLevel, memory_order_relaxed))
            return;
    }
    /* A sink that traces would deadlock on g_sinkLock; such records are dropped. */
    if (t_inSink)
        return;
    sMorvex_TraceRecord record;
    record.level = level;
    record.component = component;
    record.reserved = reserved;
    record.sourcePath = sourcePath;
    record.traceId = traceId;
    record.line = line;
    record.format = format;
    record.valueCount = 0;
    record.text[0] = '\0';
    if (format != Morvex_NULL) {
        va_list arguments;
        va_start(arguments, format);
        fillValues(&record, format, &arguments);
        va_end(arguments);
    }

    pthread_mutex_lock(&g_sinkLock);
    t_inSink = 1;
    if (g_sink != Morvex_NULL)
        g_sink(&record, g_sinkContext);
    else
        defaultSink(&record);
    t_inSink = 0;
    pthread_mutex_unlock(&g_sinkLock);
}

void Morvex_TraceOut_SetSink(tMorvex_TraceSink sink, void* context)
{
    /* From inside a sink the lock is already this thread's. */
    int nested = t_inSink;
    if (!nested)
        pthread_mutex_lock(&g_sinkLock);
    g_sink = sink;
    g_sinkContext = context;
    atomic_store_explicit(&g_customSink, sink != Morvex_NULL, memory_order_release);
    if (!nested)
        pthread_mutex_unlock(&g_sinkLock);
}

void Morvex_TraceOut_SetLevel(int minimumLevel)
{
    pthread_once(&g_levelOnce, readLevelFromEnvironment);
    atomic_store_explicit(&g_minimumLevel, minimumLevel, memory_order_relaxed);
}
