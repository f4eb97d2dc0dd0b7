// DayNumberRoundTrip: day number to calendar date and back over the library's whole
// valid range (1969-01-01 to 3000-12-31, day numbers 0 to 376,929). The library's day
// 0 is 1969-01-01, i.e. day -365 of the Unix calendar that sys_days counts.

#include "BenchSupport.h"

#include "core/DateAndTime.h"

#include <benchmark/benchmark.h>
#include <date/date.h>

namespace {

const unsigned int kDaysBefore1970 = 365;

unsigned int dayCount()
{
    return static_cast<unsigned int>(osal_kit_bench::size(376930));
}

// Sum of year, month and day over every date, so a wrong date is caught as well as a
// wrong way back.
unsigned long long expectedDateSum(unsigned int count)
{
    unsigned long long sum = 0;
    for (unsigned int d = 0; d < count; ++d) {
        const date::year_month_day ymd{date::sys_days{date::days{static_cast<int>(d) - static_cast<int>(kDaysBefore1970)}}};
        sum += static_cast<unsigned long long>(static_cast<int>(ymd.year())) + static_cast<unsigned>(ymd.month())
            + static_cast<unsigned>(ymd.day());
    }
    return sum;
}

void roundTripOsalKit(benchmark::State& state)
{
    const unsigned int count = dayCount();
    auto pass = [count]() {
        unsigned long long sum = 0;
        for (unsigned int d = 0; d < count; ++d) {
            PAL::CDateAndTime::SDate date;
            PAL::CDateAndTime::getDateFromDays(d, date);
            if (PAL::CDateAndTime::getDaysFromDate(date) != d) {
                return ~0ull;
            }
            sum += static_cast<unsigned long long>(date.mYear) + date.mMonth + date.mDay;
        }
        return sum;
    };
    if (pass() != expectedDateSum(count)) {
        state.SkipWithError("dates or day numbers differ from date::year_month_day");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(pass());
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void roundTripHhDate(benchmark::State& state)
{
    const unsigned int count = dayCount();
    auto pass = [count]() {
        unsigned long long sum = 0;
        for (unsigned int d = 0; d < count; ++d) {
            const date::sys_days day{date::days{static_cast<int>(d) - static_cast<int>(kDaysBefore1970)}};
            const date::year_month_day ymd{day};
            if (date::sys_days{ymd} != day) {
                return ~0ull;
            }
            sum += static_cast<unsigned long long>(static_cast<int>(ymd.year())) + static_cast<unsigned>(ymd.month())
                + static_cast<unsigned>(ymd.day());
        }
        return sum;
    };
    if (pass() != expectedDateSum(count)) {
        state.SkipWithError("round trip through date::year_month_day failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(pass());
    }
    state.SetItemsProcessed(state.iterations() * count);
}

} // namespace

BENCHMARK(roundTripOsalKit)->Name("DayNumberRoundTrip/osal_kit");
BENCHMARK(roundTripHhDate)->Name("DayNumberRoundTrip/hh_date");

BENCHMARK_MAIN();
