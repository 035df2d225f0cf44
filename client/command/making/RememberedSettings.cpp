#include "client/command/making/RememberedSettings.h"

#include "client/text/LocalizedText.h"
#include "platform/files/NSURL.h"
#include "platform/files/NSUserDefaults.h"
#include "util/UserSettings.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

namespace stillora {

using platform::NSURL;
using platform::NSUserDefaults;

namespace {

constexpr std::string_view kSave = "save";
constexpr std::string_view kWatermark = "watermark";
constexpr std::string_view kLanguage = "language";
/// Those that everything is translated to.
constexpr std::array<std::string_view, 3> kLanguages = {"de", "en", "fr"};
/// Those that are kept as they are typed, under their own names.
constexpr std::array<std::string_view, 3> kMovieOptions = {"quality", "seconds", "codec"};

std::string_view keyOf(std::string_view name)
{
    return name == kSave        ? UserSettings::kDestinationKey
           : name == kWatermark ? UserSettings::kDrawsWatermarkKey
           : name == kLanguage  ? UserSettings::kLanguageKey
                                : name;
}

/// The folder, as the service wants to find it; nothing if there is none.
std::optional<platform::PropertyList> folderOf(const std::string& text)
{
    std::error_code failure;
    const auto path = std::filesystem::absolute(text, failure);
    if (failure || !std::filesystem::is_directory(path, failure))
        return std::nullopt;
    const auto bookmark =
        NSURL::fileURLWithPath(path.native(), true).bookmarkData(platform::BookmarkCreationOptions::WithSecurityScope);
    return bookmark ? std::optional<platform::PropertyList>(*bookmark) : std::nullopt;
}

/// What is kept for a text, or why nothing can be.
std::optional<platform::PropertyList> objectOf(std::string_view name, const std::string& text, std::string& reason)
{
    if (name == kSave) {
        auto folder = folderOf(text);
        if (!folder)
            reason = localized("save takes the path of a folder that is there, not \"{}\"", text);
        return folder;
    }
    if (name == kWatermark) {
        if (text == "on" || text == "off")
            return platform::PropertyList(text == "on");
        reason = localized("watermark takes on or off, not \"{}\"", text);
        return std::nullopt;
    }
    if (name == kLanguage) {
        if (std::ranges::count(kLanguages, text) > 0)
            return platform::PropertyList(text);
        reason = localized("language takes {}, not \"{}\"", fmt::join(kLanguages, ", "), text);
        return std::nullopt;
    }
    CreateOptions tried;
    reason = readMovieOption(name, text, tried, name);
    return reason.empty() ? std::optional<platform::PropertyList>(text) : std::nullopt;
}

} // namespace

const std::vector<std::string>& RememberedSettings::names()
{
    static const auto* const all =
        new std::vector<std::string>{"save", "quality", "seconds", "codec", "watermark", "language"};
    return *all;
}

std::optional<std::string> RememberedSettings::value(std::string_view name)
{
    const auto object = NSUserDefaults::standardUserDefaults().objectForKey(keyOf(name));
    if (!object)
        return std::nullopt;
    if (const auto* text = object->as<std::string>())
        return *text;
    if (const auto* flag = object->as<bool>())
        return *flag ? "on" : "off";
    const auto* const bookmark = object->as<platform::NSData>();
    const auto folder = bookmark ? NSURL::URLByResolvingBookmarkData(*bookmark) : std::nullopt;
    return folder ? std::optional(folder->path()) : std::nullopt;
}

RememberedSettings::Outcome RememberedSettings::keep(std::string_view name, const std::string& text,
                                                     std::string& reason)
{
    const auto object = objectOf(name, text, reason);
    if (!object)
        return Outcome::Refused;
    if (NSUserDefaults::standardUserDefaults().setObjectForKey(*object, keyOf(name)))
        return Outcome::Kept;
    reason = localized("the settings could not be written");
    return Outcome::NotWritten;
}

bool RememberedSettings::forget(std::string_view name)
{
    return NSUserDefaults::standardUserDefaults().removeObjectForKey(keyOf(name));
}

std::vector<std::string> RememberedSettings::complete(CreateOptions& options)
{
    std::vector<std::string> faults;
    const auto isGiven = [&](std::string_view name) {
        return name == "quality"   ? options.isQualityGiven
               : name == "seconds" ? options.seconds || options.fitsMusic
                                   : options.isCodecGiven;
    };
    for (const std::string_view name : kMovieOptions) {
        const auto text = isGiven(name) ? std::nullopt : value(name);
        if (!text)
            continue;
        if (const std::string fault = readMovieOption(name, *text, options, name); !fault.empty())
            faults.push_back(localized("the setting {} is not looked at: {}", name, fault));
    }
    return faults;
}

} // namespace stillora
