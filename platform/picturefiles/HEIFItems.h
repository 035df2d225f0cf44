#pragma once

#include "platform/bytes/BoxWalker.h"
#include "platform/picturefiles/ImageFile.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace platform {

/// What the "meta" box of a HEIC or AVIF file says of the pictures in it, each an item with a number. What is damaged
/// is as if it were not there.
class HEIFItems final {
public:
    /// Of the box. A picture of 256 x 256 tiles, the most that there are, stays below; longer ones are not read.
    static constexpr int64_t kMostBytes = int64_t{4} << 20;

    struct Extent {
        int64_t offset = 0;
        int64_t length = 0;
    };
    struct Property {
        Box box;
        /// Who does not know it must not show the item.
        bool isEssential = false;
    };
    struct Item {
        uint32_t type = 0;
        /// None that could be shown is.
        bool isProtected = false;
        /// Places in the file, which lie inside it; none where one does not.
        std::vector<Extent> extents;
        /// The file says more than once what it is or where it lies, says it in a way that is not known, or has it in
        /// another file: readers differ in what they believe.
        bool isAmbiguous = false;
        std::vector<Property> properties;

        const Property* find(uint32_t propertyType) const;
    };
    struct Reference {
        uint32_t type = 0;
        uint32_t from = 0;
        std::vector<uint32_t> to;
    };

    /// Of the first such box.
    /// @param file  outlives the items
    explicit HEIFItems(const ImageFile& file);
    HEIFItems(const ImageFile& file, const Box& meta);

    /// The one that is to be shown.
    std::optional<uint32_t> primary() const { return primary_; }
    /// Null where there is none of that number.
    const Item* item(uint32_t number) const;
    const std::map<uint32_t, Item>& items() const { return items_; }
    const std::vector<Reference>& references() const { return references_; }
    /// Of all items, in the file's order.
    const std::vector<Box>& properties() const { return properties_; }

    /// Empty where it cannot be read or is longer than `most`.
    std::vector<uint8_t> contentOf(const Box& box, int64_t most) const;
    std::vector<uint8_t> contentOf(const Item& item, int64_t most) const;

private:
    void readMeta(const Box& meta);
    void readTypes(const Box& iinf);
    void readPlaces(const Box& iloc);
    void readReferences(const Box& iref);
    void readProperties(const Box& iprp);
    void readAssociations(const Box& ipma);

    const ImageFile& file_;
    const BoxWalker boxes_;
    std::optional<Box> data_;
    std::optional<uint32_t> primary_;
    std::map<uint32_t, Item> items_;
    std::vector<Reference> references_;
    std::vector<Box> properties_;
    size_t associated_ = 0;
};

} // namespace platform
