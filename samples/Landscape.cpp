#include "samples/Landscape.h"

#include "samples/Noise.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <vector>

namespace {

constexpr float kRadians = std::numbers::pi_v<float> / 180.0F;
constexpr float kFarthest = 26000;
constexpr int kMapSize = 2048;
/// Metres between two points of the height map.
constexpr float kMapStep = 8;
constexpr float kTreeSpacing = 9;

float ramp(float from, float to, float value)
{
    const float t = std::clamp((value - from) / (to - from), 0.0F, 1.0F);
    return t * t * (3.0F - 2.0F * t);
}

/// The next whole number below; std::floor is a call into the library on most machines.
int32_t wholeBelow(float value)
{
    const auto whole = static_cast<int32_t>(value);
    return value < static_cast<float>(whole) ? whole - 1 : whole;
}

struct Direction {
    float x;
    float y;
    float z;
};

/// A square map, repeated without end and mirrored at its edges, so that no seam shows.
class Map final {
public:
    explicit Map(int size) : size_(size), values_(static_cast<size_t>(size) * static_cast<size_t>(size)) {}

    float& at(int x, int z) { return values_[index(x, z)]; }
    float at(int x, int z) const { return values_[index(x, z)]; }
    float between(float x, float z) const
    {
        const int column = wholeBelow(x);
        const int row = wholeBelow(z);
        const float across = x - static_cast<float>(column);
        return noise::between(noise::between(at(column, row), at(column + 1, row), across),
                              noise::between(at(column, row + 1), at(column + 1, row + 1), across),
                              z - static_cast<float>(row));
    }

private:
    /// The size is a power of two.
    int folded(int value) const
    {
        value &= 2 * size_ - 1;
        return value < size_ ? value : 2 * size_ - 1 - value;
    }
    size_t index(int x, int z) const
    {
        return static_cast<size_t>(folded(z)) * static_cast<size_t>(size_) + static_cast<size_t>(folded(x));
    }

    int size_;
    std::vector<float> values_;
};

/// The colour of one point of the ground and how far it is.
struct Seen {
    Light light;
    float distance = 0;
    bool isWater = false;
};

class Painter final {
public:
    explicit Painter(const Landscape& scene);

    Picture paint();

private:
    float shape(float x, float z) const;
    void makeMaps();
    void findViewpoint();
    float groundHeight(float x, float z) const;
    float woodAt(float x, float z, float height) const;
    float treeHeight(float x, float z, float wood, float& shade) const;
    Seen look(float x, float z, float distance, Direction view) const;
    Light air(Light light, float distance, float height, Direction view) const;
    Light sky(Direction view) const;
    Light clouds(Light behind, Direction view) const;
    Direction viewOf(float x, float y) const;
    void paintSky(Picture& picture) const;
    void paintColumn(Picture& picture, int x, std::vector<float>& waterDistance) const;
    void paintWater(Picture& picture, const std::vector<float>& waterDistance) const;

