#include "morvex_pal_clock.h"

#include "fault_internal.h"

#include <pthread.h>
#include <time.h>

static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static int g_fixed; /* under g_lock */
static sMorvex_PAL_RealTime g_fixedTime;

int Morvex_PAL_getRealTime(sMorvex_PAL_RealTime* time)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_getRealTime, int);
    if (time == Morvex_NULL)
        return 1;
    pthread_mutex_lock(&g_lock);
    int fixed = g_fixed;
    if (fixed)
        *time = g_fixedTime;
    pthread_mutex_unlock(&g_lock);
    if (fixed)
        return 0;

    struct timespec now;
    struct tm utc;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0 || gmtime_r(&now.tv_sec, &utc) == Morvex_NULL)
        return 1;
    time->second = utc.tm_sec;
    time->minute = utc.tm_min;
    time->hour = utc.tm_hour;
    time->day = utc.tm_mday;
    time->month = utc.tm_mon + 1;
    time->year = utc.tm_year;
    time->weekDay = utc.tm_wday;
    time->yearDay = utc.tm_yday;
    return 0;
}

void Morvex_PAL_setFixedRealTime(const sMorvex_PAL_RealTime* time)
{
    pthread_mutex_lock(&g_lock);
    g_fixed = time != Morvex_NULL;
    if (g_fixed)
        g_fixedTime = *time;
    pthread_mutex_unlock(&g_lock);
}
