#pragma once

#include "platform/bytes/ByteSource.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace platform {

/// A box's type of four characters as a number.
constexpr uint32_t fourCharacterCode(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

/// A box's type and where its content lies.
struct Box {
    uint32_t type = 0;
    int64_t begin = 0;
    int64_t end = 0;

    int64_t size() const { return end - begin; }
};

/// Walks the boxes of a QuickTime or MPEG-4 file, of a HEIF picture, or of a part of one. A box never reaches out of
/// the one around it, and however many there are and however deep they lie, a walk ends. One thread at a time.
class BoxWalker final {
public:
    /// Boxes inside each other; no file that is meant well has as many.
    static constexpr int kMaxDepth = 16;
    /// Boxes that one walker visits. Files of many fragments have thousands; more would only be read to waste time.
    static constexpr int kMaxBoxes = 1 << 20;

    using Visit = std::function<void(const Box& box)>;

    /// @param source  outlives the walker
    explicit BoxWalker(const ByteSource& source) : source_(source) {}

    int64_t size() const { return source_.size(); }
    /// As the source reads.
    bool read(int64_t offset, std::span<uint8_t> bytes) const { return source_.read(offset, bytes); }

    /// The box that starts at `offset`; nothing if there is none that ends at `limit` or before.
    std::optional<Box> boxAt(int64_t offset, int64_t limit) const;

    /// Calls `visit` with each box from `begin` to `end`; it may walk through that box in turn.
    /// @return where the walk ended: `end`, or else where the box begins that is broken or one too many
    int64_t forEachBox(int64_t begin, int64_t end, const Visit& visit) const;

    /// The first box of a type from `begin` to `end`. Those before it are walked over.
    std::optional<Box> find(uint32_t type, int64_t begin, int64_t end) const;

private:
    const ByteSource& source_;
    mutable int boxesLeft_ = kMaxBoxes;
    mutable int depth_ = 0;
};

} // namespace platform
