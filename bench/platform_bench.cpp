// The platform primitives every library operation stands on: mutex, the reference
// counts over it, semaphore, the tracked allocator, a raw memory call with its fault
// check and a filtered trace point, each beside the plain standard-library equivalent.
// bench/bars.tsv holds some of them to bars; the rest show what a primitive costs.
//
// The C library skips its atomic operations while a process has never had a second
// thread, and so does the PAL core: the works registered first run in that state,
// as a single-threaded program would. The "...AfterThreads" works start and join a
// thread first, so both sides pay what they pay in a multi-threaded process.
#include "BenchSupport.h"

#include "morvex_pal.h"
#include "os/pal_wrapper.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

namespace {

const char* const sTraceId = "5D0C2E8A41F7493B8E26A1C9F03B7D54";

// Once any thread has been created, the process counts as multi-threaded for good.
void ensureThreadsExisted()
{
    static const bool done = [] {
        std::thread([] {}).join();
        return true;
    }();
    (void)done;
}

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

void MutexPalAfterThreads(benchmark::State& state)
{
    ensureThreadsExisted();
    MutexPal(state);
}

void MutexStdAfterThreads(benchmark::State& state)
{
    ensureThreadsExisted();
    MutexStd(state);
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

// Out of order: a batch of blocks allocated in a row and freed in a shuffled order,
// so the frees don't find the blocks where the last allocation left them.
constexpr std::size_t kBatch = 1024;

struct PalBlocks {
    static void* allocate() { return Morvex_PAL_zmalloc(64u, "osal_kit", "bench", __FILE__, __LINE__); }
    static void release(void* p) { Morvex_PAL_zfree(p, __FILE__, __LINE__); }
};

struct StdBlocks {
    static void* allocate() { return std::malloc(64u); }
    static void release(void* p) { std::free(p); }
};

const std::vector<std::size_t>& shuffledOrder()
{
    static const std::vector<std::size_t> order = [] {
        std::vector<std::size_t> indexes(kBatch);
        std::iota(indexes.begin(), indexes.end(), std::size_t(0));
        std::shuffle(indexes.begin(), indexes.end(), std::mt19937(17));
        return indexes;
    }();
    return order;
}

template <class Blocks>
void AllocFreeShuffled(benchmark::State& state)
{
    const std::vector<std::size_t>& order = shuffledOrder();
    std::vector<void*> blocks(kBatch);
    for (auto _ : state) {
        for (void*& block : blocks)
            block = Blocks::allocate();
        for (std::size_t index : order)
            Blocks::release(blocks[index]);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBatch));
}

// From another thread: thread 0 allocates batches, thread 1 frees them as they come,
// through a ring of a few batches. Both run the same number of iterations, so every
// batch made is freed by the end of a run.
template <class Blocks>
struct CrossThreadRing {
    static constexpr std::size_t kSlots = 4;
    static constexpr std::size_t kBlocks = 256;
    std::array<std::array<void*, kBlocks>, kSlots> batches;
    std::atomic<std::size_t> made{0};
    std::atomic<std::size_t> freed{0};
};

template <class Blocks>
void AllocFreeCrossThread(benchmark::State& state)
{
    using Ring = CrossThreadRing<Blocks>;
    static Ring ring;
    const bool producer = state.thread_index() == 0;
    std::size_t next = producer ? ring.made.load() : ring.freed.load();
    for (auto _ : state) {
        auto& batch = ring.batches[next % Ring::kSlots];
        if (producer) {
            while (next - ring.freed.load(std::memory_order_acquire) == Ring::kSlots)
                std::this_thread::yield();
            for (void*& block : batch)
                block = Blocks::allocate();
            ring.made.store(++next, std::memory_order_release);
        } else {
            while (ring.made.load(std::memory_order_acquire) == next)
                std::this_thread::yield();
            for (void* block : batch)
                Blocks::release(block);
            ring.freed.store(++next, std::memory_order_release);
        }
    }
    if (producer)
        state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Ring::kBlocks));
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
BENCHMARK(MutexPalAfterThreads)->Name("PalMutexUncontendedAfterThreads/osal_kit");
BENCHMARK(MutexStdAfterThreads)->Name("PalMutexUncontendedAfterThreads/std_mutex");
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
BENCHMARK(AllocFreeShuffled<PalBlocks>)->Name("PalAllocFreeShuffled/osal_kit");
BENCHMARK(AllocFreeShuffled<StdBlocks>)->Name("PalAllocFreeShuffled/std_malloc");
BENCHMARK(AllocFreeCrossThread<PalBlocks>)->Name("PalAllocFreeCrossThread/osal_kit")->Threads(2)->UseRealTime();
BENCHMARK(AllocFreeCrossThread<StdBlocks>)->Name("PalAllocFreeCrossThread/std_malloc")->Threads(2)->UseRealTime();
BENCHMARK(MemcpyPal)->Name("PalMemcpy16/osal_kit");
BENCHMARK(MemcpyStd)->Name("PalMemcpy16/std");
BENCHMARK(TracePal)->Name("PalTraceFilteredLevel0/osal_kit");
BENCHMARK(TraceNone)->Name("PalTraceFilteredLevel0/none");

BENCHMARK_MAIN();
