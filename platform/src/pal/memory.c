#include "morvex_pal_memory.h"

#include "fault_internal.h"

#include <pthread.h>
#include <sched.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

/* Everything here runs on every allocation of the process (the C++ library routes
 * operator new through zmalloc), possibly before main and on any thread. So: only
 * statically initialised state, nothing that allocates except malloc itself, and no
 * atomic operation on the common paths.
 *
 * Each thread keeps its own heap of records (one per live block it allocated) and its
 * own counts per (component, label) pair, and only it changes them, so allocating and
 * freeing its own blocks are plain loads and stores. Readers (a lookup, the
 * statistics, and a thread freeing a block that another thread allocated) never
 * block it: it brackets every change with a sequence number, and they retry when the
 * number moved while they read. A block freed on another thread is marked released
 * in its allocator's heap with one compare-and-swap, and counted off in the freeing
 * thread's own counts; the statistics add up every heap's counts, so the sum is
 * exact whichever thread allocated and whichever freed. A heap outlives its thread:
 * the next thread to start takes it over, its records and counts with it.
 *
 * Blocks are plain malloc blocks, without a header or a trailer, which keeps the
 * promise that they interchange with malloc and free in both directions: a
 * sanitizer's runtime that serves the rest of a test process, or code that frees
 * with free() what the library's operator new gave it, keeps working. */

#define PAIR_LIMIT 1024u
#define ALIAS_SLOTS 4096u /* power of two */
#define ALIAS_LIMIT (ALIAS_SLOTS / 4u * 3u)
#define FIRST_CAPACITY 64u

/* One (component, label) pair. Entry 0 catches whatever arrives once the table of
 * pairs is full, so a runaway caller can't make allocation fail. Failures are rare and
 * counted here; everything else is counted in the heaps. */
typedef struct Pair {
    const char* component;
    const char* label;
    _Atomic unsigned long long failures;
} Pair;

static Pair g_pairs[PAIR_LIMIT] = {{"morvex_pal", "(overflow)", 0}};
static atomic_uint g_pairCount = 1; /* entries below it are filled; published with release */
static pthread_mutex_t g_pairLock = PTHREAD_MUTEX_INITIALIZER;

/* Callers pass the same string constants over and over, so the pair is first looked
 * up by the identity of the two pointers, without a lock. An alias is filled under
 * g_pairLock before its slot is published, and never changes afterwards. */
typedef struct Alias {
    const char* component;
    const char* label;
    unsigned int pair;
} Alias;

static Alias g_aliasPool[ALIAS_LIMIT];
static unsigned int g_aliasUsed; /* under g_pairLock */
static _Atomic(const Alias*) g_aliasSlots[ALIAS_SLOTS];

/* A live block, found by its address. The address is kept inverted so that a leak
 * checker scanning memory for pointers does not take a record for a reference to a
 * block the program lost. A block released by its own thread, or marked released
 * by another, leaves RELEASED behind until its thread reuses or clears the slot:
 * neither the owner nor a reader may mistake a released block for a live one, or
 * stop a probe early at it. RELEASED is never an inverted malloc address (those end
 * in set bits). Every field is atomic because readers on other threads look at a
 * slot while its owner may be rewriting it; they keep what they read only when the
 * heap's sequence number says nothing changed meanwhile. */
#define RELEASED ((uintptr_t)2)

typedef struct Record {
    _Atomic uintptr_t key; /* ~address, RELEASED, or 0 for a slot never used since the last rebuild */
    _Atomic(const char*) sourcePath;
    _Atomic unsigned int size;
    _Atomic unsigned int pair;
    _Atomic int line;
} Record;

/* Open addressing with linear probing, at most half full counting released slots.
 * Tables are mapped memory and never unmapped: a reader that still holds a table its
 * heap has replaced reads zeros or a later table's slots, and the sequence number
 * sends it round again. */
typedef struct Table {
    _Atomic size_t mask; /* capacity - 1 */
    Record slots[];
} Table;

/* The counts of one pair made by one heap's thread: a block freed by another thread
 * is counted off there, so a heap's live bytes may go below zero; the sum never does.
 * Live blocks are allocations less releases. */
typedef struct Counts {
    _Atomic unsigned long long allocations;
    _Atomic unsigned long long releases;
    _Atomic long long liveBytes;
} Counts;

/* What other threads' frees read comes first, on a cache line the owner writes only
 * when it replaces its table: a thread freeing a stream of another thread's blocks
 * would otherwise take a cache miss on every one of them, and cost the owner one at
 * its next allocation. */
