// Runs a fuzz harness once over every file given, and over every file of each folder given. With --random N SEED it
// then runs it over N inputs more, made from those by chance, the same ones for the same seed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

using Input = std::vector<uint8_t>;
using Draw = std::mt19937_64;

constexpr size_t kLongestRandom = 4096;

// Of a file, or of each file below a folder, in the order of their names: a folder lists them in any order.
void ReadInputs(const std::filesystem::path& path, std::vector<Input>& inputs)
{
    std::vector<std::filesystem::path> files = {path};
    if (std::filesystem::is_directory(path)) {
        files.clear();
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
    }
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
}

void Run(const Input& bytes)
{
    // A copy of exactly the input's size on the heap, so that the address sanitizer sees a read past its end.
    Input input(bytes);
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

// Bytes that are more often met at the edges of what a format allows than others.
uint8_t DrawByte(Draw& draw)
{
    constexpr uint8_t kEdges[] = {0, 1, 0x7F, 0x80, 0xFF};
    return draw() % 4 == 0 ? kEdges[draw() % std::size(kEdges)] : static_cast<uint8_t>(draw());
}

// One of the inputs with a few edits: bytes changed, cut out, put in, or brought from another one.
Input DrawInput(Draw& draw, const std::vector<Input>& inputs)
{
    Input input = inputs[draw() % inputs.size()];
    for (auto edits = 1 + draw() % 8; edits > 0; --edits) {
        const auto at = static_cast<std::ptrdiff_t>(draw() % (input.size() + 1));
        const auto rest = static_cast<std::ptrdiff_t>(input.size()) - at;
        const auto kind = draw() % 4;
        if (kind == 0 && rest > 0) {
            input[static_cast<size_t>(at)] = DrawByte(draw);
        } else if (kind == 1) {
            input.erase(input.begin() + at, input.begin() + at + std::min<std::ptrdiff_t>(rest, draw() % 16));
        } else if (kind == 2) {
            const Input& other = inputs[draw() % inputs.size()];
            const auto from = static_cast<std::ptrdiff_t>(draw() % (other.size() + 1));
            const auto count = std::min<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(other.size()) - from, draw() % 64);
            input.insert(input.begin() + at, other.begin() + from, other.begin() + from + count);
        } else {
            Input some(draw() % 16);
            std::generate(some.begin(), some.end(), [&] { return DrawByte(draw); });
            input.insert(input.begin() + at, some.begin(), some.end());
        }
    }
    input.resize(std::min(input.size(), kLongestRandom));
    return input;
}

}  // namespace

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    std::vector<Input> inputs;
    unsigned long random = 0, seed = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--random" && i + 2 < argc) {
            random = std::strtoul(argv[++i], nullptr, 10);
            seed = std::strtoul(argv[++i], nullptr, 10);
        } else {
            ReadInputs(argv[i], inputs);
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "usage: %s [--random N SEED] FILE_OR_FOLDER...\n", argv[0]);
        return 2;
    }
    std::for_each(inputs.begin(), inputs.end(), &Run);
    Draw draw(seed);
    for (unsigned long i = 0; i < random; ++i) {
        Run(DrawInput(draw, inputs));
    }
    std::printf("replayed %zu inputs and %lu random ones\n", inputs.size(), random);
    return 0;
}
