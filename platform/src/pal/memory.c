#include "morvex_pal_memory.h"

#include "fault_internal.h"
#include "futex_internal.h"

#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

/* Everything here runs on every allocation of the process (the C++ library routes
 * operator new through zmalloc), possibly before main and on any thread. So: only
 * statically initialised state, no lazy set-up, nothing that allocates except malloc
 * itself, and the common path takes one shard lock (one atomic operation each way)
 * and nothing shared beyond it: the counts live in the shards, added up on demand. */

#define PAIR_LIMIT 1024u
#define ALIAS_SLOTS 4096u /* power of two */
#define ALIAS_LIMIT (ALIAS_SLOTS / 4u * 3u)
#define SHARD_BITS 6u
#define FIRST_TABLE_SIZE 64u

/* One (component, label) pair. Entry 0 catches whatever arrives once the table of
 * pairs is full, so a runaway caller can't make allocation fail. Failures are rare and
 * counted here; everything else is counted in the shards. */
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

/* Most threads allocate under one pair most of the time. */
static _Thread_local const char* t_lastComponent __attribute__((tls_model("initial-exec")));
static _Thread_local const char* t_lastLabel __attribute__((tls_model("initial-exec")));
static _Thread_local unsigned int t_lastPair __attribute__((tls_model("initial-exec")));

/* A live block. The address is kept inverted so that a leak checker scanning memory
 * for pointers does not take this table for a reference to a block the program lost. */
typedef struct Record {
    uintptr_t key; /* ~address; 0 marks an empty slot */
    const char* sourcePath;
    unsigned int size;
    unsigned int pair;
    int line;
    uint32_t hash; /* low bits of the key's hash: moving a record needs no rehashing */
} Record;

/* The counts of the blocks of one pair that live in one shard. */
typedef struct Counts {
    unsigned int liveBlocks;
    unsigned long long liveBytes;
    unsigned long long allocations;
} Counts;

/* Open addressing with linear probing and backward-shift deletion (no tombstones).
 * A block is freed through the shard it was recorded in, so its pair's counts in
 * that shard never go below zero. */
typedef struct Shard {
    _Alignas(64) MorvexLock lock;
    Record* records;
    size_t mask; /* capacity - 1, when records is not NULL */
    size_t used;
    Counts* counts; /* indexed by pair, `countCapacity` entries */
    unsigned int countCapacity;
} Shard;

#define SHARD_INIT {MORVEX_LOCK_INIT, Morvex_NULL, 0, 0, Morvex_NULL, 0}
#define SHARD_INIT4 SHARD_INIT, SHARD_INIT, SHARD_INIT, SHARD_INIT
#define SHARD_INIT16 SHARD_INIT4, SHARD_INIT4, SHARD_INIT4, SHARD_INIT4
static Shard g_shards[1u << SHARD_BITS] = {SHARD_INIT16, SHARD_INIT16, SHARD_INIT16, SHARD_INIT16};

static uint64_t mix(uint64_t x)
{
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdULL;
    x ^= x >> 33;
    x *= 0xc4ceb9fe1a85ec53ULL;
    x ^= x >> 33;
    return x;
}

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

