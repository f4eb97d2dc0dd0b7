/* Tracked allocator and raw memory functions of the PAL core.
 *
 * Every block is attributed to a component and a label (and remembers the source
 * path and line of its request), so a process can read live counts per component
 * and label. The allocator is interchangeable with malloc/free in both directions:
 * a block from Morvex_PAL_zmalloc is a plain malloc block (no header, no trailer)
 * and may be released with free(), and a block from malloc() may be released with
 * Morvex_PAL_zfree(). A tracked block released with free() stays counted as live
 * (and found by Morvex_PAL_AllocLookup) until this allocator comes across its record
 * again: as a rule when it hands the address out again on the thread that allocated
 * it, otherwise when it releases that address with no newer block there.
 * All functions may be called from any thread, and a block may be released on
 * another thread than the one that allocated it; counts stay exact either way. */
#ifndef MORVEX_PAL_MEMORY_H
#define MORVEX_PAL_MEMORY_H

#include "morvex_pal_types.h"

MORVEX_BEGIN_DECLS

/* Allocates `size` bytes (a 0-byte request still returns a unique block).
 * `component`, `label` and `sourcePath` must be string constants that live as long
 * as the process. Returns NULL when the memory cannot be had (or a fault is armed). */
MORVEX_API void* Morvex_PAL_zmalloc(unsigned int size, const char* component, const char* label,
                                    const char* sourcePath, int line);

/* Releases a block of Morvex_PAL_zmalloc or malloc; NULL is accepted and ignored. */
MORVEX_API void Morvex_PAL_zfree(void* p, const char* sourcePath, int line);

MORVEX_API void* Morvex_PAL_memcpy(void* dst, const void* src, unsigned int n);
MORVEX_API int Morvex_PAL_memcmp(const void* a, const void* b, unsigned int n);
MORVEX_API void* Morvex_PAL_memset(void* dst, int value, unsigned int n);
MORVEX_API int Morvex_PAL_strcmp(const char* a, const char* b);

/* Live and cumulative counts of one component, of one label or of all labels. */
typedef struct sMorvex_PAL_AllocStats {
    unsigned int liveBlocks;       /* blocks handed out and not yet released */
    unsigned long long liveBytes;  /* their requested sizes, added up */
    unsigned long long allocations;/* successful allocations since the start of the process */
    unsigned long long failures;   /* requests that returned NULL */
} sMorvex_PAL_AllocStats;

/* Fills `stats` for `component` and `label` (NULL label: all labels of the
 * component; NULL component: everything tracked). Returns 0, or 1 on a NULL `stats`. */
MORVEX_API int Morvex_PAL_AllocGetStats(const char* component, const char* label,
                                        sMorvex_PAL_AllocStats* stats);

/* What the allocator knows of a live tracked block. */
typedef struct sMorvex_PAL_AllocInfo {
    unsigned int size;
    const char* component;
    const char* label;
    const char* sourcePath;
    int line;
} sMorvex_PAL_AllocInfo;

/* Fills `info` for the live tracked block at `p`. Returns 0, or 1 when `p` is not
 * a live tracked block (or `info` is NULL). */
MORVEX_API int Morvex_PAL_AllocLookup(const void* p, sMorvex_PAL_AllocInfo* info);

MORVEX_END_DECLS

#endif
