#include "platform/picturefiles/EXIF.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>

using platform::parseEXIF;
using platform::PhotoOrigin;

namespace {

using namespace std::chrono_literals;

/// An entry's tag, its type and its value's bytes.
struct Entry {
    uint16_t tag;
    uint16_t type;
    std::vector<uint8_t> value;
};

Entry text(uint16_t tag, const std::string& characters)
{
    std::vector<uint8_t> value(characters.begin(), characters.end());
    value.push_back(0);
    return {tag, 2, value};
}

void put(std::vector<uint8_t>& bytes, uint32_t number, int count)
{
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(number >> shift));
}

Entry fractions(uint16_t tag, const std::vector<std::pair<uint32_t, uint32_t>>& parts)
{
    Entry entry{tag, 5, {}};
    for (const auto& [above, below] : parts) {
        put(entry.value, above, 4);
        put(entry.value, below, 4);
    }
    return entry;
}

void putFolder(std::vector<uint8_t>& bytes, const std::vector<Entry>& entries)
{
    put(bytes, static_cast<uint32_t>(entries.size()), 2);
    size_t values = bytes.size() + entries.size() * 12 + 4;
    std::vector<uint8_t> behind;
    for (const Entry& entry : entries) {
        const size_t unit = entry.type == 5 ? 8 : entry.type == 4 ? 4 : 1;
        put(bytes, entry.tag, 2);
        put(bytes, entry.type, 2);
        put(bytes, static_cast<uint32_t>(entry.value.size() / unit), 4);
        if (entry.value.size() > 4) {
            put(bytes, static_cast<uint32_t>(values + behind.size()), 4);
            behind.insert(behind.end(), entry.value.begin(), entry.value.end());
        } else {
            bytes.insert(bytes.end(), entry.value.begin(), entry.value.end());
            bytes.resize(bytes.size() + 4 - entry.value.size());
        }
    }
    put(bytes, 0, 4);
    bytes.insert(bytes.end(), behind.begin(), behind.end());
}

/// A block of a first folder, and of one inside it that the tag leads to, where it is not empty.
std::vector<uint8_t> block(std::vector<Entry> first, uint16_t tag, const std::vector<Entry>& inner)
{
    const auto whole = [&](uint32_t place) {
        std::vector<Entry> entries = first;
        if (!inner.empty()) {
            entries.push_back({tag, 4, {}});
            put(entries.back().value, place, 4);
        }
        std::vector<uint8_t> bytes = {'M', 'M', 0, 42, 0, 0, 0, 8};
        putFolder(bytes, entries);
        return bytes;
    };
    std::vector<uint8_t> bytes = whole(static_cast<uint32_t>(whole(0).size()));
    if (!inner.empty())
        putFolder(bytes, inner);
    return bytes;
}

std::optional<PhotoOrigin::Date> dateOf(const std::string& original, const std::string& fraction = "",
                                        const std::string& offset = "")
{
    std::vector<Entry> entries = {text(0x9003, original)};
    if (!offset.empty())
        entries.push_back(text(0x9011, offset));
    if (!fraction.empty())
        entries.push_back(text(0x9291, fraction));
    return parseEXIF(block({}, 0x8769, entries)).origin.taken;
}

const auto kDay = std::chrono::local_days(std::chrono::year(2024) / 5 / 31);

using Fractions = std::vector<std::pair<uint32_t, uint32_t>>;

std::optional<PhotoOrigin::Place> placeOf(const Fractions& latitude, const std::string& north,
                                          const Fractions& longitude, const std::string& east)
{
    return parseEXIF(
               block({}, 0x8825, {text(1, north), fractions(2, latitude), text(3, east), fractions(4, longitude)}))
        .origin.place;
}

} // namespace

TEST(EXIF, TellsEachOrientation)
{
    for (int orientation = 1; orientation <= 8; ++orientation)
        EXPECT_EQ(parseEXIF(test::exifBytes(orientation)).orientation, orientation);
}

TEST(EXIF, TellsNoOrientationForOtherValues)
{
    for (const int value : {0, 9, 255, 65535})
        EXPECT_EQ(parseEXIF(test::exifBytes(value)).orientation, std::nullopt) << value;
}

TEST(EXIF, ReadsBothByteOrders)
{
    const std::vector<uint8_t> little = {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0};
    EXPECT_EQ(parseEXIF(little).orientation, 6);
}

TEST(EXIF, ReadsAnOrientationOfOneByteOrFour)
{
    std::vector<uint8_t> bytes = {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 1, 0, 1, 0, 0, 0, 8, 0, 0, 0};
    EXPECT_EQ(parseEXIF(bytes).orientation, 8);
    bytes[12] = 4;
    EXPECT_EQ(parseEXIF(bytes).orientation, 8);
}

