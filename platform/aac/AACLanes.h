#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace platform {

/// Numbers of four lines in a row. Compilers add up floats one after the other unless they are told otherwise; sums of
/// four at a time take a quarter of the time, and are the same on every machine.
using FloatLanes [[gnu::vector_size(16)]] = float;
using IntLanes [[gnu::vector_size(16)]] = int32_t;
inline constexpr size_t kLanes = 4;

inline FloatLanes lanesAt(const float* first)
{
    FloatLanes lanes;
    std::memcpy(&lanes, first, sizeof lanes);
    return lanes;
}

inline void put(IntLanes lanes, int32_t* first)
{
    std::memcpy(first, &lanes, sizeof lanes);
}

inline FloatLanes sameInAll(float value)
{
    return FloatLanes{} + value;
}

inline FloatLanes larger(FloatLanes a, FloatLanes b)
{
    return a > b ? a : b;
}

inline FloatLanes magnitudes(FloatLanes lanes)
{
    return larger(lanes, -lanes);
}

inline float sumOf(FloatLanes lanes)
{
    return (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
}

/// The sum of all products of an entry of one and the same of the other, which is as long.
inline float productOf(std::span<const float> a, std::span<const float> b)
{
    const size_t end = a.size() / kLanes * kLanes;
    FloatLanes sums{};
    for (size_t i = 0; i < end; i += kLanes)
        sums += lanesAt(a.data() + i) * lanesAt(b.data() + i);
    float sum = sumOf(sums);
    for (size_t i = end; i < a.size(); ++i)
        sum += a[i] * b[i];
    return sum;
}

inline float energyOf(std::span<const float> values)
{
    return productOf(values, values);
}

inline float sumOf(std::span<const float> values)
{
    const size_t end = values.size() / kLanes * kLanes;
    FloatLanes sums{};
    for (size_t i = 0; i < end; i += kLanes)
        sums += lanesAt(values.data() + i);
    float sum = sumOf(sums);
    for (size_t i = end; i < values.size(); ++i)
        sum += values[i];
    return sum;
}

} // namespace platform
