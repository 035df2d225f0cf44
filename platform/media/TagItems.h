#pragma once

#include "platform/foundation/NSData.h"
#include "platform/media/AVMetadataItem.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace platform {

/// The common key for which a key of a tag stands; empty for those that have none.
std::string_view commonKeyOf(std::string_view keySpace, std::string_view key);

/// What the tags of one file have of common keys, in their order. Takes only so much, whatever the file holds.
class TagItems final {
public:
    /// Pictures beyond this are no covers; a tag of text alone is far smaller.
    static constexpr int64_t kMaxBytes = int64_t{64} << 20;

    /// Whether a value for the key would be kept; others need not be read.
    bool wants(std::string_view keySpace, std::string_view key) const;

    void addText(std::string_view keySpace, std::string_view key, std::string text);
    void addNumber(std::string_view keySpace, std::string_view key, double number);
    void addData(std::string_view keySpace, std::string_view key, std::span<const uint8_t> data);

    bool has(std::string_view keySpace, std::string_view key) const;
    const AVMetadataItemList& items() const { return items_; }

private:
    void add(std::string_view keySpace, std::string_view key, AVMetadataItem::Value value);

    AVMetadataItemList items_;
    int64_t bytesLeft_ = kMaxBytes;
};

} // namespace platform