    const Landscape scene_;
    const float focal_;
    const float horizonRow_;
    Direction sun_{};
    float standX_ = 0;
    float standZ_ = 0;
    float eye_ = 0;
    Map heights_{kMapSize};
    Map lit_{kMapSize / 2};
};

Painter::Painter(const Landscape& scene)
    : scene_(scene), focal_(0.5F * static_cast<float>(std::max(scene.width, scene.height)) /
                            std::tan(0.5F * scene.fieldOfView * kRadians)),
      horizonRow_(scene.horizon * static_cast<float>(scene.height))
{
    const float azimuth = (scene.cameraHeading + scene.sunAzimuth) * kRadians;
    const float elevation = scene.sunElevation * kRadians;
    sun_ = {std::sin(azimuth) * std::cos(elevation), std::sin(elevation), std::cos(azimuth) * std::cos(elevation)};
    makeMaps();
    findViewpoint();
}

float Painter::shape(float x, float z) const
{
    const float u = x / scene_.formSize;
    const float v = z / scene_.formSize;
    const uint32_t seed = scene_.seed * 1000;
    switch (scene_.ground) {
    case Ground::Alps: {
        const float bend = 0.35F * noise::hills(u * 0.7F, v * 0.7F, 3, seed + 50);
        const float ridge = noise::crests(u + bend, v - bend, 10, seed);
        const float valley = ramp(-0.5F, 0.5F, noise::hills(u * 0.45F, v * 0.45F, 2, seed + 80));
        return scene_.relief * (0.25F + 0.75F * valley) * ridge;
    }
    case Ground::Hills:
        return scene_.relief * (0.5F + 0.6F * noise::hills(u, v, 9, seed));
    case Ground::Dunes: {
        // Long waves across the wind, bent, with a sharp lee edge; ripples on top are too fine for the map.
        const float bend = 0.9F * noise::hills(u * 0.8F, v * 0.8F, 3, seed + 9);
        const float wave = 1.0F - std::abs(noise::smooth(u * 0.7F + bend, v * 1.7F + 0.6F * bend, seed));
        return scene_.relief * (0.75F * wave * wave + 0.22F * noise::hills(u * 2.1F, v * 2.1F, 3, seed + 20) + 0.1F);
    }
    case Ground::Mesas: {
        // Terraces of hard and soft layers, worn by smaller forms.
        const float raw = 0.5F + 0.75F * noise::hills(u, v, 8, seed);
        const float steps = 4.0F;
        const float level = std::floor(raw * steps);
        const float stair = (level + ramp(0.30F, 0.62F, raw * steps - level)) / steps;
        return scene_.relief * (0.82F * stair + 0.18F * raw);
    }
    }
    return 0;
}

void Painter::makeMaps()
{
    for (int z = 0; z < kMapSize; ++z)
        for (int x = 0; x < kMapSize; ++x)
            heights_.at(x, z) = shape(static_cast<float>(x) * kMapStep, static_cast<float>(z) * kMapStep);

    // How much of the sun's disc each point sees: the steepest rise on the way to the sun, softened at its edge.
    const float run = std::hypot(sun_.x, sun_.z);
    const float slope = sun_.y / std::max(run, 1e-3F);
    const float towardsX = sun_.x / std::max(run, 1e-3F);
    const float towardsZ = sun_.z / std::max(run, 1e-3F);
    for (int z = 0; z < kMapSize / 2; ++z)
        for (int x = 0; x < kMapSize / 2; ++x) {
            const float from = heights_.at(2 * x, 2 * z);
            float steepest = -1;
            for (float step = 2; step < 320; step *= 1.12F) {
                const float up = heights_.at(static_cast<int>(2 * static_cast<float>(x) + towardsX * step),
                                             static_cast<int>(2 * static_cast<float>(z) + towardsZ * step));
                steepest = std::max(steepest, (up - from) / (step * kMapStep));
            }
            lit_.at(x, z) = 1.0F - ramp(slope - 0.05F, slope + 0.05F, steepest);
        }
}

/// Looks around as a photographer would: where nothing stands close before the camera, there is water where there is to
/// be water, and the skyline is high and uneven enough to be worth a picture.
void Painter::findViewpoint()
{
    constexpr int kPlaces = 600;
    constexpr int kLooks = 11;
    const float heading = scene_.cameraHeading * kRadians;
    const float widest = 0.5F * static_cast<float>(scene_.width) / focal_;
    float best = -1e9F;
    for (int place = 0; place < kPlaces; ++place) {
        const float extent = kMapSize * kMapStep;
        const float x = extent * noise::white(place, 0, scene_.seed + 900);
        const float z = extent * noise::white(place, 1, scene_.seed + 900);
        const bool isAtWater = scene_.waterLevel > -1e5F;
        const float eye = std::max(groundHeight(x, z), scene_.waterLevel) + scene_.cameraHeight;
        float score = 0;
        float sum = 0;
        float sumOfSquares = 0;
        for (int i = 0; i < kLooks; ++i) {
            const float right = widest * (2.0F * static_cast<float>(i) / (kLooks - 1) - 1.0F);
            const float alongX = std::sin(heading) + right * std::cos(heading);
            const float alongZ = std::cos(heading) - right * std::sin(heading);
            float skyline = -0.2F;
            for (float depth = 40; depth < 14000; depth *= 1.12F) {
                const float ground = groundHeight(x + alongX * depth, z + alongZ * depth);
                const float above = (std::max(ground, scene_.waterLevel) - eye) / depth;
                if (isAtWater && depth < scene_.waterRun && ground > scene_.waterLevel - 0.5F)
                    score -= 0.5F;
                if (!isAtWater && depth < 700 && above > (depth < 160 ? -0.28F : -0.10F))
                    score -= 0.5F;
                skyline = std::max(skyline, above);
            }
            sum += skyline;
            sumOfSquares += skyline * skyline;
        }
        const float mean = sum / kLooks;
        const float spread = std::sqrt(std::max(0.0F, sumOfSquares / kLooks - mean * mean));
        score += 8.0F * std::min(spread, 0.06F) - 5.0F * std::abs(mean - scene_.skyline);
        if (score > best) {
            best = score;
            standX_ = x;
            standZ_ = z;
            eye_ = eye;
        }
    }
}

float Painter::groundHeight(float x, float z) const
{
    return heights_.between(x / kMapStep, z / kMapStep);
}

float Painter::woodAt(float x, float z, float height) const
{
    if (height > scene_.treeLine || height < scene_.waterLevel + 3)
        return 0;
    const float patch = noise::hills(x / 420.0F, z / 420.0F, 4, scene_.seed + 300);
    const float thinning = ramp(scene_.treeLine, scene_.treeLine - 160.0F, height + 90.0F * patch);
    return thinning * ramp(-0.12F, 0.10F, patch + scene_.woodCover - 0.5F);
}

float Painter::treeHeight(float x, float z, float wood, float& shade) const
{
    const auto column = wholeBelow(x / kTreeSpacing);
    const auto row = wholeBelow(z / kTreeSpacing);
    float highest = 0;
    for (int32_t dz = -1; dz <= 1; ++dz)
        for (int32_t dx = -1; dx <= 1; ++dx) {
            const float chance = noise::white(column + dx, row + dz, scene_.seed + 7);
            if (chance > wood)
                continue;
            const float grown = 0.55F + 0.45F * noise::white(column + dx, row + dz, scene_.seed + 8);
            const float stemX =
                (static_cast<float>(column + dx) + noise::white(column + dx, row + dz, scene_.seed + 9)) * kTreeSpacing;
            const float stemZ =
                (static_cast<float>(row + dz) + noise::white(column + dx, row + dz, scene_.seed + 10)) * kTreeSpacing;
            const float away = std::hypot(x - stemX, z - stemZ) / (5.2F * grown);
            const float height = 21.0F * grown * (1.0F - away);
            if (height > highest) {
                highest = height;
                // The side that is turned to the sun is lighter, and so is the top.
                const float towards = ((x - stemX) * sun_.x + (z - stemZ) * sun_.z) / (5.2F * grown);
                shade = 0.45F + 0.4F * towards + 0.35F * (1.0F - away) * grown +
                        0.3F * (chance / std::max(wood, 0.01F) - 0.5F);
            }
        }
    return highest;
}

Seen Painter::look(float x, float z, float distance, Direction view) const
{
    Seen seen;
    seen.distance = distance;
    const float height = groundHeight(x, z);
    if (height <= scene_.waterLevel) {
        seen.isWater = true;
        return seen;
    }
    // A wider foot for far points keeps the grain of the ground from flickering.
    const float foot = std::max(5.0F, 0.0016F * distance);
    const float alongX = (groundHeight(x + foot, z) - groundHeight(x - foot, z)) / (2 * foot);
    const float alongZ = (groundHeight(x, z + foot) - groundHeight(x, z - foot)) / (2 * foot);
    // Down to what is two pixels wide.
    const int octaves = std::clamp(static_cast<int>(std::log2(7.0F * focal_ / distance)), 2, 9);
    const float fine = noise::hills(x / 14.0F, z / 14.0F, octaves, scene_.seed + 400);
    const float grit =
        distance < 900 ? noise::hills(x / 0.9F, z / 0.9F, std::max(1, octaves - 4), scene_.seed + 405) : 0.0F;
    const float coarse = noise::hills(x / 170.0F, z / 170.0F, 4, scene_.seed + 410);
    const float bumpX = alongX + 0.20F * fine + 0.5F * grit;
    const float bumpZ = alongZ + 0.20F * noise::smooth(x / 9.0F, z / 9.0F, scene_.seed + 420) - 0.4F * grit;
    const float length = std::sqrt(bumpX * bumpX + bumpZ * bumpZ + 1);
    const float facing = std::max(0.0F, (-bumpX * sun_.x + sun_.y - bumpZ * sun_.z) / length);
    const float steep = std::hypot(alongX, alongZ);
    const float open = lit_.between(x / (2 * kMapStep), z / (2 * kMapStep));

    Light ground = scene_.rock * (1.0F + 0.45F * fine + 0.35F * coarse);
    if (scene_.ground == Ground::Dunes) {
        ground = scene_.rock * (1.0F + 0.10F * fine + 0.10F * coarse);
    } else if (scene_.ground == Ground::Mesas) {
        const float band = noise::smooth(0.5F, (height + 7.0F * coarse) / 16.0F, scene_.seed + 430);
        ground = mix(ground, scene_.rock * 0.55F, ramp(0.0F, 0.5F, band));
        const float flat = ramp(0.5F, 0.2F, steep);
        ground = mix(ground, scene_.grass * (1.0F + 0.5F * fine), 0.75F * flat);
    } else {
        const float grown =
            ramp(0.95F, 0.55F, steep + 0.25F * coarse) * ramp(scene_.snowLine + 60, scene_.snowLine - 200, height);
        const Light meadow = mix(scene_.grass, scene_.grass * Light{1.35F, 1.1F, 0.7F}, ramp(-0.3F, 0.4F, coarse));
        ground = mix(ground, meadow * (1.0F + 0.55F * fine), grown);
        const float shore = ramp(scene_.waterLevel + 9.0F, scene_.waterLevel + 2.0F, height + 3 * coarse);
        ground = mix(ground, scene_.rock * Light{1.25F, 1.15F, 0.95F} * (1.0F + 0.4F * fine), shore);
        const float snow = ramp(scene_.snowLine - 120, scene_.snowLine + 120, height + 260 * coarse) *
                           ramp(1.45F, 0.85F, steep + 0.35F * fine);
        ground = mix(ground, Light{0.86F, 0.89F, 0.95F}, snow);
    }

    const float wood = woodAt(x, z, height);
    float shadow = open;
    if (wood > 0.02F) {
        const float hue = noise::white(wholeBelow(x / kTreeSpacing), wholeBelow(z / kTreeSpacing), scene_.seed + 12);
        float shade = 0.5F;
        if (distance < 5200)
            (void)treeHeight(x, z, wood, shade);
        const Light crown = mix(scene_.wood, scene_.woodAccent, hue * (0.4F + 0.6F * ramp(-0.2F, 0.3F, coarse)));
        ground = mix(ground, crown * std::clamp(shade * 1.5F, 0.15F, 1.9F), std::min(1.0F, wood * 1.4F));
        shadow *= 0.75F + 0.25F * std::clamp(shade, 0.0F, 1.0F);
    }

    // What the sky gives comes from above; deep forms see less of it.
    const Light above = mix(scene_.low, scene_.zenith, 0.55F) * (0.42F + 0.30F / length);
    const Light direct = scene_.sun * (facing * shadow);
    seen.light = air(ground * (above + direct), distance, height, view);
    return seen;
}

Light Painter::air(Light light, float distance, float height, Direction view) const
{
    const float hidden = 1.0F - std::exp(-distance / scene_.clearness);
    const Direction flat{view.x, 0.02F, view.z};
    const Light haze = sky(flat);
    // Blue is scattered first: near haze is bluer than far haze.
    Light seen = {noise::between(light.r, haze.r, hidden * hidden * 0.35F + hidden * 0.65F),
                  noise::between(light.g, haze.g, hidden),
                  noise::between(light.b, haze.b, std::min(1.0F, hidden * 1.12F))};
    if (scene_.fogHeight > 0) {
        const float base = std::max(scene_.waterLevel, 0.0F);
        const float thick = std::exp(-std::max(0.0F, height - base) / scene_.fogHeight);
        const float fog = 1.0F - std::exp(-thick * distance / (0.20F * scene_.clearness));
        seen = mix(seen, haze * 1.04F, std::min(0.94F, fog));
    }
    return seen;
}

Light Painter::sky(Direction view) const
{
    const float length = std::sqrt(view.x * view.x + view.y * view.y + view.z * view.z);
    const float up = std::max(0.0F, view.y / length);
    const float cosine = (view.x * sun_.x + view.y * sun_.y + view.z * sun_.z) / length;
    const float angle = std::acos(std::clamp(cosine, -1.0F, 1.0F)) / kRadians;
    Light light = mix(scene_.low, scene_.zenith, 1.0F - std::exp(-3.4F * up));
    // Low over the horizon the glow spreads sideways.
    const float wide = std::exp(-angle / (2.6F * scene_.glowWidth)) * std::exp(-5.0F * up);
    light = light + scene_.glow * (0.75F * std::exp(-angle / scene_.glowWidth) + 0.55F * wide);
    return light;
}

Light Painter::clouds(Light behind, Direction view) const
{
    if (view.y <= 0.004F)
        return behind;
    const float scale = 1.0F / (view.y + 0.06F);
    const float u = 1.3F * view.x * scale;
    const float v = 1.3F * view.z * scale;
    const uint32_t seed = scene_.seed * 77 + 5;
    const float bend = 0.45F * noise::hills(u * 0.6F, v * 0.6F, 3, seed + 40);
    auto density = [&](float a, float b) {
        return ramp(0.30F - scene_.clouds, 0.78F - scene_.clouds, noise::hills(a + bend, b - bend, 7, seed));
    };
    const float thick = density(u, v);
    if (thick <= 0)
        return behind;
    const float shadow = density(u + 0.12F * sun_.x, v + 0.12F * sun_.z);
    const float cosine = view.x * sun_.x + view.y * sun_.y + view.z * sun_.z;
    // Thin edges before the sun shine.
    const float silver = std::pow(std::max(0.0F, cosine), 12.0F) * (1.0F - thick);
    Light cloud = mix(scene_.cloudLit, scene_.cloudShaded, std::clamp(0.85F * shadow * thick + 0.1F, 0.0F, 1.0F));
    cloud = cloud + scene_.glow * (1.4F * silver);
    const float near = ramp(0.0F, 0.16F, view.y);
    return mix(behind, mix(behind, cloud, 0.35F + 0.65F * near), std::min(1.0F, 1.15F * thick));
}

Direction Painter::viewOf(float x, float y) const
{
    const float right = (x - 0.5F * static_cast<float>(scene_.width)) / focal_;
    const float up = (horizonRow_ - y) / focal_;
    const float heading = scene_.cameraHeading * kRadians;
    const float length = std::sqrt(right * right + up * up + 1);
    return {(std::sin(heading) + right * std::cos(heading)) / length, up / length,
            (std::cos(heading) - right * std::sin(heading)) / length};
}

void Painter::paintSky(Picture& picture) const
{
    const int rows = std::min(scene_.height, static_cast<int>(horizonRow_) + 40);
    // Skies are soft: every other pixel of every other row is enough.
    Picture coarse(scene_.width / 2 + 1, rows / 2 + 1);
    for (int y = 0; y < coarse.height(); ++y)
        for (int x = 0; x < coarse.width(); ++x) {
            Direction view = viewOf(2 * static_cast<float>(x), 2 * static_cast<float>(y));
            view.y = std::max(view.y, 0.0F);
            Light light = sky(view);
            if (scene_.isNight) {
                const float across = std::atan2(view.x, view.z) * 5.0F;
                Light curtain;
                for (int fold = 0; fold < 3; ++fold) {
                    const auto number = static_cast<float>(fold);
                    const float sway =
                        noise::hills(across * 0.55F + number * 3.7F, view.y * 1.2F, 4, scene_.seed + 600);
                    const float foot = 0.10F + 0.09F * number + 0.22F * sway;
                    const float above = view.y - foot;
                    const float rays =
                        0.55F + 0.9F * noise::hills(across * 9.0F + 6 * sway, number, 4, scene_.seed + 610);
                    const float strength = ramp(-0.015F, 0.02F, above) * std::exp(-std::max(0.0F, above) * 7.5F) *
                                           rays / (1.0F + 0.6F * number);
                    const float height = std::clamp(above * 4.0F, 0.0F, 1.0F);
                    curtain = curtain + mix(Light{0.06F, 0.62F, 0.30F}, Light{0.30F, 0.10F, 0.42F}, height) *
                                            std::max(0.0F, 0.85F * strength);
                }
                light = light + curtain;
            }
            coarse.at(x, y) = clouds(light, view);
        }
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < scene_.width; ++x) {
            const Direction view = viewOf(static_cast<float>(x), static_cast<float>(y));
            Light light = coarse.between(0.5F * static_cast<float>(x), 0.5F * static_cast<float>(y));
            const float cosine = view.x * sun_.x + view.y * sun_.y + view.z * sun_.z;
            if (cosine > 0.99F) {
                const float angle = std::acos(std::min(cosine, 1.0F)) / kRadians;
                const float disc = scene_.isNight ? ramp(0.75F, 0.55F, angle) : ramp(1.3F, 0.5F, angle);
                light = light + scene_.sun * (2.2F * disc + 0.35F * std::exp(-angle * 1.1F));
            }
            if (scene_.isNight) {
                const float star = noise::white(x / 3, y / 3, scene_.seed + 700);
                if (star > 0.9991F)
                    light = light + Light{0.9F, 0.95F, 1.1F} * ((star - 0.9991F) * 900.0F * ramp(0.0F, 0.3F, view.y));
            }
            picture.at(x, y) = light;
        }
}

