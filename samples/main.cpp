// Makes the samples: a dozen landscapes as a camera would have taken them, and music to go with them. The same on every
// machine.
#include "samples/Landscape.h"
#include "samples/Music.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace {

struct Sample {
    const char* name;
    Shot shot;
    Landscape scene;
};

std::vector<Sample> samples()
{
    return {
        {"01 Morning at the lake",
         {1, "2023:06:03 05:41:12"},
         {.width = 4032,
          .height = 3024,
          .seed = 11,
          .relief = 1500,
          .formSize = 3000,
          .waterLevel = 330,
          .snowLine = 860,
          .treeLine = 560,
          .cameraHeight = 9,
          .cameraHeading = 35,
          .horizon = 0.52F,
          .sunAzimuth = -55,
          .sunElevation = 16,
          .sun = {3.4F, 2.6F, 1.8F},
          .glow = {0.9F, 0.6F, 0.35F},
          .clouds = 0.22F,
          .fogHeight = 9,
          .waveHeight = 0.35F}},
        {"02 High pass",
         {6, "2023:06:03 11:20:47"},
         {.width = 3000,
          .height = 4000,
          .seed = 4,
          .relief = 1900,
          .formSize = 2800,
          .snowLine = 760,
          .treeLine = 420,
          .cameraHeight = 120,
          .cameraHeading = 200,
          .horizon = 0.36F,
          .sunAzimuth = 70,
          .sunElevation = 42,
          .clouds = 0.36F}},
        {"03 Dunes",
         {1, "2023:06:04 18:55:03"},
         {.width = 4240,
          .height = 2832,
          .seed = 23,
          .ground = Ground::Dunes,
          .relief = 260,
          .formSize = 900,
          .rock = {0.36F, 0.19F, 0.085F},
          .cameraHeight = 70,
          .cameraHeading = 80,
          .horizon = 0.40F,
          .sunAzimuth = 78,
          .sunElevation = 14,
          .sun = {3.6F, 2.5F, 1.4F},
          .zenith = {0.10F, 0.20F, 0.46F},
          .low = {0.62F, 0.60F, 0.62F},
          .glow = {0.9F, 0.5F, 0.25F},
          .clouds = 0.05F,
          .clearness = 11000}},
        {"04 Islands at sunset",
         {1, "2023:06:05 20:48:30"},
         {.width = 4000,
          .height = 2667,
          .seed = 31,
          .ground = Ground::Hills,
          .relief = 520,
          .formSize = 2300,
          .waterLevel = 275,
          .treeLine = 480,
          .cameraHeight = 30,
          .cameraHeading = 130,
          .horizon = 0.55F,
          .sunAzimuth = 9,
          .sunElevation = 4.5F,
          .sun = {3.2F, 1.5F, 0.6F},
          .zenith = {0.05F, 0.08F, 0.22F},
          .low = {0.30F, 0.15F, 0.10F},
          .glow = {1.5F, 0.55F, 0.16F},
          .glowWidth = 13,
          .clouds = 0.34F,
          .cloudLit = {1.1F, 0.52F, 0.30F},
          .cloudShaded = {0.24F, 0.18F, 0.26F},
          .clearness = 9000,
          .waveHeight = 0.9F}},
        {"05 Autumn woods",
         {8, "2023:10:14 14:02:55"},
         {.width = 2448,
          .height = 3264,
          .seed = 42,
          .ground = Ground::Hills,
          .relief = 620,
          .formSize = 1700,
          .treeLine = 5000,
          .woodCover = 0.78F,
          .grass = {0.19F, 0.16F, 0.05F},
          .wood = {0.16F, 0.055F, 0.012F},
          .woodAccent = {0.42F, 0.23F, 0.03F},
          .cameraHeight = 95,
          .cameraHeading = 300,
          .horizon = 0.30F,
          .sunAzimuth = -70,
          .sunElevation = 30,
          .sun = {3.3F, 2.8F, 2.1F},
          .clouds = 0.42F,
          .clearness = 8000}},
        {"06 Red mesas",
         {1, "2023:09:21 17:37:09"},
         {.width = 4288,
          .height = 2848,
          .seed = 57,
          .ground = Ground::Mesas,
          .relief = 620,
          .formSize = 1500,
          .grass = {0.23F, 0.13F, 0.065F},
          .rock = {0.42F, 0.165F, 0.075F},
          .cameraHeight = 85,
          .cameraHeading = 15,
          .horizon = 0.42F,
          .sunAzimuth = -105,
          .sunElevation = 21,
          .sun = {3.5F, 2.7F, 1.9F},
          .clouds = 0.30F,
          .clearness = 16000}},
        {"07 Valley in the mist",
         {1, "2023:10:15 07:15:41"},
         {.width = 4000,
          .height = 3000,
          .seed = 66,
          .relief = 900,
          .formSize = 1900,
          .treeLine = 900,
          .woodCover = 0.8F,
          .cameraHeight = 240,
          .cameraHeading = 250,
          .horizon = 0.34F,
          .sunAzimuth = 24,
          .sunElevation = 11,
          .sun = {2.8F, 2.2F, 1.6F},
          .zenith = {0.20F, 0.32F, 0.52F},
          .low = {0.46F, 0.48F, 0.52F},
          .glow = {0.95F, 0.66F, 0.36F},
          .clouds = 0.12F,
          .clearness = 5200,
          .fogHeight = 95}},
        {"08 Northern lights",
         {1, "2023:11:30 23:12:18"},
         {.width = 4032,
          .height = 2688,
          .seed = 71,
          .relief = 1300,
          .formSize = 2500,
          .waterLevel = 300,
          .snowLine = 420,
          .treeLine = 380,
          .cameraHeight = 7,
          .cameraHeading = 340,
          .horizon = 0.66F,
          .sunAzimuth = -130,
          .sunElevation = 32,
          .sun = {0.30F, 0.36F, 0.46F},
          .zenith = {0.006F, 0.012F, 0.036F},
          .low = {0.030F, 0.055F, 0.085F},
          .glow = {0.0F, 0.0F, 0.0F},
          .clouds = -0.6F,
          .clearness = 22000,
          .isNight = true,
          .waveHeight = 0.45F}},
        {"09 Green hills",
         {3, "2024:05:12 10:44:26"},
         {.width = 3648,
          .height = 2736,
          .seed = 83,
          .ground = Ground::Hills,
          .relief = 330,
          .formSize = 1200,
          .treeLine = 5000,
          .woodCover = 0.34F,
          .grass = {0.085F, 0.14F, 0.035F},
          .cameraHeight = 70,
          .cameraHeading = 60,
          .horizon = 0.40F,
          .sunAzimuth = 95,
          .sunElevation = 38,
          .clouds = 0.46F}},
        {"10 Fjord",
         {1, "2024:07:02 12:31:00"},
         {.width = 3024,
          .height = 4032,
          .seed = 97,
          .relief = 1700,
          .formSize = 2500,
          .waterLevel = 420,
          .snowLine = 1050,
          .treeLine = 700,
          .cameraHeight = 14,
          .cameraHeading = 155,
          .horizon = 0.56F,
          .sunAzimuth = 60,
          .sunElevation = 34,
          .clouds = 0.40F,
          .clearness = 12000,
          .waveHeight = 0.55F}},
        {"11 Square of snow",
         {1, "2024:02:18 15:50:33"},
         {.width = 3024,
          .height = 3024,
          .seed = 103,
          .relief = 1500,
          .formSize = 2300,
          .snowLine = 260,
          .treeLine = 420,
          .woodCover = 0.45F,
          .cameraHeight = 110,
          .cameraHeading = 95,
          .horizon = 0.40F,
          .sunAzimuth = -80,
          .sunElevation = 15,
          .sun = {3.0F, 2.2F, 1.6F},
          .zenith = {0.09F, 0.20F, 0.50F},
          .low = {0.66F, 0.62F, 0.68F},
          .clouds = 0.18F,
          .cloudLit = {1.15F, 0.95F, 0.85F}}},
        {"12 Last light",
         {1, "2024:07:02 22:05:57"},
         {.width = 4608,
          .height = 2592,
          .seed = 118,
          .relief = 1300,
          .formSize = 2700,
          .waterLevel = 300,
          .snowLine = 1200,
          .treeLine = 620,
          .cameraHeight = 11,
          .cameraHeading = 275,
          .horizon = 0.57F,
          .sunAzimuth = -14,
          .sunElevation = 1.5F,
          .sun = {2.2F, 0.9F, 0.45F},
          .zenith = {0.05F, 0.075F, 0.22F},
          .low = {0.24F, 0.12F, 0.15F},
          .glow = {0.95F, 0.30F, 0.10F},
          .glowWidth = 15,
          .clouds = 0.30F,
          .cloudLit = {0.95F, 0.40F, 0.33F},
          .cloudShaded = {0.15F, 0.12F, 0.22F},
          .clearness = 10000,
          .fogHeight = 14,
          .waveHeight = 0.3F}},
    };
}

} // namespace

