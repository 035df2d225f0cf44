#include "platform/propertylists/NSPropertyListSerialization.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSString.h"
#include "platform/propertylists/PropertyListXML.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace platform {

namespace {

// Far beyond any settings, bookmark or saved item.
constexpr size_t kMaximumDataBytes = size_t{64} << 20;
/// Readers of others end a text at its first zero byte.
bool isWritable(const std::string& text)
{
    return text.find('\0') == std::string::npos && isValidUTF8(text);
}

/// Reads the binary format. Objects may be shared, so that few bytes can stand for many values.
class BinaryReader final {
public:
    explicit BinaryReader(const NSData& data) : data_(data) {}

    std::optional<PropertyList> read()
    {
        if (data_.size() < kHeaderBytes + kTrailerBytes)
            return std::nullopt;
        const uint64_t trailer = data_.size() - kTrailerBytes;
        offsetBytes_ = data_[trailer + 6];
        referenceBytes_ = data_[trailer + 7];
        objectCount_ = bigEndian(trailer + 8, 8);
        const uint64_t topObject = bigEndian(trailer + 16, 8);
        offsetTable_ = bigEndian(trailer + 24, 8);
        if (offsetBytes_ < 1 || offsetBytes_ > 8 || referenceBytes_ < 1 || referenceBytes_ > 8)
            return std::nullopt;
        if (offsetTable_ <= kHeaderBytes || offsetTable_ > trailer ||
            objectCount_ > (trailer - offsetTable_) / offsetBytes_)
            return std::nullopt;
        return object(topObject, 0);
    }

private:
    static constexpr uint64_t kHeaderBytes = 8;
    static constexpr uint64_t kTrailerBytes = 32;

    /// The caller has checked that the bytes are there.
    uint64_t bigEndian(uint64_t offset, uint64_t bytes) const
    {
        uint64_t value = 0;
        for (uint64_t i = 0; i < bytes; ++i)
            value = value << 8 | data_[offset + i];
        return value;
    }

    /// Objects lie between the header and the offset table.
    bool isInside(uint64_t offset, uint64_t bytes) const
    {
        return offset <= offsetTable_ && bytes <= offsetTable_ - offset;
    }

    std::optional<PropertyList> object(uint64_t index, int depth)
    {
        if (index >= objectCount_ || depth > PropertyListBudget::kMaximumDepth || !budget_.takeValue())
            return std::nullopt;
        uint64_t offset = bigEndian(offsetTable_ + index * offsetBytes_, offsetBytes_);
        if (offset < kHeaderBytes || !isInside(offset, 1))
            return std::nullopt;
        const unsigned kind = data_[offset] >> 4;
        const unsigned low = data_[offset] & 0xF;
        ++offset;
        switch (kind) {
        case 0x0:
            if (low == 8 || low == 9)
                return low == 9;
            return std::nullopt;
        case 0x1:
            return integer(offset, low);
        case 0x2:
            if (low == 2 && isInside(offset, 4))
                return double{std::bit_cast<float>(static_cast<uint32_t>(bigEndian(offset, 4)))};
            if (low == 3 && isInside(offset, 8))
                return std::bit_cast<double>(bigEndian(offset, 8));
            return std::nullopt;
        case 0x3:
            if (low == 3 && isInside(offset, 8))
                return NSDate{std::bit_cast<double>(bigEndian(offset, 8))};
            return std::nullopt;
        case 0x8:
            if (low < 8 && isInside(offset, low + 1))
                return PropertyListUID{bigEndian(offset, low + 1)};
            return std::nullopt;
        default:
            break;
        }

        const auto count = length(offset, low);
        if (!count)
            return std::nullopt;
        switch (kind) {
        case 0x4:
            return bytes(offset, *count);
        case 0x5:
            return asciiText(offset, *count);
        case 0x6:
            return utf16Text(offset, *count);
        case 0xA:
            return array(offset, *count, depth);
        case 0xD:
            return dictionary(offset, *count, depth);
        default:
            return std::nullopt;
        }
    }

