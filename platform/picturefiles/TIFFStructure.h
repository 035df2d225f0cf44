#pragma once

#include "platform/bytes/ByteSource.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// The structure of TIFF files and of EXIF blocks: folders of entries, each a tag and its values. What is not there, or
/// reaches past the end, is told as nothing. One thread at a time.
class TIFFStructure final {
public:
    static constexpr uint16_t kTypeShort = 3;

    /// @param source  outlives this
    explicit TIFFStructure(const ByteSource& source);

    /// Where the first folder stands; nothing where the bytes are no such structure, or the one for more than 4 GB.
    std::optional<uint32_t> firstFolder() const;

    /// Calls `visit` with the tag and the place of each entry, as far as there are bytes.
    template <typename Visit>
    void forEachEntry(uint32_t folder, Visit visit) const
    {
        constexpr size_t kEntryLength = 12;
        const size_t count = number16(folder).value_or(0);
        for (size_t i = 0; i < count; ++i) {
            const size_t entry = size_t{folder} + 2 + i * kEntryLength;
            const auto tag = number16(entry);
            if (!tag)
                return;
            visit(*tag, entry);
        }
    }

    /// @name Of this tag in the folder at this place
    /// @{
    std::optional<size_t> entry(std::optional<uint32_t> folder, uint16_t tag) const;
    std::optional<uint32_t> integer(std::optional<uint32_t> folder, uint16_t tag) const;
    /// Up to its first zero and without spaces around it; empty where there is none.
    std::string text(std::optional<uint32_t> folder, uint16_t tag) const;
    /// Degrees, minutes and seconds, as degrees.
    std::optional<double> degrees(std::optional<uint32_t> folder, uint16_t tag) const;
    /// @}

    /// @name Of the entry at this place
    /// @{
    uint16_t type(size_t entry) const { return number16(entry + 2).value_or(0); }
    uint32_t count(size_t entry) const { return number32(entry + 4).value_or(0); }
    /// Where it is one whole number.
    std::optional<uint32_t> integer(size_t entry) const;
    /// The first of its fractions.
    std::optional<double> rational(size_t entry) const;
    /// As many as asked for; none if it has others.
    std::vector<double> rationals(size_t entry, size_t count) const;
    /// @}

    std::optional<uint16_t> number16(size_t offset) const;
    std::optional<uint32_t> number32(size_t offset) const;

private:
    bool read(size_t offset, std::span<uint8_t> bytes) const
    {
        return source_.read(static_cast<int64_t>(offset), bytes);
    }
    std::optional<double> fraction(size_t offset) const;

    const ByteSource& source_;
    bool isLittleEndian_ = false;
    bool isValid_ = false;
};

} // namespace platform
