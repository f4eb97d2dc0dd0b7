// StringCopy100: the cost of copying and destroying a shared 100-byte string. A copy
// of a PAL::CString shares the block and counts the reference through the library's
// process-wide counter mutex; QString shares its block through an atomic count.
// While the process has never had a second thread that mutex needs no atomic
// operation (nor does the C library's); StringCopy100AfterThreads starts and joins a
// thread first and shows the copy as a multi-threaded process pays for it.

#include "BenchSupport.h"

#include "core/String.h"

#include <QString>
#include <benchmark/benchmark.h>

#include <string>
#include <thread>

namespace {

// 100 bytes of ASCII text; the same for every implementation.
std::string sampleText()
{
    std::string text;
    const char* words = "The quick brown fox jumps over the lazy dog. ";
    while (text.size() < 100) {
        text += words;
    }
    text.resize(100);
    return text;
}

void copyOsalKit(benchmark::State& state)
{
    const std::string text = sampleText();
    const PAL::CString source(text.c_str());
    {
        const PAL::CString copy(source);
        if (copy.getSize() != 100 || text != copy.getBuffer() || copy.getBuffer() != source.getBuffer()) {
            state.SkipWithError("the copy does not share the source's 100 bytes");
            return;
        }
    }
    for (auto _ : state) {
        const PAL::CString copy(source);
        benchmark::DoNotOptimize(copy.getBuffer());
    }
    state.SetItemsProcessed(state.iterations());
}

void copyQString(benchmark::State& state)
{
    const std::string text = sampleText();
    const QString source = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
    {
        const QString copy(source);
        if (copy.toUtf8().toStdString() != text || !copy.isSharedWith(source)) {
            state.SkipWithError("the copy does not share the source's 100 bytes");
            return;
        }
    }
    for (auto _ : state) {
        const QString copy(source);
        benchmark::DoNotOptimize(copy.constData());
    }
    state.SetItemsProcessed(state.iterations());
}

// A baseline without sharing: std::string copies the bytes into a new allocation.
void copyStdString(benchmark::State& state)
{
    const std::string source = sampleText();
    for (auto _ : state) {
        const std::string copy(source);
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetItemsProcessed(state.iterations());
}

void ensureThreadsExisted()
{
    static const bool done = [] {
        std::thread([] {}).join();
        return true;
    }();
    (void)done;
}

void copyOsalKitAfterThreads(benchmark::State& state)
{
    ensureThreadsExisted();
    copyOsalKit(state);
}

void copyQStringAfterThreads(benchmark::State& state)
{
    ensureThreadsExisted();
    copyQString(state);
}

} // namespace

BENCHMARK(copyOsalKit)->Name("StringCopy100/osal_kit");
BENCHMARK(copyQString)->Name("StringCopy100/QString");
BENCHMARK(copyStdString)->Name("StringCopy100/std_string");

BENCHMARK(copyOsalKitAfterThreads)->Name("StringCopy100AfterThreads/osal_kit");
BENCHMARK(copyQStringAfterThreads)->Name("StringCopy100AfterThreads/QString");

BENCHMARK_MAIN();
