#include "items/SavedForm.h"

#include "platform/foundation/NSString.h"

using namespace platform;

namespace saved_form {

namespace {

constexpr std::string_view kResources = "Resources/";

std::string keyOfBytes(std::string_view key)
{
    return std::string(key) + "Bytes";
}

} // namespace

std::optional<NSDictionary> read(const std::optional<NSData>& data, NSError* error)
{
    if (!data)
        return std::nullopt;
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(*data, error);
    const auto* archived = root ? root->as<NSDictionary>() : nullptr;
    if (!archived)
        return std::nullopt;
    const ArchivedValue* version = archived->objectForKey(kVersionKey);
    const auto* text = version ? version->as<std::string>() : nullptr;
    if (!text || *text != kVersion)
        return std::nullopt;
    return *archived;
}

std::optional<NSURL> readLocation(const NSDictionary& dictionary, std::string_view key, const NSURL& saveLocation,
                                  NSError* error)
{
    std::optional<std::string> path;
    std::optional<NSData> bytes;
    if (!readValue(dictionary, key, path, error) || !readValue(dictionary, keyOfBytes(key), bytes, error) || !path)
        return std::nullopt;
    if (bytes)
        path->assign(bytes->begin(), bytes->end());
    const size_t tail = path->rfind(kResources);
    // The system's paths end at a zero byte.
    if (tail == std::string::npos || path->find('\0') != std::string::npos)
        return std::nullopt;
    return saveLocation.URLByAppendingPathComponent(std::string_view(*path).substr(tail));
}

void addPath(NSDictionary& dictionary, std::string_view key, const std::string& path)
{
    dictionary.setObjectForKey(stringByReplacingInvalidUTF8(path), std::string(key));
    if (!isValidUTF8(path))
        dictionary.setObjectForKey(NSData(path.begin(), path.end()), keyOfBytes(key));
}

std::string textOfPath(const std::string& path)
{
    return isValidUTF8(path) ? path : NSURL::fileURLWithPath(path, false).absoluteString();
}

} // namespace saved_form
