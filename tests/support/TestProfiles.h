#pragma once

#include "tests/support/TestPicture.h"

#include <lcms2.h>

#include <cstdint>
#include <vector>

/// Colour profiles as cameras and programs embed them.
namespace test {

inline std::vector<uint8_t> bytesOf(cmsHPROFILE profile)
{
    cmsUInt32Number length = 0;
    cmsSaveProfileToMem(profile, nullptr, &length);
    std::vector<uint8_t> bytes(length);
    cmsSaveProfileToMem(profile, bytes.data(), &length);
    cmsCloseProfile(profile);
    return bytes;
}

inline std::vector<uint8_t> srgbProfile()
{
    return bytesOf(cmsCreate_sRGBProfile());
}

inline std::vector<uint8_t> displayP3Profile()
{
    const cmsCIExyY white = {0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE primaries = {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};
    const cmsFloat64Number parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    cmsToneCurve* const curve = cmsBuildParametricToneCurve(nullptr, 4, parameters);
    cmsToneCurve* const curves[] = {curve, curve, curve};
    auto bytes = bytesOf(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    return bytes;
}

inline std::vector<uint8_t> greyProfile(double gamma)
{
    const cmsCIExyY white = {0.3457, 0.3585, 1};
    cmsToneCurve* const curve = cmsBuildGamma(nullptr, gamma);
    auto bytes = bytesOf(cmsCreateGrayProfile(&white, curve));
    cmsFreeToneCurve(curve);
    return bytes;
}

/// To sRGB, by way of floating point numbers.
inline Color convertedByLibrary(Color color, const std::vector<uint8_t>& profile)
{
    const cmsHPROFILE from = cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    const cmsHPROFILE to = cmsCreate_sRGBProfile();
    const cmsHTRANSFORM transform = cmsCreateTransform(from, TYPE_RGB_DBL, to, TYPE_RGB_DBL, INTENT_PERCEPTUAL,
                                                       cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
    const double before[3] = {color[0] / 255.0, color[1] / 255.0, color[2] / 255.0};
    double after[3] = {};
    cmsDoTransform(transform, before, after, 1);
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
    Color result{};
    for (size_t i = 0; i < 3; ++i)
        result[i] = static_cast<int>(std::min(1.0, std::max(0.0, after[i])) * 255 + 0.5);
    return result;
}

} // namespace test
