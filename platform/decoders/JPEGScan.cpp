#include "platform/decoders/JPEGScan.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace platform {

namespace {

/// Where the coefficients lie that a file has in the order of their waves (figure A.6); behind the last one the place
/// that is not used.
constexpr std::array<uint8_t, 2 * JPEGScan::kBlockSamples> kPlaces = [] {
    std::array<uint8_t, 2 * JPEGScan::kBlockSamples> places{};
    places.fill(JPEGScan::kBlockSamples);
    size_t at = 0;
    for (size_t diagonal = 0; diagonal < 15; ++diagonal)
        for (size_t step = 0; step <= diagonal; ++step) {
            const size_t row = diagonal % 2 == 0 ? diagonal - step : step;
            const size_t column = diagonal - row;
            if (row < 8 && column < 8)
                places[at++] = static_cast<uint8_t>(8 * row + column);
        }
    return places;
}();

constexpr uint8_t kMark = 0xFF;
constexpr uint8_t kFirstInterval = 0xD0;
/// What symbols without a value say: 16 more zeros follow. With any other number the rest of the block is zeros.
constexpr unsigned kSixteenZeros = 15;

/// The value that some bits stand for: small numbers are the negative ones (table F.1).
constexpr int valueOf(unsigned bits, unsigned count)
{
    // Without a branch, as nobody can foretell a sign.
    const int isNegative = 1 - static_cast<int>(2 * bits >> count);
    return static_cast<int>(bits) - isNegative * ((1 << count) - 1);
}

} // namespace

std::optional<JPEGCodes> JPEGCodes::of(Kind kind, std::span<const uint8_t, 16> counts, std::span<const uint8_t> symbols)
{
    JPEGCodes codes;
    uint32_t code = 0;
    size_t place = 0;
    for (unsigned length = 1; length <= kLongestCode; ++length) {
        const size_t count = counts[length - 1];
        if (place + count > std::min(symbols.size(), codes.symbols_.size()) || code + count > 1U << length)
            return std::nullopt;
        codes.places_[length] = static_cast<int32_t>(place) - static_cast<int32_t>(code);
        for (size_t i = 0; i < count; ++i, ++code, ++place) {
            const uint8_t symbol = symbols[place];
            if (kind == Kind::First && symbol > 15)
                return std::nullopt;
            codes.symbols_[place] = symbol;
            for (unsigned rest = 0; length <= kBits && rest < 1U << (kBits - length); ++rest)
                codes.codes_[(code << (kBits - length)) | rest] = {symbol, static_cast<uint8_t>(length)};
        }
        codes.ends_[length] = code << (kLongestCode - length);
        code <<= 1;
    }
    for (unsigned bits = 0; kind == Kind::Other && bits < codes.values_.size(); ++bits)
        codes.values_[bits] = codes.combine(bits);
    return codes;
}

JPEGCodes::Values JPEGCodes::combine(unsigned bits) const
{
    // A longer run of zeros goes on with the next bits.
    constexpr unsigned kLongestRun = 31;
    constexpr uint8_t kNowhere = JPEGScan::kBlockSamples;
    Values all{.skips = {kNowhere, kNowhere}};
    for (size_t values = 0; all.reach <= kLongestRun;) {
        const unsigned rest = bits << all.bits & (codes_.size() - 1);
        const Code code = codes_[rest];
        const unsigned size = code.symbol & 15U;
        const unsigned zeros = code.symbol >> 4;
        if (code.bits == 0 || all.bits + code.bits + size > kBits || (size != 0 && values == kMostValues))
            break;
        all.bits = static_cast<uint8_t>(all.bits + code.bits + size);
        if (size == 0 && zeros != kSixteenZeros) {
            all.bits |= kToTheEnd;
            break;
        }
        if (size != 0) {
            const unsigned value = rest >> (kBits - code.bits - size) & ((1U << size) - 1);
            all.values[values] = static_cast<int16_t>(valueOf(value, size));
            all.skips[values++] = static_cast<uint8_t>(all.reach + zeros);
        }
        all.reach = static_cast<uint8_t>(all.reach + zeros + 1);
    }
    if (all.bits == 0)
        all.reach = JPEGScan::kBlockSamples;
    return all;
}

inline void JPEGScan::Bits::refill()
{
    uint64_t word = 0;
    std::memcpy(&word, next, sizeof word);
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap64(word);
    bits |= word >> count;
    next += (63 - count) >> 3;
    count |= 56;
}

inline void JPEGScan::Bits::drop(unsigned some)
{
    bits <<= some;
    count -= some;
}

inline int JPEGScan::Bits::readValue(unsigned size)
{
    // Two steps, since all 64 bits cannot be moved out in one.
    const int value = valueOf(static_cast<unsigned>(bits >> 1 >> (63 - size)), size);
    drop(size);
    return value;
}

