/* Formatted scanning of the PAL core, with the standard sscanf semantics. */
#ifndef MORVEX_PAL_SCAN_H
#define MORVEX_PAL_SCAN_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

MORVEX_API int Morvex_PAL_sscanf(const char* text, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(scanf, 2, 3)))
#endif
    ;

MORVEX_END_DECLS

#endif
