// Runs a fuzz target over the inputs of the ordinary test build: every file of each
// folder (or each file) named on the command line goes once through the target's entry
// point, in name order. A failing input aborts the program, naming itself first.

#include <algorithm>
#include <cstddef>
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
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path given(argv[i]);
        if (fs::is_directory(given)) {
            for (const fs::directory_entry& entry : fs::directory_iterator(given)) {
                if (entry.is_regular_file()) {
                    inputs.push_back(entry.path());
                }
            }
        } else if (fs::is_regular_file(given)) {
            inputs.push_back(given);
        } else {
            std::fprintf(stderr, "no such input: %s\n", argv[i]);
            return 2;
        }
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs\n");
        return 2;
    }
    for (const fs::path& path : inputs) {
        std::fprintf(stderr, "input %s\n", path.string().c_str());
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        // An empty input still gets a valid pointer, as under libFuzzer.
        const uint8_t none = 0;
        LLVMFuzzerTestOneInput(bytes.empty() ? &none : reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu passed, 0 failed\n", inputs.size());
    return 0;
}
