#ifndef OSAL_KIT_OS_THREAD_H
#define OSAL_KIT_OS_THREAD_H

#include "core/Export.h"
#include "core/String.h"
#include "morvex_pal_thread.h"

namespace PAL {

/// The name a `CThread` made by the default constructor gets. Every source file that
/// includes this header has its own copy, made when the program or library is loaded.
static const CString PAL_CTHREAD_NAME("PAL::CThread");

/// An abstract thread object over a named PAL core thread; the thread's body is the
/// derived class's `run()`.
///
/// Lifecycle: constructed (the PAL thread object exists, nothing runs), `start()`ed
/// once, `run()` returns, `join()`ed, destroyed. The destructor neither stops nor waits
/// for the thread: destroy the object only after `join()` when it was started, and a
/// derived class whose `run()` uses its own members must join in its own destructor,
/// before they go. `start()`, `join()` and the destructor belong to the owner's thread
/// (`join()` may also come from any thread other than the started one). Failures come
/// back as false and are not traced. The platform keeps at most 15 bytes of the name.
/// Not copyable.
///
///     class CCounter : public PAL::CThread {
///     public:
///         CCounter() : CThread("counter", PRIORITY_NORMAL) {}
///         int run() { return count(); }       // on the new thread
///     };
///     CCounter counter;
///     if (counter.start()) counter.join();
class OSAL_KIT_API CThread {
public:
    /// Thread priorities, translated one to one onto the PAL core's by `PriorityMap`;
    /// which ones are more urgent is the PAL core's scheduling rule.
    enum ePriority : int {
        PRIORITY_LOWEST = 0,
        PRIORITY_LOWER = 1,
        PRIORITY_LOW = 2,
        PRIORITY_NORMAL = 3,
        PRIORITY_HIGH = 4,
        PRIORITY_HIGHER = 5,
        PRIORITY_HIGHEST = 6
    };

    /// A thread named "PAL::CThread" with PRIORITY_NORMAL.
    CThread();
    /// A thread named `name` with `priority` (an out-of-range priority becomes
    /// PRIORITY_NORMAL). A failure of the PAL core is not reported here: `start()` and
    /// `join()` then return false.
    explicit CThread(const CString& name, const ePriority& priority = PRIORITY_NORMAL);
    /// Releases the PAL thread object without waiting for the thread.
    virtual ~CThread();

    /// Starts `run()` on a new thread; false when the PAL thread object is missing,
    /// the thread was already started, or the PAL core cannot start it.
    bool start();
    /// Blocks until `run()` has returned; false when the PAL thread object is missing,
    /// the thread was never started, or the calling thread is the started one. Joining
    /// again after the end returns true at once.
    bool join();

    /// The routine handed to the PAL core: calls `run()` of `arg`, a `CThread*`, and
    /// returns its result, which becomes the thread's exit value.
    static int threadRoutine(void* arg);

    /// The thread's body, run on the new thread.
    virtual int run() = 0;

private:
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    sMorvex_PAL_Thread* mHandle;
};

/// Translates `CThread::ePriority` to the PAL core's `eMorvex_PAL_ThreadPrio` and back.
/// A constant table: any thread may call `Map`.
///
///     PAL::PriorityMap::Map(PAL::CThread::PRIORITY_HIGH);   // THREAD_PRIO_HIGH
class OSAL_KIT_API PriorityMap {
public:
    /// One row: a library priority and its PAL core partner.
    struct SEntry {
        CThread::ePriority mPriority;         ///< the library's priority
        eMorvex_PAL_ThreadPrio mPalPriority;  ///< the PAL core's
    };

    /// The seven priorities 0 to 6, each paired with the PAL value of the same number.
    static const SEntry MAP_TABLE[7];

    /// The PAL partner of `priority`; THREAD_PRIO_NORMAL (3) when it is not in the table.
    static eMorvex_PAL_ThreadPrio Map(const CThread::ePriority& priority);
    /// The library partner of `priority`; -1 (no enumerator) when it is not in the table.
    static CThread::ePriority Map(const eMorvex_PAL_ThreadPrio& priority);

private:
    PriorityMap();
};

} // namespace PAL

#endif
