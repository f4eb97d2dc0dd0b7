#ifndef OSAL_KIT_OS_SEMAPHORE_H
#define OSAL_KIT_OS_SEMAPHORE_H

#include "core/Export.h"
#include "morvex_pal_sema.h"

namespace PAL {

/// A counting semaphore over a PAL core semaphore.
///
/// Every operation returns true exactly when the PAL core call succeeded and traces
/// nothing; nothing throws. A semaphore whose PAL creation failed is not reported at
/// construction: its operations then all return false. `Signal`, `Wait`, `TimedWait`
/// and `TryWait` may be called from any thread between construction and destruction;
/// no thread may still be waiting when the object is destroyed. Not copyable.
///
///     PAL::CSemaphore ready(0);
///     // producer thread:              // consumer thread:
///     ready.Signal();                  if (!ready.TimedWait(500)) { /* timed out */ }
class OSAL_KIT_API CSemaphore {
public:
    /// A semaphore whose count starts at `initialCount`.
    explicit CSemaphore(const unsigned int& initialCount);
    ~CSemaphore();

    /// Raises the count, waking one waiter; false when the count is already 0xFFFFFFFF.
    bool Signal();
    /// Blocks until the count is positive, then lowers it.
    bool Wait();
    /// As `Wait`, giving up after `timeout` milliseconds; false on timeout.
    bool TimedWait(const unsigned int& timeout);
    /// Never blocks. True when the PAL core answered: `wouldBlock` is false when the
    /// count was lowered, true when it was 0 (and stays 0). False on a PAL failure,
    /// leaving `wouldBlock` unchanged.
    bool TryWait(bool& wouldBlock);

private:
    CSemaphore(const CSemaphore&) = delete;
    CSemaphore& operator=(const CSemaphore&) = delete;

    sMorvex_PAL_Sema* mHandle;
};

} // namespace PAL

#endif
