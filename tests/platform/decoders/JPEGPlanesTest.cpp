#include "platform/decoders/JPEGPlanes.h"

#include "platform/decoders/JPEGScan.h"
#include "tests/support/JPEGComparison.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

// It needs the types of the headers above.
#include <jpeglib.h>

using namespace platform;
using test::compareJPEG;
using test::JPEGOutcome;

namespace {

constexpr std::array<unsigned, 4> kDenominators = {1, 2, 4, 8};

struct Kind {
    unsigned width = 61, height = 43;
    int quality = 90;
    /// Of the brightness, in colours; `across` is 0 for a grey picture, whose ratio has no meaning.
    int across = 2, down = 2;
    /// Of both colours.
    int colorsAcross = 1, colorsDown = 1;
    unsigned restartInterval = 0;
    bool hasOwnCodes = false, isProgressive = false;
    /// How far neighbours differ.
    unsigned noise = 40;
};

/// A picture of waves and noise, coded by libjpeg.
std::vector<uint8_t> encoded(const Kind& kind)
{
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* packed = nullptr;
    unsigned long length = 0;
    jpeg_mem_dest(&info, &packed, &length);
    info.image_width = kind.width;
    info.image_height = kind.height;
    info.input_components = kind.across == 0 ? 1 : 3;
    info.in_color_space = kind.across == 0 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, kind.quality, TRUE);
    info.restart_interval = kind.restartInterval;
    info.optimize_coding = kind.hasOwnCodes;
    info.comp_info[0].h_samp_factor = std::max(kind.across, 1);
    info.comp_info[0].v_samp_factor = std::max(kind.down, 1);
    for (int i = 1; i < info.input_components; ++i) {
        info.comp_info[i].h_samp_factor = kind.colorsAcross;
        info.comp_info[i].v_samp_factor = kind.colorsDown;
    }
    if (kind.isProgressive)
        jpeg_simple_progression(&info);
    jpeg_start_compress(&info, TRUE);
    std::minstd_rand chance(kind.width * 1000 + kind.height);
    std::vector<uint8_t> row(static_cast<size_t>(kind.width) * static_cast<unsigned>(info.input_components));
    for (unsigned y = 0; y < kind.height; ++y) {
        for (size_t x = 0; x < row.size(); ++x)
            row[x] = static_cast<uint8_t>(100 + (x * y / 7) % 60 + (kind.noise ? chance() % kind.noise : 0));
        unsigned char* pointer = row.data();
        jpeg_write_scanlines(&info, &pointer, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    std::vector<uint8_t> bytes(packed, packed + length);
    std::free(packed);
    return bytes;
}

/// How often there was something to compare.
unsigned expectEqual(const Kind& kind, const std::string& what)
{
    const auto bytes = encoded(kind);
    unsigned equal = 0;
    for (const unsigned denominator : kDenominators) {
        const JPEGOutcome outcome = compareJPEG(bytes, denominator);
        EXPECT_NE(outcome, JPEGOutcome::Different) << what << ", 1/" << denominator;
        equal += outcome == JPEGOutcome::Equal;
    }
    return equal;
}

/// Where the bytes of the scan begin.
size_t scanOf(const std::vector<uint8_t>& bytes)
{
    constexpr std::array<uint8_t, 2> kScan = {0xFF, 0xDA};
    const auto mark = std::ranges::search(bytes, kScan).begin() - bytes.begin();
    const auto at = static_cast<size_t>(mark) + 2;
    return at + (size_t{bytes[at]} << 8 | bytes[at + 1]);
}

} // namespace

TEST(JPEGPlanesTest, GetsOnWithTheLibraryThatIsThere)
{
    EXPECT_TRUE(canDecodeJPEGPlanes());
}

TEST(JPEGPlanesTest, AreTheLibrarysOwnAtAllSizesAndSamplings)
{
    for (const auto& [across, down] : {std::pair{1, 1}, {2, 1}, {2, 2}, {1, 2}, {4, 1}, {0, 0}, {0, 2}}) {
        unsigned compared = 0;
        for (const auto& [width, height] :
             {std::pair{1U, 1U}, {8U, 8U}, {5U, 3U}, {17U, 9U}, {32U, 16U}, {33U, 16U}, {101U, 67U}, {640U, 3U}})
            compared += expectEqual({.width = width, .height = height, .across = across, .down = down},
                                    std::to_string(across) + "x" + std::to_string(down) + " of " +
                                        std::to_string(width) + "x" + std::to_string(height));
        // Of 8 sizes at 4 scales the library is not asked for all.
        EXPECT_GE(compared, 20U) << across << "x" << down;
    }
}

TEST(JPEGPlanesTest, AreTheLibrarysOwnFromTheCoarsestToTheFinest)
{
    for (const int quality : {1, 10, 50, 85, 96, 100})
        for (const unsigned noise : {0U, 3U, 120U})
            for (const bool hasOwnCodes : {false, true})
                EXPECT_EQ(
                    expectEqual(
                        {.width = 208, .height = 150, .quality = quality, .hasOwnCodes = hasOwnCodes, .noise = noise},
                        "quality " + std::to_string(quality) + ", noise " + std::to_string(noise)),
                    kDenominators.size());
}

// Longer than what is looked at at a time, and with all there is between intervals.
TEST(JPEGPlanesTest, GoOnOverMarksAndLongScans)
{
    for (const unsigned interval : {0U, 1U, 2U, 7U, 64U, 1000U})
        EXPECT_EQ(expectEqual({.width = 912, .height = 301, .quality = 98, .restartInterval = interval, .noise = 120},
                              "every " + std::to_string(interval)),
                  kDenominators.size());
}

// Units of three blocks are no part of the length that rows are aligned to.
TEST(JPEGPlanesTest, EndWithTheirRowsWhateverAUnitHas)
{
    for (const unsigned width : {64U, 128U, 256U})
        EXPECT_EQ(expectEqual({.width = width, .height = 24, .across = 3, .down = 1, .colorsAcross = 3},
                              std::to_string(width)),
                  kDenominators.size());
}

TEST(JPEGPlanesTest, LeaveColorsThatAreFinerThanBrightnessAlone)
{
    ImagePlanes kind;
    kind.count = 3;
    for (const unsigned denominator : kDenominators) {
        PlaneMemory planes(kind, 64, 64);
        EXPECT_EQ(decodeJPEGPlanes(
                      encoded({.width = 64, .height = 64, .across = 1, .down = 1, .colorsAcross = 2, .colorsDown = 2}),
                      denominator, planes),
                  denominator == 1);
    }
}

TEST(JPEGPlanesTest, LeaveOtherKindsAlone)
{
    EXPECT_EQ(compareJPEG(encoded({.isProgressive = true}), 1), JPEGOutcome::LeftAlone);
    ImagePlanes kind;
    kind.count = 3;
    PlaneMemory planes(kind, 61, 43);
    EXPECT_FALSE(decodeJPEGPlanes({}, 1, planes));
    const std::vector<uint8_t> noise(1000, 0x5A);
    EXPECT_FALSE(decodeJPEGPlanes(noise, 1, planes));
    // Of another number of components than there are planes.
    EXPECT_FALSE(decodeJPEGPlanes(encoded({.across = 0, .down = 0}), 1, planes));
    EXPECT_TRUE(decodeJPEGPlanes(encoded({.across = 1, .down = 1}), 1, planes));
}

TEST(JPEGPlanesTest, GiveUpWhereTheScanIsCutOff)
{
    const auto whole = encoded({.restartInterval = 3});
    const size_t scan = scanOf(whole);
    // The last bytes are the end's mark, and what of the last unit is only needed to fill up.
    for (size_t length = scan; length + 4 < whole.size(); ++length)
        ASSERT_EQ(compareJPEG(std::span(whole).first(length), 1), JPEGOutcome::LeftAlone) << length - scan;
    EXPECT_EQ(compareJPEG(std::span(whole).first(whole.size() - 2), 1), JPEGOutcome::Equal);
}

TEST(JPEGPlanesTest, GiveUpWhereAMarkIsMissingOrAnother)
{
    const auto whole = encoded({.restartInterval = 2});
    size_t marks = 0;
    for (size_t at = scanOf(whole); at + 2 < whole.size(); ++at) {
        if (whole[at] != 0xFF || whole[at + 1] == 0)
            continue;
        ++marks;
        auto another = whole;
        another[at + 1] = static_cast<uint8_t>(0xD0 + (whole[at + 1] + 1) % 8);
        EXPECT_EQ(compareJPEG(another, 2), JPEGOutcome::LeftAlone);
        auto missing = whole;
        missing.erase(missing.begin() + static_cast<ptrdiff_t>(at), missing.begin() + static_cast<ptrdiff_t>(at) + 2);
        EXPECT_EQ(compareJPEG(missing, 2), JPEGOutcome::LeftAlone);
        auto between = whole;
        between.insert(between.begin() + static_cast<ptrdiff_t>(at), 0x55);
        EXPECT_EQ(compareJPEG(between, 2), JPEGOutcome::LeftAlone);
    }
    EXPECT_GE(marks, 4U);
}

// Most such files are still valid, but for the picture: then it has to be the same one.
TEST(JPEGPlanesTest, ShowOfDamageWhatTheLibraryShows)
{
    std::minstd_rand chance(1);
    std::array<unsigned, 3> outcomes{};
    for (const Kind& kind :
         {Kind{}, Kind{.quality = 100, .noise = 200}, Kind{.restartInterval = 4, .hasOwnCodes = true},
          Kind{.quality = 20, .across = 1, .down = 1}, Kind{.across = 0, .down = 0}}) {
        const auto whole = encoded(kind);
        const size_t scan = scanOf(whole);
        for (unsigned i = 0; i < 400; ++i) {
            auto damaged = whole;
            // Every fourth time in front of the scan, where sizes, codes and tables are.
            const size_t from = i % 4 == 0 ? 0 : scan;
            for (unsigned changes = 1 + i % 3; changes > 0; --changes)
                damaged[from + chance() % (whole.size() - from)] ^= static_cast<uint8_t>(1U << chance() % 8);
            const JPEGOutcome outcome = compareJPEG(damaged, kDenominators[i % 4], 1 << 20);
            ++outcomes[static_cast<size_t>(outcome)];
            EXPECT_NE(outcome, JPEGOutcome::Different) << i;
        }
    }
    EXPECT_GT(outcomes[static_cast<size_t>(JPEGOutcome::Equal)], 200U);
    EXPECT_GT(outcomes[static_cast<size_t>(JPEGOutcome::LeftAlone)], 200U);
}

TEST(JPEGScanTest, EndsWhereASumOfDifferencesIsNoCoefficient)
{
    // Each kind has one code, a zero: for a difference of 15 bits, and for the end of a block.
    std::array<uint8_t, 16> counts{};
    counts[0] = 1;
    constexpr std::array<uint8_t, 2> kSymbols = {15, 0};
    const auto first = JPEGCodes::of(JPEGCodes::Kind::First, counts, std::span(kSymbols).first(1));
    const auto other = JPEGCodes::of(JPEGCodes::Kind::Other, counts, std::span(kSymbols).last(1));
    ASSERT_TRUE(first && other);
    // Twice 32767, of 17 bits.
    const std::vector<uint8_t> bytes = {0x7F, 0xFF, 0x00, 0x3F, 0xFF, 0x00, 0x80};
    const auto scan = std::make_unique<JPEGScan>(bytes);
    scan->beginUnit();
    int prediction = 0;
    JPEGScan::Block block;
    EXPECT_TRUE(scan->readBlock(*first, *other, prediction, block));
    EXPECT_EQ(block.coefficients[0], 32767);
    EXPECT_TRUE(scan->endUnit());
    EXPECT_FALSE(scan->readBlock(*first, *other, prediction, block));
}

TEST(JPEGCodesTest, AreNotMadeOfWhatAreNone)
{
    using Kind = JPEGCodes::Kind;
    std::array<uint8_t, 16> counts{};
    std::vector<uint8_t> symbols = {0, 1, 2};
    EXPECT_TRUE(JPEGCodes::of(Kind::Other, counts, {}));
    counts[0] = 3;
    EXPECT_FALSE(JPEGCodes::of(Kind::Other, counts, symbols)) << "three codes of a bit";
    counts[0] = 1;
    counts[1] = 2;
    EXPECT_TRUE(JPEGCodes::of(Kind::Other, counts, symbols));
    EXPECT_FALSE(JPEGCodes::of(Kind::Other, counts, std::span(symbols).first(2))) << "a code without a symbol";
    counts[15] = 1;
    symbols.push_back(3);
    EXPECT_FALSE(JPEGCodes::of(Kind::Other, counts, symbols)) << "a code beyond the last";
    counts[15] = 0;
    symbols[2] = 16;
    EXPECT_FALSE(JPEGCodes::of(Kind::First, counts, symbols)) << "a difference of 16 bits";
    EXPECT_TRUE(JPEGCodes::of(Kind::Other, counts, symbols));
}

TEST(JPEGScans, AreReadAsFarAsTheyAreThere)
{
    const auto bytes = test::jpegBytes(test::textured(1600, 1300), {.isProgressive = true});
    for (const size_t count : {bytes.size(), bytes.size() / 2, size_t{8192}})
        EXPECT_TRUE(platform::canReadJPEGScans(std::span(bytes).first(count))) << count;
    EXPECT_FALSE(platform::canReadJPEGScans(std::span(bytes).first(200))) << "the headers end in front of a picture";
    EXPECT_FALSE(platform::canReadJPEGScans({}));
}

TEST(JPEGScans, AreLeftToOthersWhereTheirTablesAreBad)
{
    auto bytes = test::jpegBytes(test::textured(640, 480), {.isProgressive = true});
    constexpr std::array<uint8_t, 2> kTable = {0xFF, 0xC4};
    // The first table, and one between two passes.
    const auto first = std::ranges::search(bytes, kTable).begin();
    const auto last = std::ranges::find_end(bytes, kTable).begin();
    ASSERT_LT(first, last);
    for (const auto place : {first, last}) {
        // So many codes of one bit there cannot be.
        const uint8_t count = std::exchange(place[5], uint8_t{200});
        EXPECT_FALSE(platform::canReadJPEGScans(bytes));
        place[5] = count;
    }
    EXPECT_TRUE(platform::canReadJPEGScans(bytes));
}
