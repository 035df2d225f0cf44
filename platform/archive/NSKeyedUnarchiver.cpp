#include "platform/archive/NSKeyedArchiver.h"

#include "platform/archive/ArchivedObjectsCopy.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSString.h"
#include "platform/propertylists/NSPropertyListSerialization.h"

#include <algorithm>
#include <array>

namespace platform {

namespace {

constexpr int64_t kArchiveVersion = 100000;
constexpr std::string_view kNilText = "$null";
constexpr int kMaximumDepth = 32;
/// Of objects, each counted as often as it is referred to.
constexpr int kMaximumObjects = 100'000;
/// Bytes of texts and data, each counted as often as it is referred to.
constexpr size_t kMaximumBytes = size_t{64} << 20;

/// Numbers of a text, separated by blanks; those that are missing keep what they were.
template <size_t count>
void scanComponents(const NSData& data, std::array<double, count>& components)
{
    std::string text(data.begin(), std::find(data.begin(), data.end(), uint8_t{0}));
    size_t at = 0;
    for (double& component : components) {
        at = text.find_first_not_of(" \t\n\v\f\r", at);
        if (at == std::string::npos || std::string_view("0123456789+-.").find(text[at]) == std::string_view::npos)
            return;
        const size_t end = std::min(text.find_first_not_of("0123456789+-.eE", at), text.size());
        component = std::clamp(doubleValue(std::string_view(text).substr(at, end - at)), 0.0, 1.0);
        at = end;
    }
}

class ObjectReader final {
public:
    explicit ObjectReader(const PropertyList::Array& objects) : objects_(objects) {}

    /// @param isNil  out: whether the reference leads to nil, which is no failure
    std::optional<ArchivedValue> read(const PropertyList& reference, bool& isNil, int depth = 0)
    {
        isNil = false;
        const auto* uid = reference.as<PropertyListUID>();
        if (!uid || uid->value >= objects_.size() || depth > kMaximumDepth || ++objectsRead_ > kMaximumObjects)
            return std::nullopt;
        const PropertyList& object = objects_[uid->value];
        if (const auto* text = object.as<std::string>()) {
            isNil = *text == kNilText;
            return isNil ? std::nullopt : copied(*text);
        }
        if (const auto* data = object.as<NSData>())
            return copied(*data);
        if (const auto* value = object.as<bool>())
            return NSNumber(*value);
        if (const auto* value = object.as<int64_t>())
            return NSNumber(*value);
        if (const auto* value = object.as<uint64_t>())
            return NSNumber(*value);
        if (const auto* value = object.as<double>())
            return NSNumber(*value);
        if (object.as<PropertyList::Dictionary>())
            return record(*uid, depth);
        return std::nullopt;
    }

private:
    template <typename T>
    std::optional<ArchivedValue> copied(const T& value)
    {
        bytesRead_ += value.size();
        if (bytesRead_ > kMaximumBytes)
            return std::nullopt;
        return value;
    }

    const PropertyList* referred(const PropertyList* reference) const
    {
        const auto* uid = reference ? reference->as<PropertyListUID>() : nullptr;
        return uid && uid->value < objects_.size() ? &objects_[uid->value] : nullptr;
    }

    /// A field that stands in the record itself or is referred to.
    template <typename T>
    const T* field(const PropertyList& record, std::string_view key) const
    {
        const PropertyList* value = record.objectForKey(key);
        if (const PropertyList* other = referred(value))
            value = other;
        return value ? value->as<T>() : nullptr;
    }

    std::optional<ArchivedValue> record(PropertyListUID object, int depth)
    {
        const PropertyList& record = objects_[object.value];
        const PropertyList* classRecord = referred(record.objectForKey("$class"));
        const auto* name = classRecord ? classRecord->objectForKey<std::string>("$classname") : nullptr;
        if (!name)
            return std::nullopt;
        if (*name == "NSDictionary" || *name == "NSMutableDictionary")
            return dictionary(record, *name == "NSMutableDictionary", depth);
        if (*name == "NSArray" || *name == "NSMutableArray")
            return array(record, depth);
        if (*name == "NSString" || *name == "NSMutableString") {
            const auto* text = field<std::string>(record, "NS.string");
            return text ? copied(*text) : std::nullopt;
        }
        if (*name == "NSData" || *name == "NSMutableData") {
            const auto* data = field<NSData>(record, "NS.data");
            return data ? copied(*data) : std::nullopt;
        }
        if (*name == "NSDate")
            return date(record);
        if (*name == "NSColor") {
            if (const auto known = color(record))
                return withStored(*known, object);
        }
        return withStored(UnknownObject{*name}, object);
    }

    /// Adds the object as it stands here, to be written back.
    std::optional<ArchivedValue> withStored(ArchivedValue::Value value, PropertyListUID object)
    {
        const auto mayCopy = [this](const PropertyList& part) {
            if (const auto* text = part.as<std::string>())
                bytesRead_ += text->size();
            if (const auto* data = part.as<NSData>())
                bytesRead_ += data->size();
            return ++objectsRead_ <= kMaximumObjects && bytesRead_ <= kMaximumBytes;
        };
        auto stored = std::make_shared<PropertyList::Array>();
        stored->emplace_back(std::string(kNilText));
        if (object.value == 0 || !ArchivedObjectsCopy(objects_, *stored, mayCopy).copy(object))
            return std::nullopt;
        return ArchivedValue(std::move(value), std::move(stored));
    }