static unsigned int resolvePair(const char* component, const char* label)
{
    if (component == Morvex_NULL)
        component = "";
    if (label == Morvex_NULL)
        label = "";
    if (component == t_lastComponent && label == t_lastLabel)
        return t_lastPair;
    /* The alias table is never more than three quarters full, so probing ends. */
    unsigned int i = aliasHome(component, label);
    for (;; i = (i + 1u) & (ALIAS_SLOTS - 1u)) {
        const Alias* alias = atomic_load_explicit(&g_aliasSlots[i], memory_order_acquire);
        if (alias == Morvex_NULL)
            break;
        if (alias->component == component && alias->label == label) {
            t_lastComponent = component;
            t_lastLabel = label;
            t_lastPair = alias->pair;
            return alias->pair;
        }
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

/* Where a block's record lives. Blocks allocated one after another lie next to each
 * other, and so, largely, do their frees; a hash that scattered them would cost a
 * cache miss per allocation and per free once the table outgrows the cache. So the
 * address is split: its window (WINDOW_GRANULES granules of 16 bytes) is mixed and
 * picks the shard and a run of slots, and the granule within the window keeps its
 * order inside that run. Neighbouring blocks thus share a shard and nearby slots. */
#define GRANULE_SHIFT 4u
#define WINDOW_BITS 6u
#define WINDOW_GRANULES (1u << WINDOW_BITS)

static uint64_t hashOf(uintptr_t key)
{
    uint64_t granule = (uint64_t)~key >> GRANULE_SHIFT;
    uint64_t window = mix(granule >> WINDOW_BITS);
    return (window << WINDOW_BITS) | (granule & (WINDOW_GRANULES - 1u));
}

static Shard* shardOf(uintptr_t key, uint64_t* hash)
{
    *hash = hashOf(key);
    /* The top bits come from the mixed window alone. */
    return &g_shards[*hash >> (64u - SHARD_BITS)];
}

/* A shard never holds 2^32 records, so the stored low bits give the home slot. */
static size_t homeOf(const Shard* shard, const Record* record)
{
    return (size_t)record->hash & shard->mask;
}

/* Caller holds the shard's lock. Returns the slot of `key`, or of the empty slot that
 * ends its probe sequence. */
static size_t probe(const Shard* shard, uintptr_t key, uint64_t hash)
{
    size_t i = (size_t)hash & shard->mask;
    while (shard->records[i].key != 0 && shard->records[i].key != key)
        i = (i + 1u) & shard->mask;
    return i;
}

/* Caller holds the shard's lock. Grows with plain calloc: the tracked allocator must
 * not feed itself. */
static int grow(Shard* shard)
{
    size_t capacity = shard->records ? (shard->mask + 1u) * 2u : FIRST_TABLE_SIZE;
    if (capacity > SIZE_MAX / sizeof(Record))
        return 0;
    Record* records = (Record*)calloc(capacity, sizeof(Record));
    if (records == Morvex_NULL)
        return 0;
    Record* old = shard->records;
    size_t oldCapacity = old ? shard->mask + 1u : 0u;
    shard->records = records;
    shard->mask = capacity - 1u;
    for (size_t j = 0; j < oldCapacity; ++j) {
        if (old[j].key == 0)
            continue;
        size_t i = homeOf(shard, &old[j]);
        while (records[i].key != 0)
            i = (i + 1u) & shard->mask;
        records[i] = old[j];
    }
    free(old);
    return 1;
}

/* Caller holds the shard's lock; slot `i` is occupied. */
static void removeAt(Shard* shard, size_t i)
{
    Record* records = shard->records;
    size_t j = i;
    for (;;) {
        j = (j + 1u) & shard->mask;
        if (records[j].key == 0)
            break;
        size_t home = homeOf(shard, &records[j]);
        /* records[j] may move back to i only if i lies on its probe path home..j. */
        int stays = (i <= j) ? (i < home && home <= j) : (i < home || home <= j);
        if (!stays) {
            records[i] = records[j];
            i = j;
        }
    }
    records[i].key = 0;
    --shard->used;
}

/* Caller holds the shard's lock. Grows with plain calloc, as the records do. */
static int reserveCounts(Shard* shard, unsigned int pair)
{
    if (pair < shard->countCapacity)
        return 1;
    unsigned int capacity = shard->countCapacity ? shard->countCapacity : 16u;
    while (capacity <= pair)
        capacity *= 2u;
    Counts* counts = (Counts*)calloc(capacity, sizeof(Counts));
    if (counts == Morvex_NULL)
        return 0;
    if (shard->counts != Morvex_NULL)
        memcpy(counts, shard->counts, shard->countCapacity * sizeof(Counts));
    free(shard->counts);
    shard->counts = counts;
    shard->countCapacity = capacity;
    return 1;
}

/* Caller holds the shard's lock; the record's pair has its counts. */
static void countRelease(Shard* shard, const Record* record)
{
    Counts* counts = &shard->counts[record->pair];
    --counts->liveBlocks;
    counts->liveBytes -= record->size;
}

static void* failRequest(unsigned int pair)
{
    atomic_fetch_add_explicit(&g_pairs[pair].failures, 1u, memory_order_relaxed);
    return Morvex_NULL;
}

void* Morvex_PAL_zmalloc(unsigned int size, const char* component, const char* label, const char* sourcePath,
                         int line)
{
    unsigned int pair = resolvePair(component, label);
    int code;
    if (MORVEX_FAULT_CHECK(MORVEX_FAULT_zmalloc, &code))
        return failRequest(pair);

    void* p = malloc(size != 0 ? size : 1u);
    if (p == Morvex_NULL)
        return failRequest(pair);

    uintptr_t key = ~(uintptr_t)p;
    uint64_t hash;
    Shard* shard = shardOf(key, &hash);
    morvexLock(&shard->lock);
    /* At most half full: neighbouring blocks crowd into runs, and a fuller table lets
     * runs that meet grow into long probes. */
    if (!reserveCounts(shard, pair) ||
        ((shard->records == Morvex_NULL || (shard->used + 1u) * 2u > shard->mask + 1u) && !grow(shard))) {
        morvexUnlock(&shard->lock);
        free(p);
        return failRequest(pair);
    }
    Record* record = &shard->records[probe(shard, key, hash)];
    if (record->key == key) {
        /* A tracked block went back through plain free(); its address is ours now. */
        countRelease(shard, record);
    } else {
        ++shard->used;
    }
    record->key = key;
    record->sourcePath = sourcePath;
    record->size = size;
    record->pair = pair;
    record->line = line;
    record->hash = (uint32_t)hash;
    Counts* counts = &shard->counts[pair];
    ++counts->liveBlocks;
    counts->liveBytes += size;
    ++counts->allocations;
    morvexUnlock(&shard->lock);
    return p;
}

void Morvex_PAL_zfree(void* p, const char* sourcePath, int line)
{
    (void)sourcePath;
    (void)line;
    if (p == Morvex_NULL)
        return;
    uintptr_t key = ~(uintptr_t)p;
    uint64_t hash;
    Shard* shard = shardOf(key, &hash);
    /* The record goes before the memory does: once free() returns, another thread's
     * zmalloc may get the same address and must not find it still recorded. */
    morvexLock(&shard->lock);
    if (shard->records != Morvex_NULL) {
        size_t i = probe(shard, key, hash);
        if (shard->records[i].key == key) {
            countRelease(shard, &shard->records[i]);
            removeAt(shard, i);
        }
    }
    morvexUnlock(&shard->lock);
    free(p);
}

int Morvex_PAL_AllocLookup(const void* p, sMorvex_PAL_AllocInfo* info)
{
    if (p == Morvex_NULL || info == Morvex_NULL)
        return 1;
    uintptr_t key = ~(uintptr_t)p;
    uint64_t hash;
    Shard* shard = shardOf(key, &hash);
    int found = 0;
    morvexLock(&shard->lock);
    if (shard->records != Morvex_NULL) {
        const Record* record = &shard->records[probe(shard, key, hash)];
        if (record->key == key) {
            info->size = record->size;
            info->component = g_pairs[record->pair].component;
            info->label = g_pairs[record->pair].label;
            info->sourcePath = record->sourcePath;
            info->line = record->line;
            found = 1;
        }
    }
    morvexUnlock(&shard->lock);
    return found ? 0 : 1;
}

int Morvex_PAL_AllocGetStats(const char* component, const char* label, sMorvex_PAL_AllocStats* stats)
{
    if (stats == Morvex_NULL)
        return 1;
    memset(stats, 0, sizeof *stats);
    unsigned int count = atomic_load_explicit(&g_pairCount, memory_order_acquire);
    unsigned char matches[PAIR_LIMIT];
    for (unsigned int i = 0; i < count; ++i) {
        const Pair* pair = &g_pairs[i];
        matches[i] = component == Morvex_NULL ||
                     (strcmp(pair->component, component) == 0 && (label == Morvex_NULL || strcmp(pair->label, label) == 0));
        if (matches[i])
            stats->failures += atomic_load_explicit(&pair->failures, memory_order_relaxed);
    }
    /* Shard by shard: a block allocated or freed meanwhile is seen whole or not at all. */
    for (unsigned int s = 0; s < (1u << SHARD_BITS); ++s) {
        Shard* shard = &g_shards[s];
        morvexLock(&shard->lock);
        for (unsigned int i = 0; i < count && i < shard->countCapacity; ++i) {
            if (matches[i]) {
                stats->liveBlocks += shard->counts[i].liveBlocks;
                stats->liveBytes += shard->counts[i].liveBytes;
                stats->allocations += shard->counts[i].allocations;
            }
        }
        morvexUnlock(&shard->lock);
    }
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
