#include "tests/support/ReadBack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <string>

namespace test {

namespace {

/// What stands behind a word, up to a blank, a comma or a line's end.
std::string textBehind(const std::string& text, const std::string& word)
{
    const size_t found = text.find(word);
    if (found == std::string::npos)
        return {};
    const size_t start = found + word.size();
    return text.substr(start, text.find_first_of(" ,\n", start) - start);
}

Picture readPPM(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string mark;
    int most = 0;
    Picture picture;
    file >> mark >> picture.width >> picture.height >> most;
    file.get();
    picture.samples.assign(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(picture.samples.size(), picture.width * picture.height * picture.bands);
    return picture;
}

} // namespace

Decoded decodedByFFmpeg(const platform::NSData& file)
{
    const TemporaryFolder folder;
    writeFile(folder.path("in"), file);
    run({"sh", "-c",
         "cd '" + folder.path("") +
             "' && ffmpeg -hide_banner -i in -frames:v 1 -sws_flags accurate_rnd+full_chroma_int+bitexact"
             " -pix_fmt rgba -c:v pam -f image2pipe out 2> said"});
    const auto said = readFile(folder.path("said"));
    Decoded decoded;
    decoded.codec = textBehind({said.begin(), said.end()}, "Video: ");

    const auto pam = readFile(folder.path("out"));
    const std::string header(pam.begin(), pam.begin() + static_cast<ptrdiff_t>(std::min<size_t>(pam.size(), 128)));
    const size_t end = header.find("ENDHDR\n");
    if (end == std::string::npos)
        return decoded;
    Picture& picture = decoded.picture;
    picture.width = std::stoul(textBehind(header, "WIDTH "));
    picture.height = std::stoul(textBehind(header, "HEIGHT "));
    picture.bands = 4;
    picture.samples.assign(pam.begin() + static_cast<ptrdiff_t>(end) + 7, pam.end());
    EXPECT_EQ(picture.samples.size(), picture.width * picture.height * picture.bands);
    return decoded;
}

Picture drawnByPoppler(const platform::NSData& file, double dotsPerInch)
{
    const TemporaryFolder folder;
    writeFile(folder.path("in"), file);
    run({"pdftoppm", "-singlefile", "-r", std::to_string(dotsPerInch), folder.path("in"), folder.path("out")});
    return readPPM(folder.path("out.ppm"));
}

Picture picturePopplerFinds(const platform::NSData& file)
{
    const TemporaryFolder folder;
    writeFile(folder.path("in"), file);
    run({"pdfimages", folder.path("in"), folder.path("out")});
    return readPPM(folder.path("out-000.ppm"));
}

platform::CGImagePtr imageOf(const Picture& picture)
{
    auto image = std::make_shared<platform::CGImage>();
    image->width = picture.width;
    image->height = picture.height;
    image->bytesPerRow = 4 * picture.width;
    image->hasAlpha = picture.bands == 4;
    image->pixels.resize(image->bytesPerRow * picture.height, 0xFF);
    for (size_t y = 0; y < picture.height; ++y)
        for (size_t x = 0; x < picture.width; ++x) {
            const uint8_t* const from = picture.at(x, y);
            uint8_t* const to = image->row(y) + 4 * x;
            const unsigned alpha = image->hasAlpha ? from[3] : 255;
            to[0] = static_cast<uint8_t>(alpha);
            for (size_t i = 0; i < 3; ++i)
                to[i + 1] = static_cast<uint8_t>((from[i] * alpha + 127) / 255);
        }
    return image;
}

} // namespace test
