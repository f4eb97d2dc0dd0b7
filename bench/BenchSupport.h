// Shared by the benchmark programs. Each benchmark is named "<Work>/<Impl>" (see
// bench/bars.tsv): the report groups the implementations of one work and takes the
// ratios of their medians.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace osal_kit_bench {

/// True when OSAL_KIT_BENCH_SMOKE is set to anything but "0": CI runs every benchmark
/// once with tiny sizes, only to keep them building and running.
inline bool smoke()
{
    static const bool on = [] {
        const char* value = std::getenv("OSAL_KIT_BENCH_SMOKE");
        return value != nullptr && *value != '\0' && std::strcmp(value, "0") != 0;
    }();
    return on;
}

/// The size a benchmark works on: `full` normally, at most `tiny` in a smoke run.
inline std::int64_t size(std::int64_t full, std::int64_t tiny = 16)
{
    return smoke() ? std::min(full, tiny) : full;
}

} // namespace osal_kit_bench
