// The platform primitives every library operation stands on: mutex, the reference
// counts over it, semaphore, the tracked allocator, a raw memory call with its fault
// check and a filtered trace point, each beside the plain standard-library equivalent.
// These works are not held to bars; they show what a primitive costs.
#include "BenchSupport.h"

#include "morvex_pal.h"
#include "os/pal_wrapper.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

const char* const sTraceId = "5D0C2E8A41F7493B8E26A1C9F03B7D54";

// ---- mutex --------------------------------------------------------------------------

sMorvex_PAL_Mutex* palMutex()
{
    static sMorvex_PAL_Mutex* handle = [] {
        sMorvex_PAL_Mutex* created = nullptr;
        (void)Morvex_PAL_MutexInit(&created);
        return created;
    }();
    return handle;
}

// The counter checks that the lock excludes: with two threads a lost update shows.
unsigned long long sLockedCounter = 0;

void MutexPal(benchmark::State& state)
{
    sMorvex_PAL_Mutex* mutex = palMutex();
    for (auto _ : state) {
        if (Morvex_PAL_MutexWait(mutex) != MUTEX_OK) {
            state.SkipWithError("MutexWait failed");
            break;
        }
        ++sLockedCounter;
        (void)Morvex_PAL_MutexSignal(mutex);
    }
    state.SetItemsProcessed(state.iterations());
}

std::mutex sStdMutex;

void MutexStd(benchmark::State& state)
{
    for (auto _ : state) {
        sStdMutex.lock();
        ++sLockedCounter;
        sStdMutex.unlock();
    }
    state.SetItemsProcessed(state.iterations());
}

// ---- reference counts ---------------------------------------------------------------

void RefCountPal(benchmark::State& state)
{
    unsigned int count = 1;
    for (auto _ : state) {
        PAL::Atomic::increment(count);
        benchmark::DoNotOptimize(PAL::Atomic::testDecrement(count));
    }
    if (count != 1)
        state.SkipWithError("count changed");
    state.SetItemsProcessed(state.iterations());
}

void RefCountStd(benchmark::State& state)
{
    std::atomic<unsigned int> count(1);
    for (auto _ : state) {
        count.fetch_add(1u, std::memory_order_relaxed);
        benchmark::DoNotOptimize(count.fetch_sub(1u, std::memory_order_acq_rel));
    }
    if (count.load() != 1)
        state.SkipWithError("count changed");
    state.SetItemsProcessed(state.iterations());
}

// ---- semaphore (signal, then a wait that finds the count) ---------------------------

void SemaPal(benchmark::State& state)
{
    sMorvex_PAL_Sema* sema = nullptr;
    if (Morvex_PAL_SemaInit(&sema, 0) != SEMA_OK) {
        state.SkipWithError("SemaInit failed");
        return;
    }
    for (auto _ : state) {
        (void)Morvex_PAL_SemaSignal(sema);
        if (Morvex_PAL_SemaWait(sema) != SEMA_OK) {
            state.SkipWithError("SemaWait failed");
            break;
        }
    }
    if (Morvex_PAL_SemaTryWait(sema) != SEMA_WOULD_BLOCK)
        state.SkipWithError("count left over");
    (void)Morvex_PAL_SemaDeInit(&sema);
    state.SetItemsProcessed(state.iterations());
}

class StdSemaphore {
public:
    void signal()
    {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            ++mCount;
        }
        mAvailable.notify_one();
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mAvailable.wait(lock, [this] { return mCount > 0; });
        --mCount;
    }
    unsigned int count()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCount;
    }

private:
    std::mutex mMutex;
    std::condition_variable mAvailable;
    unsigned int mCount = 0;
};

void SemaStd(benchmark::State& state)
{
    StdSemaphore sema;
    for (auto _ : state) {
        sema.signal();
        sema.wait();
    }
    if (sema.count() != 0)
        state.SkipWithError("count left over");
    state.SetItemsProcessed(state.iterations());
}

// ---- allocation ---------------------------------------------------------------------

void AllocPal(benchmark::State& state)
{
    for (auto _ : state) {
        void* p = Morvex_PAL_zmalloc(64u, "osal_kit", "bench", __FILE__, __LINE__);
        if (p == nullptr) {
            state.SkipWithError("zmalloc failed");
            break;
        }
        benchmark::DoNotOptimize(p);
        Morvex_PAL_zfree(p, __FILE__, __LINE__);
    }
    state.SetItemsProcessed(state.iterations());
}

void AllocStd(benchmark::State& state)
{
    for (auto _ : state) {
        void* p = std::malloc(64u);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
    state.SetItemsProcessed(state.iterations());
}

// ---- raw memory call with its fault check -------------------------------------------

void MemcpyPal(benchmark::State& state)
{
    char from[16] = "fifteen bytes..";
    char to[16];
    for (auto _ : state) {
        benchmark::DoNotOptimize(Morvex_PAL_memcpy(to, from, sizeof to));
        benchmark::ClobberMemory();
    }
    if (std::memcmp(to, from, sizeof to) != 0)
        state.SkipWithError("copy differs");
    state.SetItemsProcessed(state.iterations());
}

void MemcpyStd(benchmark::State& state)
{
    char from[16] = "fifteen bytes..";
    char to[16];
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::memcpy(to, from, sizeof to));
        benchmark::ClobberMemory();
    }
    if (std::memcmp(to, from, sizeof to) != 0)
        state.SkipWithError("copy differs");
    state.SetItemsProcessed(state.iterations());
}

// ---- a level-0 trace point the default sink ignores ---------------------------------

void TracePal(benchmark::State& state)
{
    int value = 7;
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        Morvex_TraceOut_trace(0, "OSAL_KIT", 0, __FILE__, sTraceId, __LINE__, "%X%d%s", 0xBEEFu, value, "name");
    }
    state.SetItemsProcessed(state.iterations());
}

void TraceNone(benchmark::State& state)
{
    int value = 7;
    for (auto _ : state)
        benchmark::DoNotOptimize(value);
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(MutexPal)->Name("PalMutexUncontended/osal_kit");
BENCHMARK(MutexStd)->Name("PalMutexUncontended/std_mutex");
BENCHMARK(MutexPal)->Name("PalMutexTwoThreads/osal_kit")->Threads(2)->UseRealTime();
BENCHMARK(MutexStd)->Name("PalMutexTwoThreads/std_mutex")->Threads(2)->UseRealTime();
BENCHMARK(RefCountPal)->Name("PalRefCountIncDec/osal_kit");
BENCHMARK(RefCountStd)->Name("PalRefCountIncDec/std_atomic");
BENCHMARK(SemaPal)->Name("PalSemaSignalWait/osal_kit");
BENCHMARK(SemaStd)->Name("PalSemaSignalWait/std");
BENCHMARK(AllocPal)->Name("PalAllocFree64/osal_kit");
BENCHMARK(AllocStd)->Name("PalAllocFree64/std_malloc");
BENCHMARK(AllocPal)->Name("PalAllocFree64TwoThreads/osal_kit")->Threads(2)->UseRealTime();
BENCHMARK(AllocStd)->Name("PalAllocFree64TwoThreads/std_malloc")->Threads(2)->UseRealTime();
BENCHMARK(MemcpyPal)->Name("PalMemcpy16/osal_kit");
BENCHMARK(MemcpyStd)->Name("PalMemcpy16/std");
BENCHMARK(TracePal)->Name("PalTraceFilteredLevel0/osal_kit");
BENCHMARK(TraceNone)->Name("PalTraceFilteredLevel0/none");

BENCHMARK_MAIN();
