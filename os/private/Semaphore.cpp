#include "os/Semaphore.h"

#include "os/private/pal_release.h"

namespace PAL {

CSemaphore::CSemaphore(const unsigned int& initialCount) : mHandle(0)
{
    // A failure leaves the handle zero, which every operation below refuses.
    (void)Morvex_PAL_SemaInit(&mHandle, initialCount);
}

CSemaphore::~CSemaphore()
{
    if (mHandle != 0) {
        if (Morvex_PAL_SemaDeInit(&mHandle) != SEMA_OK) {
            PalRelease::retry(&Morvex_PAL_SemaDeInit, mHandle);
        }
    }
}

bool CSemaphore::Signal()
{
    return mHandle != 0 && Morvex_PAL_SemaSignal(mHandle) == SEMA_OK;
}

bool CSemaphore::Wait()
{
    return mHandle != 0 && Morvex_PAL_SemaWait(mHandle) == SEMA_OK;
}

bool CSemaphore::TimedWait(const unsigned int& timeout)
{
    return mHandle != 0 && Morvex_PAL_SemaTimedWait(mHandle, timeout) == SEMA_OK;
}

bool CSemaphore::TryWait(bool& wouldBlock)
{
    if (mHandle == 0) {
        return false;
    }
    switch (Morvex_PAL_SemaTryWait(mHandle)) {
    case SEMA_OK:
        wouldBlock = false;
        return true;
    case SEMA_WOULD_BLOCK:
        wouldBlock = true;
        return true;
    default:
        return false;
    }
}

} // namespace PAL
