#pragma once

#include "platform/foundation/Lock.h"
#include "platform/graphics/NSImage.h"
#include "platform/pixels/CVPixelBuffer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

/// One finished frame.
struct FrameRecord {
    /// Exactly the size of the video.
    std::shared_ptr<platform::CVPixelBuffer> buffer;
    /// A small picture of the photo, for progress.
    platform::NSImagePtr icon;
    /// Length of the photo's file.
    int64_t readBytes = 0;
    /// The photo's position in the list of photos.
    size_t index = 0;
};

/// Finished frames in the order in which they were finished. Any thread; one lock for all.
class FrameList final {
public:
    void append(FrameRecord record);

    size_t count() const;

    /// Whether a record of this index is there.
    bool contains(size_t index) const;

    /// Removes and returns the first record of this index.
    std::optional<FrameRecord> take(size_t index);

    /// Waits until the list has changed since it was last looked at with a count of `seen` appends, at most `seconds`.
    /// @return the number of appends so far
    uint64_t waitForAppend(uint64_t seen, double seconds) const;

private:
    mutable platform::Lock lock_;
    mutable platform::Condition appended_;
    std::vector<FrameRecord> records_ GUARDED_BY(lock_);
    uint64_t appends_ GUARDED_BY(lock_) = 0;
};
