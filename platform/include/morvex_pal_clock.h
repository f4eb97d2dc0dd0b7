/* Real-time clock of the PAL core. The fields are UTC. */
#ifndef MORVEX_PAL_CLOCK_H
#define MORVEX_PAL_CLOCK_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef struct sMorvex_PAL_RealTime {
    int second;    /* 0..60 */
    int minute;    /* 0..59 */
    int hour;      /* 0..23 */
    int day;       /* day of month, 1..31 */
    int month;     /* 1..12 */
    int year;      /* years since 1900 */
    int weekDay;   /* days since Sunday, 0..6 */
    int yearDay;   /* days since 1 January, 0..365 */
} sMorvex_PAL_RealTime;

/* Fills *time with the current time. Returns 0, or 1 on a NULL pointer or clock failure. */
MORVEX_API int Morvex_PAL_getRealTime(sMorvex_PAL_RealTime* time);

/* Test hook: from now on Morvex_PAL_getRealTime delivers *time unchanged
 * (NULL: the real clock again). */
MORVEX_API void Morvex_PAL_setFixedRealTime(const sMorvex_PAL_RealTime* time);

MORVEX_END_DECLS

#endif
