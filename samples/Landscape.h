#pragma once

#include "samples/Picture.h"

#include <cstdint>

/// The shape of the ground.
enum class Ground { Alps, Hills, Dunes, Mesas };

/// What stands before the camera. Lengths are metres, angles degrees.
struct Landscape {
    int width = 4000;
    int height = 3000;
    uint32_t seed = 1;

    Ground ground = Ground::Alps;
    /// Height of the highest summits over the deepest valleys.
    float relief = 1200;
    /// Size of the largest forms.
    float formSize = 2600;
    float waterLevel = -1e6F;
    float snowLine = 1e6F;
    float treeLine = -1e6F;
    /// The share of the ground below the tree line that is wood.
    float woodCover = 0.6F;
    Light grass{0.10F, 0.16F, 0.05F};
    Light wood{0.030F, 0.060F, 0.024F};
    /// The colour that single trees turn towards.
    Light woodAccent{0.055F, 0.085F, 0.028F};
    Light rock{0.20F, 0.185F, 0.17F};

    /// How far open water reaches before the camera.
    float waterRun = 500;
    /// Mean height of the skyline over the eye, as rise over run.
    float skyline = 0.10F;
    /// Over the ground or the water, whichever is higher.
    float cameraHeight = 60;
    float cameraHeading = 0;
    /// Where the horizon lies, as a share of the picture's height from the top.
    float horizon = 0.45F;
    /// Across the longer side.
    float fieldOfView = 62;

    /// Against the camera's heading; right is positive.
    float sunAzimuth = 40;
    float sunElevation = 25;
    Light sun{3.2F, 2.9F, 2.5F};
    Light zenith{0.10F, 0.22F, 0.55F};
    Light low{0.50F, 0.66F, 0.90F};
    /// The sky's colour around the sun.
    Light glow{1.0F, 0.85F, 0.6F};
    /// Angle at which the glow has faded to a third.
    float glowWidth = 16;
    /// Share of the sky that is clouded, about 0 to 1.
    float clouds = 0.4F;
    Light cloudLit{1.15F, 1.10F, 1.05F};
    Light cloudShaded{0.42F, 0.46F, 0.55F};
    /// Distance at which the air hides two thirds of what is behind it.
    float clearness = 14000;
    /// Height over the water or valley at which low fog has thinned to a third; zero for none.
    float fogHeight = 0;
    /// A night sky with stars and northern lights.
    bool isNight = false;
    float waveHeight = 1;
};

/// Paints the landscape: ground by marching one ray for each column from near to far, then what the water mirrors.
Picture paint(const Landscape& scene);
