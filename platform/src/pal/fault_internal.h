/* Shared by the platform sources and the tools library: the per-call check of the
 * fault registry. */
#ifndef MORVEX_FAULT_INTERNAL_H
#define MORVEX_FAULT_INTERNAL_H

#include "morvex_pal_fault.h"

#include <stdatomic.h>
#include <stdint.h>

#define MORVEX_LIKELY(condition) __builtin_expect(!!(condition), 1)
#define MORVEX_UNLIKELY(condition) __builtin_expect(!!(condition), 0)

MORVEX_BEGIN_DECLS

/* Counts one call of `function`. Returns 1 and stores the armed code in *code when an
 * armed fault fails this call, 0 otherwise. Safe before main and from any thread; it
 * never allocates. */
MORVEX_API int Morvex_Fault_Check(eMorvex_FaultFunction function, int* code);

/* The same check inlined into the PAL core's own functions, which run on every
 * allocation, lock and reference count: each thread counts its calls in its own
 * block (a load and a store, no shared cache line; fault.c links the blocks and adds
 * them up), and an unarmed registry costs one relaxed load. Other libraries call
 * Morvex_Fault_Check. */
typedef struct MorvexFaultThreadCalls {
    int state;   /* 0 not linked yet, 1 linked, 2 ended: count globally */
    uint32_t id; /* the thread's id as a lock holder (mutex.c); set by the time state is 1 */
    _Atomic unsigned long long calls[MORVEX_FAULT_COUNT];
    struct MorvexFaultThreadCalls* next;
    struct MorvexFaultThreadCalls* previous;
} MorvexFaultThreadCalls;

#ifndef MORVEX_FAULT_OUTSIDE_CORE

__attribute__((visibility("hidden"))) extern _Thread_local MorvexFaultThreadCalls morvexFaultThreadCalls
    __attribute__((tls_model("initial-exec")));
__attribute__((visibility("hidden"))) extern atomic_uint morvexFaultArmedSlots;
/* A call of a thread whose block is not linked (first call, or after its end). */
__attribute__((visibility("hidden"))) void morvexFaultCountUnlinked(eMorvex_FaultFunction function);
/* The armed path, under the registry's lock. */
__attribute__((visibility("hidden"))) int morvexFaultCheckArmed(eMorvex_FaultFunction function, int* code);
/* Gives the calling thread its id if it has none yet. */
__attribute__((visibility("hidden"))) uint32_t morvexThreadIdSlow(void);

/* A number for the calling thread: never 0, and never handed to another thread in the
 * life of the process (up to 2^31 - 1 threads), so it stays its holder's name even on
 * a lock left held by a thread that has ended. */
static inline uint32_t morvexThreadId(void)
{
    uint32_t id = morvexFaultThreadCalls.id;
    return MORVEX_LIKELY(id != 0u) ? id : morvexThreadIdSlow();
}

/* The hot functions' way in: counts the call and returns 1 when the calling thread's
 * block is linked and nothing is armed, so the caller goes on with its fast path (and
 * may read morvexFaultThreadCalls.id, which is set then). Otherwise it counts nothing
 * and returns 0, and the caller takes its checked path, which begins with
 * MORVEX_FAULT_RETURN. */
static inline int morvexFaultQuick(eMorvex_FaultFunction function)
{
    MorvexFaultThreadCalls* thread = &morvexFaultThreadCalls;
    if (MORVEX_LIKELY(thread->state == 1 &&
                      atomic_load_explicit(&morvexFaultArmedSlots, memory_order_relaxed) == 0u)) {
        _Atomic unsigned long long* counter = &thread->calls[function];
        atomic_store_explicit(counter, atomic_load_explicit(counter, memory_order_relaxed) + 1u,
                              memory_order_relaxed);
        return 1;
    }
    return 0;
}

static inline int morvexFaultCheck(eMorvex_FaultFunction function, int* code)
{
    MorvexFaultThreadCalls* thread = &morvexFaultThreadCalls;
    if (thread->state == 1) {
        _Atomic unsigned long long* counter = &thread->calls[function];
        atomic_store_explicit(counter, atomic_load_explicit(counter, memory_order_relaxed) + 1u,
                              memory_order_relaxed);
    } else {
        morvexFaultCountUnlinked(function);
    }
    if (atomic_load_explicit(&morvexFaultArmedSlots, memory_order_relaxed) == 0u)
        return 0;
    return morvexFaultCheckArmed(function, code);
}

#define MORVEX_FAULT_CHECK(function, code) morvexFaultCheck((function), (code))

#else

#define MORVEX_FAULT_CHECK(function, code) Morvex_Fault_Check((function), (code))

#endif

MORVEX_END_DECLS

/* Returns the armed code from the calling function when a fault is armed for it. */
#define MORVEX_FAULT_RETURN(function, type)                 \
    do {                                                    \
        int faultCode_;                                     \
        if (MORVEX_FAULT_CHECK((function), &faultCode_))    \
            return (type)faultCode_;                        \
    } while (0)

#endif
