// Runs a fuzz target over the files of each folder (or the files) named on the command
// line, in name order; a failing input aborts the program, naming itself first.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i]))
            inputs.push_back(argv[i]);
        else
            for (const auto& entry : fs::directory_iterator(argv[i]))
                inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
        std::fprintf(stderr, "input %s\n", path.string().c_str());
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const uint8_t none = 0;  // an empty input still gets a valid pointer, as under libFuzzer
        LLVMFuzzerTestOneInput(bytes.empty() ? &none : reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu passed, 0 failed\n", inputs.size());
    return inputs.empty() ? 2 : 0;
}