    std::optional<PropertyList> integer(uint64_t offset, unsigned power) const
    {
        if (power > 4 || !isInside(offset, uint64_t{1} << power))
            return std::nullopt;
        if (power < 3)
            return static_cast<int64_t>(bigEndian(offset, uint64_t{1} << power));
        if (power == 3)
            return static_cast<int64_t>(bigEndian(offset, 8));
        const uint64_t high = bigEndian(offset, 8);
        const uint64_t low = bigEndian(offset + 8, 8);
        const auto asSigned = static_cast<int64_t>(low);
        if ((high == 0 && asSigned >= 0) || (high == UINT64_MAX && asSigned < 0))
            return asSigned;
        if (high == 0)
            return low;
        return std::nullopt;
    }

    /// The count behind a marker; moves `offset` behind it.
    std::optional<uint64_t> length(uint64_t& offset, unsigned low) const
    {
        if (low != 0xF)
            return low;
        if (!isInside(offset, 1) || data_[offset] >> 4 != 1)
            return std::nullopt;
        const uint64_t bytes = uint64_t{1} << (data_[offset] & 0xF);
        if (bytes > 8 || !isInside(offset + 1, bytes))
            return std::nullopt;
        const uint64_t value = bigEndian(offset + 1, bytes);
        offset += 1 + bytes;
        return value;
    }

    std::optional<PropertyList> bytes(uint64_t offset, uint64_t count)
    {
        if (!isInside(offset, count) || !budget_.take(count))
            return std::nullopt;
        const uint8_t* begin = data_.data() + offset;
        return NSData(begin, begin + count);
    }

    std::optional<PropertyList> asciiText(uint64_t offset, uint64_t count)
    {
        if (!isInside(offset, count) || !budget_.take(count))
            return std::nullopt;
        const uint8_t* begin = data_.data() + offset;
        if (std::any_of(begin, begin + count, [](uint8_t byte) { return byte >= 0x80; }))
            return std::nullopt;
        return std::string(begin, begin + count);
    }

    std::optional<PropertyList> utf16Text(uint64_t offset, uint64_t count)
    {
        // At most three bytes of UTF-8 for one unit of UTF-16.
        if (count > data_.size() || !isInside(offset, 2 * count) || !budget_.take(3 * count))
            return std::nullopt;
        std::string text;
        for (uint64_t i = 0; i < count; ++i) {
            auto character = static_cast<uint32_t>(bigEndian(offset + 2 * i, 2));
            if ((character & 0xF800) == 0xD800) {
                const uint64_t next = i + 1 < count ? bigEndian(offset + 2 * i + 2, 2) : 0;
                if (character < 0xDC00 && (next & 0xFC00) == 0xDC00) {
                    character = 0x10000 + ((character & 0x3FF) << 10) + static_cast<uint32_t>(next & 0x3FF);
                    ++i;
                } else {
                    // Half of a pair stands for nothing.
                    character = 0xFFFD;
                }
            }
            appendUTF8(text, character);
        }
        return text;
    }

    std::optional<PropertyList> array(uint64_t offset, uint64_t count, int depth)
    {
        if (count > data_.size() || !isInside(offset, count * referenceBytes_))
            return std::nullopt;
        PropertyList::Array values;
        for (uint64_t i = 0; i < count; ++i) {
            auto value = object(bigEndian(offset + i * referenceBytes_, referenceBytes_), depth + 1);
            if (!value)
                return std::nullopt;
            values.push_back(std::move(*value));
        }
        return values;
    }

    std::optional<PropertyList> dictionary(uint64_t offset, uint64_t count, int depth)
    {
        if (count > data_.size() || !isInside(offset, 2 * count * referenceBytes_))
            return std::nullopt;
        PropertyList::Dictionary values;
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t keyOffset = offset + i * referenceBytes_;
            const uint64_t valueOffset = keyOffset + count * referenceBytes_;
            const auto key = object(bigEndian(keyOffset, referenceBytes_), depth + 1);
            auto value = object(bigEndian(valueOffset, referenceBytes_), depth + 1);
            if (!key || !key->as<std::string>() || !value)
                return std::nullopt;
            values.emplace(*key->as<std::string>(), std::move(*value));
        }
        return values;
    }

    const NSData& data_;
    uint64_t offsetBytes_ = 0;
    uint64_t referenceBytes_ = 0;
    uint64_t objectCount_ = 0;
    uint64_t offsetTable_ = 0;
    PropertyListBudget budget_;
};

