#ifndef OSAL_KIT_OS_MUTEX_H
#define OSAL_KIT_OS_MUTEX_H

#include "core/Export.h"
#include "core/String.h"
#include "morvex_pal_mutex.h"

namespace PAL {

/// A named PAL core mutex that reports every failure through the trace.
///
/// The PAL mutex is made by the constructor. Each failing PAL call leaves one
/// level-3 record with the result's symbolic text (`MutexResultStrMap`) and the name,
/// and the operation returns false; nothing throws. If the PAL mutex could not be
/// made, the object still lives: `Lock` and `Unlock` then trace the name alone (format
/// "%s") and return false, and destruction skips the PAL core.
///
/// The PAL mutex is not recursive: the owner locking it again gets false (traced with
/// "MUTEX_ERROR_RECURSIVE"), and a thread that does not own it cannot unlock it
/// ("MUTEX_ERROR_SIGNAL_FAILED"). `Lock` and `Unlock` may be called from any thread;
/// the object is not copyable.
///
///     PAL::CMutex mutex("jobs", false);
///     {
///         PAL::CMutex::CLock lock(mutex);   // released at the end of the block
///         ...
///     }
class OSAL_KIT_API CMutex {
public:
    /// Holds a `CMutex` for the lifetime of the object.
    ///
    /// A lock that cannot take or release the mutex adds a level-4 record without
    /// values after the mutex's own level-3 record. The lock does not remember whether
    /// taking succeeded: its destructor unlocks regardless (and a failed unlock is
    /// traced again). Use it on one thread; it is not copyable.
    class OSAL_KIT_API CLock {
    public:
        /// Takes `mutex`, blocking; `mutex` must outlive the lock.
        explicit CLock(CMutex& mutex);
        /// Releases the mutex.
        ~CLock();

        /// `mutex.Lock()`, traced like the constructor; for holds that do not follow a scope.
        static void Lock(CMutex& mutex);
        /// `mutex.Unlock()`, traced like the destructor.
        static void Unlock(CMutex& mutex);

    private:
        CLock(const CLock&) = delete;
        CLock& operator=(const CLock&) = delete;

        CMutex& mMutex;
    };

    /// Makes the PAL mutex; a failure is traced (level 3) and leaves the object unusable.
    /// With `lockOnDestruction`, the destructor first waits until it can take the
    /// mutex, so that whichever thread holds it finishes first.
    CMutex(const CString& name, const bool& lockOnDestruction);
    /// Destroys the PAL mutex (after taking it when asked to); failures are traced.
    /// No other thread may be waiting for the mutex or take it afterwards.
    ~CMutex();

    /// Takes the mutex, blocking; false (traced) when the PAL core refuses.
    bool Lock();
    /// Releases the mutex held by the calling thread; false (traced) when the PAL core refuses.
    bool Unlock();
    /// Always false: the mutex has no extended trace.
    bool isExtendedTraceEnabled() const;

private:
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;

    sMorvex_PAL_Mutex* mHandle;
    CString mName;
    bool mLockOnDestruction;
};

/// Translates PAL core mutex result codes to their symbolic texts and back. A constant
/// table: any thread may call `Map`; the texts are static and never freed.
///
///     PAL::MutexResultStrMap::Map(MUTEX_ERROR_RECURSIVE);   // "MUTEX_ERROR_RECURSIVE"
///     PAL::MutexResultStrMap::Map("MUTEX_OK");              // MUTEX_OK
class OSAL_KIT_API MutexResultStrMap {
public:
    /// One row: a code and its text.
    struct SEntry {
        eMorvex_PAL_MutexError mCode; ///< the PAL core's result code
        const char* mText;            ///< its enumerator's name, static
    };

    /// The eleven codes 0 to 10 with their texts, in code order.
    static const SEntry MAP_TABLE[11];

    /// The text of `code`; "?" for a code outside the table (also negative ones).
    static const char* Map(const eMorvex_PAL_MutexError& code);
    /// The code whose text equals `text` exactly (case-sensitive); MUTEX_ERROR_INTERNAL
    /// when `text` is null or matches no row.
    static eMorvex_PAL_MutexError Map(const char* text);

private:
    MutexResultStrMap();
};

} // namespace PAL

#endif
