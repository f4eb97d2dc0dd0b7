/* The whole Morvex PAL core and tools-library interface, as the POSIX stand-ins
 * implement it. The library calls only the functions that README.md lists under
 * "Porting"; a device's own platform libraries provide those. The rest (fault
 * injection in morvex_pal_fault.h, allocation statistics and lookup, trace sinks and
 * levels, the fixed clock, thread name and priority queries) are the stand-ins' hooks
 * for tests. */
#ifndef MORVEX_PAL_H
#define MORVEX_PAL_H

#include "morvex_pal_types.h"
#include "morvex_pal_memory.h"
#include "morvex_pal_mutex.h"
#include "morvex_pal_sema.h"
#include "morvex_pal_thread.h"
#include "morvex_pal_socket.h"
#include "morvex_pal_clock.h"
#include "morvex_pal_scan.h"
#include "morvex_pal_fault.h"
#include "morvex_traceout.h"
#include "msgqueue.h"

#endif
