#ifndef OSAL_KIT_OS_PAL_WRAPPER_H
#define OSAL_KIT_OS_PAL_WRAPPER_H

#include "core/Export.h"
#include "morvex_pal_mutex.h"

namespace PAL {

/// Allocation and raw memory through the PAL core.
///
/// Every block is attributed to the component "osal_kit" with the label of its entry
/// point ("Memory::alloc", "new", "new[]", "new[](std::nothrow_t)") and the source
/// location in os/private/pal_wrapper.cpp. The library also defines the global
/// operator new/delete family with the same attribution, for the whole process: a
/// failed allocation yields a null pointer from every form (none throws), so code that
/// must survive it allocates with the nothrow forms, which every compiler null-checks.
/// All functions may be called from any thread.
///
///     void* p = PAL::Memory::alloc(64);   // null when the PAL core has no memory
///     PAL::Memory::release(p, 64);        // the size is not used; null is fine
class OSAL_KIT_API Memory {
public:
    /// `size` bytes labelled "Memory::alloc", or null.
    static void* alloc(unsigned int size);
    /// Frees a block of `alloc` (or of any allocation entry point); `size` is not used.
    static void release(void* p, unsigned int size);
    /// Forwards to Morvex_PAL_memcmp unchanged.
    static int memcmp(const void* a, const void* b, unsigned int n);
    /// Forwards to Morvex_PAL_memcpy unchanged.
    static void* memcpy(void* dst, const void* src, unsigned int n);

private:
    Memory();
};

/// The counter operations under every reference count of the library.
///
/// All counters of the process are serialised through one PAL core mutex,
/// `spAtomicMutex`, made by the first operation (exactly once, even when several
/// threads make their first call together) and never destroyed. Failures of the PAL
/// mutex calls are ignored: an operation never reports one. Because every counter
/// shares that mutex, do not call these while holding a lock that another thread may
/// hold while it calls them.
///
///     unsigned int refs = 1;
///     PAL::Atomic::increment(refs);          // 2
///     if (!PAL::Atomic::testDecrement(refs)) // 1: still referenced, returns true
///         ...
class OSAL_KIT_API Atomic {
public:
    /// Adds 1, wrapping from 4294967295 to 0.
    static void increment(unsigned int& value);
    /// Subtracts 1 unless `value` is already 0; true when `value` is now non-zero.
    static bool testDecrement(unsigned int& value);
    /// Reads a counter that other threads may change under the mutex, without taking
    /// it. Only meaningful where the caller's own reference keeps the value from
    /// dropping below what it tests for (a count of 1 held by the caller stays 1). A
    /// caller that reads 1 also sees everything the other holders did before they let
    /// go, so it may write the shared object in place.
    static unsigned int peek(const unsigned int& value);

    /// The process-wide counter mutex; null until the first counter operation.
    static sMorvex_PAL_Mutex* spAtomicMutex;

private:
    Atomic();
};

} // namespace PAL

#endif
