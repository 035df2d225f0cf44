#pragma once

#include <cstdint>

/// Noise that is the same on every machine. Coordinates are in cells of the coarsest noise.
namespace noise {

/// From 0 up to 1, without likeness between neighbours.
float white(int32_t x, int32_t y, uint32_t seed);

/// Smooth hills, about -1 to 1, zero at whole coordinates.
float smooth(float x, float y, uint32_t seed);

/// `octaves` layers of smooth noise, each of half the size and strength; about -1 to 1.
float hills(float x, float y, int octaves, uint32_t seed);

/// As `hills`, but folded to sharp crests; 0 to about 1. Layers stand out on crests and fade in valleys.
float crests(float x, float y, int octaves, uint32_t seed);

/// From `a` at 0 to `b` at 1. Plain, where std::lerp guards its ends with branches that cost half the painter's time.
inline float between(float a, float b, float share)
{
    return a + share * (b - a);
}

} // namespace noise
