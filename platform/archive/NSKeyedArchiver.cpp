#include "platform/archive/NSKeyedArchiver.h"

#include "platform/archive/ArchivedObjectsCopy.h"
#include "platform/propertylists/NSPropertyListSerialization.h"

#include <charconv>
#include <map>
#include <type_traits>

namespace platform {

namespace {

constexpr int64_t kArchiveVersion = 100000;
constexpr std::string_view kNilText = "$null";

/// "%.10g", as colours are written.
void appendComponent(std::string& text, double value)
{
    char number[40];
    const auto result = std::to_chars(number, number + sizeof number, value, std::chars_format::general, 10);
    if (!text.empty())
        text += ' ';
    text.append(number, result.ptr);
}

/// The list of objects that an archive consists of; a reference is an object's index.
class ObjectWriter final {
public:
    /// @return nothing if the archive cannot be made
    std::optional<PropertyList::Array> write(const ArchivedValue& root)
    {
        objects_.emplace_back(std::string(kNilText));
        if (!add(root))
            return std::nullopt;
        return std::move(objects_);
    }

private:
    using Reference = PropertyListUID;

    Reference append(PropertyList object)
    {
        objects_.push_back(std::move(object));
        return {objects_.size() - 1};
    }

    /// Room for an object that is written after what it holds.
    Reference reserve() { return append(false); }

    std::optional<Reference> add(const ArchivedValue& value)
    {
        if (value.stored())
            return ArchivedObjectsCopy(*value.stored(), objects_).copy({1});
        return std::visit(
            [this](const auto& object) -> std::optional<Reference> {
                using T = std::remove_cvref_t<decltype(object)>;
                if constexpr (std::is_same_v<T, std::string>)
                    return addText(object);
                else if constexpr (std::is_same_v<T, NSNumber>)
                    return std::visit([this](auto number) { return append(number); }, object);
                else if constexpr (std::is_same_v<T, NSData>)
                    return append(object);
                else if constexpr (std::is_same_v<T, NSDate>)
                    return addRecord({{"NS.time", object.timeIntervalSinceReferenceDate}}, {"NSDate"});
                else if constexpr (std::is_same_v<T, NSColor>)
                    return addColor(object);
                else if constexpr (std::is_same_v<T, NSDictionary>)
                    return addDictionary(object);
                else if constexpr (std::is_same_v<T, std::vector<ArchivedValue>>)
                    return addArray(object);
                else
                    return std::nullopt;
            },
            value.value());
    }

    /// Equal texts are one object. Nothing else is shared, least of all a number with a boolean.
    Reference addText(const std::string& text)
    {
        if (const auto known = texts_.find(text); known != texts_.end())
            return known->second;
        // As an object of its own this text stands for nil.
        const Reference reference =
            text == kNilText ? addRecord({{"NS.string", text}}, {"NSMutableString", "NSString"}) : append(text);
        texts_.emplace(text, reference);
        return reference;
    }

    Reference addColor(const NSColor& color)
    {
        std::string components;
        for (const double component : {color.red, color.green, color.blue})
            appendComponent(components, component);
        if (color.alpha != 1)
            appendComponent(components, color.alpha);
        NSData data(components.begin(), components.end());
        data.push_back(0);
        const int64_t space = color.space == NSColor::Space::Calibrated ? 1 : 2;
        return addRecord({{"NSRGB", std::move(data)}, {"NSColorSpace", space}}, {"NSColor"});
    }

    std::optional<Reference> addDictionary(const NSDictionary& dictionary)
    {
        const Reference record = reserve();
        PropertyList::Array keys;
        PropertyList::Array values;
        for (const auto& [key, value] : dictionary.entries)
            keys.emplace_back(addText(key));
        for (const auto& [key, value] : dictionary.entries) {
            const auto reference = add(value);
            if (!reference)
                return std::nullopt;
            values.emplace_back(*reference);
        }
        PropertyList::Dictionary fields{{"NS.keys", std::move(keys)}, {"NS.objects", std::move(values)}};
        finish(record, std::move(fields),
               dictionary.isMutable ? ClassNames{"NSMutableDictionary", "NSDictionary"} : ClassNames{"NSDictionary"});
        return record;
    }

    std::optional<Reference> addArray(const std::vector<ArchivedValue>& array)
    {
        const Reference record = reserve();
        PropertyList::Array values;
        for (const ArchivedValue& value : array) {
            const auto reference = add(value);
            if (!reference)
                return std::nullopt;
            values.emplace_back(*reference);
        }
        finish(record, {{"NS.objects", std::move(values)}}, {"NSArray"});
        return record;
    }

    /// The class and those it is made from, but for the last one, which all have.
    using ClassNames = std::vector<std::string>;

    Reference addRecord(PropertyList::Dictionary fields, const ClassNames& names)
    {
        const Reference record = reserve();
        finish(record, std::move(fields), names);
        return record;
    }

    void finish(Reference record, PropertyList::Dictionary fields, const ClassNames& names)
    {
        fields.emplace("$class", addClass(names));
        objects_[record.value] = std::move(fields);
    }

    Reference addClass(const ClassNames& names)
    {
        const auto [entry, isNew] = classes_.try_emplace(names.front());
        if (isNew) {
            PropertyList::Array lineage(names.begin(), names.end());
            lineage.emplace_back(std::string("NSObject"));
            entry->second =
                append(PropertyList::Dictionary{{"$classname", names.front()}, {"$classes", std::move(lineage)}});
        }
        return entry->second;
    }

    PropertyList::Array objects_;
    std::map<std::string, Reference> texts_;
    std::map<std::string, Reference> classes_;
};

} // namespace

const ArchivedValue* NSDictionary::objectForKey(std::string_view key) const
{
    for (const auto& [entryKey, value] : entries) {
        if (entryKey == key)
            return &value;
    }
    return nullptr;
}

void NSDictionary::setObjectForKey(ArchivedValue value, std::string key)
{
    entries.emplace_back(std::move(key), std::move(value));
}

std::optional<NSData> NSKeyedArchiver::archivedDataWithRootObject(const ArchivedValue& root, NSError* error)
{
    auto objects = ObjectWriter().write(root);
    if (!objects) {
        fail(error, kNSCocoaErrorDomain, kNSFileWriteUnknownError, "An object of an unknown class cannot be archived");
        return std::nullopt;
    }
    return dataWithPropertyList(
        PropertyList::Dictionary{
            {"$version", kArchiveVersion},
            {"$archiver", std::string("NSKeyedArchiver")},
            {"$top", PropertyList::Dictionary{{"root", PropertyListUID{1}}}},
            {"$objects", std::move(*objects)},
        },
        error);
}

} // namespace platform
