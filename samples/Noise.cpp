#include "samples/Noise.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace noise {
namespace {

uint32_t hash(int32_t x, int32_t y, uint32_t seed)
{
    // Large odd factors spread neighbouring cells over all bits; the shifts mix the high bits back into the low ones.
    uint32_t value =
        static_cast<uint32_t>(x) * 0x9E3779B1U ^ static_cast<uint32_t>(y) * 0x85EBCA77U ^ seed * 0xC2B2AE3DU;
    value = (value ^ (value >> 15)) * 0x2C1B3C6DU;
    value = (value ^ (value >> 12)) * 0x297A2D39U;
    return value ^ (value >> 15);
}

struct Slope {
    float x;
    float y;
};

/// Sixteen directions: enough that none shows.
const std::array<Slope, 16>& slopes()
{
    static const auto table = [] {
        std::array<Slope, 16> made{};
        for (size_t i = 0; i < made.size(); ++i) {
            const float angle = static_cast<float>(i) * 0.39269908F + 0.2F;
            made[i] = {std::cos(angle), std::sin(angle)};
        }
        return made;
    }();
    return table;
}

/// The next whole number below; std::floor is a call into the library on most machines.
int32_t wholeBelow(float value)
{
    const auto whole = static_cast<int32_t>(value);
    return value < static_cast<float>(whole) ? whole - 1 : whole;
}

float ease(float t)
{
    return t * t * t * (t * (t * 6.0F - 15.0F) + 10.0F);
}

} // namespace

float white(int32_t x, int32_t y, uint32_t seed)
{
    return static_cast<float>(hash(x, y, seed) >> 8) * (1.0F / 16777216.0F);
}

float smooth(float x, float y, uint32_t seed)
{
    const int32_t column = wholeBelow(x);
    const int32_t row = wholeBelow(y);
    const float u = x - static_cast<float>(column);
    const float v = y - static_cast<float>(row);
    const auto& table = slopes();
    auto corner = [&](int32_t dx, int32_t dy) {
        const Slope& slope = table[hash(column + dx, row + dy, seed) & 15U];
        return slope.x * (u - static_cast<float>(dx)) + slope.y * (v - static_cast<float>(dy));
    };
    const float across = ease(u);
    return 1.5F *
           between(between(corner(0, 0), corner(1, 0), across), between(corner(0, 1), corner(1, 1), across), ease(v));
}

float hills(float x, float y, int octaves, uint32_t seed)
{
    float sum = 0;
    float strength = 0.5F;
    for (int octave = 0; octave < octaves; ++octave) {
        sum += strength * smooth(x, y, seed + static_cast<uint32_t>(octave));
        // Turned a little at each step, so that the cells of two layers never lie on each other.
        const float turned = 1.6F * x - 1.2F * y;
        y = 1.2F * x + 1.6F * y;
        x = turned;
        strength *= 0.5F;
    }
    return sum;
}

float crests(float x, float y, int octaves, uint32_t seed)
{
    float sum = 0;
    float strength = 0.5F;
    float above = 1;
    for (int octave = 0; octave < octaves; ++octave) {
        float crest = 1.0F - std::abs(smooth(x, y, seed + static_cast<uint32_t>(octave)));
        crest *= crest;
        sum += strength * crest * above;
        above = std::clamp(crest * 1.6F, 0.0F, 1.0F);
        const float turned = 1.6F * x - 1.2F * y;
        y = 1.2F * x + 1.6F * y;
        x = turned;
        strength *= 0.5F;
    }
    return sum;
}

} // namespace noise
