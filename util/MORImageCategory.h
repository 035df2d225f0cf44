#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/NSBitmapImageRep.h"
#include "platform/graphics/NSImage.h"

#include <optional>
#include <string_view>

/// Helpers for pictures. What fails gives nothing, and no message. Any thread unless told otherwise.
namespace MORImageCategory {

/// The average colour of a picture file, as a device colour; an exact grey for what is nearly one. Of a thumbnail of at
/// most 48 pixels a side; where none can be made, of the whole picture. Components are no numbers for what is no
/// picture.
platform::NSColor averageColorOfImageAtURL(const platform::NSURL& url);

/// The picture scaled so that its longer side (the height of a square) becomes that of the target. A picture whose
/// shape is flatter than the target's can come out taller than it.
///
/// @param target  points; the zero size keeps the picture's own
/// @return an image whose size may be fractional, with whole pixels that cover it; null without a picture
platform::NSImagePtr initWithCGImage(const platform::CGImagePtr& image,
                                     platform::CGSize fitInSizeRespectingAspectRatio);

/// @name The image as a file of its pixels; nothing if it has none.
///
/// @param compression  0 to 1, used by JPEG and JPEG 2000 alone; 1 keeps the most
/// @{
std::optional<platform::NSData> representationForFileType(const platform::NSImage& image,
                                                          platform::NSBitmapImageFileType fileType,
                                                          double withCompression);
std::optional<platform::NSData> JPEGRepresentationWithCompression(const platform::NSImage& image, double compression);
std::optional<platform::NSData> JPEG2000RepresentationWithCompression(const platform::NSImage& image,
                                                                      double compression);
std::optional<platform::NSData> PNGRepresentation(const platform::NSImage& image);
std::optional<platform::NSData> GIFRepresentation(const platform::NSImage& image);
std::optional<platform::NSData> BMPRepresentation(const platform::NSImage& image);
/// @}

/// @name The image in one of the pasteboard's types, converted by it. They share one pasteboard: one thread at a time.
/// @{
std::optional<platform::NSData> dataForPboardType(const platform::NSImage& image, std::string_view type);
std::optional<platform::NSData> PDFRepresentation(const platform::NSImage& image);
/// @}

} // namespace MORImageCategory
