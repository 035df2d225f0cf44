#include "items/MORSoundtrack.h"

#include "items/SavedForm.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSString.h"

using namespace platform;

namespace {

// The keys of the coded and of the saved form.
constexpr std::string_view kSoundtrackURLKey = "soundtrackURL";
constexpr std::string_view kSelectionKey = "selection";
constexpr std::string_view kOriginalPathKey = "originalPath";

constexpr std::string_view kSeparator = ", ";
/// Units of UTF-16 of the shortest text, "{1, 2}".
constexpr size_t kMinimumTextLength = 6;

std::string textOfSelection(SoundtrackSelection selection)
{
    std::string text = "{";
    text += stringWithSixDecimals(selection.start);
    text += kSeparator;
    text += stringWithSixDecimals(selection.end);
    text += "}";
    return text;
}

/// Never fails; what is no selection is all zeros.
SoundtrackSelection selectionOfText(std::string_view text)
{
    const auto has = [text](std::string_view part) { return text.find(part) != std::string_view::npos; };
    if (lengthInUTF16(text) < kMinimumTextLength || !has("{") || !has("}") || !has(kSeparator))
        return {};
    const size_t first = text.find_first_not_of("{}");
    const size_t last = text.find_last_not_of("{}");
    const std::string_view inside = text.substr(first, last - first + 1);
    const size_t separator = inside.find(kSeparator);
    const std::string_view startText = inside.substr(0, separator);
    const std::string_view endText = inside.substr(separator + kSeparator.size());
    if (startText.empty() || endText.empty())
        return {};
    SoundtrackSelection selection;
    selection.start = doubleValue(startText);
    selection.end = doubleValue(endText);
    selection.length = selection.end - selection.start;
    return selection;
}

bool cannotBeSaved(NSError* error, std::string why)
{
    return fail(error, kNSCocoaErrorDomain, kNSFileWriteUnknownError, std::move(why));
}

} // namespace

void MORSoundtrack::encodeWithCoder(NSCoder& coder) const
{
    if (const auto url = soundtrackURL())
        coder.encodeObject(url->bookmarkData(), kSoundtrackURLKey);
    coder.encodeObject(textOfSelection(selection()), kSelectionKey);
    if (const auto path = _originalPath())
        coder.encodeObject(saved_form::textOfPath(*path), kOriginalPathKey);
}

bool MORSoundtrack::decode(const NSCoder& coder, NSError* error)
{
    NSError problem;
    const auto bookmark = coder.decodeObjectOfClass(CodedClass::Data, kSoundtrackURLKey, &problem);
    const auto selectionText = coder.decodeObjectOfClass(CodedClass::String, kSelectionKey, &problem);
    const auto path = coder.decodeObjectOfClass(CodedClass::String, kOriginalPathKey, &problem);
    const auto require = [&problem](const std::optional<CodedValue>& value, std::string_view key) {
        if (problem.code == 0 && !value)
            fail(&problem, kNSCocoaErrorDomain, kNSCoderReadCorruptError,
                 localized("The value for key \"{}\" is missing", {key}));
    };
    require(bookmark, kSoundtrackURLKey);
    require(selectionText, kSelectionKey);
    require(path, kOriginalPathKey);
    if (problem.code != 0) {
        if (error)
            *error = std::move(problem);
        return false;
    }
    setSoundtrackURL(NSURL::URLByResolvingBookmarkData(std::get<NSData>(*bookmark)));
    setSelection(selectionOfText(std::get<std::string>(*selectionText)));
    set_originalPath(std::get<std::string>(*path));
    return true;
}

std::optional<NSData> MORSoundtrack::saveData(NSError* error) const
{
    const auto url = soundtrackURL();
    const auto path = _originalPath();
    if (!url) {
        cannotBeSaved(error, localized("The soundtrack cannot be saved: it has no location"));
        return std::nullopt;
    }
    if (!path) {
        cannotBeSaved(error, localized("The soundtrack cannot be saved: \"{}\" has no original path", {url->path()}));
        return std::nullopt;
    }
    NSDictionary dictionary;
    const auto set = [&](std::string_view key, std::string text) {
        dictionary.setObjectForKey(std::move(text), std::string(key));
    };
    set(saved_form::kVersionKey, std::string(saved_form::kVersion));
    saved_form::addPath(dictionary, kSoundtrackURLKey, url->path());
    set(kSelectionKey, textOfSelection(selection()));
    set(kOriginalPathKey, saved_form::textOfPath(*path));
    return NSKeyedArchiver::archivedDataWithRootObject(std::move(dictionary), error);
}

std::optional<MORSoundtrack::SaveData> MORSoundtrack::readSaveData(const std::optional<NSData>& data,
                                                                   const NSURL& saveLocation, NSError* error)
{
    const auto dictionary = saved_form::read(data, error);
    if (!dictionary)
        return std::nullopt;
    const auto url = saved_form::readLocation(*dictionary, kSoundtrackURLKey, saveLocation, error);
    if (!url)
        return std::nullopt;
    std::optional<std::string> selectionText;
    std::optional<std::string> path;
    if (!saved_form::readValue(*dictionary, kSelectionKey, selectionText, error) ||
        !saved_form::readValue(*dictionary, kOriginalPathKey, path, error))
        return std::nullopt;
    return SaveData{*url, selectionOfText(selectionText.value_or("")), path};
}
