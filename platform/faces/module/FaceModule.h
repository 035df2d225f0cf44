#pragma once

#include <cstddef>
#include <cstdint>

/// What the program and the loadable module of the face detector say to each other: plain C, so that neither needs the
/// other's libraries and nothing is thrown across. Errors come back as text.

extern "C" {

/// A face in pixels of the picture, inside it; (x, y) is the upper left corner.
struct FaceModuleFace {
    double x;
    double y;
    double width;
    double height;
};

/// A picture: rows of 4-byte pixels X R G B, top row first.
struct FaceModulePicture {
    const uint8_t* pixels;
    size_t width;
    size_t height;
    size_t bytesPerRow;
};

/// The functions of a module. One finder is for one thread at a time; different ones may run at once.
struct FaceModule {
    /// kFaceModuleVersion of the header that the module was built with.
    uint32_t version;

    /// Makes a finder from a model file.
    /// @param reason  out: on failure one sentence, cut off at `reasonSize` with its terminating zero
    /// @return null on failure
    void* (*open)(const char* modelPath, char* reason, size_t reasonSize);

    /// Finds faces, the surest first.
    /// @param faces  out: as many as are found, at most `capacity`
    /// @return their number; -1 on failure, with `reason` as in `open`
    int64_t (*find)(void* finder, const FaceModulePicture* picture, FaceModuleFace* faces, size_t capacity,
                    char* reason, size_t reasonSize);

    void (*close)(void* finder);
};

} // extern "C"

inline constexpr uint32_t kFaceModuleVersion = 1;

/// The one symbol of a module: a `FaceModule`.
inline constexpr const char* kFaceModuleSymbol = "faceModule";
