// Stands in for libFuzzer: gives a fuzz target every file of the folders on the
// command line, once.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout); // names the file that crashes
            std::ifstream file(entry.path(), std::ios::binary);
            // On the heap with its exact size, so that a sanitizer sees the first byte too many.
            const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    if (replayed == 0)
        std::fprintf(stderr, "no corpus\n");
    return replayed != 0 ? 0 : 1;
}
