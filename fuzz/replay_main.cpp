// Feeds every file of the corpus folders (or files) given on the command line to the fuzz target
// once, so that the seed corpora run as ordinary tests under the sanitizers of the test build.

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

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (std::filesystem::is_directory(argv[i], error)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
                if (entry.is_regular_file()) {
                    inputs.push_back(entry.path());
                }
            }
        } else if (std::filesystem::is_regular_file(argv[i], error)) {
            inputs.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: not a file or folder\n", argv[i]);
            return 2;
        }
    }
    // An empty corpus would pass without testing anything.
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 2;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        if (!file.good() && !file.eof()) {
            std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
            return 2;
        }
        // A copy of exactly the input's size, so that reading past its end is caught.
        std::vector<uint8_t> data(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return 0;
}
