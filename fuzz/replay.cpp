// Runs a fuzz target over every file of the folders (or the files) given,
// once each, in name order: the kept corpora replayed where libFuzzer is not
// at hand (g++ builds under the sanitizers). Notes (*.md) are skipped. The
// target's own checks abort on a broken invariant; the sanitizers stop on a
// fault. Prints how many inputs ran.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        fs::path p = argv[i];
        if (!fs::is_directory(p)) {
            if (!fs::is_regular_file(p)) {
                std::fprintf(stderr, "%s: no such file or folder\n", argv[i]);
                return 2;
            }
            inputs.push_back(p);
            continue;
        }
        std::vector<fs::path> files;
        for (const fs::directory_entry& e : fs::directory_iterator(p))
            if (e.is_regular_file() && e.path().extension() != ".md") files.push_back(e.path());
        std::sort(files.begin(), files.end());
        inputs.insert(inputs.end(), files.begin(), files.end());
    }
    for (const fs::path& p : inputs) {
        std::ifstream in(p, std::ios::binary);
        std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(in), {});
        // A copy of exactly the input's size, so that the sanitizers see a
        // read past its end.
        auto* copy = new uint8_t[bytes.size() + (bytes.empty() ? 1 : 0)];
        std::copy(bytes.begin(), bytes.end(), copy);
        LLVMFuzzerTestOneInput(copy, bytes.size());
        delete[] copy;
    }
    std::printf("%s: %zu inputs\n", fs::path(argv[0]).filename().c_str(), inputs.size());
    return 0;
}
