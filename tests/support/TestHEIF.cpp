#include "tests/support/TestHEIF.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

namespace test {

namespace {

using Bytes = std::vector<uint8_t>;

Bytes number(uint64_t value, unsigned length)
{
    Bytes bytes;
    for (unsigned i = length; i-- > 0;)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return bytes;
}

Bytes joined(const std::vector<Bytes>& parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes text(std::string_view characters)
{
    return {characters.begin(), characters.end()};
}

Bytes box(std::string_view type, const std::vector<Bytes>& parts)
{
    const Bytes content = joined(parts);
    return joined({number(content.size() + 8, 4), text(type), content});
}

Bytes fullBox(std::string_view type, unsigned version, unsigned flags, const std::vector<Bytes>& parts)
{
    return box(type, {number(version << 24 | flags, 4), joined(parts)});
}

/// A box as a whole, found by its type.
Bytes extracted(const Bytes& file, std::string_view type)
{
    const auto found = std::search(file.begin(), file.end(), type.begin(), type.end());
    EXPECT_NE(found, file.end()) << type;
    if (found == file.end())
        return {};
    const auto start = found - 4;
    const size_t length = size_t{start[0]} << 24 | size_t{start[1]} << 16 | size_t{start[2]} << 8 | start[3];
    return {start, start + static_cast<std::ptrdiff_t>(length)};
}

Bytes sizeProperty(size_t width, size_t height)
{
    return fullBox("ispe", 0, 0, {number(width, 4), number(height, 4)});
}

/// Properties in one list, and the numbers that an item refers to them by.
struct Properties {
    std::vector<Bytes> all;
    unsigned add(const Bytes& property)
    {
        all.push_back(property);
        return static_cast<unsigned>(all.size());
    }
};

Bytes association(unsigned item, const std::vector<unsigned>& properties)
{
    Bytes bytes = joined({number(item, 2), number(properties.size(), 1)});
    for (const unsigned property : properties)
        bytes.push_back(static_cast<uint8_t>(property));
    return bytes;
}

} // namespace

Picture cropped(const Picture& picture, size_t left, size_t top, size_t width, size_t height)
{
    Picture part{width, height, picture.bands, Bytes(width * height * picture.bands)};
    for (size_t y = 0; y < height; ++y)
        std::copy_n(picture.at(left, top + y), width * picture.bands, part.at(0, y));
    return part;
}

Bytes heifBytes(const std::vector<Picture>& tiles, const HEIFOptions& options)
{
    const TemporaryFolder folder;
    std::vector<Bytes> coded;
    Bytes configuration;
    for (const Picture& tile : tiles) {
        save(tile, folder.path("tile.png"));
        run({"heif-enc", "-q", "95", folder.path("tile.png"), "-o", folder.path("tile.heic")});
        const Bytes file = readFile(folder.path("tile.heic"));
        const Bytes media = extracted(file, "mdat");
        coded.emplace_back(media.begin() + 8, media.end());
        configuration = extracted(file, "hvcC");
    }

    const bool isGrid = tiles.size() > 1;
    const auto tileCount = static_cast<unsigned>(tiles.size());
    const unsigned primary = isGrid ? tileCount + 1 : 1;
    const size_t width = options.width ? options.width : tiles.front().width * options.columns;
    const size_t height = options.height ? options.height : tiles.front().height * options.rows;

    Properties properties;
    std::vector<unsigned> ofTile = {properties.add(configuration),
                                    properties.add(sizeProperty(tiles.front().width, tiles.front().height))};
    std::vector<unsigned> ofPrimary;
    if (isGrid)
        ofPrimary.push_back(properties.add(sizeProperty(width, height)));
    else
        ofPrimary = ofTile;
    if (options.primaries)
        ofPrimary.push_back(properties.add(box("colr", {text("nclx"), number(*options.primaries, 2),
                                                        number(options.transfer, 2), number(6, 2), number(0x80, 1)})));
    if (!options.colorProfile.empty())
        ofPrimary.push_back(properties.add(box("colr", {text("prof"), options.colorProfile})));
    if (options.shownWidth)
        ofPrimary.push_back(
            properties.add(box("clap", {number(options.shownWidth, 4), number(1, 4), number(options.shownHeight, 4),
                                        number(1, 4), number(0, 4), number(1, 4), number(0, 4), number(1, 4)})));
    if (options.quarterTurns)
        ofPrimary.push_back(properties.add(box("irot", {number(options.quarterTurns, 1)})));
    if (options.mirror)
        ofPrimary.push_back(properties.add(box("imir", {number(*options.mirror, 1)})));

    std::vector<Bytes> items;
    std::vector<Bytes> associations;
    Bytes references = joined({number(primary, 2), number(tileCount, 2)});
    for (unsigned item = 1; item <= tileCount; ++item) {
        items.push_back(
            fullBox("infe", 2, isGrid ? 1 : 0, {number(item, 2), number(0, 2), text("hvc1"), number(0, 1)}));
        references = joined({references, number(item, 2)});
        if (isGrid)
            associations.push_back(association(item, ofTile));
    }
    if (isGrid)
        items.push_back(fullBox("infe", 2, 0, {number(primary, 2), number(0, 2), text("grid"), number(0, 1)}));
    associations.push_back(association(primary, ofPrimary));

    const Bytes grid = joined({number(0, 2), number(options.rows - 1, 1), number(options.columns - 1, 1),
                               number(width, 2), number(height, 2)});
    const Bytes header = box("ftyp", {text("heic"), number(0, 4), text("mif1"), text("heic")});
    // The places depend on the length of the box that tells them, which does not depend on the places.
    const auto meta = [&](size_t mediaStart) {
        std::vector<Bytes> locations = {number(0x4400, 2), number(items.size(), 2)};
        size_t offset = mediaStart;
        for (unsigned item = 1; item <= tileCount; ++item) {
            const size_t length = coded[item - 1].size();
            locations.push_back(joined(
                {number(item, 2), number(0, 2), number(0, 2), number(1, 2), number(offset, 4), number(length, 4)}));
            offset += length;
        }
        if (isGrid)
            locations.push_back(joined(
                {number(primary, 2), number(1, 2), number(0, 2), number(1, 2), number(0, 4), number(grid.size(), 4)}));
        return fullBox("meta", 0, 0,
                       {fullBox("hdlr", 0, 0, {number(0, 4), text("pict"), Bytes(12, 0), number(0, 1)}),
                        fullBox("pitm", 0, 0, {number(primary, 2)}), fullBox("iloc", 1, 0, locations),
                        fullBox("iinf", 0, 0, {number(items.size(), 2), joined(items)}),
                        isGrid ? fullBox("iref", 0, 0, {box("dimg", {references})}) : Bytes(),
                        box("iprp", {box("ipco", properties.all),
                                     fullBox("ipma", 0, 0, {number(associations.size(), 4), joined(associations)})}),
                        isGrid ? box("idat", {grid}) : Bytes()});
    };
    const size_t mediaStart = header.size() + meta(0).size() + 8;
    return joined({header, meta(mediaStart), box("mdat", coded)});
}

} // namespace test
