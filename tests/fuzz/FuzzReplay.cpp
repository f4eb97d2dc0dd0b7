// Runs a fuzz target over the files of each folder named on the command line, in name
// order; a failing input aborts the program, naming itself first. (A single input is
// replayed by the fuzz build's own program.)

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
            inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    for (const auto& path : inputs) {
        std::fprintf(stderr, "input %s\n", path.string().c_str());
        std::ifstream file(path, std::ios::binary);
        // A string's data is never null, so an empty input still gets a valid pointer, as under libFuzzer.
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu passed, 0 failed\n", inputs.size());
    return inputs.empty() ? 2 : 0;
}
