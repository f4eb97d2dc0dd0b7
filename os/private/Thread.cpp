#include "os/Thread.h"

#include "os/private/pal_release.h"

#include "os/private/pal_enum.h"

namespace PAL {

namespace {

// The text of PAL_CTHREAD_NAME. The constant itself is not read here: a thread object
// made while the program is still being loaded may come before it exists.
const char* const sDefaultName = "PAL::CThread";

} // namespace

// A failure of Morvex_PAL_ThreadInit leaves the handle zero, which start() and join()
// refuse.

CThread::CThread() : mHandle(0)
{
    (void)Morvex_PAL_ThreadInit(&mHandle, sDefaultName, PriorityMap::Map(PRIORITY_NORMAL));
}

CThread::CThread(const CString& name, const ePriority& priority) : mHandle(0)
{
    (void)Morvex_PAL_ThreadInit(&mHandle, name.getBuffer(), PriorityMap::Map(priority));
}

CThread::~CThread()
{
    if (mHandle != 0) {
        if (Morvex_PAL_ThreadDeInit(&mHandle) != THREAD_OK) {
            PalRelease::retry(&Morvex_PAL_ThreadDeInit, mHandle);
        }
    }
}

bool CThread::start()
{
    return mHandle != 0 && Morvex_PAL_ThreadCreate(mHandle, &CThread::threadRoutine, this) == THREAD_OK;
}

bool CThread::join()
{
    return mHandle != 0 && Morvex_PAL_ThreadWait(mHandle, 0) == THREAD_OK;
}

int CThread::threadRoutine(void* arg)
{
    return static_cast<CThread*>(arg)->run();
}

const PriorityMap::SEntry PriorityMap::MAP_TABLE[7] = {
    {CThread::PRIORITY_LOWEST, THREAD_PRIO_LOWEST},
    {CThread::PRIORITY_LOWER, THREAD_PRIO_LOWER},
    {CThread::PRIORITY_LOW, THREAD_PRIO_LOW},
    {CThread::PRIORITY_NORMAL, THREAD_PRIO_NORMAL},
    {CThread::PRIORITY_HIGH, THREAD_PRIO_HIGH},
    {CThread::PRIORITY_HIGHER, THREAD_PRIO_HIGHER},
    {CThread::PRIORITY_HIGHEST, THREAD_PRIO_HIGHEST},
};

namespace {

const unsigned int sMapRows =
    static_cast<unsigned int>(sizeof PriorityMap::MAP_TABLE / sizeof PriorityMap::MAP_TABLE[0]);

} // namespace

eMorvex_PAL_ThreadPrio PriorityMap::Map(const CThread::ePriority& priority)
{
    const int value = EnumValue::raw(priority);
    for (unsigned int i = 0; i < sMapRows; ++i) {
        if (MAP_TABLE[i].mPriority == value) {
            return MAP_TABLE[i].mPalPriority;
        }
    }
    return THREAD_PRIO_NORMAL;
}

CThread::ePriority PriorityMap::Map(const eMorvex_PAL_ThreadPrio& priority)
{
    const int value = EnumValue::raw(priority);
    for (unsigned int i = 0; i < sMapRows; ++i) {
        if (static_cast<int>(MAP_TABLE[i].mPalPriority) == value) {
            return MAP_TABLE[i].mPriority;
        }
    }
    return static_cast<CThread::ePriority>(-1);
}

} // namespace PAL
