// Runs a fuzz target over the files and folders given, without a fuzzer: how a build with any
// compiler repeats a committed corpus.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <vector>

// The two names are the fuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs_in(const fs::path& place) {
    if (!fs::is_directory(place)) {
        return {place};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

void replay(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + file.string());
    }
    const std::vector<char> text{std::istreambuf_iterator<char>(stream), {}};
    const std::vector<std::uint8_t> input(text.begin(), text.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

int main(int argc, char** argv) {
    try {
        LLVMFuzzerInitialize(&argc, &argv);
        std::size_t count = 0;
        for (const char* argument : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
            for (const fs::path& file : inputs_in(argument)) {
                replay(file);
                ++count;
            }
        }
        std::printf("%zu inputs replayed\n", count);
        // An empty corpus proves nothing.
        return count == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
