#include "os/pal_wrapper.h"

#include "morvex_pal_memory.h"

#include <cstddef>
#include <mutex>
#include <new>

// Every allocation entry point of the library passes this file as its source path;
// the build maps __FILE__ to the repository-relative path.
static const char* const sSourcePath = __FILE__;
static const char* const sComponent = "osal_kit";

namespace {

// The PAL core counts sizes in 32 bits. On a 64-bit host a larger request must fail
// rather than be cut to a small block.
const std::size_t sLargestRequest = static_cast<unsigned int>(-1);

// Each entry point passes its own label and line.
void* track(std::size_t size, const char* label, int line)
{
    if (size > sLargestRequest) {
        return 0;
    }
    return Morvex_PAL_zmalloc(static_cast<unsigned int>(size), sComponent, label, sSourcePath, line);
}

// Plain new and its nothrow form are one entry point: one label, one line.
void* plainNew(std::size_t size)
{
    return track(size, "new", __LINE__);
}

} // namespace

namespace PAL {

void* Memory::alloc(unsigned int size)
{
    return Morvex_PAL_zmalloc(size, sComponent, "Memory::alloc", sSourcePath, __LINE__);
}

void Memory::release(void* p, unsigned int size)
{
    (void)size;
    Morvex_PAL_zfree(p, sSourcePath, __LINE__);
}

int Memory::memcmp(const void* a, const void* b, unsigned int n)
{
    return Morvex_PAL_memcmp(a, b, n);
}

void* Memory::memcpy(void* dst, const void* src, unsigned int n)
{
    return Morvex_PAL_memcpy(dst, src, n);
}

sMorvex_PAL_Mutex* Atomic::spAtomicMutex = 0;

namespace {

// The counters are plain `unsigned int`s written only under spAtomicMutex, as atomic
// loads and release stores (plain loads and stores with a barrier on the target, no
// read-modify-write). `peek` reads them without the mutex with acquire: a holder that
// sees a count of 1 after another holder let go also sees everything that holder did
// with the shared object before letting go, so it may write in place.
inline unsigned int load(const unsigned int& value)
{
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

inline void store(unsigned int& value, unsigned int newValue)
{
    __atomic_store_n(&value, newValue, __ATOMIC_RELEASE);
}

// Published once spAtomicMutex exists, so the common path reads it without a lock.
// The creation itself is serialised by a standard mutex (constant-initialised, so it
// exists before any constructor of the process runs) and retried while it fails.
sMorvex_PAL_Mutex* sPublishedMutex = 0;
std::mutex sCreationLock;

sMorvex_PAL_Mutex* atomicMutex()
{
    sMorvex_PAL_Mutex* handle = __atomic_load_n(&sPublishedMutex, __ATOMIC_ACQUIRE);
    if (handle != 0) {
        return handle;
    }
    std::lock_guard<std::mutex> guard(sCreationLock);
    if (Atomic::spAtomicMutex == 0) {
        (void)Morvex_PAL_MutexInit(&Atomic::spAtomicMutex);
    }
    __atomic_store_n(&sPublishedMutex, Atomic::spAtomicMutex, __ATOMIC_RELEASE);
    return Atomic::spAtomicMutex;
}

// A counter operation cannot report a failure of the PAL core, so it asks again: a
// take that failed would let two threads change one count at once, and a release
// that failed would stall every other thread at its next string copy. A take refused
// as recursive finds the mutex still held after such a release: it is held, then.
const unsigned int sMutexAttempts = 3;

void take(sMorvex_PAL_Mutex* mutex)
{
    for (unsigned int attempt = 0; attempt < sMutexAttempts; ++attempt) {
        const eMorvex_PAL_MutexError result = Morvex_PAL_MutexWait(mutex);
        if (result == MUTEX_OK || result == MUTEX_ERROR_RECURSIVE) {
            return;
        }
    }
}

void release(sMorvex_PAL_Mutex* mutex)
{
    for (unsigned int attempt = 0; attempt < sMutexAttempts && Morvex_PAL_MutexSignal(mutex) != MUTEX_OK;
         ++attempt) {
    }
}

} // namespace

void Atomic::increment(unsigned int& value)
{
    sMorvex_PAL_Mutex* mutex = atomicMutex();
    take(mutex);
    store(value, load(value) + 1u);
    release(mutex);
}

bool Atomic::testDecrement(unsigned int& value)
{
    sMorvex_PAL_Mutex* mutex = atomicMutex();
    take(mutex);
    unsigned int current = load(value);
    if (current != 0) {
        store(value, current - 1u);
    }
    const bool nonZero = load(value) != 0;
    release(mutex);
    return nonZero;
}

unsigned int Atomic::peek(const unsigned int& value)
{
    return __atomic_load_n(&value, __ATOMIC_ACQUIRE);
}

} // namespace PAL

// The global allocation operators of the whole process. None throws: a failed
// allocation returns null.

OSAL_KIT_API void* operator new(std::size_t size)
{
    return plainNew(size);
}

// The same entry point as plain new, without going through it: compilers may take
// plain new's result for non-null.
OSAL_KIT_API void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return plainNew(size);
}

OSAL_KIT_API void* operator new[](std::size_t size)
{
    return track(size, "new[]", __LINE__);
}

OSAL_KIT_API void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return track(size, "new[](std::nothrow_t)", __LINE__);
}

OSAL_KIT_API void operator delete(void* p) noexcept
{
    Morvex_PAL_zfree(p, sSourcePath, __LINE__);
}

OSAL_KIT_API void operator delete[](void* p) noexcept
{
    Morvex_PAL_zfree(p, sSourcePath, __LINE__);
}

// The remaining forms of the family free the same way, so that code compiled for
// later language versions (sized and nothrow deletes) stays on the PAL core.
OSAL_KIT_API void operator delete(void* p, const std::nothrow_t&) noexcept
{
    ::operator delete(p);
}

OSAL_KIT_API void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    ::operator delete[](p);
}

OSAL_KIT_API void operator delete(void* p, std::size_t) noexcept
{
    ::operator delete(p);
}

OSAL_KIT_API void operator delete[](void* p, std::size_t) noexcept
{
    ::operator delete[](p);
}
