#pragma once

#include "platform/pixels/CVPixelBuffer.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// What tests of movies share: painted frames, and a look at movies with the ffmpeg and ffprobe commands.
namespace testmovie {

using Color = std::array<uint8_t, 3>;

/// A frame whose pixels are painted one by one. The byte before each red one is garbage, as it means nothing.
inline std::shared_ptr<platform::CVPixelBuffer> makeFrame(size_t width, size_t height,
                                                          const std::function<Color(size_t x, size_t y)>& paint)
{
    std::shared_ptr<platform::CVPixelBuffer> buffer;
    if (platform::CVPixelBufferCreate(width, height, platform::kCVPixelFormatType_32ARGB, &buffer) !=
            platform::kCVReturnSuccess ||
        buffer->lockBaseAddress() != platform::kCVReturnSuccess)
        throw std::runtime_error("no pixel buffer");
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            const Color color = paint(x, y);
            uint8_t* const pixel = buffer->baseAddress() + y * buffer->bytesPerRow() + 4 * x;
            pixel[0] = static_cast<uint8_t>(x * 31 + y);
            pixel[1] = color[0];
            pixel[2] = color[1];
            pixel[3] = color[2];
        }
    buffer->unlockBaseAddress();
    return buffer;
}

inline std::shared_ptr<platform::CVPixelBuffer> makePlainFrame(size_t width, size_t height, Color color)
{
    return makeFrame(width, height, [&](size_t, size_t) { return color; });
}

/// A path as one word of a shell command.
inline std::string shellWord(const std::string& path)
{
    std::string word = "'";
    for (const char c : path)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

/// The bytes that a shell command writes; throws if it fails.
inline std::string outputOf(const std::string& command)
{
    FILE* const pipe = popen(command.c_str(), "r");
    if (!pipe)
        throw std::runtime_error("no shell");
    std::string output;
    std::array<char, 65536> part;
    while (const size_t count = fread(part.data(), 1, part.size(), pipe))
        output.append(part.data(), count);
    if (pclose(pipe) != 0)
        throw std::runtime_error("failed: " + command + "\n" + output);
    return output;
}

/// What ffprobe says of entries such as "packet=pts,duration", one line each.
inline std::vector<std::string> probe(const std::string& path, const std::string& entries)
{
    std::istringstream output(
        outputOf("ffprobe -v error -of csv=p=0 -show_entries " + entries + " " + shellWord(path) + " 2>&1"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

/// Every frame of the movie as width x height pixels R G B; throws at the first fault in the stream.
inline std::vector<std::vector<uint8_t>> decode(const std::string& path, size_t width, size_t height)
{
    const std::string bytes =
        outputOf("ffmpeg -v error -xerror -err_detect explode -threads 1 -i " + shellWord(path) +
                 " -map 0:v -vsync passthrough -sws_flags accurate_rnd+full_chroma_int+full_chroma_inp+bicubic"
                 " -f rawvideo -pix_fmt rgb24 -");
    const size_t frameBytes = 3 * width * height;
    if (bytes.size() % frameBytes != 0)
        throw std::runtime_error("frames of another size in " + path);
    std::vector<std::vector<uint8_t>> frames;
    for (size_t start = 0; start < bytes.size(); start += frameBytes)
        frames.emplace_back(bytes.begin() + static_cast<ptrdiff_t>(start),
                            bytes.begin() + static_cast<ptrdiff_t>(start + frameBytes));
    return frames;
}

inline Color pixelAt(const std::vector<uint8_t>& frame, size_t width, size_t x, size_t y)
{
    const size_t at = 3 * (y * width + x);
    return {frame[at], frame[at + 1], frame[at + 2]};
}

} // namespace testmovie
