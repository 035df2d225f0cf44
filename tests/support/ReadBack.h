#pragma once

#include "platform/foundation/NSData.h"
#include "tests/support/TestPicture.h"

#include <string>

/// What programs of others see in files that we wrote.
namespace test {

struct Decoded {
    /// "png"
    std::string codec;
    /// Red, green, blue and alpha; no pixels where the program fails.
    Picture picture;
};

Decoded decodedByFFmpeg(const platform::NSData& file);

/// The only page of a PDF file as Poppler draws it, red, green and blue.
Picture drawnByPoppler(const platform::NSData& file, double dotsPerInch = 72);

/// The only picture that a PDF file holds, as Poppler takes it out.
Picture picturePopplerFinds(const platform::NSData& file);

/// An image of the picture; four bands are alpha last, colours not multiplied with it.
platform::CGImagePtr imageOf(const Picture& picture);

} // namespace test
