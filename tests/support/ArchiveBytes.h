#pragma once

#include "platform/foundation/NSData.h"

#include <bit>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Builds binary property lists byte by byte, as the platform lays them out, without the code that is tested.
namespace archive_bytes {

/// One value and what it holds.
struct Node {
    enum class Kind { Scalar, Reference, Array, Dictionary };

    Kind kind = Kind::Scalar;
    /// A scalar's or reference's own bytes.
    std::string bytes;
    /// What an array holds; a dictionary's keys, then its values.
    std::vector<Node> items;
};

inline std::string bigEndian(uint64_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i)
        text += static_cast<char>(value >> (8 * i));
    return text;
}

inline std::string integerBytes(int64_t value)
{
    const int power = value < 0 || value > UINT32_MAX ? 3 : value > UINT16_MAX ? 2 : value > UINT8_MAX ? 1 : 0;
    std::string text(1, static_cast<char>(0x10 | power));
    return text += bigEndian(static_cast<uint64_t>(value), 1 << power);
}

inline std::string marker(int kind, size_t count)
{
    if (count < 15)
        return std::string(1, static_cast<char>(kind << 4 | count));
    std::string text(1, static_cast<char>(kind << 4 | 15));
    return text += integerBytes(static_cast<int64_t>(count));
}

inline Node boolean(bool value)
{
    return {Node::Kind::Scalar, value ? "\x09" : "\x08", {}};
}
inline Node integer(int64_t value)
{
    return {Node::Kind::Scalar, integerBytes(value), {}};
}
inline Node real(double value)
{
    std::string bytes = "\x23";
    return {Node::Kind::Scalar, bytes += bigEndian(std::bit_cast<uint64_t>(value), 8), {}};
}
/// ASCII.
inline Node text(std::string_view value)
{
    std::string bytes = marker(5, value.size());
    return {Node::Kind::Scalar, bytes += value, {}};
}
inline Node text16(std::u16string_view value)
{
    std::string bytes = marker(6, value.size());
    for (const char16_t unit : value)
        bytes += bigEndian(unit, 2);
    return {Node::Kind::Scalar, bytes, {}};
}
inline Node data(std::string_view value)
{
    std::string bytes = marker(4, value.size());
    return {Node::Kind::Scalar, bytes += value, {}};
}
/// A reference to an object of an archive.
inline Node uid(uint64_t value)
{
    std::string bytes = value < 256 ? "\x80" : "\x81";
    return {Node::Kind::Reference, bytes += bigEndian(value, value < 256 ? 1 : 2), {}};
}
inline Node array(std::vector<Node> items)
{
    return {Node::Kind::Array, {}, std::move(items)};
}
inline Node uids(std::initializer_list<uint64_t> values)
{
    std::vector<Node> items;
    for (const uint64_t value : values)
        items.push_back(uid(value));
    return array(std::move(items));
}
inline Node dictionary(std::vector<std::pair<std::string, Node>> entries)
{
    Node node{Node::Kind::Dictionary, {}, {}};
    for (const auto& [key, value] : entries)
        node.items.push_back(text(key));
    for (auto& [key, value] : entries)
        node.items.push_back(std::move(value));
    return node;
}
/// A class record; `names` is the class and those it is made from.
inline Node classRecord(std::vector<std::string> names)
{
    std::vector<Node> lineage;
    for (const std::string& name : names)
        lineage.push_back(text(name));
    return dictionary({{"$classname", text(names.front())}, {"$classes", array(std::move(lineage))}});
}

class Writer final {
public:
    platform::NSData write(const Node& top)
    {
        flatten(top);
        std::string bytes = "bplist00";
        std::vector<size_t> offsets;
        for (const auto& [node, references] : objects_) {
            offsets.push_back(bytes.size());
            bytes += node->bytes;
            if (node->kind == Node::Kind::Array)
                bytes += marker(0xA, references.size());
            if (node->kind == Node::Kind::Dictionary)
                bytes += marker(0xD, references.size() / 2);
            for (const size_t reference : references)
                bytes += bigEndian(reference, 1);
        }
        const size_t table = bytes.size();
        const int offsetBytes = table < 256 ? 1 : 2;
        for (const size_t offset : offsets)
            bytes += bigEndian(offset, offsetBytes);
        bytes += std::string(6, '\0') + bigEndian(static_cast<uint64_t>(offsetBytes), 1) + bigEndian(1, 1);
        bytes += bigEndian(offsets.size(), 8) + bigEndian(0, 8) + bigEndian(table, 8);
        return {bytes.begin(), bytes.end()};
    }

private:
    /// Equal scalars are one object.
    size_t flatten(const Node& node)
    {
        if (node.kind == Node::Kind::Scalar) {
            const auto [known, isNew] = scalars_.try_emplace(node.bytes, objects_.size());
            if (!isNew)
                return known->second;
        }
        const size_t index = objects_.size();
        objects_.push_back({&node, {}});
        std::vector<size_t> references;
        for (const Node& item : node.items)
            references.push_back(flatten(item));
        objects_[index].second = std::move(references);
        return index;
    }

    std::vector<std::pair<const Node*, std::vector<size_t>>> objects_;
    std::map<std::string, size_t> scalars_;
};

inline platform::NSData write(const Node& top)
{
    return Writer().write(top);
}

/// A keyed archive of these objects, the root at index 1.
inline platform::NSData archive(std::vector<Node> objects)
{
    return write(dictionary({{"$version", integer(100000)},
                             {"$archiver", text("NSKeyedArchiver")},
                             {"$top", dictionary({{"root", uid(1)}})},
                             {"$objects", array(std::move(objects))}}));
}

/// The objects of a dictionary whose values are these, each an object of its own; keys first, the class last.
inline std::vector<Node> dictionaryObjects(const std::vector<std::pair<std::string, Node>>& entries)
{
    const uint64_t count = entries.size();
    std::vector<Node> keys;
    std::vector<Node> values;
    std::vector<Node> objects{text("$null"), {}};
    for (uint64_t i = 0; i < count; ++i) {
        keys.push_back(uid(2 + i));
        values.push_back(uid(2 + count + i));
        objects.push_back(text(entries[i].first));
    }
    for (const auto& [key, value] : entries)
        objects.push_back(value);
    objects.push_back(classRecord({"NSDictionary", "NSObject"}));
    objects[1] = dictionary({{"NS.keys", array(std::move(keys))},
                             {"NS.objects", array(std::move(values))},
                             {"$class", uid(2 + 2 * count)}});
    return objects;
}

} // namespace archive_bytes
