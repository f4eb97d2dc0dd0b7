#include "morvex_pal_sema.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

// Run while the process has a single thread, which takes quicker paths, and again on a
// second thread.
static void checkTheCountsLimits()
{
    sMorvex_PAL_Sema* sema = nullptr;
    ASSERT_EQ(Morvex_PAL_SemaInit(&sema, UINT32_MAX), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaSignal(sema), SEMA_ERROR_OVERFLOW);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaSignal(sema), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaSignal(sema), SEMA_ERROR_OVERFLOW);
    ASSERT_EQ(Morvex_PAL_SemaDeInit(&sema), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaDeInit(&sema), SEMA_ERROR_INV_HANDLE);
    ASSERT_EQ(Morvex_PAL_SemaInit(&sema, 1), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(sema, 1), SEMA_OK);
    EXPECT_EQ(Morvex_PAL_SemaTryWait(sema), SEMA_WOULD_BLOCK);
    EXPECT_EQ(Morvex_PAL_SemaTimedWait(sema, 1), SEMA_ERROR_TIMEOUT);
    EXPECT_EQ(Morvex_PAL_SemaDeInit(&sema), SEMA_OK);
}

TEST(Sema, TheCountStaysBetweenZeroAndItsLimit)
{
    checkTheCountsLimits();
    std::thread(checkTheCountsLimits).join();
}
