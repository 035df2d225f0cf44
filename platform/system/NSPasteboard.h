#pragma once

#include "platform/foundation/Lock.h"
#include "platform/foundation/NSData.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// @name Types of data, by their MIME names.
/// @{
inline constexpr std::string_view kNSPasteboardTypeTIFF = "image/tiff";
inline constexpr std::string_view kNSPasteboardTypePDF = "application/pdf";
inline constexpr std::string_view kNSPasteboardTypePNG = "image/png";
inline constexpr std::string_view kNSPasteboardTypeJPEG = "image/jpeg";
inline constexpr std::string_view kNSPasteboardTypeJPEG2000 = "image/jp2";
inline constexpr std::string_view kNSPasteboardTypeGIF = "image/gif";
inline constexpr std::string_view kNSPasteboardTypeBMP = "image/bmp";
/// @}

class NSPasteboard;
using NSPasteboardPtr = std::shared_ptr<NSPasteboard>;

/// A place where one part of this process leaves data for another, which may ask for it in a type of its own: a
/// picture is converted. Any thread; but whoever writes and then reads must be alone to find what it wrote.
class NSPasteboard final {
public:
    /// The pasteboard of this name; made empty if there is none.
    static NSPasteboardPtr pasteboardWithName(std::string_view name);

    /// Forgets what is there and says what will be: data of another type is not taken.
    void declareTypes(const std::vector<std::string_view>& types);

    /// @return false if the type was not declared
    bool setDataForType(std::optional<NSData> data, std::string_view type);

    /// Data that was set, or made of a TIFF that was.
    /// @return nothing if there is none, or no way to the type
    std::optional<NSData> dataForType(std::string_view type) const;

    /// Lets go of the data and the name: whoever asks for it by name gets another pasteboard.
    void releaseGlobally();

private:
    explicit NSPasteboard(std::string_view name) : name_(name) {}

    const std::string name_;
    mutable Lock lock_;
    std::map<std::string, std::optional<NSData>, std::less<>> data_ GUARDED_BY(lock_);
};

} // namespace platform
