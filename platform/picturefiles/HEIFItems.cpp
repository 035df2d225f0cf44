#include "platform/picturefiles/HEIFItems.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>
#include <span>

namespace platform {
namespace {

// A picture of 256 x 256 tiles stays below it.
constexpr size_t kMaxAssociations = size_t{1} << 18;
// Version and flags, with which most boxes begin.
constexpr int64_t kFlags = 4;

/// Takes numbers one after another; from the first that is not there, all are zero.
class NumberReader final {
public:
    explicit NumberReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint64_t take(size_t byteCount)
    {
        if (byteCount > rest_.size()) {
            rest_ = {};
            isShort_ = true;
            return 0;
        }
        const uint64_t number = bigEndianNumber(rest_.first(byteCount));
        rest_ = rest_.subspan(byteCount);
        return number;
    }
    uint32_t take32(size_t byteCount) { return static_cast<uint32_t>(take(byteCount)); }

    bool isShort() const { return isShort_; }

private:
    std::span<const uint8_t> rest_;
    bool isShort_ = false;
};

} // namespace

const HEIFItems::Property* HEIFItems::Item::find(uint32_t propertyType) const
{
    const auto found = std::ranges::find(properties, propertyType, [](const Property& p) { return p.box.type; });
    return found == properties.end() ? nullptr : &*found;
}

HEIFItems::HEIFItems(const ImageFile& file) : file_(file), boxes_(file)
{
    if (const auto meta = boxes_.find(fourCharacterCode("meta"), 0, boxes_.size()))
        readMeta(*meta);
}

HEIFItems::HEIFItems(const ImageFile& file, const Box& meta) : file_(file), boxes_(file)
{
    readMeta(meta);
}

void HEIFItems::readMeta(const Box& meta)
{
    if (meta.size() < kFlags || meta.size() > kMostBytes)
        return;
    // Places may be counted from the begin of a box that follows.
    data_ = boxes_.find(fourCharacterCode("idat"), meta.begin + kFlags, meta.end);
    boxes_.forEachBox(meta.begin + kFlags, meta.end, [this](const Box& box) {
        if (box.type == fourCharacterCode("pitm")) {
            const auto content = contentOf(box, kMostBytes);
            NumberReader numbers(content);
            const bool isLong = numbers.take(kFlags) >> 24 != 0;
            const uint32_t number = numbers.take32(isLong ? 4 : 2);
            if (!numbers.isShort())
                primary_ = number;
        } else if (box.type == fourCharacterCode("iinf")) {
            readTypes(box);
        } else if (box.type == fourCharacterCode("iloc")) {
            readPlaces(box);
        } else if (box.type == fourCharacterCode("iref")) {
            readReferences(box);
        } else if (box.type == fourCharacterCode("iprp")) {
            readProperties(box);
        }
    });
}

const HEIFItems::Item* HEIFItems::item(uint32_t number) const
{
    const auto found = items_.find(number);
    return found == items_.end() ? nullptr : &found->second;
}

std::vector<uint8_t> HEIFItems::contentOf(const Box& box, int64_t most) const
{
    std::vector<uint8_t> content(static_cast<size_t>(box.size() <= most ? box.size() : 0));
    if (!boxes_.read(box.begin, content))
        content.clear();
    return content;
}

std::vector<uint8_t> HEIFItems::contentOf(const Item& item, int64_t most) const
{
    std::vector<uint8_t> content;
    for (const auto& extent : item.extents) {
        if (extent.length > most - static_cast<int64_t>(content.size()))
            return {};
        const size_t start = content.size();
        content.resize(start + static_cast<size_t>(extent.length));
        if (!file_.read(extent.offset, std::span(content).subspan(start)))
            return {};
    }
    return content;
}

void HEIFItems::readTypes(const Box& iinf)
{
    std::array<uint8_t, 1> version{};
    if (!boxes_.read(iinf.begin, version))
        return;
    boxes_.forEachBox(std::min(iinf.begin + kFlags + (version[0] == 0 ? 2 : 4), iinf.end), iinf.end,
                      [this](const Box& box) {
                          std::array<uint8_t, 14> start{};
                          if (box.type != fourCharacterCode("infe") || box.size() < 12 ||
                              !boxes_.read(box.begin, std::span(start).first(box.size() < 14 ? 12 : 14)))
                              return;
                          NumberReader numbers(start);
                          const auto entryVersion = numbers.take(kFlags) >> 24;
                          const uint32_t number = numbers.take32(entryVersion == 3 ? 4 : 2);
                          const bool isProtected = numbers.take(2) != 0;
                          if (entryVersion < 2)
                              return;
                          Item& item = items_[number];
                          constexpr uint64_t kLatestVersion = 3;
                          item.isAmbiguous = item.isAmbiguous || item.type != 0 || entryVersion > kLatestVersion;
                          item.isProtected = isProtected;
                          item.type = numbers.take32(4);
                      });
}

void HEIFItems::readPlaces(const Box& iloc)
{
    const auto content = contentOf(iloc, kMostBytes);
    NumberReader numbers(content);
    const auto version = numbers.take(kFlags) >> 24;
    const auto sizes = numbers.take(2);
    const size_t offsetBytes = sizes >> 12;
    const size_t lengthBytes = sizes >> 8 & 0xF;
    const size_t baseBytes = sizes >> 4 & 0xF;
    const size_t indexBytes = version == 0 ? 0 : sizes & 0xF;
    const auto count = numbers.take(version < 2 ? 2 : 4);
    for (uint64_t i = 0; i < count && !numbers.isShort(); ++i) {
        const uint32_t number = numbers.take32(version < 2 ? 2 : 4);
        const auto method = version == 0 ? 0 : numbers.take(2) & 0xF;
        const bool isHere = numbers.take(2) == 0;
        const uint64_t base = numbers.take(baseBytes);
        const auto parts = numbers.take(2);
        // Counted from the begin of the file, or from that of the box of data.
        const bool isKnown = isHere && (method == 0 || (method == 1 && data_));
        const uint64_t start = method == 1 && data_ ? static_cast<uint64_t>(data_->begin) : 0;
        const auto end = static_cast<uint64_t>(method == 1 && data_ ? data_->end : boxes_.size());
        std::vector<Extent> extents;
        for (uint64_t part = 0; part < parts && !numbers.isShort(); ++part) {
            (void)numbers.take(indexBytes);
            const uint64_t offset = base + numbers.take(offsetBytes);
            uint64_t length = numbers.take(lengthBytes);
            // All that follows, where no length is told.
            if (length == 0 && offset <= end - start)
                length = end - start - offset;
            const bool isInside = offset <= end - start && length <= end - start - offset;
            if (isKnown && isInside && length > 0)
                extents.push_back({static_cast<int64_t>(start + offset), static_cast<int64_t>(length)});
        }
        if (numbers.isShort())
            return;
        Item& item = items_[number];
        item.isAmbiguous = item.isAmbiguous || !item.extents.empty() || !isHere;
        if (extents.size() == parts)
            item.extents = std::move(extents);
    }
}

void HEIFItems::readReferences(const Box& iref)
{
    std::array<uint8_t, 1> version{};
    if (iref.size() < kFlags || !boxes_.read(iref.begin, version))
        return;
    const size_t numberBytes = version[0] == 0 ? 2 : 4;
    boxes_.forEachBox(iref.begin + kFlags, iref.end, [&](const Box& box) {
        const auto content = contentOf(box, kMostBytes);
        NumberReader numbers(content);
        Reference reference{box.type, numbers.take32(numberBytes), {}};
        const auto count = numbers.take(2);
        for (uint64_t i = 0; i < count && !numbers.isShort(); ++i)
            reference.to.push_back(numbers.take32(numberBytes));
        if (!numbers.isShort())
            references_.push_back(std::move(reference));
    });
}

void HEIFItems::readProperties(const Box& iprp)
{
    boxes_.forEachBox(iprp.begin, iprp.end, [this](const Box& box) {
        if (box.type == fourCharacterCode("ipco"))
            boxes_.forEachBox(box.begin, box.end, [this](const Box& property) { properties_.push_back(property); });
    });
    boxes_.forEachBox(iprp.begin, iprp.end, [this](const Box& box) {
        if (box.type == fourCharacterCode("ipma"))
            readAssociations(box);
    });
}

void HEIFItems::readAssociations(const Box& ipma)
{
    const auto content = contentOf(ipma, kMostBytes);
    NumberReader numbers(content);
    const auto start = numbers.take(kFlags);
    const bool hasLongItems = start >> 24 != 0;
    const size_t indexBytes = (start & 1) != 0 ? 2 : 1;
    const uint64_t essential = uint64_t{1} << (8 * indexBytes - 1);
    const auto count = numbers.take(4);
    for (uint64_t i = 0; i < count && !numbers.isShort(); ++i) {
        const uint32_t number = numbers.take32(hasLongItems ? 4 : 2);
        const auto associations = numbers.take(1);
        for (uint64_t j = 0; j < associations; ++j) {
            const auto association = numbers.take(indexBytes);
            // Numbers begin with one; zero stands for none.
            const size_t index = association & (essential - 1);
            if (!numbers.isShort() && index >= 1 && index <= properties_.size() && ++associated_ <= kMaxAssociations)
                items_[number].properties.push_back({properties_[index - 1], (association & essential) != 0});
        }
    }
}

} // namespace platform
