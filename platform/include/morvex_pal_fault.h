/* Fault injection for tests: makes a platform function fail on demand.
 *
 * An armed function lets `skip` calls pass, then fails the next `count` calls with
 * `code` (the allocator returns NULL, Morvex_PAL_ThreadGetCurrent returns NULL,
 * Morvex_PAL_memcpy and Morvex_PAL_memset do nothing and return NULL; every other
 * function returns `code` and does nothing else). For a function returning an enum,
 * arm a value of that enum: a C++ caller may not hold any other value in it. With
 * `thisThreadOnly`, only calls from the arming thread count. Arming a function again
 * replaces its previous setting; a `count` of 0 disarms it. Unarmed functions cost
 * one relaxed atomic load. */
#ifndef MORVEX_PAL_FAULT_H
#define MORVEX_PAL_FAULT_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

typedef enum eMorvex_FaultFunction {
    MORVEX_FAULT_zmalloc,
    MORVEX_FAULT_memcpy,
    MORVEX_FAULT_memcmp,
    MORVEX_FAULT_memset,
    MORVEX_FAULT_strcmp,
    MORVEX_FAULT_MutexInit,
    MORVEX_FAULT_MutexDeInit,
    MORVEX_FAULT_MutexWait,
    MORVEX_FAULT_MutexSignal,
    MORVEX_FAULT_SemaInit,
    MORVEX_FAULT_SemaDeInit,
    MORVEX_FAULT_SemaSignal,
    MORVEX_FAULT_SemaWait,
    MORVEX_FAULT_SemaTimedWait,
    MORVEX_FAULT_SemaTryWait,
    MORVEX_FAULT_ThreadInit,
    MORVEX_FAULT_ThreadCreate,
    MORVEX_FAULT_ThreadWait,
    MORVEX_FAULT_ThreadDeInit,
    MORVEX_FAULT_ThreadGetCurrent,
    MORVEX_FAULT_SocketInitImplementation,
    MORVEX_FAULT_SocketDeInitImplementation,
    MORVEX_FAULT_SocketCreateClient,
    MORVEX_FAULT_SocketBind,
    MORVEX_FAULT_SocketConnect,
    MORVEX_FAULT_SocketRead,
    MORVEX_FAULT_NonBlockingSocketRead,
    MORVEX_FAULT_SocketWrite,
    MORVEX_FAULT_SocketSetLinger,
    MORVEX_FAULT_SocketClose,
    MORVEX_FAULT_getRealTime,
    MORVEX_FAULT_sscanf,
    MORVEX_FAULT_MsgQueue_Init,
    MORVEX_FAULT_MsgQueue_DeInit,
    MORVEX_FAULT_MsgQueue_GetStatus,
    MORVEX_FAULT_MsgQueue_SendMsg,
    MORVEX_FAULT_MsgQueue_TrySendMsg,
    MORVEX_FAULT_MsgQueue_ReceiveMsg,
    MORVEX_FAULT_COUNT
} eMorvex_FaultFunction;

/* The next `count` calls of `function`, from any thread, fail with `code`. */
MORVEX_API void Morvex_Fault_Arm(eMorvex_FaultFunction function, int code, unsigned int count);
/* As Morvex_Fault_Arm, after letting `skip` calls pass; `thisThreadOnly` limits it to the caller's thread. */
MORVEX_API void Morvex_Fault_ArmEx(eMorvex_FaultFunction function, int code, unsigned int skip,
                                   unsigned int count, int thisThreadOnly);
/* Disarms `function`. */
MORVEX_API void Morvex_Fault_Disarm(eMorvex_FaultFunction function);
/* Disarms every function. */
MORVEX_API void Morvex_Fault_DisarmAll(void);
/* Calls of `function` that reached the platform since the process started, failed or not. */
MORVEX_API unsigned long long Morvex_Fault_Calls(eMorvex_FaultFunction function);
/* Calls of `function` that an armed fault has failed since the process started. */
MORVEX_API unsigned long long Morvex_Fault_Injected(eMorvex_FaultFunction function);

MORVEX_END_DECLS

#endif
