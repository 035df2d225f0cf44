#pragma once

#include "platform/propertylists/NSPropertyListSerialization.h"

#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace platform {

/// Copies objects, with all that they refer to, from one archive's list to another's. The first object of each list
/// stands for nil.
class ArchivedObjectsCopy final {
public:
    /// @param mayCopy  asked for every value; may be empty
    ArchivedObjectsCopy(const PropertyList::Array& from, PropertyList::Array& to,
                        std::function<bool(const PropertyList&)> mayCopy = {})
        : from_(from), to_(to), mayCopy_(std::move(mayCopy))
    {}

    /// @return the copy's place; nothing for a reference that leads nowhere or too deep, or what may not be copied
    std::optional<PropertyListUID> copy(PropertyListUID object, int depth = 0);

private:
    std::optional<PropertyList> copyOf(const PropertyList& value, int depth);

    const PropertyList::Array& from_;
    PropertyList::Array& to_;
    const std::function<bool(const PropertyList&)> mayCopy_;
    std::map<uint64_t, PropertyListUID> copies_;
};

} // namespace platform