TEST(EXIF, ReadsTheResolutionInInchesAndCentimetres)
{
    std::vector<uint8_t> bytes = {'M',  'M', 0, 42, 0, 0, 0, 8, 0, 2, 1, 0x1A, 0, 5, 0, 0, 0, 1,    0,    0, 0, 38, 1,
                                  0x28, 0,   3, 0,  0, 0, 1, 0, 2, 0, 0, 0,    0, 0, 0, 0, 0, 0x02, 0x58, 0, 0, 0,  2};
    EXPECT_EQ(parseEXIF(bytes).dpi, 300.0);
    bytes[31] = 3;
    EXPECT_EQ(parseEXIF(bytes).dpi, 762.0);
    bytes[45] = 0;
    EXPECT_EQ(parseEXIF(bytes).dpi, std::nullopt);
}

TEST(EXIF, TellsAdobeRGBByTheMarkOfInteroperabilityWhereTheSpaceIsNotSRGB)
{
    EXPECT_TRUE(parseEXIF(test::colorSpaceEXIFBytes(65535, "R03")).isAdobeRGB);
    EXPECT_FALSE(parseEXIF(test::colorSpaceEXIFBytes(65535, "R98")).isAdobeRGB);
    EXPECT_FALSE(parseEXIF(test::colorSpaceEXIFBytes(1, "R03")).isAdobeRGB);
    EXPECT_FALSE(parseEXIF(test::exifBytes(6)).isAdobeRGB);
    const auto whole = test::colorSpaceEXIFBytes(65535, "R03");
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        // Only behind the mark stands what may be missing: the place of a next folder.
        EXPECT_EQ(parseEXIF(part).isAdobeRGB, length + 4 >= whole.size()) << length;
    }
}

TEST(EXIF, SurvivesBeingCutOffAnywhere)
{
    const auto whole = test::exifBytes(6);
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const auto found = parseEXIF(part).orientation;
        EXPECT_TRUE(!found || found == 6) << length;
    }
}

TEST(EXIF, SurvivesDamageAnywhere)
{
    std::minstd_rand random(7);
    const auto whole = test::exifBytes(6);
    for (int round = 0; round < 20000; ++round) {
        auto damaged = whole;
        for (int i = 0; i < 4; ++i)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        const auto found = parseEXIF(damaged).orientation;
        EXPECT_TRUE(!found || (*found >= 1 && *found <= 8));
    }
}

TEST(EXIF, TellsWhenAPhotoWasTakenByTheClockThere)
{
    const auto date = dateOf("2024:05:31 09:08:07");
    ASSERT_TRUE(date);
    EXPECT_EQ(date->clock, kDay + 9h + 8min + 7s);
    EXPECT_EQ(date->offset, std::nullopt);
    EXPECT_EQ(dateOf("2024-05-31T09:08:07")->clock, kDay + 9h + 8min + 7s);
    EXPECT_EQ(dateOf(" 2024:05:31 09:08:07 ")->clock, kDay + 9h + 8min + 7s);
    EXPECT_EQ(dateOf("2024:02:29 23:59:59")->clock, kDay - 92 * 24h + 23h + 59min + 59s) << "a leap year";
}

TEST(EXIF, TellsTheFractionOfTheSecond)
{
    const std::pair<const char*, std::chrono::microseconds> rows[] = {
        {"5", 500ms}, {"05", 50ms}, {"123", 123ms}, {"1234567", 123456us}, {"25  ", 250ms}, {"", 0us}, {"x1", 0us},
    };
    for (const auto& [written, fraction] : rows)
        EXPECT_EQ(dateOf("2024:05:31 09:08:07", written)->clock, kDay + 9h + 8min + 7s + fraction) << written;
}

TEST(EXIF, TellsByHowMuchTheClockWasAheadOfUTC)
{
    const std::pair<const char*, std::optional<std::chrono::minutes>> rows[] = {
        {"+13:45", 825min},     {"-09:30", -570min},      {"+00:00", 0min},         {"Z", 0min},
        {"+14:00", 840min},     {"+14:01", std::nullopt}, {"+02:60", std::nullopt}, {"   :  ", std::nullopt},
        {"0200", std::nullopt}, {"+2:00", std::nullopt},  {"02:00", std::nullopt},  {"+ab:cd", std::nullopt},
    };
    for (const auto& [written, offset] : rows) {
        const auto date = dateOf("2024:05:31 09:08:07", "", written);
        ASSERT_TRUE(date) << written;
        EXPECT_EQ(date->offset, offset) << written;
        EXPECT_EQ(date->clock, kDay + 9h + 8min + 7s) << written;
    }
}

