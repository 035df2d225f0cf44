#include "platform/system/NSPasteboard.h"

#include "platform/graphics/NSBitmapImageRep.h"

#include <algorithm>
#include <array>
#include <utility>

namespace platform {

namespace {

struct Registry {
    Lock lock;
    std::map<std::string, NSPasteboardPtr, std::less<>> pasteboards GUARDED_BY(lock);
};

Registry& registry()
{
    static Registry shared;
    return shared;
}

constexpr std::array<std::pair<std::string_view, NSBitmapImageFileType>, 5> kFileTypes = {{
    {kNSPasteboardTypePNG, NSBitmapImageFileType::PNG},
    {kNSPasteboardTypeJPEG, NSBitmapImageFileType::JPEG},
    {kNSPasteboardTypeJPEG2000, NSBitmapImageFileType::JPEG2000},
    {kNSPasteboardTypeGIF, NSBitmapImageFileType::GIF},
    {kNSPasteboardTypeBMP, NSBitmapImageFileType::BMP},
}};

std::optional<NSData> convert(NSData tiff, std::string_view type)
{
    const auto* const fileType = std::ranges::find(kFileTypes, type, [](const auto& entry) { return entry.first; });
    if (fileType == kFileTypes.end() && type != kNSPasteboardTypePDF)
        return std::nullopt;
    const auto bitmap = NSBitmapImageRep::imageRepWithData(std::move(tiff));
    if (!bitmap)
        return std::nullopt;
    return fileType == kFileTypes.end() ? bitmap->PDFRepresentation()
                                        : bitmap->representationUsingType(fileType->second, {});
}

} // namespace

NSPasteboardPtr NSPasteboard::pasteboardWithName(std::string_view name)
{
    const LockGuard guard(registry().lock);
    auto& pasteboards = registry().pasteboards;
    const auto found = pasteboards.find(name);
    if (found != pasteboards.end())
        return found->second;
    NSPasteboardPtr made(new NSPasteboard(name));
    pasteboards.emplace(name, made);
    return made;
}

void NSPasteboard::declareTypes(const std::vector<std::string_view>& types)
{
    const LockGuard guard(lock_);
    data_.clear();
    for (const std::string_view type : types)
        data_.emplace(type, std::nullopt);
}

bool NSPasteboard::setDataForType(std::optional<NSData> data, std::string_view type)
{
    const LockGuard guard(lock_);
    const auto declared = data_.find(type);
    if (declared == data_.end())
        return false;
    declared->second = std::move(data);
    return true;
}

std::optional<NSData> NSPasteboard::dataForType(std::string_view type) const
{
    std::optional<NSData> tiff;
    {
        const LockGuard guard(lock_);
        const auto declared = data_.find(type);
        if (declared != data_.end())
            return declared->second;
        const auto found = data_.find(kNSPasteboardTypeTIFF);
        if (found == data_.end())
            return std::nullopt;
        tiff = found->second;
    }
    return tiff ? convert(std::move(*tiff), type) : std::nullopt;
}

void NSPasteboard::releaseGlobally()
{
    {
        const LockGuard guard(registry().lock);
        auto& pasteboards = registry().pasteboards;
        const auto found = pasteboards.find(name_);
        // It may have been released before, and another made since.
        if (found != pasteboards.end() && found->second.get() == this)
            pasteboards.erase(found);
    }
    const LockGuard guard(lock_);
    data_.clear();
}

} // namespace platform
