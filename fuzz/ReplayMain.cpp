// The main of a fuzz target in the normal build: runs the target once on every file in the folders
// (or files) named on the command line, so that its seeds and past findings replay as a test.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FOLDER_OR_FILE...\n", argv[0]);
        return 2;
    }
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (fs::is_directory(argv[i], error)) {
            for (const auto& entry : fs::directory_iterator(argv[i])) {
                if (entry.is_regular_file()) inputs.push_back(entry.path());
            }
        } else if (fs::is_regular_file(argv[i], error)) {
            inputs.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: no such folder or file\n", argv[i]);
            return 2;
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 2;
    }
    std::sort(inputs.begin(), inputs.end());

    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    for (const fs::path& input : inputs) {
        // Announced first, so that a crash names its input.
        std::printf("%s\n", input.c_str());
        std::fflush(stdout);
        std::ifstream file(input, std::ios::binary);
        // A buffer of exactly the input's size, so that a sanitizer sees any read past its end.
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        const auto data = std::make_unique<uint8_t[]>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), data.get());
        LLVMFuzzerTestOneInput(data.get(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
