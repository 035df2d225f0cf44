#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <turbojpeg.h>
#include <vips/vips.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

namespace test {

namespace {

void put16(std::vector<uint8_t>& bytes, unsigned value)
{
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value));
}

/// Segments between the start of a JPEG file and the rest.
std::vector<uint8_t> withSegments(const unsigned char* jpeg, size_t length, const JPEGOptions& options)
{
    std::vector<uint8_t> bytes = {0xFF, 0xD8};
    if (options.orientation || !options.exif.empty()) {
        const auto exif = options.orientation ? exifBytes(*options.orientation) : options.exif;
        bytes.insert(bytes.end(), {0xFF, 0xE1});
        put16(bytes, static_cast<unsigned>(exif.size() + 2));
        bytes.insert(bytes.end(), exif.begin(), exif.end());
    }
    if (!options.colorProfile.empty()) {
        const std::string_view name("ICC_PROFILE\0\1\1", 14);
        bytes.insert(bytes.end(), {0xFF, 0xE2});
        put16(bytes, static_cast<unsigned>(options.colorProfile.size() + name.size() + 2));
        bytes.insert(bytes.end(), name.begin(), name.end());
        bytes.insert(bytes.end(), options.colorProfile.begin(), options.colorProfile.end());
    }
    bytes.insert(bytes.end(), jpeg + 2, jpeg + length);
    return bytes;
}

std::vector<uint8_t> compress(const Picture& picture, int format, int sampling, const JPEGOptions& options)
{
    const tjhandle handle = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long length = 0;
    const int status = tjCompress2(handle, picture.samples.data(), static_cast<int>(picture.width), 0,
                                   static_cast<int>(picture.height), format, &jpeg, &length, sampling, options.quality,
                                   options.isProgressive ? TJFLAG_PROGRESSIVE : 0);
    EXPECT_EQ(status, 0) << tjGetErrorStr2(handle);
    auto bytes = status == 0 ? withSegments(jpeg, length, options) : std::vector<uint8_t>();
    tjFree(jpeg);
    tjDestroy(handle);
    return bytes;
}

Picture filled(size_t width, size_t height, const auto& colorAt)
{
    Picture picture{width, height, 3, std::vector<uint8_t>(width * height * 3)};
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            const Color color = colorAt(x, y);
            std::ranges::transform(color, picture.at(x, y),
                                   [](int c) { return static_cast<uint8_t>(std::clamp(c, 0, 255)); });
        }
    return picture;
}

Color gradientAt(size_t x, size_t y, size_t width, size_t height)
{
    const double u = (static_cast<double>(x) + 0.5) / static_cast<double>(width);
    const double v = (static_cast<double>(y) + 0.5) / static_cast<double>(height);
    return {static_cast<int>(std::lround(20 + 210 * u)), static_cast<int>(std::lround(230 - 200 * v)),
            static_cast<int>(std::lround(60 + 120 * u * v))};
}

} // namespace

Picture plain(size_t width, size_t height, Color color)
{
    return filled(width, height, [&](size_t, size_t) { return color; });
}

Picture quadrants(size_t width, size_t height)
{
    return filled(width, height, [&](size_t x, size_t y) {
        const bool isRight = 2 * x >= width;
        return 2 * y < height ? (isRight ? kGreen : kRed) : (isRight ? kWhite : kBlue);
    });
}

Picture gradient(size_t width, size_t height)
{
    return filled(width, height, [&](size_t x, size_t y) { return gradientAt(x, y, width, height); });
}

Picture textured(size_t width, size_t height, unsigned seed)
{
    std::minstd_rand random(seed);
    return filled(width, height, [&](size_t x, size_t y) {
        Color color = gradientAt(x, y, width, height);
        const int noise = static_cast<int>(random() % 17) - 8;
        for (int& component : color)
            component += noise + static_cast<int>(12 * std::sin(static_cast<double>(x) * 0.11) *
                                                  std::cos(static_cast<double>(y) * 0.07));
        return color;
    });
}

std::vector<uint8_t> jpegBytes(const Picture& picture, const JPEGOptions& options)
{
    constexpr std::array kSamplings = {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_440, TJSAMP_411, TJSAMP_GRAY};
    return compress(picture, picture.bands == 1 ? TJPF_GRAY : TJPF_RGB,
                    picture.bands == 1 ? TJSAMP_GRAY : kSamplings[static_cast<size_t>(options.sampling)], options);
}

std::vector<uint8_t> inkJPEGBytes(const Picture& picture)
{
    return compress(picture, TJPF_CMYK, TJSAMP_444, {});
}

