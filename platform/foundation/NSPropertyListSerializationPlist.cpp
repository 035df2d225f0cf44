#include "platform/foundation/NSPropertyListSerialization.h"

#include "platform/foundation/NSString.h"

#include <algorithm>
#include <bit>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <plist/plist.h>
#include <type_traits>

namespace platform {

namespace {

// Far beyond any settings, bookmark or saved item.
constexpr size_t kMaximumDataBytes = size_t{64} << 20;
constexpr int kMaximumDepth = 64;
/// Of memory, for all values together. A value may be referred to many times and is a value of its own each time, by
/// which a few bytes could otherwise grow without end.
constexpr uint64_t kMaximumBytesOfValues = uint64_t{64} << 20;
constexpr uint64_t kBytesOfOneValue = sizeof(PropertyList) + 64;
/// Arrays and dictionaries of the XML format. The library frees nested ones by recursion.
constexpr int kMaximumContainersInXML = 10000;

struct FreePlist {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<std::remove_pointer_t<plist_t>, FreePlist>;

/// The library reads numbers by the thread's locale.
class CLocaleScope final {
public:
    CLocaleScope()
    {
        static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
        previous_ = uselocale(cLocale);
    }
    ~CLocaleScope() { uselocale(previous_); }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    locale_t previous_;
};

struct FreeBinary {
    void operator()(char* bytes) const { plist_to_bin_free(bytes); }
};

std::optional<NSData> binaryFromNode(plist_t node)
{
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    const std::unique_ptr<char, FreeBinary> owner(bytes);
    if (!bytes)
        return std::nullopt;
    return NSData(bytes, bytes + length);
}

/// The library takes texts that end at the first zero byte and drops what is not UTF-8 without a word.
bool isWritable(const std::string& text)
{
    return text.find('\0') == std::string::npos && isValidUTF8(text);
}

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

/// Counts down what values may still take.
class Budget final {
public:
    bool take(uint64_t bytes)
    {
        if (bytes > left_)
            return false;
        left_ -= bytes;
        return true;
    }

private:
    uint64_t left_ = kMaximumBytesOfValues;
};

/// How a reference of one object to another stands in the data. The XML format has no form of its own for it.
enum class References { AsObjects, AsDictionaries };

/// Reads the binary format. Not done by the library, which follows shared objects without a limit (24 nested pairs, a
/// file of 163 bytes, keep it busy for 13 seconds) and cuts texts at zero bytes.
class BinaryReader final {
public:
    BinaryReader(const NSData& data, References references) : data_(data), references_(references) {}

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
        if (index >= objectCount_ || depth > kMaximumDepth || !budget_.take(kBytesOfOneValue))
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
        if (references_ == References::AsDictionaries && values.size() == 1) {
            const auto& [key, value] = *values.begin();
            if (const auto* uid = value.as<int64_t>(); uid && *uid >= 0 && key == "CF$UID")
                return PropertyListUID{static_cast<uint64_t>(*uid)};
        }
        return values;
    }

    const NSData& data_;
    const References references_;
    uint64_t offsetBytes_ = 0;
    uint64_t referenceBytes_ = 0;
    uint64_t objectCount_ = 0;
    uint64_t offsetTable_ = 0;
    Budget budget_;
};

/// The XML format by way of the binary one: the library's nodes do not tell -1 from 2^64 - 1, its binary form does.
std::optional<NSData> binaryFromXML(const NSData& data)
{
    int containers = 0;
    for (const std::string_view tag : {"<array", "<dict"}) {
        const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
        for (size_t at = text.find(tag); at != std::string_view::npos; at = text.find(tag, at + tag.size())) {
            if (++containers > kMaximumContainersInXML)
                return std::nullopt;
        }
    }
    plist_t node = nullptr;
    {
        const CLocaleScope cLocale;
        plist_from_xml(reinterpret_cast<const char*>(data.data()), static_cast<uint32_t>(data.size()), &node);
    }
    const PlistPtr owner(node);
    return node ? binaryFromNode(node) : std::nullopt;
}

/// A new node for the library; null where a text cannot be written.
PlistPtr nodeOf(const PropertyList& propertyList)
{
    return std::visit(
        [](const auto& value) -> PlistPtr {
            using T = std::remove_cvref_t<decltype(value)>;
            if constexpr (std::is_same_v<T, bool>) {
                return PlistPtr(plist_new_bool(value));
            } else if constexpr (std::is_same_v<T, int64_t>) {
                return PlistPtr(plist_new_uint(static_cast<uint64_t>(value)));
            } else if constexpr (std::is_same_v<T, uint64_t>) {
                if (value <= INT64_MAX)
                    return PlistPtr(plist_new_uint(value));
                // The library makes such a number only when it reads one; otherwise it would be written as negative.
                const std::string xml = "<plist><integer>" + std::to_string(value) + "</integer></plist>";
                plist_t node = nullptr;
                plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &node);
                return PlistPtr(node);
            } else if constexpr (std::is_same_v<T, double>) {
                return PlistPtr(plist_new_real(value));
            } else if constexpr (std::is_same_v<T, std::string>) {
                if (!isWritable(value))
                    return nullptr;
                return PlistPtr(plist_new_string(value.c_str()));
            } else if constexpr (std::is_same_v<T, NSData>) {
                return PlistPtr(plist_new_data(reinterpret_cast<const char*>(value.data()), value.size()));
            } else if constexpr (std::is_same_v<T, NSDate>) {
                const double seconds = std::floor(value.timeIntervalSinceReferenceDate);
                // The library's dates reach 68 years to either side.
                if (!(std::abs(seconds) <= INT32_MAX))
                    return nullptr;
                const double rest = value.timeIntervalSinceReferenceDate - seconds;
                return PlistPtr(plist_new_date(static_cast<int32_t>(seconds), static_cast<int32_t>(rest * 1e6)));
            } else if constexpr (std::is_same_v<T, PropertyListUID>) {
                return PlistPtr(plist_new_uid(value.value));
            } else if constexpr (std::is_same_v<T, PropertyList::Array>) {
                PlistPtr node(plist_new_array());
                for (const PropertyList& element : value) {
                    PlistPtr child = nodeOf(element);
                    if (!child)
                        return nullptr;
                    plist_array_append_item(node.get(), child.release());
                }
                return node;
            } else {
                static_assert(std::is_same_v<T, PropertyList::Dictionary>);
                PlistPtr node(plist_new_dict());
                for (const auto& [key, element] : value) {
                    PlistPtr child = nodeOf(element);
                    if (!child || !isWritable(key))
                        return nullptr;
                    plist_dict_set_item(node.get(), key.c_str(), child.release());
                }
                return node;
            }
        },
        propertyList.value());
}

} // namespace

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
            result = BinaryReader(data, References::AsObjects).read();
        } else if (const auto binary = binaryFromXML(data)) {
            result = BinaryReader(*binary, References::AsDictionaries).read();
        }
    }
    if (!result)
        fail(error, kNSCocoaErrorDomain, kNSFileReadCorruptFileError, "The data is no property list or is damaged");
    return result;
}

std::optional<NSData> dataWithPropertyList(const PropertyList& propertyList, NSError* error)
{
    const PlistPtr node = nodeOf(propertyList);
    auto data = node ? binaryFromNode(node.get()) : std::nullopt;
    if (!data)
        fail(error, kNSCocoaErrorDomain, kNSFileWriteUnknownError,
             "A text or date of the property list cannot be written");
    return data;
}

} // namespace platform