int main(int count, char** arguments)
{
    if (count < 2) {
        std::fprintf(stderr, "usage: %s FOLDER [NUMBER|music]...\n", arguments[0]);
        return 2;
    }
    const std::filesystem::path folder = arguments[1];
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure) {
        std::fprintf(stderr, "%s: %s\n", folder.c_str(), failure.message().c_str());
        return 1;
    }

    const std::vector<Sample> all = samples();
    std::vector<size_t> wanted;
    bool wantsMusic = false;
    for (int i = 2; i < count; ++i) {
        if (std::string_view(arguments[i]) == "music") {
            wantsMusic = true;
            continue;
        }
        wanted.push_back(std::clamp<size_t>(std::strtoul(arguments[i], nullptr, 10), 1, all.size()) - 1);
    }
    if (count == 2)
        for (size_t i = 0; i < all.size(); ++i)
            wanted.push_back(i);

    if (const auto file = folder / "Music.wav"; wantsMusic && !writeMusic(file)) {
        std::fprintf(stderr, "%s could not be written\n", file.c_str());
        return 1;
    }

    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    auto work = [&] {
        for (size_t turn = next++; turn < wanted.size(); turn = next++) {
            const Sample& sample = all[wanted[turn]];
            const auto file = folder / (std::string(sample.name) + ".jpg");
            if (!writePhoto(paint(sample.scene), sample.shot, sample.scene.seed, file)) {
                std::fprintf(stderr, "%s could not be written\n", file.c_str());
                failed = true;
            }
        }
    };
    {
        // A picture takes 300 MB while it is painted, so not one for every processor of a large machine.
        std::vector<std::jthread> painters;
        for (unsigned i = 0; i < std::clamp(std::thread::hardware_concurrency(), 1U, 4U); ++i)
            painters.emplace_back(work);
    }
    return failed ? 1 : 0;
}
