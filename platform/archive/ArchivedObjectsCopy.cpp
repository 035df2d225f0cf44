#include "platform/archive/ArchivedObjectsCopy.h"

namespace platform {

namespace {

constexpr int kMaximumDepth = 32;

} // namespace

std::optional<PropertyListUID> ArchivedObjectsCopy::copy(PropertyListUID object, int depth)
{
    if (object.value == 0)
        return object;
    if (object.value >= from_.size() || depth > kMaximumDepth)
        return std::nullopt;
    if (const auto known = copies_.find(object.value); known != copies_.end())
        return known->second;
    // Known before it is copied: what it holds may refer to it.
    const PropertyListUID place{to_.size()};
    to_.emplace_back();
    copies_.emplace(object.value, place);
    auto copied = copyOf(from_[object.value], depth);
    if (!copied)
        return std::nullopt;
    to_[place.value] = std::move(*copied);
    return place;
}

std::optional<PropertyList> ArchivedObjectsCopy::copyOf(const PropertyList& value, int depth)
{
    if (mayCopy_ && !mayCopy_(value))
        return std::nullopt;
    if (const auto* reference = value.as<PropertyListUID>()) {
        const auto place = copy(*reference, depth + 1);
        return place ? std::optional<PropertyList>(*place) : std::nullopt;
    }
    if (const auto* array = value.as<PropertyList::Array>()) {
        PropertyList::Array items;
        for (const PropertyList& item : *array) {
            auto copied = copyOf(item, depth);
            if (!copied)
                return std::nullopt;
            items.push_back(std::move(*copied));
        }
        return items;
    }
    if (const auto* dictionary = value.as<PropertyList::Dictionary>()) {
        PropertyList::Dictionary entries;
        for (const auto& [key, item] : *dictionary) {
            auto copied = copyOf(item, depth);
            if (!copied)
                return std::nullopt;
            entries.emplace(key, std::move(*copied));
        }
        return entries;
    }
    return value;
}

} // namespace platform
