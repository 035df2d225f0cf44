#include "platform/graphics/ColorProfile.h"

#include "platform/dispatch/Lock.h"

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <list>
#include <memory>
#include <optional>
#include <utility>

namespace platform {

namespace {

using Model = ColorDescription::Model;

struct CloseProfile {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using ProfilePtr = std::unique_ptr<void, CloseProfile>;

struct DeleteTransform {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using TransformPtr = std::unique_ptr<void, DeleteTransform>;

struct FreeCurve {
    void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using CurvePtr = std::unique_ptr<cmsToneCurve, FreeCurve>;

/// How one kind of picture becomes sRGB.
struct Conversion {
    /// Nothing is to be done.
    bool isIdentity = false;

    // A matrix between two tables, which most RGB profiles are: a tenth of the time of the general way.
    bool isMatrix = false;
    // To light, in parts of kLight.
    std::array<std::array<int32_t, 256>, 3> toLight{};
    // In parts of kUnit.
    std::array<std::array<int32_t, 3>, 3> matrix{};
    std::vector<uint8_t> fromLight;

    TransformPtr transform;
};

constexpr int kLightBits = 13;
constexpr int kLight = 1 << kLightBits;
constexpr int kUnitBits = 13;
constexpr int kUnit = 1 << kUnitBits;

double srgbFromLight(double light)
{
    return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

using Matrix = std::array<std::array<double, 3>, 3>;

Matrix inverse(const Matrix& m)
{
    const double determinant = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                               m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    Matrix result;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j) {
            const size_t a = (j + 1) % 3;
            const size_t b = (j + 2) % 3;
            const size_t c = (i + 1) % 3;
            const size_t d = (i + 2) % 3;
            result[i][j] = (m[a][c] * m[b][d] - m[a][d] * m[b][c]) / determinant;
        }
    return result;
}

Matrix product(const Matrix& a, const Matrix& b)
{
    Matrix result{};
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j)
            for (size_t k = 0; k < 3; ++k)
                result[i][j] += a[i][k] * b[k][j];
    return result;
}

/// The primaries of a matrix profile, as columns of XYZ under the profile connection space's white.
std::optional<Matrix> colorants(cmsHPROFILE profile)
{
    constexpr std::array kTags = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    Matrix matrix{};
    for (size_t i = 0; i < 3; ++i) {
        const auto* const xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, kTags[i]));
        if (!xyz)
            return std::nullopt;
        matrix[0][i] = xyz->X;
        matrix[1][i] = xyz->Y;
        matrix[2][i] = xyz->Z;
    }
    return matrix;
}

std::optional<std::array<std::array<double, 256>, 3>> curves(cmsHPROFILE profile)
{
    constexpr std::array kTags = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    std::array<std::array<double, 256>, 3> values{};
    for (size_t i = 0; i < 3; ++i) {
        const auto* const curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile, kTags[i]));
        if (!curve)
            return std::nullopt;
        for (size_t v = 0; v < 256; ++v)
            values[i][v] = std::clamp<double>(
                static_cast<double>(cmsEvalToneCurveFloat(curve, static_cast<float>(v) / 255.0f)), 0, 1);
    }
    return values;
}

/// Every 8-bit colour on the axes and the greys comes out as it went in, but for half a step.
bool changesNothing(const Conversion& conversion)
{
    for (int v = 0; v < 256; ++v)
        for (int mask = 1; mask < 8; ++mask) {
            std::array<int32_t, 3> light{};
            for (size_t i = 0; i < 3; ++i)
                light[i] = mask >> i & 1 ? conversion.toLight[i][static_cast<size_t>(v)] : conversion.toLight[i][0];
            for (size_t i = 0; i < 3; ++i) {
                const auto& row = conversion.matrix[i];
                const int32_t sum =
                    (row[0] * light[0] + row[1] * light[1] + row[2] * light[2] + kUnit / 2) >> kUnitBits;
                const int result = conversion.fromLight[static_cast<size_t>(std::clamp(sum, 0, kLight))];
                if (std::abs(result - (mask >> i & 1 ? v : 0)) > 1)
                    return false;
            }
        }
    return true;
}

