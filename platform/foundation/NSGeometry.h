#pragma once

#include <string>
#include <string_view>

namespace platform {

/// Width and height; pixels unless told otherwise.
struct CGSize {
    double width = 0;
    double height = 0;
    friend bool operator==(const CGSize&, const CGSize&) = default;
};

struct CGPoint {
    double x = 0;
    double y = 0;
    friend bool operator==(const CGPoint&, const CGPoint&) = default;
};

/// Origin and size; the origin is the lower left corner unless told otherwise.
struct CGRect {
    CGPoint origin;
    CGSize size;
    friend bool operator==(const CGRect&, const CGRect&) = default;
};

inline constexpr CGSize kNSZeroSize{};

/// "{%.17g, %.17g}" in the C locale: {0, 0}; {4000, 3000}.
std::string NSStringFromSize(CGSize size);

/// Reads the first two numbers of the text: width, then height. Never fails; what is missing is 0.
CGSize NSSizeFromString(std::string_view text);

} // namespace platform
