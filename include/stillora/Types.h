#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace stillora {

/// A length of time, or a time from the start of a file.
using Seconds = std::chrono::duration<double>;

/// The contents of a file.
using Bytes = std::vector<std::byte>;

/// Pixels. Whole numbers, but for what a document of another program says.
struct Size {
    double width = 0;
    double height = 0;

    friend bool operator==(const Size&, const Size&) = default;
};

/// An sRGB colour; every component from 0 to 1.
struct Color {
    double red = 0;
    double green = 0;
    double blue = 0;

    friend bool operator==(const Color&, const Color&) = default;
};

/// Whether frames carry the service's watermark.
enum class Watermark {
    /// As the user's settings say, and where they say nothing as the library was built.
    Usual,
    Drawn,
    Absent,
};

/// A file that cannot be used, and why.
struct BadFile {
    std::filesystem::path path;
    /// One sentence without the path.
    std::string reason;
    /// Its place in the list that was given.
    std::size_t index = 0;
};

} // namespace stillora
