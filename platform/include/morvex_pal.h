/* The whole Morvex PAL core and tools-library interface. */
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