typedef struct Heap {
    _Atomic uint32_t generation; /* odd while the owner moves its records to a new table */
    _Atomic(Table*) table;        /* NULL until the first allocation */
    struct Heap* next;            /* in g_heaps, set before the heap is published */
    Counts* counts;               /* PAIR_LIMIT entries, in the heap's own mapping */
    _Alignas(64) _Atomic uint32_t sequence; /* odd while the owner changes records or counts */
    /* Only the owning thread touches the rest. */
    size_t used;  /* slots live or released */
    size_t limit; /* a rebuild comes before `used` reaches it */
    const char* lastComponent; /* most threads allocate under one pair most of the time */
    const char* lastLabel;
    unsigned int lastPair;
    struct Heap* lastRemote; /* where this thread last found a block another thread allocated */
    uintptr_t lastKey;       /* the block last recorded or released here (0: none) ... */
    Record* lastSlot;        /* ... and its slot in the current table */
    Table* spare[sizeof(size_t) * 8u]; /* replaced tables by log2 of capacity, for reuse */
    struct Heap* nextIdle; /* under g_heapLock */
} Heap;

static pthread_mutex_t g_heapLock = PTHREAD_MUTEX_INITIALIZER;
static _Atomic(Heap*) g_heaps; /* every heap ever made, newest first; never shrinks */
static Heap* g_idleHeaps;      /* under g_heapLock: heaps whose thread has ended */
static pthread_once_t g_keyOnce = PTHREAD_ONCE_INIT;
static pthread_key_t g_key;
static int g_keyValid;
static _Thread_local Heap* t_heap __attribute__((tls_model("initial-exec")));

static uint64_t mix(uint64_t x)
{
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdULL;
    x ^= x >> 33;
    x *= 0xc4ceb9fe1a85ec53ULL;
    x ^= x >> 33;
    return x;
}

/* Where a block's record lives. Blocks allocated one after another lie next to each
 * other, and so, largely, do their frees; a hash that scattered them would cost a
 * cache miss per allocation and per free once the table outgrows the cache, and
 * where one thread allocates and another frees, a cache line moving between their
 * cores for every block. So the address is split: its window (WINDOW_GRANULES
 * granules of 16 bytes) is hashed (Fibonacci: one multiplication) and picks a run of
 * slots, and the granule within the window keeps its order inside that run.
 * Neighbouring blocks thus share nearby slots, and a run of slots fills up with the
 * records and released marks of one window's blocks; claimSlot keeps from walking
 * such a run to its end. */
#define GRANULE_SHIFT 4u
#define WINDOW_BITS 6u
#define WINDOW_GRANULES (1u << WINDOW_BITS)

static inline size_t homeOf(uintptr_t key)
{
    uint64_t granule = (uint64_t)~key >> GRANULE_SHIFT;
    uint64_t window = ((granule >> WINDOW_BITS) * 0x9E3779B97F4A7C15ull) >> 29u;
    return (size_t)((window << WINDOW_BITS) | (granule & (WINDOW_GRANULES - 1u)));
}

/* ---- pairs -------------------------------------------------------------------- */

static unsigned int aliasHome(const char* component, const char* label)
{
    uint64_t h = mix((uint64_t)(uintptr_t)component * 31u + (uint64_t)(uintptr_t)label);
    return (unsigned int)h & (ALIAS_SLOTS - 1u);
}

/* Caller holds g_pairLock. */
static unsigned int findOrAddPair(const char* component, const char* label)
{
    unsigned int count = atomic_load_explicit(&g_pairCount, memory_order_relaxed);
    for (unsigned int i = 1; i < count; ++i) {
        if (strcmp(g_pairs[i].component, component) == 0 && strcmp(g_pairs[i].label, label) == 0)
            return i;
    }
    if (count == PAIR_LIMIT)
        return 0;
    g_pairs[count].component = component;
    g_pairs[count].label = label;
    atomic_store_explicit(&g_pairCount, count + 1u, memory_order_release);
    return count;
}

static unsigned int findPair(const char* component, const char* label)
{
    if (component == Morvex_NULL)
        component = "";
    if (label == Morvex_NULL)
        label = "";
    /* The alias table is never more than three quarters full, so probing ends. */
    unsigned int i = aliasHome(component, label);
    for (;; i = (i + 1u) & (ALIAS_SLOTS - 1u)) {
        const Alias* alias = atomic_load_explicit(&g_aliasSlots[i], memory_order_acquire);
        if (alias == Morvex_NULL)
            break;
        if (alias->component == component && alias->label == label)
            return alias->pair;
    }

    pthread_mutex_lock(&g_pairLock);
    unsigned int pair = findOrAddPair(component, label);
    if (g_aliasUsed < ALIAS_LIMIT) {
        /* Another thread may have published the same alias meanwhile; a duplicate is
         * harmless as both name the same pair. Only this lock's holder fills slots. */
        for (;; i = (i + 1u) & (ALIAS_SLOTS - 1u)) {
            if (atomic_load_explicit(&g_aliasSlots[i], memory_order_relaxed) == Morvex_NULL)
                break;
        }
        Alias* alias = &g_aliasPool[g_aliasUsed++];
        alias->component = component;
        alias->label = label;
        alias->pair = pair;
        atomic_store_explicit(&g_aliasSlots[i], alias, memory_order_release);
    }
    pthread_mutex_unlock(&g_pairLock);
    return pair;
}

