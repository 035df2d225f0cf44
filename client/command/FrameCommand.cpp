#include "client/command/FrameCommand.h"

#include <stillora/Movie.h>
#include <stillora/Photos.h>

#include "client/command/CommandOutput.h"
#include "client/command/FileIdentity.h"
#include "platform/foundation/NSFileManager.h"
#include "platform/graphics/NSImage.h"
#include "video/FramePlacement.h"
#include "video/PhotoFrame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using platform::CGImage;
using platform::CGRect;
using platform::NSURL;

using Colour = std::array<uint8_t, 3>;
constexpr Colour kBlack = {0, 0, 0};
constexpr Colour kFaceColour = {255, 220, 0};
constexpr Colour kUnionColour = {0, 255, 128};

void fill(CGImage& image, int64_t left, int64_t top, int64_t right, int64_t bottom, const Colour& colour)
{
    const auto inside = [](int64_t value, size_t limit) {
        return static_cast<size_t>(std::clamp<int64_t>(value, 0, static_cast<int64_t>(limit)));
    };
    for (size_t y = inside(top, image.height); y < inside(bottom, image.height); ++y)
        for (size_t x = inside(left, image.width); x < inside(right, image.width); ++x)
            std::copy(colour.begin(), colour.end(), image.row(y) + x * 4 + 1);
}

/// A line `width` pixels wide around the rectangle, whose origin is the lower left corner.
void drawOutline(CGImage& image, const CGRect& rect, int64_t width, const Colour& colour)
{
    const int64_t left = std::lround(rect.origin.x);
    const int64_t right = std::lround(rect.origin.x + rect.size.width);
    const int64_t top = std::lround(static_cast<double>(image.height) - rect.origin.y - rect.size.height);
    const int64_t bottom = std::lround(static_cast<double>(image.height) - rect.origin.y);
    fill(image, left - width, top - width, right + width, top, colour);
    fill(image, left - width, bottom, right + width, bottom + width, colour);
    fill(image, left - width, top, left, bottom, colour);
    fill(image, right, top, right + width, bottom, colour);
}

/// Every face, and what they cover together, as they lie in the frame; those outside are not seen.
void drawFaces(CGImage& image, const PhotoFrame& frame)
{
    const int64_t width = std::max<int64_t>(2, static_cast<int64_t>(image.height) / 240);
    const auto draw = [&](CGRect rect, const Colour& colour) {
        rect.origin.x += frame.origin.x;
        rect.origin.y += frame.origin.y;
        // A dark rim, so that the line is seen on a photo of its own colour.
        drawOutline(image, rect, width + std::max<int64_t>(1, width / 2), kBlack);
        drawOutline(image, rect, width, colour);
    };
    if (frame.faces.size() > 1)
        draw(unionOfFaces(frame.faces), kUnionColour);
    for (const CGRect& face : frame.faces)
        draw(face, kFaceColour);
}

/// The pixels of the frame; null if they cannot be read.
std::shared_ptr<CGImage> imageOf(const PhotoFrame& frame)
{
    platform::CVPixelBuffer& buffer = *frame.buffer;
    if (buffer.lockBaseAddress() != platform::kCVReturnSuccess)
        return nullptr;
    auto image = std::make_shared<CGImage>();
    image->width = buffer.width();
    image->height = buffer.height();
    image->bytesPerRow = buffer.bytesPerRow();
    image->pixels.assign(buffer.baseAddress(), buffer.baseAddress() + image->bytesPerRow * image->height);
    buffer.unlockBaseAddress();
    return image;
}

std::string facesText(size_t count)
{
    return count == 0 ? "no faces" : fmt::format("{} face{}", count, count == 1 ? "" : "s");
}

} // namespace

Parsed<FrameOptions> parseFrame(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("frame", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    FrameOptions options;
    options.output = given.value("output").value_or("");
    options.reducesBorders = given.has("reduce-borders");
    options.showsFaces = given.has("show-faces");
    std::string fault;
    if (const auto quality = given.value("quality"))
        fault = readQuality(*quality, options.quality);
    if (fault.empty())
        fault = readOnly(given, "photo", options.photo);
    if (fault.empty() && options.output.empty())
        fault = "-o takes the path of the PNG file to be made";
    if (!fault.empty())
        return usageError(fault, "frame");
    return options;
}

int runFrameCommand(const FrameOptions& options)
{
    CommandOutput output({});
    const auto fail = [&](ExitStatus status, const std::string& reason) { return output.fail(status, reason); };
    const CheckedPhotos checked =
        checkPhotos({{options.photo, PhotoCandidate::Origin::Named}}, [](size_t) { return true; });
    if (checked.good.empty())
        return fail(kExitBadInput, checked.bad.empty()
                                       ? options.photo + ": it is no photo"
                                       : fmt::format("{}: {}", options.photo, checked.bad.front().reason));
    if (areSameFile(options.photo, options.output))
        return fail(kExitUsage, "the frame would replace the photo " + options.photo);

    const PhotoFacts& photo = checked.good.front();
    const Size frameSize = frameSizeForQuality(options.quality, checked.good);
    const platform::CGSize size = {frameSize.width, frameSize.height};
    const auto frame = renderPhotoFrame({.photo = NSURL::fileURLWithPath(photo.path.native()),
                                         .photoSize = {photo.size.width, photo.size.height},
                                         .frame = size,
                                         .reduceBorders = options.reducesBorders,
                                         .carriesWatermark = carriesWatermark(0, 1),
                                         .alwaysFindsFaces = options.showsFaces});
    auto image = frame ? imageOf(*frame) : nullptr;
    if (!image)
        return fail(kExitFailed, options.photo + ": no frame could be made of it");
    if (options.showsFaces)
        drawFaces(*image, *frame);

    const auto file = platform::NSImage(std::move(image), {}).pngData();
    platform::NSError error;
    if (!file)
        return fail(kExitFailed, "there is not enough memory for the picture");
    if (!platform::NSFileManager::defaultManager().writeContents(*file, NSURL::fileURLWithPath(options.output), &error))
        return fail(kExitFailed, error.localizedDescription);

    // Where nobody looked for faces, nothing is said of them.
    const bool saysFaces = options.showsFaces || options.reducesBorders;
    output.note(fmt::format("{:.0f} x {:.0f}{}", size.width, size.height,
                            saysFaces ? ", " + facesText(frame->faces.size()) : ""));
    return output.succeed(options.output, output.resultOf(options.output));
}

} // namespace stillora