/// The bytes that a number takes.
size_t bytesOf(uint64_t number)
{
    return number < 1u << 8 ? 1 : number < 1u << 16 ? 2 : number < uint64_t{1} << 32 ? 4 : 8;
}

void append(std::string& bytes, uint64_t number, size_t count)
{
    for (size_t i = count; i-- > 0;)
        bytes += static_cast<char>(i < 8 ? number >> (8 * i) : 0);
}

std::string integerObject(int64_t number)
{
    const size_t count = number < 0 ? 8 : bytesOf(static_cast<uint64_t>(number));
    std::string bytes(1, static_cast<char>(0x10 | std::countr_zero(count)));
    append(bytes, static_cast<uint64_t>(number), count);
    return bytes;
}

/// The marker of an object that has a length.
std::string marker(unsigned kind, size_t count)
{
    constexpr size_t kLengthFollows = 0xF;
    std::string bytes(1, static_cast<char>(kind << 4 | std::min(count, kLengthFollows)));
    return count < kLengthFollows ? bytes : bytes + integerObject(static_cast<int64_t>(count));
}

std::string textObject(const std::string& text)
{
    if (std::ranges::all_of(text, [](char byte) { return static_cast<unsigned char>(byte) < 0x80; }))
        return marker(0x5, text.size()) + text;
    std::string units;
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        uint32_t character = length == 1 ? first : first & (0x7Fu >> length);
        for (size_t rest = 1; rest < length; ++rest)
            character = character << 6 | (static_cast<unsigned char>(text[i + rest]) & 0x3Fu);
        i += length;
        if (character >= 0x10000) {
            append(units, 0xD800 + ((character - 0x10000) >> 10), 2);
            character = 0xDC00 + ((character - 0x10000) & 0x3FF);
        }
        append(units, character, 2);
    }
    return marker(0x6, units.size() / 2) + units;
}

/// Writes the binary format: each object behind those that hold it, equal ones once where they hold no others.
class BinaryWriter final {
public:
    /// @return nothing where a text or date cannot be written
    std::optional<NSData> write(const PropertyList& propertyList)
    {
        if (!add(propertyList))
            return std::nullopt;
        const size_t referenceBytes = bytesOf(objects_.size());
        std::string bytes = "bplist00";
        std::vector<size_t> offsets;
        for (const Object& object : objects_) {
            offsets.push_back(bytes.size());
            bytes += object.bytes;
            for (const size_t reference : object.references)
                append(bytes, reference, referenceBytes);
        }
        const size_t table = bytes.size();
        const size_t offsetBytes = bytesOf(table);
        for (const size_t offset : offsets)
            append(bytes, offset, offsetBytes);
        append(bytes, 0, 6);
        append(bytes, offsetBytes, 1);
        append(bytes, referenceBytes, 1);
        append(bytes, objects_.size(), 8);
        append(bytes, 0, 8);
        append(bytes, table, 8);
        return NSData(bytes.begin(), bytes.end());
    }

private:
    struct Object {
        std::string bytes;
        std::vector<size_t> references = {};
    };

    size_t addBytes(std::string bytes)
    {
        const auto [place, isNew] = places_.try_emplace(std::move(bytes), objects_.size());
        if (isNew)
            objects_.push_back({place->first});
        return place->second;
    }

    std::optional<size_t> add(const PropertyList& propertyList)
    {
        return std::visit([this](const auto& value) { return addValue(value); }, propertyList.value());
    }