/* ---- heaps -------------------------------------------------------------------- */

static void* mapZeroed(size_t bytes)
{
    void* memory = mmap(Morvex_NULL, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? Morvex_NULL : memory;
}

static size_t tableBytes(size_t capacity)
{
    return sizeof(Table) + capacity * sizeof(Record);
}

/* The owner's side of the sequence. The fence makes the odd number visible before
 * any change it announces. */
static inline uint32_t beginChange(Heap* heap)
{
    uint32_t sequence = atomic_load_explicit(&heap->sequence, memory_order_relaxed);
    atomic_store_explicit(&heap->sequence, sequence + 1u, memory_order_relaxed);
    atomic_thread_fence(memory_order_release);
    return sequence;
}

static inline void endChange(Heap* heap, uint32_t sequence)
{
    atomic_store_explicit(&heap->sequence, sequence + 2u, memory_order_release);
}

/* A reader's wait for a heap at rest: the owner's changes are a few stores, unless
 * it was preempted in one. */
static void backOff(unsigned int round)
{
    if (round >= 64u)
        sched_yield();
}

/* `number` is a heap's sequence or generation. */
static uint32_t beginRead(const _Atomic uint32_t* number)
{
    for (unsigned int round = 0;; ++round) {
        uint32_t sequence = atomic_load_explicit((_Atomic uint32_t*)number, memory_order_acquire);
        if ((sequence & 1u) == 0u)
            return sequence;
        backOff(round);
    }
}

static int readHeld(const Heap* heap, uint32_t sequence)
{
    atomic_thread_fence(memory_order_acquire);
    return atomic_load_explicit(&((Heap*)heap)->sequence, memory_order_relaxed) == sequence;
}

static inline void bump(_Atomic unsigned long long* counter)
{
    atomic_store_explicit(counter, atomic_load_explicit(counter, memory_order_relaxed) + 1u, memory_order_relaxed);
}

static inline void addBytes(Counts* counts, long long bytes)
{
    atomic_store_explicit(&counts->liveBytes, atomic_load_explicit(&counts->liveBytes, memory_order_relaxed) + bytes,
                          memory_order_relaxed);
}

/* Caller is the owner, inside a change. */
static inline void countRelease(Heap* heap, unsigned int pair, unsigned int size)
{
    Counts* counts = &heap->counts[pair];
    bump(&counts->releases);
    addBytes(counts, -(long long)size);
}

/* What a heap's last pair is set to when no thread has allocated through it yet, so
 * that no caller's strings (NULL included) can match it: the next allocation looks
 * its pair up instead of taking the previous owner's. */
static const char g_noPair[] = "";

static void detachHeap(void* value)
{
    Heap* heap = (Heap*)value;
    t_heap = Morvex_NULL;
    heap->lastComponent = g_noPair;
    heap->lastLabel = g_noPair;
    heap->lastRemote = Morvex_NULL;
    pthread_mutex_lock(&g_heapLock);
    heap->nextIdle = g_idleHeaps;
    g_idleHeaps = heap;
    pthread_mutex_unlock(&g_heapLock);
}

static void createKey(void)
{
    g_keyValid = pthread_key_create(&g_key, detachHeap) == 0;
}

/* The calling thread's heap: one a thread that ended left behind, or a new one.
 * Without a key (or once the thread's key destructors have run) the thread can't be
 * told of its end, and keeps the heap for good: still exact, only not reused. */
static __attribute__((noinline)) Heap* attachHeap(void)
{
    pthread_once(&g_keyOnce, createKey);
    pthread_mutex_lock(&g_heapLock);
    Heap* heap = g_idleHeaps;
    if (heap != Morvex_NULL)
        g_idleHeaps = heap->nextIdle;
    pthread_mutex_unlock(&g_heapLock);
    if (heap == Morvex_NULL) {
        size_t head = (sizeof(Heap) + 63u) / 64u * 64u;
        heap = (Heap*)mapZeroed(head + PAIR_LIMIT * sizeof(Counts));
        if (heap == Morvex_NULL)
            return Morvex_NULL;
        heap->counts = (Counts*)(void*)((char*)heap + head);
        heap->lastComponent = g_noPair;
        heap->lastLabel = g_noPair;
        pthread_mutex_lock(&g_heapLock);
        heap->next = atomic_load_explicit(&g_heaps, memory_order_relaxed);
        atomic_store_explicit(&g_heaps, heap, memory_order_release);
        pthread_mutex_unlock(&g_heapLock);
    }
    if (g_keyValid)
        (void)pthread_setspecific(g_key, heap);
    t_heap = heap;
    return heap;
}

static inline Heap* currentHeap(void)
{
    Heap* heap = t_heap;
    return MORVEX_LIKELY(heap != Morvex_NULL) ? heap : attachHeap();
}

/* ---- the owner's records ------------------------------------------------------ */

static unsigned int log2Of(size_t capacity)
{
    unsigned int bits = 0;
    while (capacity > 1u) {
        capacity >>= 1u;
        ++bits;
    }
    return bits;
}

/* A replaced table keeps its addresses (see Table); a large one gives its memory
 * back. One per size is kept for the next rebuild of that size. */
#define RETURNED_BYTES (64u * 1024u)

static void retireTable(Heap* heap, Table* table, size_t capacity)
{
    if (tableBytes(capacity) >= RETURNED_BYTES)
        (void)madvise(table, tableBytes(capacity), MADV_DONTNEED);
    Table** spare = &heap->spare[log2Of(capacity)];
    if (*spare == Morvex_NULL)
        *spare = table;
}

/* Caller is the owner, outside a change. Copies the live records into a table with
 * room for them at a quarter full; released slots are left behind. 0 when no memory
 * could be had for it. */
static __attribute__((noinline)) int rebuild(Heap* heap)
{
    Table* old = atomic_load_explicit(&heap->table, memory_order_relaxed);
    size_t oldCapacity = old != Morvex_NULL ? atomic_load_explicit(&old->mask, memory_order_relaxed) + 1u : 0u;
    size_t live = 0;
    for (size_t i = 0; i < oldCapacity; ++i)
        live += atomic_load_explicit(&old->slots[i].key, memory_order_relaxed) > RELEASED;
    size_t capacity = oldCapacity > FIRST_CAPACITY ? oldCapacity : FIRST_CAPACITY;
    while (capacity / 4u < live + 1u) {
        if (capacity > SIZE_MAX / 2u / sizeof(Record))
            return 0;
        capacity *= 2u;
    }
    Table** spare = &heap->spare[log2Of(capacity)];
    Table* table = *spare;
    if (table != Morvex_NULL) {
        /* Slow readers may still look at it: cleared key by key, never in one sweep
         * they could see half done. */
        *spare = Morvex_NULL;
        for (size_t i = 0; i < capacity; ++i)
            atomic_store_explicit(&table->slots[i].key, (uintptr_t)0, memory_order_relaxed);
    } else if ((table = (Table*)mapZeroed(tableBytes(capacity))) == Morvex_NULL) {
        return 0;
    }
    size_t mask = capacity - 1u;
    atomic_store_explicit(&table->mask, mask, memory_order_relaxed);

    uint32_t generation = atomic_load_explicit(&heap->generation, memory_order_relaxed);
    atomic_store_explicit(&heap->generation, generation + 1u, memory_order_relaxed);
    uint32_t sequence = beginChange(heap);
    /* A thread freeing one of these blocks marks it released in the old table with
     * a compare-and-swap and then reads the generation. This fence orders the odd
     * number before the reads below, so either the copy sees the mark, or that
     * thread sees the number move and looks again in the new table. */
    atomic_thread_fence(memory_order_seq_cst);
    size_t used = 0;
    for (size_t j = 0; j < oldCapacity; ++j) {
        const Record* from = &old->slots[j];
        uintptr_t key = atomic_load_explicit(&from->key, memory_order_relaxed);
        if (key <= RELEASED)
            continue;
        size_t i = homeOf(key) & mask;
        while (atomic_load_explicit(&table->slots[i].key, memory_order_relaxed) != 0u)
            i = (i + 1u) & mask;
        Record* to = &table->slots[i];
        atomic_store_explicit(&to->sourcePath, atomic_load_explicit(&from->sourcePath, memory_order_relaxed),
                              memory_order_relaxed);
        atomic_store_explicit(&to->size, atomic_load_explicit(&from->size, memory_order_relaxed),
                              memory_order_relaxed);
        atomic_store_explicit(&to->pair, atomic_load_explicit(&from->pair, memory_order_relaxed),
                              memory_order_relaxed);
        atomic_store_explicit(&to->line, atomic_load_explicit(&from->line, memory_order_relaxed),
                              memory_order_relaxed);
        atomic_store_explicit(&to->key, key, memory_order_release);
        ++used;
    }
    atomic_store_explicit(&heap->table, table, memory_order_release);
    heap->lastKey = 0u;
    heap->used = used;
    heap->limit = capacity / 2u;
    endChange(heap, sequence);
    atomic_store_explicit(&heap->generation, generation + 2u, memory_order_release);
    if (old != Morvex_NULL)
        retireTable(heap, old, oldCapacity);
    return 1;
}

/* Caller is the owner, inside a change; slot `end` is empty. Released slots just
 * before an empty one end no probe that would not end at the empty one anyway, so
 * they become empty too (all but `kept`, which the caller is about to fill): released
 * marks don't pile up where blocks come and go. */
static void clearReleasedBefore(Heap* heap, Table* table, size_t mask, size_t end, const Record* kept)
{
    size_t i = (end - 1u) & mask;
    while (&table->slots[i] != kept &&
           atomic_load_explicit(&table->slots[i].key, memory_order_relaxed) == RELEASED) {
        atomic_store_explicit(&table->slots[i].key, (uintptr_t)0, memory_order_relaxed);
        --heap->used;
        i = (i - 1u) & mask;
    }
}

/* Caller is the owner, inside a change. The slot for `key`: a live record of it
 * left by a block that went back through plain free() (counted off here: its address
 * is ours now), else the first released slot on its probe, else the empty slot that
 * ends the probe. Past the first released slot the search for an old record goes on
 * for STALE_REACH slots only: in a run crowded with released marks, walking to its
 * end would cost more than all else here. An old record it misses lies further on
 * than the new one, so a lookup or a free finds the new one first. */
#define STALE_REACH 8u

static Record* claimSlot(Heap* heap, Table* table, uintptr_t key)
{
    const size_t mask = atomic_load_explicit(&table->mask, memory_order_relaxed);
    size_t i = homeOf(key) & mask;
    Record* target = Morvex_NULL;
    unsigned int reach = STALE_REACH;
    for (;; i = (i + 1u) & mask) {
        Record* slot = &table->slots[i];
        uintptr_t found = atomic_load_explicit(&slot->key, memory_order_relaxed);
        if (found == 0u)
            break;
        if (found == key) {
            countRelease(heap, atomic_load_explicit(&slot->pair, memory_order_relaxed),
                         atomic_load_explicit(&slot->size, memory_order_relaxed));
            return slot;
        }
        if (target != Morvex_NULL) {
            if (--reach == 0u)
                return target;
        } else if (found == RELEASED) {
            target = slot;
        }
    }
    if (target == Morvex_NULL) {
        ++heap->used;
        return &table->slots[i];
    }
    clearReleasedBefore(heap, table, mask, i, target);
    return target;
}

/* Records the block at `p` in the caller's heap. 0 when the table could not grow.
 * Most blocks are freed soon, on the thread that allocated them, and malloc hands the
 * same address out again next: the slot the last release left is then taken without
 * a probe. It is on the address's probe path still, and nothing else of that
 * address is live in the table (see claimSlot). */
static inline __attribute__((always_inline)) int record(Heap* heap, const void* p, unsigned int size,
                                                        unsigned int pair, const char* sourcePath, int line)
{
    if (MORVEX_UNLIKELY(heap->used >= heap->limit) && !rebuild(heap))
        return 0;
    const uintptr_t key = ~(uintptr_t)p;
    Table* table = atomic_load_explicit(&heap->table, memory_order_relaxed);
    uint32_t sequence = beginChange(heap);
    Record* slot = heap->lastSlot;
    if (key != heap->lastKey || atomic_load_explicit(&slot->key, memory_order_relaxed) != RELEASED)
        slot = claimSlot(heap, table, key);
    atomic_store_explicit(&slot->sourcePath, sourcePath, memory_order_relaxed);
    atomic_store_explicit(&slot->size, size, memory_order_relaxed);
    atomic_store_explicit(&slot->pair, pair, memory_order_relaxed);
    atomic_store_explicit(&slot->line, line, memory_order_relaxed);
    atomic_store_explicit(&slot->key, key, memory_order_release);
    heap->lastKey = key;
    heap->lastSlot = slot;
    Counts* counts = &heap->counts[pair];
    bump(&counts->allocations);
    addBytes(counts, (long long)size);
    endChange(heap, sequence);
    return 1;
}

/* Caller is the owner; slot `i` holds a live record. The slot is left released for
 * the next allocation whose probe passes it (see record). */
static inline void releaseOwn(Heap* heap, Record* slot)
{
    uint32_t sequence = beginChange(heap);
    countRelease(heap, atomic_load_explicit(&slot->pair, memory_order_relaxed),
                 atomic_load_explicit(&slot->size, memory_order_relaxed));
    atomic_store_explicit(&slot->key, RELEASED, memory_order_relaxed);
    endChange(heap, sequence);
}

/* ---- other threads' records --------------------------------------------------- */

/* Looks for the live record of `key` in `table`: its slot, or SIZE_MAX. The table
 * may be changing or stale, so the probe is bounded; the caller checks the sequence. */
static size_t probeShared(const Table* table, uintptr_t key)
{
    const size_t mask = atomic_load_explicit(&((Table*)table)->mask, memory_order_relaxed);
    size_t i = homeOf(key) & mask;
    for (size_t n = 0; n <= mask; ++n, i = (i + 1u) & mask) {
        uintptr_t found = atomic_load_explicit(&((Table*)table)->slots[i].key, memory_order_acquire);
        if (found == key)
            return i;
        if (found == 0u)
            break;
    }
    return SIZE_MAX;
}

/* Marks the live record of `key` in another thread's heap released. Returns 1 and
 * the record's pair and size when this call released it, 0 when the heap has no
 * live record of it.
 *
 * A live record's fields never change where it lies (the owner writes a slot only
 * once it is empty or released), so what is read just before a successful
 * compare-and-swap is the block's. Nor does the owner's other work cut short a probe
 * for a live record: it empties released slots only in a run that ends at an empty
 * slot, which a live record on the way would break. Only a new table moves records,
 * and the generation tells: if it moved, the record is looked for again in the
 * current table, until a look finds the same table before and after. (The owner's
 * rebuild fences between announcing itself and copying; see rebuild.) */
static int releaseShared(Heap* heap, uintptr_t key, unsigned int* pair, unsigned int* size)
{
    int released = 0;
    for (;;) {
        uint32_t generation = beginRead(&heap->generation);
        const Table* table = atomic_load_explicit(&heap->table, memory_order_acquire);
        if (table == Morvex_NULL)
            return released;
        size_t i = probeShared(table, key);
        if (i != SIZE_MAX) {
            Record* slot = &((Table*)table)->slots[i];
            unsigned int foundPair = atomic_load_explicit(&slot->pair, memory_order_relaxed);
            unsigned int foundSize = atomic_load_explicit(&slot->size, memory_order_relaxed);
            uintptr_t expected = key;
            if (atomic_compare_exchange_strong_explicit(&slot->key, &expected, RELEASED, memory_order_seq_cst,
                                                        memory_order_relaxed)) {
                released = 1;
                *pair = foundPair;
                *size = foundSize;
            } else if (atomic_load_explicit(&heap->generation, memory_order_seq_cst) == generation) {
                /* Released by someone else in the current table: a second free of the block. */
                return released;
            }
        }
        if (atomic_load_explicit(&heap->generation, memory_order_seq_cst) == generation)
            return released;
    }
}

/* Copies the live record of `key` in `heap` into `info`; 1 when there is one. */
static int lookupIn(const Heap* heap, uintptr_t key, sMorvex_PAL_AllocInfo* info)
{
    for (;;) {
        uint32_t sequence = beginRead(&heap->sequence);
        const Table* table = atomic_load_explicit(&((Heap*)heap)->table, memory_order_acquire);
        int found = 0;
        if (table != Morvex_NULL) {
            size_t i = probeShared(table, key);
            if (i != SIZE_MAX) {
                Record* slot = &((Table*)table)->slots[i];
                unsigned int pair = atomic_load_explicit(&slot->pair, memory_order_relaxed);
                info->size = atomic_load_explicit(&slot->size, memory_order_relaxed);
                info->sourcePath = atomic_load_explicit(&slot->sourcePath, memory_order_relaxed);
                info->line = atomic_load_explicit(&slot->line, memory_order_relaxed);
                if (pair < PAIR_LIMIT) {
                    info->component = g_pairs[pair].component;
                    info->label = g_pairs[pair].label;
                    found = 1;
                }
            }
        }
        if (readHeld(heap, sequence))
            return found;
    }
}

/* The block is not in the caller's heap: another thread allocated it (or malloc did).
 * The heap that last had one is tried first; a producer's blocks tend to be freed by
 * the same consumers. */
static __attribute__((noinline)) void releaseElsewhere(Heap* own, uintptr_t key)
{
    /* Without a heap of its own the thread has nowhere to count the release, so the
     * record stays as a block gone through plain free() would leave it. */
    if (own == Morvex_NULL)
        return;
    unsigned int pair = 0, size = 0;
    Heap* hint = own->lastRemote;
    Heap* from = Morvex_NULL;
    if (hint != Morvex_NULL && releaseShared(hint, key, &pair, &size)) {
        from = hint;
    } else {
        for (Heap* heap = atomic_load_explicit(&g_heaps, memory_order_acquire); heap != Morvex_NULL;
             heap = heap->next) {
            if (heap != own && heap != hint && releaseShared(heap, key, &pair, &size)) {
                from = heap;
                break;
            }
        }
    }
    if (from == Morvex_NULL)
        return;
    own->lastRemote = from;
    uint32_t sequence = beginChange(own);
    countRelease(own, pair, size);
    endChange(own, sequence);
}

/* ---- the interface ------------------------------------------------------------ */

static void* failRequest(unsigned int pair)
{
    atomic_fetch_add_explicit(&g_pairs[pair].failures, 1u, memory_order_relaxed);
    return Morvex_NULL;
}

/* Records `p` (NULL: counts the failure) in the caller's heap, which exists. */
static inline void* track(void* p, unsigned int size, const char* sourcePath, int line)
{
    Heap* heap = t_heap;
    if (MORVEX_UNLIKELY(p == Morvex_NULL))
        return failRequest(heap->lastPair);
    if (MORVEX_UNLIKELY(!record(heap, p, size, heap->lastPair, sourcePath, line))) {
        free(p);
        return failRequest(heap->lastPair);
    }
    return p;
}

/* Everything but the common case: the thread's first allocation, another pair than
 * its last, a fault armed. */
static __attribute__((noinline)) void* allocateChecked(unsigned int size, const char* component, const char* label,
                                                       const char* sourcePath, int line)
{
    unsigned int pair = findPair(component, label);
    int code;
    if (MORVEX_FAULT_CHECK(MORVEX_FAULT_zmalloc, &code))
        return failRequest(pair);
    Heap* heap = currentHeap();
    if (heap == Morvex_NULL)
        return failRequest(pair);
    heap->lastComponent = component;
    heap->lastLabel = label;
    heap->lastPair = pair;
    return track(malloc(size != 0 ? size : 1u), size, sourcePath, line);
}

void* Morvex_PAL_zmalloc(unsigned int size, const char* component, const char* label, const char* sourcePath,
                         int line)
{
    Heap* heap = t_heap;
    if (MORVEX_UNLIKELY(heap == Morvex_NULL || heap->lastComponent != component || heap->lastLabel != label ||
                        !morvexFaultQuick(MORVEX_FAULT_zmalloc)))
        return allocateChecked(size, component, label, sourcePath, line);
    return track(malloc(size != 0 ? size : 1u), size, sourcePath, line);
}

void Morvex_PAL_zfree(void* p, const char* sourcePath, int line)
{
    (void)sourcePath;
    (void)line;
    if (p == Morvex_NULL)
        return;
    const uintptr_t key = ~(uintptr_t)p;
    if (MORVEX_UNLIKELY(key <= RELEASED)) { /* no address malloc hands out */
        free(p);
        return;
    }
    /* The record goes before the memory does: once free() returns, another thread's
     * zmalloc may get the same address. */
    Heap* heap = currentHeap(); /* taking over a heap, the thread may find its own blocks there */
    if (MORVEX_LIKELY(heap != Morvex_NULL && key == heap->lastKey) &&
        atomic_load_explicit(&heap->lastSlot->key, memory_order_relaxed) == key) {
        releaseOwn(heap, heap->lastSlot);
        free(p);
        return;
    }
    Table* table = heap != Morvex_NULL ? atomic_load_explicit(&heap->table, memory_order_relaxed) : Morvex_NULL;
    if (MORVEX_LIKELY(table != Morvex_NULL)) {
        const size_t mask = atomic_load_explicit(&table->mask, memory_order_relaxed);
        for (size_t i = homeOf(key) & mask;; i = (i + 1u) & mask) {
            uintptr_t found = atomic_load_explicit(&table->slots[i].key, memory_order_relaxed);
            if (found == key) {
                heap->lastKey = key;
                heap->lastSlot = &table->slots[i];
                releaseOwn(heap, &table->slots[i]);
                free(p);
                return;
            }
            if (found == 0u)
                break;
        }
    }
    releaseElsewhere(heap, key);
    free(p);
}

int Morvex_PAL_AllocLookup(const void* p, sMorvex_PAL_AllocInfo* info)
{
    if (p == Morvex_NULL || info == Morvex_NULL)
        return 1;
    const uintptr_t key = ~(uintptr_t)p;
    if (key <= RELEASED)
        return 1;
    /* The caller's own heap first: a block it allocated outranks a record another
     * thread left for a block that went back through plain free(). */
    sMorvex_PAL_AllocInfo found;
    Heap* own = t_heap;
    int live = own != Morvex_NULL && lookupIn(own, key, &found);
    for (const Heap* heap = atomic_load_explicit(&g_heaps, memory_order_acquire); !live && heap != Morvex_NULL;
         heap = heap->next)
        live = heap != own && lookupIn(heap, key, &found);
    if (!live)
        return 1;
    *info = found;
    return 0;
}

/* Adds up every heap's counts of the matching pairs. A block allocated on one thread
 * and freed on another moves two heaps' counts, so the sum is taken again until no
 * heap changed while it was read (every change moves its heap's sequence number, and
 * the numbers only grow). Under a load that never lets that happen, the last sum is
 * kept, with live counts that can't be below zero. */
static void sumCounts(const unsigned char* matches, unsigned int pairs, sMorvex_PAL_AllocStats* stats)
{
    long long liveBlocks = 0, liveBytes = 0;
    unsigned long long allocations = 0;
    for (unsigned int attempt = 0; attempt < 1000u; ++attempt) {
        uint64_t before = 0, after = 0;
        int atRest = 1;
        liveBlocks = liveBytes = 0;
        allocations = 0;
        const Heap* first = atomic_load_explicit(&g_heaps, memory_order_acquire);
        for (const Heap* heap = first; heap != Morvex_NULL; heap = heap->next) {
            uint32_t sequence = atomic_load_explicit(&((Heap*)heap)->sequence, memory_order_acquire);
            atRest &= (sequence & 1u) == 0u;
            before += sequence;
        }
        for (const Heap* heap = first; heap != Morvex_NULL; heap = heap->next) {
            for (unsigned int i = 0; i < pairs; ++i) {
                if (matches[i]) {
                    Counts* counts = &heap->counts[i];
                    unsigned long long made = atomic_load_explicit(&counts->allocations, memory_order_relaxed);
                    liveBlocks += (long long)(made - atomic_load_explicit(&counts->releases, memory_order_relaxed));
                    liveBytes += atomic_load_explicit(&counts->liveBytes, memory_order_relaxed);
                    allocations += made;
                }
            }
        }
        atomic_thread_fence(memory_order_acquire);
        for (const Heap* heap = first; heap != Morvex_NULL; heap = heap->next)
            after += atomic_load_explicit(&((Heap*)heap)->sequence, memory_order_relaxed);
        /* A heap made meanwhile may hold the release of a block counted live above. */
        if (atRest && before == after && atomic_load_explicit(&g_heaps, memory_order_relaxed) == first)
            break;
        backOff(attempt);
    }
    stats->liveBlocks = liveBlocks > 0 ? (unsigned int)liveBlocks : 0u;
    stats->liveBytes = liveBytes > 0 ? (unsigned long long)liveBytes : 0u;
    stats->allocations = allocations;
}

int Morvex_PAL_AllocGetStats(const char* component, const char* label, sMorvex_PAL_AllocStats* stats)
{
    if (stats == Morvex_NULL)
        return 1;
    memset(stats, 0, sizeof *stats);
    unsigned int count = atomic_load_explicit(&g_pairCount, memory_order_acquire);
    unsigned char matches[PAIR_LIMIT];
    unsigned long long failures = 0;
    for (unsigned int i = 0; i < count; ++i) {
        const Pair* pair = &g_pairs[i];
        matches[i] = component == Morvex_NULL ||
                     (strcmp(pair->component, component) == 0 && (label == Morvex_NULL || strcmp(pair->label, label) == 0));
        if (matches[i])
            failures += atomic_load_explicit(&pair->failures, memory_order_relaxed);
    }
    sumCounts(matches, count, stats);
    stats->failures = failures;
    return 0;
}

/* The raw functions refuse NULL pointers instead of crashing: they return NULL (or
 * compare NULL below any string) and touch nothing. */

void* Morvex_PAL_memcpy(void* dst, const void* src, unsigned int n)
{
    int code;
    if (MORVEX_FAULT_CHECK(MORVEX_FAULT_memcpy, &code) || dst == Morvex_NULL || src == Morvex_NULL)
        return Morvex_NULL;
    return memcpy(dst, src, n);
}

void* Morvex_PAL_memset(void* dst, int value, unsigned int n)
{
    int code;
    if (MORVEX_FAULT_CHECK(MORVEX_FAULT_memset, &code) || dst == Morvex_NULL)
        return Morvex_NULL;
    return memset(dst, value, n);
}

static int compareNull(const void* a, const void* b)
{
    return (a == b) ? 0 : (a == Morvex_NULL ? -1 : 1);
}

int Morvex_PAL_memcmp(const void* a, const void* b, unsigned int n)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_memcmp, int);
    if (a == Morvex_NULL || b == Morvex_NULL)
        return n == 0 ? 0 : compareNull(a, b);
    return memcmp(a, b, n);
}

int Morvex_PAL_strcmp(const char* a, const char* b)
{
    MORVEX_FAULT_RETURN(MORVEX_FAULT_strcmp, int);
    if (a == Morvex_NULL || b == Morvex_NULL)
        return compareNull(a, b);
    return strcmp(a, b);
}
