#include "morvex_pal_scan.h"

#include "fault_internal.h"

#include <stdarg.h>
#include <stdio.h>

int Morvex_PAL_sscanf(const char* text, const char* format, ...)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_sscanf, int);
    /* What sscanf reports for input that ends before the first conversion. */
    if (text == Morvex_NULL || format == Morvex_NULL)
        return EOF;
    va_list arguments;
    va_start(arguments, format);
    int result = vsscanf(text, format, arguments);
    va_end(arguments);
    return result;
}
