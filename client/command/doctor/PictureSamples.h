#pragma once

#include <array>
#include <string>
#include <string_view>

namespace stillora {

/// A small grey picture of a format that photos may have.
struct PictureSample {
    /// For programs.
    std::string_view identifier;
    /// In English.
    const char* name;
    /// Its usual extension.
    std::string_view extension;
    /// The Debian package that decodes it.
    std::string_view package;
    /// Its bytes, two digits each.
    std::string_view digits;

    std::string bytes() const;
};

/// One of each format.
const std::array<PictureSample, 9>& pictureSamples();

} // namespace stillora
