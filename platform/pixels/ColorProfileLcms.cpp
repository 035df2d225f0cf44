#include "platform/pixels/ColorProfile.h"

#include "platform/foundation/Handle.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSCache.h"

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

namespace platform {

namespace {

using Model = ColorDescription::Model;

using ProfilePtr = Handle<void, cmsCloseProfile>;

using TransformPtr = Handle<void, cmsDeleteTransform>;

using CurvePtr = Handle<cmsToneCurve, cmsFreeToneCurve>;

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

    // The same for 16 bits: curves from 0 to 1, looked up between their points, and a matrix.
    std::array<std::vector<float>, 3> wideToLight;
    std::array<std::array<float, 3>, 3> wideMatrix{};
    // Of light in parts of that of the brightest screen, to light in parts of white; empty where white is the most.
    std::vector<float> toneCurve;
    // Light as the camera met it: what a screen makes of it depends on all three colours.
    bool isSceneLight = false;

    // From 8 or 16 bits, to 8.
    TransformPtr transform;
};

constexpr int kLightBits = 13;
constexpr int kLight = 1 << kLightBits;
constexpr int kUnitBits = 13;
constexpr int kUnit = 1 << kUnitBits;

/// Points of a curve for 16 bits, one for each sixteenth number.
constexpr size_t kCurvePoints = 4097;
/// Entries of the table back from light: in the dark, where sRGB is steepest, a twentieth of a step each.
constexpr size_t kWideLight = size_t{1} << 16;

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

/// The three curves to light at `count` places from 0 to 1.
std::optional<std::array<std::vector<double>, 3>> curves(cmsHPROFILE profile, size_t count)
{
    constexpr std::array kTags = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    std::array<std::vector<double>, 3> values;
    for (size_t i = 0; i < 3; ++i) {
        const auto* const curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile, kTags[i]));
        if (!curve)
            return std::nullopt;
        for (size_t v = 0; v < count; ++v) {
            const float place = static_cast<float>(v) / static_cast<float>(count - 1);
            values[i].push_back(std::clamp<double>(static_cast<double>(cmsEvalToneCurveFloat(curve, place)), 0, 1));
        }
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
bool makeMatrix(Conversion& conversion, cmsHPROFILE profile, cmsHPROFILE srgb, bool isWide)
{
    if (!cmsIsMatrixShaper(profile) || cmsGetColorSpace(profile) != cmsSigRgbData ||
        cmsGetPCS(profile) != cmsSigXYZData || cmsIsTag(profile, cmsSigAToB0Tag))
        return false;
    const auto from = colorants(profile);
    const auto to = colorants(srgb);
    const auto light = curves(profile, 256);
    const auto wideLight = isWide ? curves(profile, kCurvePoints) : std::nullopt;
    if (!from || !to || !light || (isWide && !wideLight))
        return false;
    const Matrix matrix = product(inverse(*to), *from);
    for (size_t i = 0; i < 3; ++i) {
        for (size_t j = 0; j < 3; ++j) {
            // Beyond this the sums below could overflow; no real profile comes near.
            if (!(std::abs(matrix[i][j]) < 8))
                return false;
            conversion.matrix[i][j] = static_cast<int32_t>(std::lround(matrix[i][j] * kUnit));
            conversion.wideMatrix[i][j] = static_cast<float>(matrix[i][j]);
        }
        for (size_t v = 0; v < 256; ++v)
            conversion.toLight[i][v] = static_cast<int32_t>(std::lround((*light)[i][v] * kLight));
        if (isWide)
            conversion.wideToLight[i].assign((*wideLight)[i].begin(), (*wideLight)[i].end());
    }
    const size_t mostLight = isWide ? kWideLight : kLight;
    conversion.fromLight.resize(mostLight + 1);
    for (size_t i = 0; i <= mostLight; ++i)
        conversion.fromLight[i] = static_cast<uint8_t>(
            std::lround(255 * srgbFromLight(static_cast<double>(i) / static_cast<double>(mostLight))));
    conversion.isMatrix = true;
    conversion.isIdentity = !isWide && changesNothing(conversion);
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

constexpr int kTransferPQ = 16;
constexpr int kTransferHLG = 18;

/// cd/m2 of a number of ITU-R BT.2100's perceptual quantisation, in parts of 10000.
double lightFromPQ(double number)
{
    constexpr double kM1 = 2610.0 / 16384;
    constexpr double kM2 = 2523.0 / 4096 * 128;
    constexpr double kC1 = 3424.0 / 4096;
    constexpr double kC2 = 2413.0 / 4096 * 32;
    constexpr double kC3 = 2392.0 / 4096 * 32;
    const double root = std::pow(number, 1 / kM2);
    return std::pow(std::max(root - kC1, 0.0) / (kC2 - kC3 * root), 1 / kM1);
}

double pqFromLight(double light)
{
    constexpr double kM1 = 2610.0 / 16384;
    constexpr double kM2 = 2523.0 / 4096 * 128;
    const double power = std::pow(light, kM1);
    return std::pow((3424.0 / 4096 + 2413.0 / 4096 * 32 * power) / (1 + 2392.0 / 4096 * 32 * power), kM2);
}

/// Scene light of a number of BT.2100's hybrid logarithm and power.
double lightFromHLG(double number)
{
    constexpr double kA = 0.17883277;
    constexpr double kB = 0.28466892;
    constexpr double kC = 0.55991073;
    return number <= 0.5 ? number * number / 3 : (std::exp((number - kC) / kA) + kB) / 12;
}

/// cd/m2 of the screens that such pictures are made for, of the white of other pictures (BT.2408), and the unit of PQ.
constexpr double kBrightest = 1000;
constexpr double kWhite = 203;
constexpr double kUnitPQ = 10000;

/// The curve of BT.2408, annex 5, from the brightest screen to one whose most is white: up to a knee light stays as it
/// is, beyond it a spline in perceptual numbers leads to white.
double toneMapped(double light)
{
    const double brightest = pqFromLight(kBrightest / kUnitPQ);
    const double most = pqFromLight(kWhite / kUnitPQ) / brightest;
    const double knee = 1.5 * most - 0.5;
    const double number = pqFromLight(light * kBrightest / kUnitPQ) / brightest;
    if (number <= knee)
        return light * kBrightest / kWhite;
    const double t = (number - knee) / (1 - knee);
    const double t2 = t * t;
    const double t3 = t2 * t;
    const double mapped = (2 * t3 - 3 * t2 + 1) * knee + (t3 - 2 * t2 + t) * (1 - knee) + (-2 * t3 + 3 * t2) * most;
    return lightFromPQ(mapped * brightest) * kUnitPQ / kWhite;
}

CurvePtr curveOf(const std::function<double(double)>& light)
{
    std::vector<float> points(kCurvePoints);
    for (size_t i = 0; i < points.size(); ++i)
        points[i] = static_cast<float>(light(static_cast<double>(i) / (kCurvePoints - 1)));
    return CurvePtr(cmsBuildTabulatedToneCurveFloat(nullptr, kCurvePoints, points.data()));
}

CurvePtr curveOfTransfer(int transfer)
{
    // Light up to that of the brightest screen is 1; files go beyond it for a glint.
    if (transfer == kTransferPQ)
        return curveOf([](double number) { return std::min(lightFromPQ(number) * kUnitPQ / kBrightest, 1.0); });
    if (transfer == kTransferHLG)
        return curveOf(lightFromHLG);
    if (transfer == 4 || transfer == 5 || transfer == 8)
        return CurvePtr(cmsBuildGamma(nullptr, transfer == 4 ? 2.2 : transfer == 5 ? 2.8 : 1));
    constexpr std::array<cmsFloat64Number, 5> kSRGBCurve = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    return CurvePtr(cmsBuildParametricToneCurve(nullptr, 4, kSRGBCurve.data()));
}

ProfilePtr profileOf(const cmsCIExyY& white, const cmsCIExyYTRIPLE& primaries, const CurvePtr& curve)
{
    if (!curve)
        return nullptr;
    cmsToneCurve* const all[3] = {curve.get(), curve.get(), curve.get()};
    return ProfilePtr(cmsCreateRGBProfile(&white, &primaries, all));
}

/// A profile of the primaries that a container names. Pictures are made for screens, so every curve but those of
/// plain powers, of light itself and of brighter screens counts as sRGB's.
ProfilePtr profileOfPrimaries(int primaries, int transfer)
{
    const auto* const known = std::ranges::find(kPrimaries, primaries, &Primaries::number);
    return known == kPrimaries.end() ? nullptr : profileOf(known->white, known->colors, curveOfTransfer(transfer));
}

ProfilePtr profileOfSpace(const ColorDescription::PowerSpace& space)
{
    const auto& c = space.chromaticities;
    constexpr int kTransferSRGB = 13;
    return profileOf({c[6], c[7], 1}, {{c[0], c[1], 1}, {c[2], c[3], 1}, {c[4], c[5], 1}},
                     space.power ? CurvePtr(cmsBuildGamma(nullptr, *space.power)) : curveOfTransfer(kTransferSRGB));
}

ProfilePtr profileOf(const ColorDescription& description)
{
    if (!description.profile.empty())
        return ProfilePtr(cmsOpenProfileFromMem(description.profile.data(),
                                                static_cast<cmsUInt32Number>(description.profile.size())));
    if (description.primaries != 2 || !description.space)
        return profileOfPrimaries(description.primaries, description.transfer);
    return profileOfSpace(*description.space);
}

/// Whether the numbers stand for light beyond white.
bool goesBeyondWhite(const ColorDescription& description)
{
    return description.profile.empty() && description.primaries != 2 &&
           (description.transfer == kTransferPQ || description.transfer == kTransferHLG);
}

std::shared_ptr<const Conversion> makeConversion(const ColorDescription& description, bool isWide)
{
    auto conversion = std::make_shared<Conversion>();
    conversion->isIdentity = true;
    const ProfilePtr profile = profileOf(description);
    const ProfilePtr srgb(cmsCreate_sRGBProfile());
    if (!profile || !srgb)
        return conversion;
    // Grey is three equal components, for which the spaces of files without a profile serve as well.
    const auto expected = description.model == Model::CMYK                                   ? cmsSigCmykData
                          : description.model == Model::Grey && !description.profile.empty() ? cmsSigGrayData
                                                                                             : cmsSigRgbData;
    if (cmsGetColorSpace(profile.get()) != expected)
        return conversion;
    if (makeMatrix(*conversion, profile.get(), srgb.get(), isWide)) {
        if (isWide && goesBeyondWhite(description)) {
            conversion->isSceneLight = description.transfer == kTransferHLG;
            for (size_t i = 0; i < kCurvePoints; ++i)
                conversion->toneCurve.push_back(
                    static_cast<float>(toneMapped(static_cast<double>(i) / (kCurvePoints - 1))));
        }
        return conversion;
    }

    // For grey, alpha and two of the equal components are passed over; ink lies in the order K C M Y.
    const cmsUInt32Number bytes = isWide ? 2 : 1;
    const cmsUInt32Number grey = COLORSPACE_SH(PT_GRAY) | EXTRA_SH(3) | CHANNELS_SH(1) | BYTES_SH(bytes);
    const cmsUInt32Number from = description.model == Model::RGB    ? (isWide ? TYPE_ARGB_16 : TYPE_ARGB_8)
                                 : description.model == Model::Grey ? grey
                                                                    : (isWide ? TYPE_KCMY_16 : TYPE_KCMY_8);
    conversion->transform.reset(
        cmsCreateTransform(profile.get(), from, srgb.get(), TYPE_ARGB_8, INTENT_PERCEPTUAL, cmsFLAGS_NOCACHE));
    conversion->isIdentity = !conversion->transform;
    return conversion;
}

/// Photos of one camera carry one profile: its conversion is made once.
std::shared_ptr<const Conversion> conversionOf(const ColorDescription& description, bool isWide)
{
    constexpr size_t kConversions = 8;
    using Key = std::pair<ColorDescription, bool>;
    static Lock making;
    // Never destroyed: pictures may still be converted while the process ends.
    static auto& conversions = *new NSCache<Key, std::shared_ptr<const Conversion>>(kConversions, 0);
    const Key key(description, isWide);
    LockGuard guard(making);
    auto conversion = conversions.objectForKey(key);
    if (!conversion) {
        // Damaged profiles are common enough; their complaints are for nobody.
        cmsSetLogErrorHandler(nullptr);
        conversion = makeConversion(description, isWide);
        conversions.setObject(conversion, key);
    }
    return conversion;
}

bool saysNothing(const ColorDescription& description)
{
    return description.profile.empty() && description.primaries == 2 && !description.space;
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

/// Between the points of a curve over 0 to 1.
float lookUp(const std::vector<float>& curve, float place)
{
    const float position = std::clamp(place, 0.0F, 1.0F) * static_cast<float>(kCurvePoints - 1);
    const auto point = std::min(static_cast<size_t>(position), kCurvePoints - 2);
    return curve[point] + (curve[point + 1] - curve[point]) * (position - static_cast<float>(point));
}

/// What BT.2100's screen of 1000 cd/m2 makes of scene light, in place.
void showSceneLight(std::array<float, 3>& light)
{
    const float brightness = 0.2627F * light[0] + 0.6780F * light[1] + 0.0593F * light[2];
    const float gain = brightness > 0 ? std::pow(brightness, 0.2F) : 0;
    for (float& component : light)
        component *= gain;
}

void applyWideMatrix(const Conversion& conversion, const uint16_t* from, uint8_t* to, size_t count)
{
    const auto& matrix = conversion.wideMatrix;
    for (size_t x = 0; x < count; ++x, from += 4, to += 4) {
        std::array<float, 3> light{};
        for (size_t i = 0; i < 3; ++i)
            light[i] = lookUp(conversion.wideToLight[i], static_cast<float>(from[i + 1]) / 65535.0F);
        if (conversion.isSceneLight)
            showSceneLight(light);
        if (!conversion.toneCurve.empty())
            for (float& component : light)
                component = lookUp(conversion.toneCurve, component);
        for (size_t i = 0; i < 3; ++i) {
            const float sum = matrix[i][0] * light[0] + matrix[i][1] * light[1] + matrix[i][2] * light[2];
            const float entry = std::clamp(sum, 0.0F, 1.0F) * static_cast<float>(kWideLight) + 0.5F;
            to[i + 1] = conversion.fromLight[static_cast<size_t>(entry)];
        }
    }
}

/// `row` holds room for one sample more than its `count` pixels have.
template <typename Sample>
void applyTransform(const Conversion& conversion, Model model, const Sample* row, uint8_t* to, size_t count)
{
    // The grey format reads the first of four components, ours begin with alpha.
    const Sample* const from = model == Model::Grey ? row + 1 : row;
    cmsDoTransform(conversion.transform.get(), from, to, static_cast<cmsUInt32Number>(count));
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

template <typename Sample>
void divide(Sample* pixel, size_t count)
{
    constexpr unsigned kMost = std::numeric_limits<Sample>::max();
    for (size_t x = 0; x < count; ++x, pixel += 4)
        for (size_t i = 1; i < 4; ++i)
            pixel[i] = pixel[0] == 0 ? Sample{0}
                                     : static_cast<Sample>(std::min<unsigned>(
                                           kMost, (unsigned{pixel[i]} * kMost + pixel[0] / 2u) / pixel[0]));
}

uint8_t narrowed(uint16_t sample)
{
    return static_cast<uint8_t>((sample * 255u + 32767u) / 65535u);
}

/// A row of 16 bits to one of 8 by a conversion that does something.
/// @param row  with room for one sample more; changed
void convertRow(const Conversion& conversion, Model model, bool hasAlpha, uint16_t* row, uint8_t* to, size_t count)
{
    if (hasAlpha)
        divide(row, count);
    if (conversion.isMatrix)
        applyWideMatrix(conversion, row, to, count);
    else
        applyTransform(conversion, model, row, to, count);
    for (size_t x = 0; x < count; ++x)
        to[4 * x] = hasAlpha ? narrowed(row[4 * x]) : uint8_t{0xFF};
    if (hasAlpha)
        multiply(to, count);
}

/// Beyond white, 8 bits take the way of 16.
void convertBrightToSRGB(CGImage& image, const ColorDescription& description)
{
    const auto conversion = conversionOf(description, true);
    if (conversion->isIdentity)
        return;
    std::vector<uint16_t> wide(4 * image.width + 1);
    for (size_t y = 0; y < image.height; ++y) {
        uint8_t* const row = image.row(y);
        std::transform(row, row + 4 * image.width, wide.begin(),
                       [](uint8_t sample) { return static_cast<uint16_t>(sample * 257); });
        convertRow(*conversion, description.model, image.hasAlpha, wide.data(), row, image.width);
    }
}

} // namespace

bool changesColors(const ColorDescription& description)
{
    return !saysNothing(description) && !conversionOf(description, false)->isIdentity;
}

void convertToSRGB(CGImage& image, const ColorDescription& description)
{
    if (goesBeyondWhite(description)) {
        convertBrightToSRGB(image, description);
        return;
    }
    const bool isInk = description.model == Model::CMYK;
    const auto conversion = saysNothing(description) ? nullptr : conversionOf(description, false);
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
        if (conversion->isMatrix) {
            applyMatrix(*conversion, row, image.width);
        } else {
            copy.assign(row, row + 4 * image.width);
            copy.push_back(0);
            applyTransform(*conversion, description.model, copy.data(), row, image.width);
            for (size_t x = 0; x < image.width; ++x)
                row[4 * x] = isInk ? uint8_t{0xFF} : copy[4 * x];
        }
        if (hasAlpha)
            multiply(row, image.width);
    }
    if (isInk)
        image.hasAlpha = false;
}

void convertToSRGB(WideImage& wide, const ColorDescription& description, CGImage& image)
{
    const bool isInk = description.model == Model::CMYK;
    image.width = wide.width;
    image.height = wide.height;
    image.bytesPerRow = 4 * wide.width;
    image.hasAlpha = wide.hasAlpha;
    image.pixels.resize(image.bytesPerRow * image.height);
    if (!changesColors(description)) {
        std::ranges::transform(wide.samples, image.pixels.begin(), narrowed);
        convertToSRGB(image, description);
        return;
    }
    const auto conversion = conversionOf(description, true);
    wide.samples.push_back(0);
    for (size_t y = 0; y < image.height; ++y)
        convertRow(*conversion, description.model, image.hasAlpha && !isInk, wide.row(y), image.row(y), image.width);
    if (isInk)
        image.hasAlpha = false;
}

} // namespace platform
