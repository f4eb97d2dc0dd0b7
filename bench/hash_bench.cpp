// HashArrayInsertLookup1M / HashMapInsertLookup1M: 1,000,000 inserts of unsigned int
// keys (0 .. 999,999 in one shuffled order, the same for all) with a value derived from
// the key, then 1,000,000 lookups in another shuffled order, summing the values found.
// Every table starts at its default size (no reserve on either side) and is destroyed
// inside the timed round.

#include "BenchSupport.h"

#include "core/HashArray.h"
#include "core/HashMap.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <unordered_map>
#include <vector>

namespace {

struct SKeys {
    std::vector<unsigned int> inserts;
    std::vector<unsigned int> lookups;
    unsigned long long expectedSum;
};

unsigned int valueFor(unsigned int key)
{
    return key * 2654435761u;
}

const SKeys& keys()
{
    static const SKeys shared = [] {
        SKeys k;
        k.inserts.resize(static_cast<std::size_t>(osal_kit_bench::size(1000000)));
        std::iota(k.inserts.begin(), k.inserts.end(), 0u);
        std::mt19937 random(424242u);
        std::shuffle(k.inserts.begin(), k.inserts.end(), random);
        k.lookups = k.inserts;
        std::shuffle(k.lookups.begin(), k.lookups.end(), random);
        k.expectedSum = 0;
        for (unsigned int key : k.lookups) {
            k.expectedSum += valueFor(key);
        }
        return k;
    }();
    return shared;
}

// One round: fill a fresh table through `insert`, then sum the values `find` gives
// (~0 when one is missing or an insert failed).
template <typename Table, typename Insert, typename Find>
unsigned long long round(Insert insert, Find find)
{
    const SKeys& k = keys();
    Table table;
    for (unsigned int key : k.inserts) {
        if (!insert(table, key, valueFor(key))) {
            return ~0ull;
        }
    }
    unsigned long long sum = 0;
    for (unsigned int key : k.lookups) {
        const unsigned int* value = find(table, key);
        if (value == nullptr) {
            return ~0ull;
        }
        sum += *value;
    }
    return sum;
}

template <typename Table, typename Insert, typename Find>
void run(benchmark::State& state, Insert insert, Find find)
{
    if (round<Table>(insert, find) != keys().expectedSum) {
        state.SkipWithError("lookups did not find every inserted value");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(round<Table>(insert, find));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(2 * keys().inserts.size()));
}

void hashArrayOsalKit(benchmark::State& state)
{
    typedef PAL::THashArray<unsigned int, unsigned int> Table;
    run<Table>(state, [](Table& t, unsigned int key, unsigned int value) { return t.insert(key, value); },
               [](Table& t, unsigned int key) -> const unsigned int* { return t.find(key); });
}

void hashMapOsalKit(benchmark::State& state)
{
    typedef PAL::THashMap<unsigned int> Table;
    run<Table>(state, [](Table& t, unsigned int key, unsigned int value) { return t.set(key, value); },
               [](Table& t, unsigned int key) -> const unsigned int* { return t.find(key); });
}

void unorderedMap(benchmark::State& state)
{
    typedef std::unordered_map<unsigned int, unsigned int> Table;
    run<Table>(state, [](Table& t, unsigned int key, unsigned int value) { return t.emplace(key, value).second; },
               [](Table& t, unsigned int key) -> const unsigned int* {
                   const Table::const_iterator found = t.find(key);
                   return found != t.end() ? &found->second : nullptr;
               });
}

} // namespace

BENCHMARK(hashArrayOsalKit)->Name("HashArrayInsertLookup1M/osal_kit")->Unit(benchmark::kMillisecond);
BENCHMARK(unorderedMap)->Name("HashArrayInsertLookup1M/std_unordered_map")->Unit(benchmark::kMillisecond);
BENCHMARK(hashMapOsalKit)->Name("HashMapInsertLookup1M/osal_kit")->Unit(benchmark::kMillisecond);
BENCHMARK(unorderedMap)->Name("HashMapInsertLookup1M/std_unordered_map")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