/// The fast way for profiles that are a matrix and three curves.
bool makeMatrix(Conversion& conversion, cmsHPROFILE profile, cmsHPROFILE srgb)
{
    if (!cmsIsMatrixShaper(profile) || cmsGetColorSpace(profile) != cmsSigRgbData ||
        cmsGetPCS(profile) != cmsSigXYZData || cmsIsTag(profile, cmsSigAToB0Tag))
        return false;
    const auto from = colorants(profile);
    const auto to = colorants(srgb);
    const auto light = curves(profile);
    if (!from || !to || !light)
        return false;
    const Matrix matrix = product(inverse(*to), *from);
    for (size_t i = 0; i < 3; ++i) {
        for (size_t j = 0; j < 3; ++j) {
            // Beyond this the sums below could overflow; no real profile comes near.
            if (!(std::abs(matrix[i][j]) < 8))
                return false;
            conversion.matrix[i][j] = static_cast<int32_t>(std::lround(matrix[i][j] * kUnit));
        }
        for (size_t v = 0; v < 256; ++v)
            conversion.toLight[i][v] = static_cast<int32_t>(std::lround((*light)[i][v] * kLight));
    }
    conversion.fromLight.resize(kLight + 1);
    for (size_t i = 0; i <= kLight; ++i)
        conversion.fromLight[i] =
            static_cast<uint8_t>(std::lround(255 * srgbFromLight(static_cast<double>(i) / kLight)));
    conversion.isMatrix = true;
    conversion.isIdentity = changesNothing(conversion);
    return true;
}

struct Primaries {
    int number;
    cmsCIExyYTRIPLE colors;
    cmsCIExyY white;
};

constexpr cmsCIExyY kD65 = {0.3127, 0.3290, 1};
constexpr std::array<Primaries, 6> kPrimaries = {{
    {1, {{0.640, 0.330, 1}, {0.300, 0.600, 1}, {0.150, 0.060, 1}}, kD65},
    {5, {{0.640, 0.330, 1}, {0.290, 0.600, 1}, {0.150, 0.060, 1}}, kD65},
    {6, {{0.630, 0.340, 1}, {0.310, 0.595, 1}, {0.155, 0.070, 1}}, kD65},
    {9, {{0.708, 0.292, 1}, {0.170, 0.797, 1}, {0.131, 0.046, 1}}, kD65},
    {11, {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}}, {0.314, 0.351, 1}},
    {12, {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}}, kD65},
}};

/// A profile of the primaries that a container names. Pictures are made for screens, so every curve but those of
/// plain powers and of light itself counts as sRGB's.
ProfilePtr profileOfPrimaries(int primaries, int transfer)
{
    const auto* const known = std::ranges::find(kPrimaries, primaries, &Primaries::number);
    if (known == kPrimaries.end())
        return nullptr;
    constexpr std::array<cmsFloat64Number, 5> kSRGBCurve = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    CurvePtr curve;
    if (transfer == 4 || transfer == 5 || transfer == 8)
        curve.reset(cmsBuildGamma(nullptr, transfer == 4 ? 2.2 : transfer == 5 ? 2.8 : 1));
    else
        curve.reset(cmsBuildParametricToneCurve(nullptr, 4, kSRGBCurve.data()));
    if (!curve)
        return nullptr;
    cmsToneCurve* const all[3] = {curve.get(), curve.get(), curve.get()};
    return ProfilePtr(cmsCreateRGBProfile(&known->white, &known->colors, all));
}

std::shared_ptr<const Conversion> makeConversion(const ColorDescription& description)
{
    auto conversion = std::make_shared<Conversion>();
    conversion->isIdentity = true;
    const ProfilePtr profile =
        description.profile.empty()
            ? profileOfPrimaries(description.primaries, description.transfer)
            : ProfilePtr(cmsOpenProfileFromMem(description.profile.data(),
                                               static_cast<cmsUInt32Number>(description.profile.size())));
    const ProfilePtr srgb(cmsCreate_sRGBProfile());
    if (!profile || !srgb)
        return conversion;
    const auto expected = description.model == Model::RGB    ? cmsSigRgbData
                          : description.model == Model::Grey ? cmsSigGrayData
                                                             : cmsSigCmykData;
    if (cmsGetColorSpace(profile.get()) != expected)
        return conversion;
    if (makeMatrix(*conversion, profile.get(), srgb.get()))
        return conversion;

    // For grey, alpha and two of the equal components are passed over; ink lies in the order K C M Y.
    constexpr cmsUInt32Number kGrey = COLORSPACE_SH(PT_GRAY) | EXTRA_SH(3) | CHANNELS_SH(1) | BYTES_SH(1);
    const cmsUInt32Number from = description.model == Model::RGB    ? TYPE_ARGB_8
                                 : description.model == Model::Grey ? kGrey
                                                                    : TYPE_KCMY_8;
    conversion->transform.reset(
        cmsCreateTransform(profile.get(), from, srgb.get(), TYPE_ARGB_8, INTENT_PERCEPTUAL, cmsFLAGS_NOCACHE));
    conversion->isIdentity = !conversion->transform;
    return conversion;
}