    std::optional<size_t> addValue(bool value) { return addBytes(value ? "\x09" : "\x08"); }
    std::optional<size_t> addValue(int64_t value) { return addBytes(integerObject(value)); }
    std::optional<size_t> addValue(uint64_t value)
    {
        if (value <= INT64_MAX)
            return addValue(static_cast<int64_t>(value));
        std::string bytes = "\x14";
        append(bytes, value, 16);
        return addBytes(std::move(bytes));
    }
    std::optional<size_t> addValue(double value)
    {
        const auto narrow = static_cast<float>(value);
        const bool isNarrow = double{narrow} == value;
        std::string bytes = isNarrow ? "\x22" : "\x23";
        append(bytes, isNarrow ? std::bit_cast<uint32_t>(narrow) : std::bit_cast<uint64_t>(value), isNarrow ? 4 : 8);
        return addBytes(std::move(bytes));
    }
    std::optional<size_t> addValue(const std::string& text)
    {
        return isWritable(text) ? std::optional(addBytes(textObject(text))) : std::nullopt;
    }
    std::optional<size_t> addValue(const NSData& data)
    {
        return addBytes(marker(0x4, data.size()) + std::string(data.begin(), data.end()));
    }
    std::optional<size_t> addValue(const NSDate& date)
    {
        // Whole microseconds, within 68 years to either side.
        const double seconds = std::floor(date.timeIntervalSinceReferenceDate);
        if (!(std::abs(seconds) <= INT32_MAX))
            return std::nullopt;
        const double rest = std::floor((date.timeIntervalSinceReferenceDate - seconds) * 1e6) / 1e6;
        std::string bytes = "\x33";
        append(bytes, std::bit_cast<uint64_t>(seconds + rest), 8);
        return addBytes(std::move(bytes));
    }
    std::optional<size_t> addValue(const PropertyListUID& uid)
    {
        const size_t count = bytesOf(uid.value);
        std::string bytes(1, static_cast<char>(0x80 | (count - 1)));
        append(bytes, uid.value, count);
        return addBytes(std::move(bytes));
    }
    std::optional<size_t> addValue(const PropertyList::Array& values)
    {
        const size_t place = objects_.size();
        objects_.push_back({marker(0xA, values.size())});
        std::vector<size_t> references;
        for (const PropertyList& value : values) {
            const auto reference = add(value);
            if (!reference)
                return std::nullopt;
            references.push_back(*reference);
        }
        objects_[place].references = std::move(references);
        return place;
    }
    std::optional<size_t> addValue(const PropertyList::Dictionary& values)
    {
        const size_t place = objects_.size();
        objects_.push_back({marker(0xD, values.size())});
        std::vector<size_t> keys;
        std::vector<size_t> references;
        for (const auto& [key, value] : values) {
            const auto text = addValue(key);
            const auto reference = text ? add(value) : std::nullopt;
            if (!reference)
                return std::nullopt;
            keys.push_back(*text);
            references.push_back(*reference);
        }
        keys.insert(keys.end(), references.begin(), references.end());
        objects_[place].references = std::move(keys);
        return place;
    }

    std::vector<Object> objects_;
    /// Of those that hold no others, by their bytes.
    std::map<std::string, size_t> places_;
};

} // namespace

void appendUTF8(std::string& text, uint32_t character)
{
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | (character >> 6));
        text += static_cast<char>(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | (character >> 12));
        text += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (character & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | (character >> 18));
        text += static_cast<char>(0x80 | ((character >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (character & 0x3F));
    }
}

const PropertyList* PropertyList::objectForKey(std::string_view key) const
{
    const auto* dictionary = as<Dictionary>();
    if (!dictionary)
        return nullptr;
    const auto entry = dictionary->find(key);
    return entry == dictionary->end() ? nullptr : &entry->second;
}

std::optional<PropertyList> propertyListWithData(const NSData& data, NSError* error)
{
    static constexpr std::string_view kBinaryMark = "bplist0";
    std::optional<PropertyList> result;
    if (data.size() <= kMaximumDataBytes) {
        if (data.size() > kBinaryMark.size() && std::equal(kBinaryMark.begin(), kBinaryMark.end(), data.begin())) {
            result = BinaryReader(data).read();
        } else {
            result = readPropertyListXML({reinterpret_cast<const char*>(data.data()), data.size()});
        }
    }
    if (!result)
        fail(error, kNSCocoaErrorDomain, kNSFileReadCorruptFileError,
             localized("The data is no property list or is damaged"));
    return result;
}

std::optional<NSData> dataWithPropertyList(const PropertyList& propertyList, NSError* error)
{
    auto data = BinaryWriter().write(propertyList);
    if (!data)
        fail(error, kNSCocoaErrorDomain, kNSFileWriteUnknownError,
             "A text or date of the property list cannot be written");
    return data;
}

} // namespace platform
