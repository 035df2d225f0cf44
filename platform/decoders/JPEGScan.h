#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// The Huffman codes of one table of a JPEG file, made for reading (ITU-T T.81, annexes C and F).
class JPEGCodes final {
public:
    /// Whether the table is for first coefficients, which are differences, or for those behind them.
    enum class Kind { First, Other };

    /// @param counts  of codes of 1 to 16 bits
    /// @param symbols  of all codes, shortest first
    /// @return nothing where these are no codes, or not of that kind
    static std::optional<JPEGCodes> of(Kind kind, std::span<const uint8_t, 16> counts,
                                       std::span<const uint8_t> symbols);

private:
    friend class JPEGScan;

    /// Two small coefficients fit as a rule, each with its code.
    static constexpr unsigned kBits = 11;
    static constexpr unsigned kLongestCode = 16;
    static constexpr size_t kMostValues = 2;
    /// In Values::bits, where the rest of the block is zeros.
    static constexpr uint8_t kToTheEnd = 128;

    struct Code {
        uint8_t symbol = 0;
        /// 0 for a code that is longer than kBits.
        uint8_t bits = 0;
    };

    /// What bits say together of coefficients behind the first.
    struct Values {
        std::array<int16_t, kMostValues> values{};
        /// From the next coefficient on to that of each value; kBlockSamples where there is no value.
        std::array<uint8_t, kMostValues> skips{};
        uint8_t bits = 0;
        /// Coefficients, as many as a block has where not even the first value fits.
        uint8_t reach = 0;
    };

    JPEGCodes() = default;
    Values combine(unsigned bits) const;

    /// @name By the next kBits
    /// @{
    std::array<Code, size_t{1} << kBits> codes_{};
    std::array<Values, size_t{1} << kBits> values_{};
    /// @}
    /// By length of the codes: the first number of 16 bits, so begun, that is beyond them.
    std::array<uint32_t, kLongestCode + 1> ends_{};
    /// By length: what to add to a code to get the place of its symbol.
    std::array<int32_t, kLongestCode + 1> places_{};
    std::array<uint8_t, 256> symbols_{};
};

/// Reads the coefficients of a baseline scan. It gives up at the first byte that is not as it should be: what is then
/// to be shown is for others to know. Large: not for the stack.
class JPEGScan final {
public:
    static constexpr size_t kBlockSamples = 64;
    /// Of one unit of blocks that are coded together.
    static constexpr size_t kMostBlocks = 10;

    /// Coefficients in rows, as they are multiplied and transformed; what is behind them is of no meaning.
    struct alignas(32) Block {
        std::array<int16_t, kBlockSamples + 1> coefficients{};
    };

    /// @param bytes  behind the scan's header, to the end of the file; outlive this
    explicit JPEGScan(std::span<const uint8_t> bytes);

    /// To be called before each unit of at most kMostBlocks blocks.
    void beginUnit();

    /// @param prediction  of the component; 0 at the beginning of an interval
    /// @param block  all zeros
    /// @return false where the data is damaged
    [[nodiscard]] bool readBlock(const JPEGCodes& first, const JPEGCodes& other, int& prediction, Block& block);

    /// False where the unit's blocks went on behind the data's end.
    [[nodiscard]] bool endUnit() const;

    /// Goes on behind the mark that stands between two intervals.
    /// @param number  of the mark: how many stood before it, modulo 8
    /// @return false where the mark is not there
    [[nodiscard]] bool beginInterval(unsigned number);

private:
    /// What a unit takes at the most: for each coefficient a code of 16 bits and 15 bits of value.
    static constexpr size_t kMostUnitBytes = kMostBlocks * kBlockSamples * 4;
    static constexpr size_t kWindowBytes = 32 * 1024;

    /// The bits that come next, from the highest on.
    struct Bits {
        uint64_t bits = 0;
        /// Of them; what is behind is that of `next`, too.
        unsigned count = 0;
        const uint8_t* next = nullptr;

        /// There are at least 56 then.
        void refill();
        void drop(unsigned some);
        [[nodiscard]] int readValue(unsigned size);
        [[nodiscard]] bool readSymbol(const JPEGCodes& codes, unsigned& symbol);
        /// Behind the last bit that was used.
        const uint8_t* end() const { return next - count / 8; }
    };

    void fillWindow();

    std::span<const uint8_t> source_;
    /// Whether the source begins with a mark, or has ended.
    bool isAtMark_ = false;
    /// Bytes without the zeros that stand behind those of ones. What lies behind them is read, but not used.
    std::array<uint8_t, kWindowBytes + kMostUnitBytes + 16> window_{};
    uint8_t* end_ = window_.data();
    Bits bits_;
};

} // namespace platform
