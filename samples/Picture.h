#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

/// Red, green and blue in linear light; 1 is white on paper.
struct Light {
    float r = 0;
    float g = 0;
    float b = 0;

    friend Light operator+(Light one, Light other) { return {one.r + other.r, one.g + other.g, one.b + other.b}; }
    friend Light operator*(Light one, Light other) { return {one.r * other.r, one.g * other.g, one.b * other.b}; }
    friend Light operator*(Light light, float share) { return {light.r * share, light.g * share, light.b * share}; }
};

/// From `a` at 0 to `b` at 1.
inline Light mix(Light a, Light b, float share)
{
    return a * (1.0F - share) + b * share;
}

/// A picture in linear light, top row first.
class Picture final {
public:
    Picture(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }
    Light& at(int x, int y)
    {
        return pixels_[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)];
    }
    const Light& at(int x, int y) const
    {
        return pixels_[static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)];
    }
    /// Between pixels; outside, the nearest edge.
    Light between(float x, float y) const;

private:
    int width_;
    int height_;
    std::vector<Light> pixels_;
};

/// What a camera writes beside the pixels.
struct Shot {
    /// 1 to 8, as in EXIF: how the stored picture must be turned to stand upright.
    int orientation = 1;
    /// "YYYY:MM:DD HH:MM:SS"
    std::string time;
};

/// Develops a picture as a camera does (exposure curve, grain, darker corners) and writes it as a JPEG file.
/// @param picture  upright; stored turned as `shot.orientation` says
/// @return false if the file could not be written
[[nodiscard]] bool writePhoto(const Picture& picture, const Shot& shot, unsigned seed,
                              const std::filesystem::path& file);