    std::optional<ArchivedValue> date(const PropertyList& record) const
    {
        if (const auto* seconds = field<double>(record, "NS.time"))
            return NSDate{*seconds};
        if (const auto* seconds = field<int64_t>(record, "NS.time"))
            return NSDate{static_cast<double>(*seconds)};
        return std::nullopt;
    }

    /// As far as it can be told in RGB from 0 to 1; nothing for a colour of a catalogue or a pattern.
    std::optional<NSColor> color(const PropertyList& record) const
    {
        // A missing text of components is black.
        const auto components = [&](std::string_view key) {
            const auto* data = field<NSData>(record, key);
            return data ? *data : NSData();
        };
        const auto* space = field<int64_t>(record, "NSColorSpace");
        if (!space)
            return std::nullopt;
        NSColor result;
        result.space = *space == 1 || *space == 3 ? NSColor::Space::Calibrated : NSColor::Space::Device;
        switch (*space) {
        case 1:
        case 2: {
            std::array<double, 4> rgba{0, 0, 0, 1};
            scanComponents(components("NSRGB"), rgba);
            result.red = rgba[0];
            result.green = rgba[1];
            result.blue = rgba[2];
            result.alpha = rgba[3];
            return result;
        }
        case 3:
        case 4: {
            std::array<double, 2> white{0, 1};
            scanComponents(components("NSWhite"), white);
            result.red = result.green = result.blue = white[0];
            result.alpha = white[1];
            return result;
        }
        case 5: {
            // Both spellings are found.
            const char* key = record.objectForKey("NSCMYK") ? "NSCMYK" : "NSCYMK";
            std::array<double, 5> cmyk{0, 0, 0, record.objectForKey(key) ? 0.0 : 1.0, 1};
            scanComponents(components(key), cmyk);
            result.red = (1 - cmyk[0]) * (1 - cmyk[3]);
            result.green = (1 - cmyk[1]) * (1 - cmyk[3]);
            result.blue = (1 - cmyk[2]) * (1 - cmyk[3]);
            result.alpha = cmyk[4];
            return result;
        }
        default:
            return std::nullopt;
        }
    }

    std::optional<ArchivedValue> dictionary(const PropertyList& record, bool isMutable, int depth)
    {
        const auto* keys = record.objectForKey<PropertyList::Array>("NS.keys");
        const auto* values = record.objectForKey<PropertyList::Array>("NS.objects");
        if (!keys || !values || keys->size() != values->size())
            return std::nullopt;
        NSDictionary result;
        result.isMutable = isMutable;
        for (size_t i = 0; i < keys->size(); ++i) {
            bool isNil = false;
            const auto key = read((*keys)[i], isNil, depth + 1);
            const auto* text = key ? key->as<std::string>() : nullptr;
            if (!text)
                return std::nullopt;
            auto value = read((*values)[i], isNil, depth + 1);
            if (value)
                result.setObjectForKey(std::move(*value), *text);
            else if (!isNil)
                return std::nullopt;
        }
        return result;
    }

    std::optional<ArchivedValue> array(const PropertyList& record, int depth)
    {
        const auto* values = record.objectForKey<PropertyList::Array>("NS.objects");
        if (!values)
            return std::nullopt;
        std::vector<ArchivedValue> result;
        for (const PropertyList& reference : *values) {
            bool isNil = false;
            auto value = read(reference, isNil, depth + 1);
            if (value)
                result.push_back(std::move(*value));
            else if (!isNil)
                return std::nullopt;
        }
        return result;
    }

    const PropertyList::Array& objects_;
    int objectsRead_ = 0;
    size_t bytesRead_ = 0;
};

} // namespace

std::optional<ArchivedValue> NSKeyedUnarchiver::unarchiveObjectWithData(const NSData& data, NSError* error)
{
    const auto list = propertyListWithData(data);
    const auto* version = list ? list->objectForKey<int64_t>("$version") : nullptr;
    const auto* archiver = list ? list->objectForKey<std::string>("$archiver") : nullptr;
    const PropertyList* top = list ? list->objectForKey("$top") : nullptr;
    const PropertyList* root = top ? top->objectForKey("root") : nullptr;
    const auto* objects = list ? list->objectForKey<PropertyList::Array>("$objects") : nullptr;
    if (!version || *version != kArchiveVersion || !archiver || *archiver != "NSKeyedArchiver" || !root || !objects) {
        fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError, localized("The data is no keyed archive"));
        return std::nullopt;
    }
    bool isNil = false;
    auto value = ObjectReader(*objects).read(*root, isNil);
    if (!value)
        fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError, localized("The keyed archive is damaged"));
    return value;
}

} // namespace platform
