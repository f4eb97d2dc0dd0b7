/* Shared by the platform sources and the tools library: the per-call check of the
 * fault registry. */
#ifndef MORVEX_FAULT_INTERNAL_H
#define MORVEX_FAULT_INTERNAL_H

#include "morvex_pal_fault.h"

MORVEX_BEGIN_DECLS

/* Counts one call of `function`. Returns 1 and stores the armed code in *code when an
 * armed fault fails this call, 0 otherwise. Safe before main and from any thread; it
 * never allocates. */
MORVEX_API int Morvex_Fault_Check(eMorvex_FaultFunction function, int* code);

MORVEX_END_DECLS

/* Returns the armed code from the calling function when a fault is armed for it. */
#define MORVEX_FAULT_RETURN(function, type)                 \
    do {                                                    \
        int faultCode_;                                     \
        if (Morvex_Fault_Check((function), &faultCode_))    \
            return (type)faultCode_;                        \
    } while (0)

#endif
