// Runs a fuzz target over the inputs of the ordinary test build: every file of each
// folder (or each file) named on the command line goes once through the target's entry
// point, in name order. A failing input aborts the program, naming itself first.

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
        if (fs::is_directory(argv[i])) {
            for (const fs::directory_entry& entry : fs::directory_iterator(argv[i]))
                inputs.push_back(entry.path());
        } else {
            inputs.push_back(argv[i]);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
        std::fprintf(stderr, "input %s\n", path.string().c_str());
        std::ifstream file(path, std::ios::binary);
        if (!file)
            return 2;
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const uint8_t none = 0;  // an empty input still gets a valid pointer, as under libFuzzer
        LLVMFuzzerTestOneInput(bytes.empty() ? &none : reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu passed, 0 failed\n", inputs.size());
    return inputs.empty() ? 2 : 0;
}