inline bool JPEGScan::Bits::readSymbol(const JPEGCodes& codes, unsigned& symbol)
{
    const JPEGCodes::Code code = codes.codes_[bits >> (64 - JPEGCodes::kBits)];
    if (code.bits != 0) {
        symbol = code.symbol;
        drop(code.bits);
        return true;
    }
    const auto begun = static_cast<uint32_t>(bits >> (64 - JPEGCodes::kLongestCode));
    for (unsigned length = JPEGCodes::kBits + 1; length <= JPEGCodes::kLongestCode; ++length) {
        if (begun >= codes.ends_[length])
            continue;
        const auto number = static_cast<int32_t>(begun >> (JPEGCodes::kLongestCode - length));
        symbol = codes.symbols_[static_cast<uint8_t>(number + codes.places_[length])];
        drop(length);
        return true;
    }
    return false;
}

JPEGScan::JPEGScan(std::span<const uint8_t> bytes) : source_(bytes)
{
    bits_.next = end_;
}

void JPEGScan::beginUnit()
{
    if (end_ - bits_.next < static_cast<ptrdiff_t>(kMostUnitBytes) && !isAtMark_)
        fillWindow();
}

void JPEGScan::fillWindow()
{
    const auto rest = static_cast<size_t>(end_ - bits_.next);
    std::memmove(window_.data(), bits_.next, rest);
    bits_.next = window_.data();
    end_ = window_.data() + rest;
    uint8_t* const full = window_.data() + kWindowBytes;
    while (end_ < full && !source_.empty() && !isAtMark_) {
        const size_t room = std::min<size_t>(static_cast<size_t>(full - end_), source_.size());
        const void* const mark = std::memchr(source_.data(), kMark, room);
        const size_t plain = mark ? static_cast<size_t>(static_cast<const uint8_t*>(mark) - source_.data()) : room;
        std::memcpy(end_, source_.data(), plain);
        end_ += plain;
        source_ = source_.subspan(plain);
        if (!mark)
            continue;
        isAtMark_ = source_.size() < 2 || source_[1] != 0;
        if (isAtMark_)
            break;
        *end_++ = kMark;
        source_ = source_.subspan(2);
    }
    isAtMark_ = isAtMark_ || source_.empty();
}

bool JPEGScan::readBlock(const JPEGCodes& first, const JPEGCodes& other, int& prediction, Block& block)
{
    Bits bits = bits_;
    bits.refill();
    unsigned symbol = 0;
    if (!bits.readSymbol(first, symbol))
        return false;
    prediction += bits.readValue(symbol);
    if (prediction < std::numeric_limits<int16_t>::min() || prediction > std::numeric_limits<int16_t>::max())
        return false;
    block.coefficients[0] = static_cast<int16_t>(prediction);

    size_t at = 1;
    const auto readNext = [&] {
        const JPEGCodes::Values& values = other.values_[bits.bits >> (64 - JPEGCodes::kBits)];
        // At the block's end some of these bits can be of the next one.
        if (at + values.reach < kBlockSamples) [[likely]] {
            block.coefficients[kPlaces[at + values.skips[0]]] = values.values[0];
            block.coefficients[kPlaces[at + values.skips[1]]] = values.values[1];
            at += values.reach + (values.bits & JPEGCodes::kToTheEnd);
            bits.drop(values.bits & ~JPEGCodes::kToTheEnd);
            return true;
        }
        if (!bits.readSymbol(other, symbol))
            return false;
        const unsigned size = symbol & 15;
        const unsigned zeros = symbol >> 4;
        if (size == 0 && zeros != kSixteenZeros) {
            at += JPEGCodes::kToTheEnd;
            return true;
        }
        at += zeros;
        if (size != 0)
            block.coefficients[kPlaces[at]] = static_cast<int16_t>(bits.readValue(size));
        ++at;
        return true;
    };
    while (at < kBlockSamples) {
        // Enough for two.
        bits.refill();
        if (!readNext() || (at < kBlockSamples && !readNext()))
            return false;
    }
    bits_ = bits;
    return at % JPEGCodes::kToTheEnd <= kBlockSamples;
}

bool JPEGScan::endUnit() const
{
    return bits_.end() <= end_;
}

bool JPEGScan::beginInterval(unsigned number)
{
    if (!isAtMark_)
        fillWindow();
    // No more may be left than what fills the last byte.
    if (!isAtMark_ || bits_.end() != end_ || source_.size() < 2 || source_[1] != kFirstInterval + number)
        return false;
    source_ = source_.subspan(2);
    isAtMark_ = false;
    end_ = window_.data();
    bits_ = {0, 0, end_};
    return true;
}

} // namespace platform