void Painter::paintColumn(Picture& picture, int x, std::vector<float>& waterDistance) const
{
    const float right = (static_cast<float>(x) - 0.5F * static_cast<float>(scene_.width)) / focal_;
    const float heading = scene_.cameraHeading * kRadians;
    const float alongX = std::sin(heading) + right * std::cos(heading);
    const float alongZ = std::cos(heading) - right * std::sin(heading);
    auto lowest = static_cast<float>(scene_.height);
    std::optional<Seen> before;
    const float stretch = 2600.0F / focal_;
    for (float depth = 40; depth < kFarthest && lowest > 0; depth *= 1.0F + 0.0018F * stretch) {
        const float atX = standX_ + alongX * depth;
        const float atZ = standZ_ + alongZ * depth;
        float height = groundHeight(atX, atZ);
        const float ground = height;
        if (height <= scene_.waterLevel) {
            height = scene_.waterLevel;
        } else if (depth < 9000) {
            const float wood = woodAt(atX, atZ, ground);
            float shade = 0;
            if (wood > 0.02F)
                height +=
                    depth < 5200
                        ? treeHeight(atX, atZ, wood, shade)
                        : 12.0F * wood * noise::white(static_cast<int32_t>(atX / 8), static_cast<int32_t>(atZ / 8), 5);
        }
        // The earth falls away from the horizon.
        height -= depth * depth / 13.0e6F;
        const float row = horizonRow_ - focal_ * (height - eye_) / depth;
        if (row >= lowest)
            continue;
        Direction view = viewOf(static_cast<float>(x), row);
        const Seen seen = look(atX, atZ, depth, view);
        const int first = std::max(0, static_cast<int>(std::ceil(row)));
        const int last = std::min(scene_.height - 1, static_cast<int>(std::ceil(lowest)) - 1);
        const bool isSteady = before && before->isWater == seen.isWater && last - first < 40;
        for (int y = first; y <= last; ++y) {
            const float share = isSteady ? (static_cast<float>(y) - row) / std::max(lowest - row, 1e-3F) : 0.0F;
            if (seen.isWater) {
                const float up = (horizonRow_ - static_cast<float>(y)) / focal_;
                waterDistance[static_cast<size_t>(y) * static_cast<size_t>(scene_.width) + static_cast<size_t>(x)] =
                    std::min(kFarthest, (scene_.waterLevel - eye_) / std::min(up, -1e-4F));
            } else {
                picture.at(x, y) = share > 0 ? mix(seen.light, before->light, share) : seen.light;
            }
        }
        lowest = std::min(lowest, static_cast<float>(first));
        before = seen;
    }
}

