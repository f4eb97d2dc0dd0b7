#include "morvex_pal_clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

time_t secondsOf(const sMorvex_PAL_RealTime& t)
{
    tm fields{t.second, t.minute, t.hour, t.day, t.month - 1, t.year, 0, 0, 0, 0, nullptr};
    return timegm(&fields);
}

// Not time(): it may read a coarser clock that is still in the previous second.
time_t realSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

TEST(Clock, RealTimeIsTheCurrentUtcTimeUnlessAFixedTimeIsSet)
{
    const time_t before = realSeconds();
    sMorvex_PAL_RealTime now{};
    ASSERT_EQ(Morvex_PAL_getRealTime(&now), 0);
    EXPECT_GE(secondsOf(now), before);
    EXPECT_LE(secondsOf(now), realSeconds());
    EXPECT_EQ(Morvex_PAL_getRealTime(nullptr), 1);

    // The library's date tests check the fields of a fixed time; the two it does not read:
    const sMorvex_PAL_RealTime fixed{59, 58, 23, 31, 12, 99, 5, 364}; // 1999-12-31 23:58:59
    Morvex_PAL_setFixedRealTime(&fixed);
    ASSERT_EQ(Morvex_PAL_getRealTime(&now), 0);
    Morvex_PAL_setFixedRealTime(nullptr);
    EXPECT_EQ(now.weekDay, 5);
    EXPECT_EQ(now.yearDay, 364);
    ASSERT_EQ(Morvex_PAL_getRealTime(&now), 0);
    EXPECT_GT(now.year, 99) << "released";
}

} // namespace
