// Replays inputs through a fuzz target without libFuzzer: every file named on the command
// line, and every file below every directory named there. Used by the normal builds so
// that each corpus runs as a plain test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

static void replay(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // A copy of exactly the file's size, so that a read past the end is caught.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.empty() ? nullptr : input.data(), input.size());
}

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
                if (entry.is_regular_file()) {
                    replay(entry.path());
                    ++count;
                }
            }
        } else {
            replay(argv[i]);
            ++count;
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
