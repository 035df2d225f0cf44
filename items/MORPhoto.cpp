#include "items/MORPhoto.h"

#include "items/SavedForm.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSString.h"

#include <utility>

using namespace platform;

namespace {

// The keys of the coded and of the saved form.
constexpr std::string_view kPhotoURLKey = "photoURL";
constexpr std::string_view kTitleKey = "title";
constexpr std::string_view kSizeKey = "size";
constexpr std::string_view kFileSizeKey = "fileSize";
constexpr std::string_view kIsFeaturedKey = "isFeatured";
constexpr std::string_view kDateCreatedKey = "dateCreated";
constexpr std::string_view kAverageImageColorKey = "averageImageColor";

bool cannotBeSaved(NSError* error, std::string why)
{
    return fail(error, kNSCocoaErrorDomain, kNSFileWriteUnknownError, std::move(why));
}

} // namespace

std::optional<NSColor> MORPhoto::averageImageColor() const
{
    const auto stored = averageImageColor_.get();
    const auto* color = stored ? stored->as<NSColor>() : nullptr;
    return color ? std::optional(*color) : std::nullopt;
}

void MORPhoto::setAverageImageColor(std::optional<NSColor> color)
{
    averageImageColor_.set(color ? std::optional<ArchivedValue>(*color) : std::nullopt);
}

void MORPhoto::encodeWithCoder(NSCoder& coder) const
{
    if (const auto url = photoURL())
        coder.encodeObject(url->bookmarkData(), kPhotoURLKey);
    // A title may come from a file's name, which may be any bytes; a coded text is UTF-8.
    if (const auto text = title())
        coder.encodeObject(stringByReplacingInvalidUTF8(*text), kTitleKey);
    coder.encodeObject(NSStringFromSize(size()), kSizeKey);
    coder.encodeObject(NSNumber(fileSize()), kFileSizeKey);
    coder.encodeObject(NSNumber(isFeatured()), kIsFeaturedKey);
    coder.encodeObject(dateCreated(), kDateCreatedKey);
    coder.encodeObject(averageImageColor(), kAverageImageColorKey);
}

bool MORPhoto::decode(const NSCoder& coder, NSError* error)
{
    bool isWhole = true;
    const auto value = [&](CodedClass codedClass, std::string_view key) {
        NSError problem;
        auto object = coder.decodeObjectOfClass(codedClass, key, &problem);
        if (!object && problem.code != 0 && std::exchange(isWhole, false) && error)
            *error = std::move(problem);
        return object;
    };
    const auto bookmark = value(CodedClass::Data, kPhotoURLKey);
    const auto titleText = value(CodedClass::String, kTitleKey);
    const auto sizeText = value(CodedClass::String, kSizeKey);
    const auto bytes = value(CodedClass::Number, kFileSizeKey);
    const auto featured = value(CodedClass::Number, kIsFeaturedKey);
    const auto date = value(CodedClass::Date, kDateCreatedKey);
    const auto color = value(CodedClass::Color, kAverageImageColorKey);
    if (!isWhole)
        return false;

    if (bookmark)
        setPhotoURL(NSURL::URLByResolvingBookmarkData(std::get<NSData>(*bookmark)));
    if (titleText)
        setTitle(std::get<std::string>(*titleText));
    if (sizeText)
        setSize(NSSizeFromString(std::get<std::string>(*sizeText)));
    setFileSize(bytes ? longLongValue(std::get<NSNumber>(*bytes)) : 0);
    setIsFeatured(featured && boolValue(std::get<NSNumber>(*featured)));
    setDateCreated(date ? std::optional(std::get<NSDate>(*date)) : std::nullopt);
    setAverageImageColor(color ? std::optional(std::get<NSColor>(*color)) : std::nullopt);
    return true;
}

std::optional<NSData> MORPhoto::saveData(NSError* error) const
{
    const auto url = photoURL();
    const auto titleText = title();
    if (!url) {
        cannotBeSaved(error, localized("The photo cannot be saved: it has no location"));
        return std::nullopt;
    }
    if (!titleText) {
        cannotBeSaved(error, localized("The photo cannot be saved: \"{}\" has no title", {url->path()}));
        return std::nullopt;
    }
    NSDictionary dictionary;
    dictionary.isMutable = true;
    const auto set = [&](std::string_view key, ArchivedValue value) {
        dictionary.setObjectForKey(std::move(value), std::string(key));
    };
    set(saved_form::kVersionKey, std::string(saved_form::kVersion));
    saved_form::addPath(dictionary, kPhotoURLKey, url->path());
    set(kTitleKey, stringByReplacingInvalidUTF8(*titleText));
    set(kSizeKey, NSStringFromSize(size()));
    set(kFileSizeKey, NSNumber(fileSize()));
    set(kIsFeaturedKey, NSNumber(isFeatured()));
    if (const auto date = dateCreated())
        set(kDateCreatedKey, *date);
    if (auto color = averageImageColor_.get())
        set(kAverageImageColorKey, std::move(*color));
    return NSKeyedArchiver::archivedDataWithRootObject(std::move(dictionary), error);
}

bool MORPhoto::loadSaveData(const std::optional<NSData>& data, const NSURL& saveLocation, NSError* error)
{
    const auto dictionary = saved_form::read(data, error);
    if (!dictionary)
        return false;
    auto url = saved_form::readLocation(*dictionary, kPhotoURLKey, saveLocation, error);
    if (!url)
        return false;
    std::optional<std::string> titleText;
    std::optional<std::string> sizeText;
    std::optional<NSNumber> bytes;
    std::optional<NSNumber> featured;
    std::optional<NSDate> date;
    if (!saved_form::readValue(*dictionary, kTitleKey, titleText, error) ||
        !saved_form::readValue(*dictionary, kDateCreatedKey, date, error) ||
        !saved_form::readValue(*dictionary, kSizeKey, sizeText, error) ||
        !saved_form::readValue(*dictionary, kFileSizeKey, bytes, error) ||
        !saved_form::readValue(*dictionary, kIsFeaturedKey, featured, error))
        return false;
    // Colours are of many kinds; one that is not understood is no reason to lose the photo, nor to lose the colour.
    const ArchivedValue* color = dictionary->objectForKey(kAverageImageColorKey);

    setPhotoURL(std::move(url));
    setTitle(std::move(titleText));
    setDateCreated(date);
    averageImageColor_.set(color ? std::optional(*color) : std::nullopt);
    setSize(sizeText ? NSSizeFromString(*sizeText) : kNSZeroSize);
    setFileSize(bytes ? longLongValue(*bytes) : 0);
    setIsFeatured(featured && boolValue(*featured));
    return true;
}
