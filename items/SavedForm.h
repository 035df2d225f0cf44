#pragma once

#include "platform/archive/NSKeyedArchiver.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"

#include <optional>
#include <string>
#include <string_view>

/// What the saved forms of photos and soundtracks have in common: a keyed archive of one dictionary with a version and
/// the path of a file, of which loading uses the part from the last "Resources/" on.
namespace saved_form {

inline constexpr std::string_view kVersionKey = "version";
inline constexpr std::string_view kVersion = "1.0";

/// Unarchives a blob.
///
/// @param error  out, optional: how the archive is damaged
/// @return nothing for no blob, for a damaged one, and, without an error, for one of another version
[[nodiscard]] std::optional<platform::NSDictionary> read(const std::optional<platform::NSData>& data,
                                                         platform::NSError* error);

/// The value of a key if it is there.
///
/// @return false if it is of another class; `error` names the key
template <typename T>
[[nodiscard]] bool readValue(const platform::NSDictionary& dictionary, std::string_view key, std::optional<T>& value,
                             platform::NSError* error)
{
    const platform::ArchivedValue* object = dictionary.objectForKey(key);
    if (!object)
        return true;
    if (const T* found = object->as<T>()) {
        value = *found;
        return true;
    }
    return platform::fail(error, platform::kNSCocoaErrorDomain, platform::kNSCoderReadCorruptError,
                          platform::localized("The value for key \"{}\" is of another class", {key}));
}

/// Where the file of a saved path lies in a document.
///
/// @return nothing, without an error, where the path is missing or has no "Resources/"
[[nodiscard]] std::optional<platform::NSURL> readLocation(const platform::NSDictionary& dictionary,
                                                          std::string_view key, const platform::NSURL& saveLocation,
                                                          platform::NSError* error);

/// Adds a path. One that is not UTF-8 is kept under a second key, byte for byte.
void addPath(platform::NSDictionary& dictionary, std::string_view key, const std::string& path);

/// Text for a path that serves as a name only: itself, or its URL where it is not UTF-8. No two paths have the same.
std::string textOfPath(const std::string& path);

} // namespace saved_form