TEST(EXIF, TellsNoDateThatIsNone)
{
    for (const char* written :
         {"0000:00:00 00:00:00", "    :  :     :  :  ", "                   ", "", "2024:02:30 09:08:07",
          "2023:02:29 09:08:07", "2024:13:01 09:08:07", "2024:05:00 09:08:07", "2024:05:31 24:00:00",
          "2024:05:31 09:60:07", "2024:05:31 09:08:61", "2024:05:31", "31.05.2024 09:08:07", "2024:5:31 9:08:07",
          "-024:05:31 09:08:07", "0000:05:31 09:08:07"})
        EXPECT_FALSE(dateOf(written)) << written;
}

TEST(EXIF, TellsTheCamera)
{
    const auto origin = parseEXIF(block({text(0x010F, "Lumora Works  "), text(0x0110, "X2")}, 0, {})).origin;
    EXPECT_EQ(origin.make, "Lumora Works");
    EXPECT_EQ(origin.model, "X2") << "as short a text stands in the entry itself";
    EXPECT_EQ(parseEXIF(test::exifBytes(6)).origin, PhotoOrigin());
    EXPECT_EQ(parseEXIF(block({text(0x010F, "   ")}, 0, {})).origin.make, "");
    EXPECT_EQ(parseEXIF(block({{0x010F, 1, {'a', 'b'}}}, 0, {})).origin.make, "") << "no text";
    EXPECT_EQ(parseEXIF(block({text(0x010F, std::string(5000, 'x'))}, 0, {})).origin.make, std::string(256, 'x'));
}

TEST(EXIF, TellsThePlaceInDegreesNorthAndEast)
{
    const Fractions latitude = {{33, 1}, {51, 1}, {2388, 100}};
    const Fractions longitude = {{151, 1}, {25, 2}, {0, 1}};
    const auto place = placeOf(latitude, "S", longitude, "E");
    ASSERT_TRUE(place);
    EXPECT_DOUBLE_EQ(place->latitude, -(33 + 51 / 60.0 + 23.88 / 3600));
    EXPECT_DOUBLE_EQ(place->longitude, 151 + 12.5 / 60);
    EXPECT_DOUBLE_EQ(placeOf(latitude, "N", longitude, "W")->latitude, -place->latitude);
    EXPECT_DOUBLE_EQ(placeOf(latitude, "N", longitude, "W")->longitude, -place->longitude);
}

TEST(EXIF, TellsNoPlaceThatIsNone)
{
    const Fractions good = {{33, 1}, {51, 1}, {0, 1}};
    EXPECT_TRUE(placeOf(good, "N", good, "E"));
    EXPECT_FALSE(placeOf({{33, 0}, {51, 1}, {0, 1}}, "N", good, "E"));
    EXPECT_FALSE(placeOf({{91, 1}, {0, 1}, {0, 1}}, "N", good, "E"));
    EXPECT_FALSE(placeOf(good, "N", {{180, 1}, {1, 1}, {0, 1}}, "E"));
    EXPECT_FALSE(placeOf(good, "", good, "E"));
    EXPECT_FALSE(placeOf(good, "E", good, "N"));
    EXPECT_FALSE(placeOf({{33, 1}, {51, 1}}, "N", good, "E"));
}

TEST(EXIF, TellsNothingOfAnOriginThatIsCutOff)
{
    const auto whole = block({text(0x010F, "Lumora"), text(0x0110, "Lumora X2")}, 0x8769,
                             {text(0x9003, "2024:05:31 09:08:07"), text(0x9011, "+13:45"), text(0x9291, "25")});
    const PhotoOrigin origin = parseEXIF(whole).origin;
    EXPECT_TRUE(origin.taken && origin.taken->offset == 825min);
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const PhotoOrigin found = parseEXIF(part).origin;
        EXPECT_TRUE(found.make.empty() || found.make == "Lumora") << length;
        EXPECT_TRUE(found.model.empty() || found.model == "Lumora X2") << length;
        EXPECT_TRUE(!found.taken || found.taken->clock == origin.taken->clock) << length;
    }
    std::minstd_rand random(11);
    for (int round = 0; round < 20000; ++round) {
        auto damaged = whole;
        for (int i = 0; i < 4; ++i)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        EXPECT_LE(parseEXIF(damaged).origin.make.size(), 256u);
    }
}
