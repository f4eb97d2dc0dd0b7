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

/* The slots are only touched under g_lock; morvexFaultArmedSlots lets every unarmed call
 * through on one relaxed load. A caller that arms and then calls on the same thread
 * sees its own store; other threads see it once the test has synchronised with them. */
static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static FaultSlot g_slots[MORVEX_FAULT_COUNT];
atomic_uint morvexFaultArmedSlots;
static _Atomic unsigned long long g_injected[MORVEX_FAULT_COUNT];

/* Each thread's call counts (fault_internal.h) are linked into g_threads on its first
 * call and folded into g_retiredCalls when it ends; calls a thread makes after that
 * (from other destructors at its exit) go to g_retiredCalls directly. */
_Thread_local MorvexFaultThreadCalls morvexFaultThreadCalls __attribute__((tls_model("initial-exec")));
static MorvexFaultThreadCalls* g_threads; /* under g_lock */
static _Atomic unsigned long long g_retiredCalls[MORVEX_FAULT_COUNT];
static pthread_once_t g_keyOnce = PTHREAD_ONCE_INIT;
static pthread_key_t g_key;
static int g_keyValid;

static void retireThread(void* calls)
{
    MorvexFaultThreadCalls* thread = (MorvexFaultThreadCalls*)calls;
    pthread_mutex_lock(&g_lock);
    for (unsigned int i = 0; i < (unsigned int)MORVEX_FAULT_COUNT; ++i)
        atomic_fetch_add_explicit(&g_retiredCalls[i],
                                  atomic_load_explicit(&thread->calls[i], memory_order_relaxed),
                                  memory_order_relaxed);
    if (thread->previous != Morvex_NULL)
        thread->previous->next = thread->next;
    else
        g_threads = thread->next;
    if (thread->next != Morvex_NULL)
        thread->next->previous = thread->previous;
    thread->state = 2;
    pthread_mutex_unlock(&g_lock);
}

static void createKey(void)
{
    g_keyValid = pthread_key_create(&g_key, retireThread) == 0;
}

static atomic_uint g_lastThreadId;

uint32_t morvexThreadIdSlow(void)
{
    MorvexFaultThreadCalls* thread = &morvexFaultThreadCalls;
    while (thread->id == 0u)
        thread->id = (atomic_fetch_add_explicit(&g_lastThreadId, 1u, memory_order_relaxed) + 1u) & 0x7FFFFFFFu;
    return thread->id;
}

/* Without a key the thread can't be told of its end, so it counts globally. */
static void linkThread(MorvexFaultThreadCalls* thread)
{
    (void)morvexThreadIdSlow();
    pthread_once(&g_keyOnce, createKey);
    if (!g_keyValid || pthread_setspecific(g_key, thread) != 0) {
        thread->state = 2;
        return;
    }
    pthread_mutex_lock(&g_lock);
    thread->next = g_threads;
    thread->previous = Morvex_NULL;
    if (g_threads != Morvex_NULL)
        g_threads->previous = thread;
    g_threads = thread;
    thread->state = 1;
    pthread_mutex_unlock(&g_lock);
}

void morvexFaultCountUnlinked(eMorvex_FaultFunction function)
{
    MorvexFaultThreadCalls* thread = &morvexFaultThreadCalls;
    if (thread->state == 0)
        linkThread(thread);
    if (thread->state == 1) {
        atomic_fetch_add_explicit(&thread->calls[function], 1u, memory_order_relaxed);
        return;
    }
    atomic_fetch_add_explicit(&g_retiredCalls[function], 1u, memory_order_relaxed);
}

static int validFunction(eMorvex_FaultFunction function)
{
    return (unsigned int)function < (unsigned int)MORVEX_FAULT_COUNT;
}

/* Caller holds g_lock. */
static void disarmLocked(FaultSlot* slot)
{
    if (slot->armed) {
        slot->armed = 0;
        atomic_fetch_sub_explicit(&morvexFaultArmedSlots, 1u, memory_order_relaxed);
    }
}

int morvexFaultCheckArmed(eMorvex_FaultFunction function, int* code)
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
    return morvexFaultCheck(function, code);
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
        atomic_fetch_add_explicit(&morvexFaultArmedSlots, 1u, memory_order_relaxed);
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
    if (!validFunction(function))
        return 0u;
    pthread_mutex_lock(&g_lock);
    unsigned long long total = atomic_load_explicit(&g_retiredCalls[function], memory_order_relaxed);
    for (const MorvexFaultThreadCalls* thread = g_threads; thread != Morvex_NULL; thread = thread->next)
        total += atomic_load_explicit(&thread->calls[function], memory_order_relaxed);
    pthread_mutex_unlock(&g_lock);
    return total;
}

unsigned long long Morvex_Fault_Injected(eMorvex_FaultFunction function)
{
    return validFunction(function) ? atomic_load_explicit(&g_injected[function], memory_order_relaxed) : 0u;
}
