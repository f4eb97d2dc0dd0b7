#include "msgqueue.h"

/* Outside the PAL core: the exported check, not its inlined one. */
#define MORVEX_FAULT_OUTSIDE_CORE
#include "../pal/fault_internal.h"
#include "../pal/futex_internal.h"

#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>

/* A handle is (generation << 16) | (slot + 1): never 0, and a handle kept after its
 * queue was destroyed stays invalid until the same slot has been reused 65536 times. */
#define SLOT_LIMIT 0xFFFFu
#define FIRST_HEAP_SIZE 16u

typedef struct Entry {
    unsigned long long sequence; /* 64-bit: never wraps, so FIFO order among equals holds */
    void* message;
    int priority;
} Entry;

/* References: one of the registry while the queue is registered, one of each call
 * working on it. DeInit drops the registry's and wakes the waiters; the last call
 * out frees the queue, so no waiter ever touches freed memory. */
typedef struct Queue {
    pthread_mutex_t mutex;
    pthread_cond_t notEmpty;
    pthread_cond_t notFull;
    atomic_uint references;
    Entry* heap; /* binary min-heap on (priority, sequence) */
    unsigned int allocated;
    unsigned int capacity;
    unsigned int count;
    unsigned int highWater;
    unsigned long long nextSequence;
    int destroyed;
} Queue;

typedef struct Slot {
    Queue* queue;
    unsigned int generation;
} Slot;

/* Taken by every call for a lookup of a few instructions, by the sender and the
 * receiver of a queue alike: a one-word lock that spins briefly before it sleeps. */
static MorvexLock g_registryLock = MORVEX_LOCK_INIT;
static Slot* g_slots; /* under g_registryLock */
static unsigned int g_slotCount;

static tMsgQueueHandle makeHandle(unsigned int slot, unsigned int generation)
{
    return ((generation & 0xFFFFu) << 16) | (slot + 1u);
}

static void release(Queue* queue)
{
    if (atomic_fetch_sub_explicit(&queue->references, 1u, memory_order_acq_rel) == 1u) {
        pthread_cond_destroy(&queue->notFull);
        pthread_cond_destroy(&queue->notEmpty);
        pthread_mutex_destroy(&queue->mutex);
        free(queue->heap);
        free(queue);
    }
}

/* Caller holds g_registryLock. */
static Slot* findSlot(tMsgQueueHandle handle)
{
    unsigned int slot = handle & 0xFFFFu;
    if (slot == 0 || slot > g_slotCount)
        return Morvex_NULL;
    Slot* entry = &g_slots[slot - 1u];
    if (entry->queue == Morvex_NULL || (entry->generation & 0xFFFFu) != handle >> 16)
        return Morvex_NULL;
    return entry;
}

/* Returns the queue with a reference taken for the caller, or NULL. */
static Queue* acquire(tMsgQueueHandle handle)
{
    morvexLock(&g_registryLock);
    Slot* slot = findSlot(handle);
    Queue* queue = slot ? slot->queue : Morvex_NULL;
    if (queue != Morvex_NULL)
        atomic_fetch_add_explicit(&queue->references, 1u, memory_order_relaxed);
    morvexUnlock(&g_registryLock);
    return queue;
}

static int registerQueue(Queue* queue, tMsgQueueHandle* handle)
{
    morvexLock(&g_registryLock);
    unsigned int slot = 0;
    while (slot < g_slotCount && g_slots[slot].queue != Morvex_NULL)
        ++slot;
    if (slot == g_slotCount) {
        unsigned int grown = g_slotCount ? g_slotCount * 2u : 16u;
        if (grown > SLOT_LIMIT)
            grown = SLOT_LIMIT;
        Slot* slots = (grown > g_slotCount) ? (Slot*)realloc(g_slots, grown * sizeof *slots) : Morvex_NULL;
        if (slots == Morvex_NULL) {
            morvexUnlock(&g_registryLock);
            return 0;
        }
        for (unsigned int i = g_slotCount; i < grown; ++i) {
            slots[i].queue = Morvex_NULL;
            slots[i].generation = 0;
        }
        g_slots = slots;
        g_slotCount = grown;
    }
    g_slots[slot].queue = queue;
    *handle = makeHandle(slot, g_slots[slot].generation);
    morvexUnlock(&g_registryLock);
    return 1;
}

int MsgQueue_Init(tMsgQueueHandle* handle, unsigned int capacity)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MsgQueue_Init, int);
    if (handle == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_POINTER;
    if (capacity == 0)
        return MSGQUEUE_ERROR_INV_PARAM;
    Queue* queue = (Queue*)calloc(1, sizeof *queue);
    if (queue == Morvex_NULL)
        return MSGQUEUE_ERROR_NO_MEMORY;
    if (pthread_mutex_init(&queue->mutex, Morvex_NULL) != 0) {
        free(queue);
        return MSGQUEUE_ERROR_INTERNAL;
    }
    if (pthread_cond_init(&queue->notEmpty, Morvex_NULL) != 0) {
        pthread_mutex_destroy(&queue->mutex);
        free(queue);
        return MSGQUEUE_ERROR_INTERNAL;
    }
    if (pthread_cond_init(&queue->notFull, Morvex_NULL) != 0) {
        pthread_cond_destroy(&queue->notEmpty);
        pthread_mutex_destroy(&queue->mutex);
        free(queue);
        return MSGQUEUE_ERROR_INTERNAL;
    }
    queue->capacity = capacity;
    atomic_init(&queue->references, 1u);
    if (!registerQueue(queue, handle)) {
        release(queue);
        return MSGQUEUE_ERROR_NO_MEMORY;
    }
    return MSGQUEUE_OK;
}

