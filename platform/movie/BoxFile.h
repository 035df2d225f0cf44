#pragma once

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"

#include <string>

namespace platform {

/// A file's boxes and bytes.
class BoxFile final {
public:
    explicit BoxFile(const std::string& path) : bytes_(path), boxes_(bytes_) {}

    int64_t size() const { return bytes_.size(); }
    bool read(int64_t offset, std::span<uint8_t> bytes) const { return bytes_.read(offset, bytes); }
    void forEachBox(int64_t begin, int64_t end, const BoxWalker::Visit& visit) const
    {
        boxes_.forEachBox(begin, end, visit);
    }

private:
    const FileBytes bytes_;
    const BoxWalker boxes_;
};

} // namespace platform
