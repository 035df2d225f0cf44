#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length);

namespace {

using Bytes = std::vector<uint8_t>;

Bytes contentsOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Changes inputs in ways that follow from a seed alone.
class Spoiler final {
public:
    explicit Spoiler(uint32_t seed) : chance_(seed) {}

    Bytes spoilt(const std::vector<Bytes>& inputs)
    {
        Bytes bytes = any(inputs);
        for (size_t i = below(4) + 1; i > 0; --i)
            change(bytes, inputs);
        return bytes;
    }

private:
    /// Distributions of the standard library differ from one to the next.
    size_t below(size_t count) { return count == 0 ? 0 : chance_() % count; }
    const Bytes& any(const std::vector<Bytes>& inputs) { return inputs[below(inputs.size())]; }

    void change(Bytes& bytes, const std::vector<Bytes>& inputs)
    {
        constexpr size_t kLongest = 1 << 16;
        const size_t at = below(bytes.size());
        const auto place = bytes.begin() + static_cast<ptrdiff_t>(at);
        const auto rest = static_cast<ptrdiff_t>(below(bytes.size() - at + 1));
        switch (bytes.empty() ? 3 : below(7)) {
        case 0:
            bytes[at] ^= static_cast<uint8_t>(1U << below(8));
            break;
        case 1:
            bytes[at] = static_cast<uint8_t>(chance_());
            break;
        case 2:
            bytes.erase(place, place + rest);
            break;
        case 3:
            bytes.insert(place, below(8) + 1, static_cast<uint8_t>(chance_()));
            break;
        case 4:
            std::fill_n(place, std::min<size_t>(bytes.size() - at, 4), below(2) == 0 ? 0xFF : 0);
            break;
        case 5: {
            const Bytes part(place, place + rest);
            bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(below(bytes.size())), part.begin(), part.end());
            break;
        }
        default: {
            const Bytes& other = any(inputs);
            bytes.erase(place, bytes.end());
            bytes.insert(bytes.end(), other.begin() + static_cast<ptrdiff_t>(below(other.size())), other.end());
        }
        }
        bytes.resize(std::min(bytes.size(), kLongest));
    }

    std::mt19937 chance_;
};

/// What is tried is written first, so that it is there when trying it ends the process.
void attempt(const Bytes& input, const std::filesystem::path& current)
{
    std::ofstream(current, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

/// Tries the inputs in a folder, then as many that are made of them, without the fuzzer's own library.
/// usage: NAME CORPUS RUNS SEED CURRENT
int main(int argc, char** argv)
{
    if (argc != 5) {
        fmt::print(stderr, "usage: {} CORPUS RUNS SEED FILE\n", argv[0]);
        return 2;
    }
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
        paths.push_back(entry.path());
    std::ranges::sort(paths);
    std::vector<Bytes> inputs;
    for (const auto& path : paths) {
        inputs.push_back(contentsOf(path));
        attempt(inputs.back(), argv[4]);
    }
    if (inputs.empty())
        return 2;
    const size_t runs = std::stoul(argv[2]);
    Spoiler spoiler(static_cast<uint32_t>(std::stoul(argv[3])));
    for (size_t i = 0; i < runs; ++i)
        attempt(spoiler.spoilt(inputs), argv[4]);
    fmt::print("{}\n", inputs.size() + runs);
    return 0;
}