/// Photos of one camera carry one profile: its conversion is made once.
std::shared_ptr<const Conversion> conversionOf(const ColorDescription& description)
{
    constexpr size_t kConversions = 8;
    static Lock lock;
    // Never destroyed: pictures may still be converted while the process ends.
    static auto& conversions = *new std::list<std::pair<ColorDescription, std::shared_ptr<const Conversion>>>;
    LockGuard guard(lock);
    const auto found = std::ranges::find_if(conversions, [&](const auto& entry) {
        return entry.first.model == description.model && entry.first.primaries == description.primaries &&
               entry.first.transfer == description.transfer && entry.first.profile == description.profile;
    });
    if (found != conversions.end()) {
        conversions.splice(conversions.begin(), conversions, found);
        return found->second;
    }
    // Damaged profiles are common enough; their complaints are for nobody.
    cmsSetLogErrorHandler(nullptr);
    conversions.emplace_front(description, makeConversion(description));
    if (conversions.size() > kConversions)
        conversions.pop_back();
    return conversions.front().second;
}

void applyMatrix(const Conversion& conversion, uint8_t* pixel, size_t count)
{
    const auto& matrix = conversion.matrix;
    const uint8_t* const fromLight = conversion.fromLight.data();
    for (size_t x = 0; x < count; ++x, pixel += 4) {
        const int32_t red = conversion.toLight[0][pixel[1]];
        const int32_t green = conversion.toLight[1][pixel[2]];
        const int32_t blue = conversion.toLight[2][pixel[3]];
        for (size_t i = 0; i < 3; ++i) {
            const int32_t sum =
                (matrix[i][0] * red + matrix[i][1] * green + matrix[i][2] * blue + kUnit / 2) >> kUnitBits;
            pixel[i + 1] = fromLight[std::clamp(sum, 0, kLight)];
        }
    }
}

void applyTransform(const Conversion& conversion, const Model model, uint8_t* row, size_t count,
                    std::vector<uint8_t>& copy)
{
    copy.assign(row, row + 4 * count);
    // The grey format reads the first of four bytes, ours begin with alpha.
    const size_t shift = model == Model::Grey ? 1 : 0;
    copy.resize(4 * count + shift);
    cmsDoTransform(conversion.transform.get(), copy.data() + shift, row, static_cast<cmsUInt32Number>(count));
    if (model == Model::CMYK)
        for (size_t x = 0; x < count; ++x)
            row[4 * x] = 0xFF;
    else
        for (size_t x = 0; x < count; ++x)
            row[4 * x] = copy[4 * x];
}

void mixInk(uint8_t* pixel, size_t count)
{
    for (size_t x = 0; x < count; ++x, pixel += 4) {
        const unsigned light = 255u - pixel[0];
        for (size_t i = 1; i < 4; ++i)
            pixel[i] = static_cast<uint8_t>(((255u - pixel[i]) * light + 127) / 255);
        pixel[0] = 0xFF;
    }
}

void multiply(uint8_t* pixel, size_t count)
{
    for (size_t x = 0; x < count; ++x, pixel += 4)
        for (size_t i = 1; i < 4; ++i)
            pixel[i] = static_cast<uint8_t>((unsigned{pixel[i]} * pixel[0] + 127) / 255);
}

void divide(uint8_t* pixel, size_t count)
{
    for (size_t x = 0; x < count; ++x, pixel += 4)
        for (size_t i = 1; i < 4; ++i)
            pixel[i] =
                pixel[0] == 0
                    ? uint8_t{0}
                    : static_cast<uint8_t>(std::min(255u, (unsigned{pixel[i]} * 255 + pixel[0] / 2u) / pixel[0]));
}

} // namespace

void convertToSRGB(CGImage& image, const ColorDescription& description)
{
    const bool isInk = description.model == Model::CMYK;
    const bool saysNothing = description.profile.empty() && description.primaries == 2;
    const auto conversion = saysNothing ? nullptr : conversionOf(description);
    const bool isIdentity = !conversion || conversion->isIdentity;
    if (isIdentity && !isInk)
        return;

    std::vector<uint8_t> copy;
    for (size_t y = 0; y < image.height; ++y) {
        uint8_t* const row = image.row(y);
        if (isIdentity) {
            mixInk(row, image.width);
            continue;
        }
        const bool hasAlpha = image.hasAlpha && !isInk;
        if (hasAlpha)
            divide(row, image.width);
        if (conversion->isMatrix)
            applyMatrix(*conversion, row, image.width);
        else
            applyTransform(*conversion, description.model, row, image.width, copy);
        if (hasAlpha)
            multiply(row, image.width);
    }
    if (isInk)
        image.hasAlpha = false;
}

} // namespace platform
