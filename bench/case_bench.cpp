// ToUpper1KiB / ToUpper16KiB: upper-casing mixed-script UTF-8 text. The library maps
// a CString in place (a copy of the shared source, so each round starts from the same
// text); ICU converts to UTF-16, maps with the root locale and converts back, into
// buffers made once.

#include "BenchSupport.h"

#include "core/String.h"
#include "core/StringUtilities.h"

#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <string>
#include <vector>

namespace {

// Latin with accents, Greek, Cyrillic, Armenian, CJK and ASCII, including characters
// that become two (ß, the Armenian ligature U+0587) and three (U+0390) characters.
const char* const kMixedSample =
    "Grüße aus Köln, façade À la carte; "
    "Ελληνικά γράμματα ΐ και σοφία; "
    "Привет, мир! Съешь ещё этих булок; "
    "Հայերեն այբուբեն և; "
    "漢字かな交じり文 中文 "
    "plain ascii text 0123456789 ";

// Text on which both mappings are one to one (no multi-character results, nothing
// newer than the library's tables): the results must be equal byte for byte.
const char* const kSimpleSample =
    "grüsse aus köln, facade à la carte; ελληνικα γραμματα; "
    "привет, мир; հայերեն այբուբեն; 漢字 ascii 0123456789 ";

// `bytes` bytes (at most) of the sample repeated, cut at a character boundary.
std::string repeatedText(const char* sample, std::size_t bytes)
{
    std::string text;
    while (text.size() < bytes) {
        text += sample;
    }
    std::size_t cut = bytes;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0u) == 0x80u) {
        --cut;
    }
    text.resize(cut);
    return text;
}

std::string upperWithOsalKit(const std::string& text)
{
    PAL::CString work(text.c_str());
    PAL::StringUtilities::toUpper(work);
    return std::string(work.getBuffer(), work.getSize());
}

// The ICU pipeline of the benchmark; buffers are sized for the worst case once.
struct IcuUpper {
    std::vector<UChar> wide;
    std::vector<UChar> upper;
    std::vector<char> out;

    explicit IcuUpper(std::size_t bytes) : wide(bytes + 1), upper(3 * bytes + 1), out(9 * bytes + 1) {}

    // Bytes written to `out`, or -1 on an ICU error.
    int32_t run(const std::string& text)
    {
        UErrorCode status = U_ZERO_ERROR;
        int32_t wideLength = 0;
        u_strFromUTF8(wide.data(), static_cast<int32_t>(wide.size()), &wideLength, text.data(),
                      static_cast<int32_t>(text.size()), &status);
        const int32_t upperLength = u_strToUpper(upper.data(), static_cast<int32_t>(upper.size()), wide.data(),
                                                 wideLength, "", &status);
        int32_t outLength = 0;
        u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &outLength, upper.data(), upperLength, &status);
        return U_FAILURE(status) ? -1 : outLength;
    }
};

// Both implementations agree: equal results on the one-to-one text, equal byte
// lengths on the mixed one.
bool resultsAgree(std::size_t bytes, std::string& why)
{
    const std::string simple = repeatedText(kSimpleSample, bytes);
    IcuUpper icu(bytes);
    int32_t length = icu.run(simple);
    if (length < 0 || upperWithOsalKit(simple) != std::string(icu.out.data(), static_cast<std::size_t>(length))) {
        why = "upper case of the one-to-one text differs from ICU's";
        return false;
    }
    const std::string mixed = repeatedText(kMixedSample, bytes);
    length = icu.run(mixed);
    if (length < 0 || upperWithOsalKit(mixed).size() != static_cast<std::size_t>(length)) {
        why = "upper case of the mixed text has another length than ICU's";
        return false;
    }
    return true;
}

void upperOsalKit(benchmark::State& state, std::int64_t fullBytes)
{
    const std::size_t bytes = static_cast<std::size_t>(osal_kit_bench::size(fullBytes));
    std::string why;
    if (!resultsAgree(bytes, why)) {
        state.SkipWithError(why.c_str());
        return;
    }
    const std::string text = repeatedText(kMixedSample, bytes);
    const PAL::CString source(text.c_str());
    for (auto _ : state) {
        PAL::CString work(source);
        PAL::StringUtilities::toUpper(work);
        benchmark::DoNotOptimize(work.getBuffer());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void upperIcu(benchmark::State& state, std::int64_t fullBytes)
{
    const std::size_t bytes = static_cast<std::size_t>(osal_kit_bench::size(fullBytes));
    std::string why;
    if (!resultsAgree(bytes, why)) {
        state.SkipWithError(why.c_str());
        return;
    }
    const std::string text = repeatedText(kMixedSample, bytes);
    IcuUpper icu(bytes);
    for (auto _ : state) {
        const int32_t length = icu.run(text);
        benchmark::DoNotOptimize(length);
        benchmark::DoNotOptimize(icu.out.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

} // namespace

BENCHMARK_CAPTURE(upperOsalKit, 1KiB, 1024)->Name("ToUpper1KiB/osal_kit");
BENCHMARK_CAPTURE(upperIcu, 1KiB, 1024)->Name("ToUpper1KiB/ICU_u_strToUpper");
BENCHMARK_CAPTURE(upperOsalKit, 16KiB, 16384)->Name("ToUpper16KiB/osal_kit");
BENCHMARK_CAPTURE(upperIcu, 16KiB, 16384)->Name("ToUpper16KiB/ICU_u_strToUpper");

BENCHMARK_MAIN();
