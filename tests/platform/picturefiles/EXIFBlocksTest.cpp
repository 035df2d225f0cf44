#include "platform/picturefiles/EXIFBlocks.h"

#include "tests/support/TestTags.h"

#include <gtest/gtest.h>

#include <string>

using platform::hasTangledEXIF;
using platform::ImageFile;
using testtags::bigEndian;
using testtags::zeros;

namespace {

/// A folder of entries that each lead to this folder itself; a single one leads to an empty folder.
std::string folderOf(unsigned entries)
{
    std::string exif = "MM" + bigEndian(42, 2) + bigEndian(8, 4) + bigEndian(entries, 2);
    for (unsigned i = 0; i < entries; ++i)
        exif += bigEndian(0x8769, 2) + bigEndian(4, 2) + bigEndian(1, 4) + bigEndian(entries == 1 ? 22 : 8, 4);
    return exif + zeros(8);
}

std::string box(const std::string& type, const std::string& content)
{
    return bigEndian(content.size() + 8, 4) + type + content;
}

/// @param protection  number of what the item is protected by
std::string entry(unsigned version, unsigned number, const std::string& type, unsigned protection = 0)
{
    return box("infe", bigEndian(version, 1) + zeros(3) + bigEndian(number, version < 3 ? 2 : 4) +
                           bigEndian(protection, 2) + type + zeros(1));
}

/// A place inside the box of data.
std::string place(unsigned number, size_t offset, size_t length, unsigned file = 0)
{
    return bigEndian(number, 2) + bigEndian(1, 2) + bigEndian(file, 2) + bigEndian(1, 2) + bigEndian(offset, 4) +
           bigEndian(length, 4);
}

struct Container {
    std::vector<std::string> entries;
    std::vector<std::string> places;
    std::string data;
    size_t padding = 0;

    std::string bytes() const
    {
        std::string types = zeros(4) + bigEndian(entries.size(), 2);
        for (const std::string& one : entries)
            types += one;
        std::string where = bigEndian(1, 1) + zeros(3) + bigEndian(0x4400, 2) + bigEndian(places.size(), 2);
        for (const std::string& one : places)
            where += one;
        const std::string free = padding > 0 ? box("free", zeros(padding)) : "";
        return box("ftyp", "heic" + zeros(4)) +
               box("meta", zeros(4) + box("iinf", types) + box("iloc", where) + free + box("idat", data));
    }
};

bool isTangled(const std::string& bytes, const std::string& format = "heic")
{
    const auto file = ImageFile::withData({bytes.begin(), bytes.end()}, "file", nullptr);
    return hasTangledEXIF(*file, format);
}

} // namespace

TEST(EXIFBlocks, OfHEIFAreFoundWhereverTheyLie)
{
    const std::string circles = folderOf(12);
    const std::string plain = folderOf(1);
    const auto one = [](const std::string& exif) {
        return Container{{entry(2, 7, "Exif")}, {place(7, 3, exif.size())}, "abc" + exif};
    };
    EXPECT_FALSE(isTangled(one(plain).bytes()));
    EXPECT_TRUE(isTangled(one(circles).bytes()));
    EXPECT_TRUE(isTangled(Container{{entry(3, 7, "Exif")}, {place(7, 0, 0)}, circles}.bytes())) << "to the end";
    EXPECT_TRUE(isTangled(Container{{entry(2, 7, "Exif", 1)}, {place(7, 0, circles.size())}, circles}.bytes()));
    EXPECT_FALSE(isTangled(Container{{entry(2, 7, "mime")}, {place(7, 0, circles.size())}, circles}.bytes()));
    EXPECT_TRUE(isTangled(one(plain).bytes() + one(circles).bytes())) << "in a second box";
}

TEST(EXIFBlocks, OfHEIFAreRefusedWhereReadersDifferInWhatIsMeant)
{
    const std::string plain = folderOf(1);
    const std::string entryOfOne = entry(2, 7, "Exif");
    const std::string placeOfOne = place(7, 0, plain.size());
    const Container sound{{entryOfOne}, {placeOfOne}, plain};
    ASSERT_FALSE(isTangled(sound.bytes()));
    const std::vector<Container> containers = {
        {{entryOfOne, entry(2, 7, "mime")}, {placeOfOne}, plain}, {{entryOfOne}, {placeOfOne, placeOfOne}, plain},
        {{entryOfOne}, {place(7, 0, plain.size(), 1)}, plain},    {{entry(4, 7, "Exif")}, {placeOfOne}, plain},
        {{entryOfOne}, {placeOfOne}, plain, size_t{5} << 20},
    };
    for (size_t i = 0; i < containers.size(); ++i)
        EXPECT_TRUE(isTangled(containers[i].bytes())) << i;
}

TEST(EXIFBlocks, OfPNGAreFoundInFrontOfThePixels)
{
    const auto chunk = [](const std::string& name, const std::string& content) {
        return bigEndian(content.size(), 4) + name + content + zeros(4);
    };
    const std::string start = zeros(8) + chunk("IHDR", zeros(13));
    EXPECT_TRUE(isTangled(start + chunk("eXIf", folderOf(12)), "png"));
    EXPECT_FALSE(isTangled(start + chunk("eXIf", folderOf(1)), "png"));
    EXPECT_FALSE(isTangled(start + chunk("IDAT", "") + chunk("eXIf", folderOf(12)), "png"));
    std::string many = start;
    for (int i = 0; i < 1 << 16; ++i)
        many += chunk("tEXt", "");
    EXPECT_TRUE(isTangled(many, "png"));
}
