// Runs a fuzz harness once over every file given, and over every file of each folder given.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

void Replay(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // A copy of exactly the input's size on the heap, so that the address sanitizer sees a read past its end.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            Replay(argv[i]);
            ++count;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) {
                continue;
            }
            Replay(entry.path());
            ++count;
        }
    }
    std::printf("replayed %d inputs\n", count);
    return count > 0 ? 0 : 1;
}