std::vector<uint8_t> exifBytes(int orientation)
{
    return {'E',
            'x',
            'i',
            'f',
            0,
            0,
            'M',
            'M',
            0,
            42,
            0,
            0,
            0,
            8,
            0,
            1,
            1,
            0x12,
            0,
            3,
            0,
            0,
            0,
            1,
            static_cast<uint8_t>(orientation >> 8),
            static_cast<uint8_t>(orientation),
            0,
            0,
            0,
            0,
            0,
            0};
}

std::vector<uint8_t> colorSpaceEXIFBytes(unsigned space, const std::string& index)
{
    std::vector<uint8_t> bytes = {'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0, 0, 8};
    const auto put = [&](unsigned tag, unsigned type, unsigned count, uint32_t value) {
        put16(bytes, tag);
        put16(bytes, type);
        put16(bytes, 0);
        put16(bytes, count);
        put16(bytes, value >> 16);
        put16(bytes, value & 0xFFFF);
    };
    // Three folders one behind the other, each with its number of entries in front and no next one.
    put16(bytes, 1);
    put(0x8769, 4, 1, 26);
    put16(bytes, 0);
    put16(bytes, 0);
    put16(bytes, 2);
    put(0xA001, 3, 1, space << 16);
    put(0xA005, 4, 1, 56);
    put16(bytes, 0);
    put16(bytes, 0);
    put16(bytes, 1);
    put(0x0001, 2, 4,
        static_cast<uint32_t>(index[0]) << 24 | static_cast<uint32_t>(index[1]) << 16 |
            static_cast<uint32_t>(index[2]) << 8);
    put16(bytes, 0);
    put16(bytes, 0);
    return bytes;
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream stream(path, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(stream.good()) << path;
}

std::vector<uint8_t> readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void save(const Picture& picture, const std::string& path, int bits, const std::vector<uint8_t>& colorProfile)
{
    ASSERT_EQ(vips_init("tests"), 0);
    std::vector<uint16_t> wide(bits == 16 ? picture.samples.size() : 0);
    std::ranges::transform(picture.samples.begin(), picture.samples.begin() + static_cast<std::ptrdiff_t>(wide.size()),
                           wide.begin(), [](uint8_t sample) { return static_cast<uint16_t>(sample * 257); });
    const void* const data = bits == 16 ? static_cast<const void*>(wide.data()) : picture.samples.data();
    const size_t length = picture.samples.size() * (bits == 16 ? 2 : 1);
    VipsImage* const memory = vips_image_new_from_memory_copy(
        data, length, static_cast<int>(picture.width), static_cast<int>(picture.height),
        static_cast<int>(picture.bands), bits == 16 ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR);
    ASSERT_NE(memory, nullptr);
    VipsImage* image = nullptr;
    const bool isGrey = picture.bands < 3;
    ASSERT_EQ(vips_copy(memory, &image, "interpretation",
                        bits == 16 ? (isGrey ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_RGB16)
                                   : (isGrey ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB),
                        static_cast<void*>(nullptr)),
              0);
    if (!colorProfile.empty())
        vips_image_set_blob_copy(image, VIPS_META_ICC_NAME, colorProfile.data(), colorProfile.size());
    EXPECT_EQ(vips_image_write_to_file(image, path.c_str(), static_cast<void*>(nullptr)), 0) << vips_error_buffer();
    g_object_unref(image);
    g_object_unref(memory);
}

void run(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Some of them talk on success too.
        if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr))
            _exit(126);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command.front() << " ended with " << status;
}

platform::NSURL url(const std::string& path)
{
    return platform::NSURL::fileURLWithPath(path);
}

Color pixel(const platform::CGImage& image, size_t x, size_t y)
{
    const uint8_t* const bytes = image.row(y) + 4 * x;
    return {bytes[1], bytes[2], bytes[3]};
}

platform::CGRect extentOfOthers(const platform::CGImage& image, Color color)
{
    double left = 1e9;
    double right = -1;
    double bottom = 1e9;
    double top = -1;
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x)
            if (pixel(image, x, y) != color) {
                left = std::min(left, static_cast<double>(x));
                right = std::max(right, static_cast<double>(x + 1));
                bottom = std::min(bottom, static_cast<double>(image.height - 1 - y));
                top = std::max(top, static_cast<double>(image.height - y));
            }
    return right < 0 ? platform::CGRect{} : platform::CGRect{{left, bottom}, {right - left, top - bottom}};
}

void expectColor(const platform::CGImage& image, size_t x, size_t y, Color expected, int tolerance,
                 const std::string& what)
{
    ASSERT_LT(x, image.width) << what;
    ASSERT_LT(y, image.height) << what;
    const Color found = pixel(image, x, y);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(found[i], expected[i], tolerance)
            << what << " at " << x << ", " << y << " of " << image.width << " x " << image.height << ": found "
            << found[0] << " " << found[1] << " " << found[2];
}

} // namespace test