int MsgQueue_DeInit(tMsgQueueHandle* handle)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MsgQueue_DeInit, int);
    if (handle == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_POINTER;
    morvexLock(&g_registryLock);
    Slot* slot = findSlot(*handle);
    Queue* queue = slot ? slot->queue : Morvex_NULL;
    if (slot != Morvex_NULL) {
        slot->queue = Morvex_NULL;
        ++slot->generation;
    }
    morvexUnlock(&g_registryLock);
    if (queue == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_HANDLE;

    pthread_mutex_lock(&queue->mutex);
    queue->destroyed = 1;
    pthread_cond_broadcast(&queue->notEmpty);
    pthread_cond_broadcast(&queue->notFull);
    pthread_mutex_unlock(&queue->mutex);
    release(queue);
    *handle = 0;
    return MSGQUEUE_OK;
}

int MsgQueue_GetStatus(tMsgQueueHandle handle, sMsgQueueStatus* status)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MsgQueue_GetStatus, int);
    if (status == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_POINTER;
    Queue* queue = acquire(handle);
    if (queue == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_HANDLE;
    pthread_mutex_lock(&queue->mutex);
    status->count = queue->count;
    status->highWater = queue->highWater;
    status->capacity = queue->capacity;
    pthread_mutex_unlock(&queue->mutex);
    release(queue);
    return MSGQUEUE_OK;
}

static int before(const Entry* a, const Entry* b)
{
    return a->priority < b->priority || (a->priority == b->priority && a->sequence < b->sequence);
}

static void swap(Entry* a, Entry* b)
{
    Entry t = *a;
    *a = *b;
    *b = t;
}

/* Caller holds the queue's mutex and has checked there is room. The heap grows on
 * demand, so a large capacity costs nothing until it is used. */
static int push(Queue* queue, void* message, int priority)
{
    if (queue->count == queue->allocated) {
        unsigned int grown = queue->allocated ? queue->allocated * 2u : FIRST_HEAP_SIZE;
        if (grown < queue->allocated || grown > queue->capacity)
            grown = queue->capacity;
        if ((unsigned long long)grown * sizeof(Entry) > SIZE_MAX)
            return MSGQUEUE_ERROR_NO_MEMORY;
        Entry* heap = (Entry*)realloc(queue->heap, (size_t)grown * sizeof(Entry));
        if (heap == Morvex_NULL)
            return MSGQUEUE_ERROR_NO_MEMORY;
        queue->heap = heap;
        queue->allocated = grown;
    }
    unsigned int i = queue->count++;
    queue->heap[i].sequence = queue->nextSequence++;
    queue->heap[i].message = message;
    queue->heap[i].priority = priority;
    while (i > 0 && before(&queue->heap[i], &queue->heap[(i - 1u) / 2u])) {
        swap(&queue->heap[i], &queue->heap[(i - 1u) / 2u]);
        i = (i - 1u) / 2u;
    }
    if (queue->count > queue->highWater)
        queue->highWater = queue->count;
    pthread_cond_signal(&queue->notEmpty);
    return MSGQUEUE_OK;
}

/* Caller holds the queue's mutex and has checked it is not empty. */
static void* pop(Queue* queue)
{
    void* message = queue->heap[0].message;
    queue->heap[0] = queue->heap[--queue->count];
    unsigned int i = 0;
    for (;;) {
        unsigned int smallest = i;
        unsigned int left = 2u * i + 1u;
        if (left < queue->count && before(&queue->heap[left], &queue->heap[smallest]))
            smallest = left;
        if (left + 1u < queue->count && before(&queue->heap[left + 1u], &queue->heap[smallest]))
            smallest = left + 1u;
        if (smallest == i)
            break;
        swap(&queue->heap[i], &queue->heap[smallest]);
        i = smallest;
    }
    pthread_cond_signal(&queue->notFull);
    return message;
}

static int enqueue(tMsgQueueHandle handle, void* message, int priority, int wait)
{
    Queue* queue = acquire(handle);
    if (queue == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_HANDLE;
    pthread_mutex_lock(&queue->mutex);
    while (wait && queue->count == queue->capacity && !queue->destroyed)
        pthread_cond_wait(&queue->notFull, &queue->mutex);
    int result;
    if (queue->destroyed)
        result = MSGQUEUE_ERROR_INV_HANDLE;
    else if (queue->count == queue->capacity)
        result = MSGQUEUE_ERROR_FULL;
    else
        result = push(queue, message, priority);
    pthread_mutex_unlock(&queue->mutex);
    release(queue);
    return result;
}

int MsgQueue_SendMsg(tMsgQueueHandle handle, void* message, int priority)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MsgQueue_SendMsg, int);
    return enqueue(handle, message, priority, 1);
}

int MsgQueue_TrySendMsg(tMsgQueueHandle handle, void* message, int priority)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MsgQueue_TrySendMsg, int);
    return enqueue(handle, message, priority, 0);
}

int MsgQueue_ReceiveMsg(tMsgQueueHandle handle, void** message)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_MsgQueue_ReceiveMsg, int);
    if (message == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_POINTER;
    Queue* queue = acquire(handle);
    if (queue == Morvex_NULL)
        return MSGQUEUE_ERROR_INV_HANDLE;
    pthread_mutex_lock(&queue->mutex);
    while (queue->count == 0 && !queue->destroyed)
        pthread_cond_wait(&queue->notEmpty, &queue->mutex);
    int result = MSGQUEUE_ERROR_INV_HANDLE;
    if (!queue->destroyed) {
        *message = pop(queue);
        result = MSGQUEUE_OK;
    }
    pthread_mutex_unlock(&queue->mutex);
    release(queue);
    return result;
}
