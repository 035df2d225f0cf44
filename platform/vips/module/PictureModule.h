#pragma once

#include <cstddef>
#include <cstdint>

/// What the program and the loadable module of rarer picture formats say to each other: plain C, so that neither needs
/// the other's libraries and nothing is thrown across.

extern "C" {

/// A file that the module reads in its own order.
struct PictureModuleFile {
    void* context;
    int64_t length;
    /// @return bytes read; 0 at the end, -1 on failure
    int64_t (*readAt)(void* context, int64_t offset, void* bytes, int64_t count);
};

/// What a file's header says. The bytes are the module's, until the picture is closed.
struct PictureModuleHeader {
    size_t width;
    size_t height;
    /// 1 to 8, or another number where none is stated.
    int orientation;
    bool hasResolution;
    double pixelsPerMillimetre;
    const uint8_t* exif;
    size_t exifLength;
    const uint8_t* profile;
    size_t profileLength;
};

/// How the samples of a picture's rows are to be understood.
struct PictureModuleRows {
    /// 1 brightness, 3 red, green and blue, 4 inks.
    size_t colorBands;
    /// Alpha follows the colours.
    bool hasAlpha;
    /// 8 or 16.
    unsigned depth;
    /// The colours were brought to sRGB, whatever the header says of them.
    bool isConverted;
};

/// The functions of the module. One picture is for one thread at a time; different ones may be used at once.
struct PictureModule {
    /// kPictureModuleVersion of the header that the module was built with.
    uint32_t version;

    /// Gets the library ready; once, before anything else. Loads what it needs.
    bool (*start)();

    /// @param format  "png", "webp", "tiff", "gif", "heic" or "avif"
    /// @param file    outlives the picture
    /// @return null where the header cannot be read
    void* (*open)(const char* format, const PictureModuleFile* file, PictureModuleHeader* header);

    /// @return false where the pixels are of a kind that is not known
    bool (*describe)(void* picture, PictureModuleRows* rows);

    /// Hands over row after row, interleaved samples of the depth that was told, until the end, the first damage or the
    /// first row after which no more are wanted. After `describe`, and once.
    /// @param takeRow  answers whether to go on
    /// @return how many were handed over
    size_t (*read)(void* picture, void* context, bool (*takeRow)(void* context, const void* samples));

    void (*close)(void* picture);

    /// Makes a file of red, green and blue, and alpha where there are four bands.
    /// @param format  "gif" or "jp2"
    /// @param factor  0 to 1, for JPEG 2000: 1 keeps every pixel as it is
    /// @param length  out: bytes of the file
    /// @return the file, which `release` frees; null on failure
    uint8_t* (*save)(const char* format, const uint8_t* samples, size_t width, size_t height, size_t bands,
                     double factor, size_t* length);
    void (*release)(uint8_t* file);
};

} // extern "C"

inline constexpr uint32_t kPictureModuleVersion = 2;

/// The one symbol of the module: a `PictureModule`.
inline constexpr const char* kPictureModuleSymbol = "pictureModule";
