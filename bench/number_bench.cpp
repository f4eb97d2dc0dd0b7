// ToUInt32: strict decimal parsing of a fixed set of texts of 1 to 10 digits, with the
// edge values 0 and 4294967295 among them. Every implementation must accept every
// text and reach the same sum.

#include "BenchSupport.h"

#include "core/String.h"
#include "core/StringUtilities.h"

#include <absl/strings/numbers.h>
#include <benchmark/benchmark.h>

#include <charconv>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<std::string> decimalTexts()
{
    const std::size_t count = static_cast<std::size_t>(osal_kit_bench::size(1000));
    std::mt19937 random(20260101u);
    std::vector<std::string> texts;
    texts.push_back("0");
    texts.push_back("4294967295");
    while (texts.size() < count) {
        if (texts.size() % 97 == 0) {
            texts.push_back(texts.size() % 2 == 0 ? "0" : "4294967295");
            continue;
        }
        // A length of 1 to 10 digits, then a value of that length within 32 bits.
        const unsigned int digits = 1 + random() % 10;
        unsigned long long low = 1;
        for (unsigned int i = 1; i < digits; ++i) {
            low *= 10;
        }
        unsigned long long high = low * 10 - 1;
        if (high > 4294967295ull) {
            high = 4294967295ull;
        }
        const unsigned long long value = low + random() % (high - low + 1);
        texts.push_back(std::to_string(value));
    }
    texts.resize(count);
    return texts;
}

unsigned long long expectedSum(const std::vector<std::string>& texts)
{
    unsigned long long sum = 0;
    for (const std::string& text : texts) {
        sum += std::stoull(text);
    }
    return sum;
}

// Runs `parse` (bool(const Text&, unsigned int&)) over every text, checks the sum once
// and then times whole passes.
template <typename Text, typename Parse>
void run(benchmark::State& state, const std::vector<Text>& texts, unsigned long long expected, Parse parse)
{
    auto pass = [&]() {
        unsigned long long sum = 0;
        for (const Text& text : texts) {
            unsigned int value = 0;
            if (!parse(text, value)) {
                return ~0ull;
            }
            sum += value;
        }
        return sum;
    };
    if (pass() != expected) {
        state.SkipWithError("parsed values differ from the texts");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(pass());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}

void parseOsalKit(benchmark::State& state)
{
    const std::vector<std::string> source = decimalTexts();
    std::vector<PAL::CString> texts;
    for (const std::string& text : source) {
        texts.push_back(PAL::CString(text.c_str()));
    }
    run(state, texts, expectedSum(source), [](const PAL::CString& text, unsigned int& value) {
        return PAL::StringUtilities::toUInt32(text, value, false, false);
    });
}

void parseAbsl(benchmark::State& state)
{
    const std::vector<std::string> texts = decimalTexts();
    run(state, texts, expectedSum(texts), [](const std::string& text, unsigned int& value) {
        return absl::SimpleAtoi(text, &value);
    });
}

void parseFromChars(benchmark::State& state)
{
    const std::vector<std::string> texts = decimalTexts();
    run(state, texts, expectedSum(texts), [](const std::string& text, unsigned int& value) {
        const char* last = text.data() + text.size();
        const std::from_chars_result result = std::from_chars(text.data(), last, value);
        return result.ec == std::errc() && result.ptr == last;
    });
}

} // namespace

BENCHMARK(parseOsalKit)->Name("ToUInt32/osal_kit");
BENCHMARK(parseAbsl)->Name("ToUInt32/absl_SimpleAtoi");
BENCHMARK(parseFromChars)->Name("ToUInt32/std_from_chars");

BENCHMARK_MAIN();
