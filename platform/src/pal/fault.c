#include "fault_internal.h"

#include <pthread.h>
#include <stdatomic.h>

typedef struct FaultSlot {
    int armed;
    int code;
    unsigned int skip;
    unsigned int count;
    int thisThreadOnly;
    pthread_t owner;
} FaultSlot;

/* The slots are only touched under g_lock; g_armedSlots lets every unarmed call
 * through on one relaxed load. A caller that arms and then calls on the same thread
 * sees its own store; other threads see it once the test has synchronised with them. */
static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static FaultSlot g_slots[MORVEX_FAULT_COUNT];
static atomic_uint g_armedSlots;
static _Atomic unsigned long long g_calls[MORVEX_FAULT_COUNT];
static _Atomic unsigned long long g_injected[MORVEX_FAULT_COUNT];

static int validFunction(eMorvex_FaultFunction function)
{
    return (unsigned int)function < (unsigned int)MORVEX_FAULT_COUNT;
}

/* Caller holds g_lock. */
static void disarmLocked(FaultSlot* slot)
{
    if (slot->armed) {
        slot->armed = 0;
        atomic_fetch_sub_explicit(&g_armedSlots, 1u, memory_order_relaxed);
    }
}

static int checkArmed(eMorvex_FaultFunction function, int* code)
{
    int fail = 0;
    pthread_mutex_lock(&g_lock);
    FaultSlot* slot = &g_slots[function];
    if (slot->armed && (!slot->thisThreadOnly || pthread_equal(slot->owner, pthread_self()))) {
        if (slot->skip > 0) {
            --slot->skip;
        } else {
            fail = 1;
            *code = slot->code;
            if (--slot->count == 0)
                disarmLocked(slot);
        }
    }
    pthread_mutex_unlock(&g_lock);
    if (fail)
        atomic_fetch_add_explicit(&g_injected[function], 1u, memory_order_relaxed);
    return fail;
}

int Morvex_Fault_Check(eMorvex_FaultFunction function, int* code)
{
    if (!validFunction(function) || code == Morvex_NULL)
        return 0;
    atomic_fetch_add_explicit(&g_calls[function], 1u, memory_order_relaxed);
    if (atomic_load_explicit(&g_armedSlots, memory_order_relaxed) == 0)
        return 0;
    return checkArmed(function, code);
}

void Morvex_Fault_ArmEx(eMorvex_FaultFunction function, int code, unsigned int skip, unsigned int count,
                        int thisThreadOnly)
{
    if (!validFunction(function))
        return;
    pthread_mutex_lock(&g_lock);
    FaultSlot* slot = &g_slots[function];
    disarmLocked(slot);
    if (count > 0) {
        slot->code = code;
        slot->skip = skip;
        slot->count = count;
        slot->thisThreadOnly = thisThreadOnly != 0;
        slot->owner = pthread_self();
        slot->armed = 1;
        atomic_fetch_add_explicit(&g_armedSlots, 1u, memory_order_relaxed);
    }
    pthread_mutex_unlock(&g_lock);
}

void Morvex_Fault_Arm(eMorvex_FaultFunction function, int code, unsigned int count)
{
    Morvex_Fault_ArmEx(function, code, 0u, count, 0);
}

void Morvex_Fault_Disarm(eMorvex_FaultFunction function)
{
    if (!validFunction(function))
        return;
    pthread_mutex_lock(&g_lock);
    disarmLocked(&g_slots[function]);
    pthread_mutex_unlock(&g_lock);
}

void Morvex_Fault_DisarmAll(void)
{
    pthread_mutex_lock(&g_lock);
    for (unsigned int i = 0; i < (unsigned int)MORVEX_FAULT_COUNT; ++i)
        disarmLocked(&g_slots[i]);
    pthread_mutex_unlock(&g_lock);
}

unsigned long long Morvex_Fault_Calls(eMorvex_FaultFunction function)
{
    return validFunction(function) ? atomic_load_explicit(&g_calls[function], memory_order_relaxed) : 0u;
}

unsigned long long Morvex_Fault_Injected(eMorvex_FaultFunction function)
{
    return validFunction(function) ? atomic_load_explicit(&g_injected[function], memory_order_relaxed) : 0u;
}