void Painter::paintWater(Picture& picture, const std::vector<float>& waterDistance) const
{
    const Picture dry = picture;
    for (int y = 0; y < scene_.height; ++y)
        for (int x = 0; x < scene_.width; ++x) {
            const float distance =
                waterDistance[static_cast<size_t>(y) * static_cast<size_t>(scene_.width) + static_cast<size_t>(x)];
            if (distance <= 0)
                continue;
            const Direction view = viewOf(static_cast<float>(x), static_cast<float>(y));
            const float atX = standX_ + view.x * distance;
            const float atZ = standZ_ + view.z * distance;
            // Waves tilt the mirror: mostly up and down, as they are seen at a flat angle.
            const float calm = 1.0F / (1.0F + distance / 900.0F);
            const float small = distance < 6000
                                    ? noise::hills(atX / 3.1F, atZ / 3.1F, distance < 400 ? 5 : 3, scene_.seed + 500)
                                    : 0.0F;
            const float large = noise::hills(atX / 46.0F, atZ / 46.0F, 3, scene_.seed + 510);
            const float far =
                noise::hills(static_cast<float>(x) / 90.0F, static_cast<float>(y) * 0.7F, 3, scene_.seed + 520);
            const float tilt = scene_.waveHeight * (0.55F * small * calm + 0.16F * large + 0.30F * far * (1.0F - calm));
            const float scale = 0.05F * static_cast<float>(scene_.height);
            const float below = static_cast<float>(y) - horizonRow_;
            const float row = horizonRow_ - below * (1.0F + 0.35F * tilt) - std::abs(tilt) * scale;
            // Above the picture there is sky like that at its upper edge.
            const Light mirrored = dry.between(static_cast<float>(x) + 0.25F * scale * tilt, std::max(row, 0.0F));
            const float grazing = std::clamp(1.0F + view.y, 0.0F, 1.0F);
            const float mirror = 0.04F + 0.96F * std::pow(grazing, 6.0F);
            const Light deep = mix(scene_.zenith, Light{0.02F, 0.07F, 0.07F}, 0.65F) * 0.45F;
            Light light = mix(deep, mirrored * 0.94F, mirror);
            light = light * (1.0F + 0.10F * small * calm * scene_.waveHeight);
            picture.at(x, y) = air(light, 0.7F * distance, scene_.waterLevel, view);
        }
}

Picture Painter::paint()
{
    Picture picture(scene_.width, scene_.height);
    std::vector<float> waterDistance(static_cast<size_t>(scene_.width) * static_cast<size_t>(scene_.height));
    paintSky(picture);
    for (int x = 0; x < scene_.width; ++x)
        paintColumn(picture, x, waterDistance);
    if (scene_.waterLevel > -1e5F)
        paintWater(picture, waterDistance);
    return picture;
}

} // namespace

Picture paint(const Landscape& scene)
{
    return Painter(scene).paint();
}
