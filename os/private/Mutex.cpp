#include "os/Mutex.h"

#include "os/private/pal_release.h"

#include "os/private/pal_enum.h"
#include "os/private/pal_trace.h"

#include "morvex_pal_memory.h"

static const char* const sTraceId = "4A40150DEC37541AD664EA939C9AD0BA";

namespace {

// How often a refused release is tried in all.
const unsigned int sReleaseAttempts = 3;

// A mutex left held would stop every other thread at its next Lock for good, and
// could not be destroyed: a release the PAL core refuses is asked again, quietly.
bool releaseAgain(sMorvex_PAL_Mutex* handle)
{
    for (unsigned int attempt = 1; attempt < sReleaseAttempts; ++attempt) {
        if (Morvex_PAL_MutexSignal(handle) == MUTEX_OK) {
            return true;
        }
    }
    return false;
}

} // namespace

namespace PAL {

CMutex::CMutex(const CString& name, const bool& lockOnDestruction)
    : mHandle(0), mName(name), mLockOnDestruction(lockOnDestruction)
{
    const eMorvex_PAL_MutexError result = Morvex_PAL_MutexInit(&mHandle);
    if (result != MUTEX_OK) {
        OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s%s", MutexResultStrMap::Map(result), mName.getBuffer());
    }
}

CMutex::~CMutex()
{
    bool heldHere = false;
    if (mLockOnDestruction) {
        OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
        heldHere = Lock();
        OSAL_KIT_TRACE0(Trace::LEVEL_INFO);
    }
    if (mHandle != 0) {
        eMorvex_PAL_MutexError result = Morvex_PAL_MutexDeInit(&mHandle);
        // The mutex is meant to be destroyed while this thread holds it, so that no one
        // can slip in between. A PAL core that refuses to destroy a held mutex would
        // leak it on every such destruction: release the hold and destroy it then.
        if (result == MUTEX_ERROR_DEINIT_FAILED && heldHere && mHandle != 0 &&
            (Morvex_PAL_MutexSignal(mHandle) == MUTEX_OK || releaseAgain(mHandle))) {
            result = Morvex_PAL_MutexDeInit(&mHandle);
        }
        if (result != MUTEX_OK) {
            OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s%s", MutexResultStrMap::Map(result), mName.getBuffer());
            PalRelease::retry(&Morvex_PAL_MutexDeInit, mHandle);
        }
    }
}

bool CMutex::Lock()
{
    if (mHandle == 0) {
        OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s", mName.getBuffer());
        return false;
    }
    const eMorvex_PAL_MutexError result = Morvex_PAL_MutexWait(mHandle);
    if (result == MUTEX_OK) {
        return true;
    }
    OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s%s", MutexResultStrMap::Map(result), mName.getBuffer());
    return false;
}

bool CMutex::Unlock()
{
    if (mHandle == 0) {
        OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s", mName.getBuffer());
        return false;
    }
    const eMorvex_PAL_MutexError result = Morvex_PAL_MutexSignal(mHandle);
    if (result == MUTEX_OK) {
        return true;
    }
    OSAL_KIT_TRACE(Trace::LEVEL_ERROR, "%s%s", MutexResultStrMap::Map(result), mName.getBuffer());
    // The refusal has been reported; the caller still learns of it.
    (void)releaseAgain(mHandle);
    return false;
}

bool CMutex::isExtendedTraceEnabled() const
{
    return false;
}

CMutex::CLock::CLock(CMutex& mutex) : mMutex(mutex)
{
    if (!mMutex.Lock()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_FAILURE);
    }
}

CMutex::CLock::~CLock()
{
    if (!mMutex.Unlock()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_FAILURE);
    }
}

void CMutex::CLock::Lock(CMutex& mutex)
{
    if (!mutex.Lock()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_FAILURE);
    }
}

void CMutex::CLock::Unlock(CMutex& mutex)
{
    if (!mutex.Unlock()) {
        OSAL_KIT_TRACE0(Trace::LEVEL_FAILURE);
    }
}

const MutexResultStrMap::SEntry MutexResultStrMap::MAP_TABLE[11] = {
    {MUTEX_OK, "MUTEX_OK"},
    {MUTEX_WOULD_BLOCK, "MUTEX_WOULD_BLOCK"},
    {MUTEX_ERROR_INV_POINTER, "MUTEX_ERROR_INV_POINTER"},
    {MUTEX_ERROR_INV_HANDLE, "MUTEX_ERROR_INV_HANDLE"},
    {MUTEX_ERROR_CREATE_FAILED, "MUTEX_ERROR_CREATE_FAILED"},
    {MUTEX_ERROR_WAIT_FAILED, "MUTEX_ERROR_WAIT_FAILED"},
    {MUTEX_ERROR_SIGNAL_FAILED, "MUTEX_ERROR_SIGNAL_FAILED"},
    {MUTEX_ERROR_DEINIT_FAILED, "MUTEX_ERROR_DEINIT_FAILED"},
    {MUTEX_ERROR_RECURSIVE, "MUTEX_ERROR_RECURSIVE"},
    {MUTEX_ERROR_INTERNAL, "MUTEX_ERROR_INTERNAL"},
    {MUTEX_ERROR_INV_VALUE, "MUTEX_ERROR_INV_VALUE"},
};

namespace {

const unsigned int sMapRows = static_cast<unsigned int>(sizeof MutexResultStrMap::MAP_TABLE /
                                                        sizeof MutexResultStrMap::MAP_TABLE[0]);

} // namespace

const char* MutexResultStrMap::Map(const eMorvex_PAL_MutexError& code)
{
    const int value = EnumValue::raw(code);
    for (unsigned int i = 0; i < sMapRows; ++i) {
        if (static_cast<int>(MAP_TABLE[i].mCode) == value) {
            return MAP_TABLE[i].mText;
        }
    }
    return "?";
}

eMorvex_PAL_MutexError MutexResultStrMap::Map(const char* text)
{
    if (text != 0) {
        for (unsigned int i = 0; i < sMapRows; ++i) {
            if (Morvex_PAL_strcmp(MAP_TABLE[i].mText, text) == 0) {
                return MAP_TABLE[i].mCode;
            }
        }
    }
    return MUTEX_ERROR_INTERNAL;
}

} // namespace PAL
