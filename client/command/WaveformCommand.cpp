#include "client/command/WaveformCommand.h"

#include <stillora/Localization.h>

#include "audio/MORAudioWaveImage.h"
#include "client/Text.h"
#include "client/command/FileIdentity.h"
#include "client/command/SoundCommand.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSFileManager.h"
#include "platform/foundation/NSLog.h"
#include "platform/graphics/NSImage.h"
#include "platform/media/AVURLAsset.h"

#include <charconv>
#include <memory>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using platform::CGContext;
using platform::CGRect;
using platform::NSImage;
using platform::NSImagePtr;
using platform::NSURL;

/// Keeps the first line of the log: what went wrong in reading is told there alone.
class LogWatch final {
public:
    LogWatch()
    {
        platform::setLogSink([state = state_](const std::string& line) {
            const platform::LockGuard guard(state->lock);
            if (state->line.empty())
                state->line = line;
        });
    }
    ~LogWatch() { platform::setLogSink({}); }
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /// Empty if nothing was logged.
    std::string line() const
    {
        const platform::LockGuard guard(state_->lock);
        return state_->line;
    }

private:
    struct State {
        platform::Lock lock;
        std::string line GUARDED_BY(lock);
    };
    const std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// What the line says, without the operation before and the consequence after it.
std::string reasonIn(const std::string& line)
{
    const size_t start = line.find(" - ");
    const std::string reason = start == std::string::npos ? line : line.substr(start + 3);
    return reason.substr(0, reason.rfind(", responding with"));
}

NSImagePtr onWhite(const NSImagePtr& image)
{
    const auto pixels = image->image();
    if (!pixels)
        return image;
    return NSImage::imageWithSize(image->size(), CGContext::Origin::LowerLeft,
                                  [pixels](CGContext& context, CGRect rect) {
                                      context.setFillColor({.red = 1, .green = 1, .blue = 1});
                                      context.fillRect(rect);
                                      context.drawImage(rect, *pixels);
                                      return true;
                                  });
}

std::optional<int> pixelsOf(std::string_view text)
{
    int pixels = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), pixels);
    if (failure != std::errc() || end != text.data() + text.size() || pixels < 1 ||
        pixels > WaveformOptions::kMostPixels)
        return std::nullopt;
    return pixels;
}

std::string readSize(const std::string& text, WaveformOptions& options)
{
    const size_t cross = text.find('x');
    const auto width = pixelsOf(std::string_view(text).substr(0, cross));
    const auto height = cross == std::string::npos ? std::nullopt : pixelsOf(std::string_view(text).substr(cross + 1));
    if (!width || !height)
        return fmt::format("--size takes WIDTHxHEIGHT, each from 1 to {}, not \"{}\"", WaveformOptions::kMostPixels,
                           text);
    options.width = *width;
    options.height = *height;
    return {};
}

} // namespace

Parsed<WaveformOptions> parseWaveform(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("waveform", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    WaveformOptions options;
    options.output = given.value("output").value_or("");
    options.ground = given.has("on-white") ? WaveformOptions::Ground::White : WaveformOptions::Ground::Clear;
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    std::string fault;
    if (const auto size = given.value("size"))
        fault = readSize(*size, options);
    if (fault.empty())
        fault = readSound(given, options.sound);
    if (fault.empty() && options.output.empty())
        fault = "-o takes the path of the PNG file to be made";
    if (!fault.empty())
        return usageError(fault, "waveform");
    return options;
}

int runWaveformCommand(const WaveformOptions& options)
{
    SoundCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "waveform"});
    if (areSameFile(options.sound.path.native(), options.output))
        return command.fail(kExitUsage, "the picture would replace the sound " + options.sound.path.native());
    int status = kExitDone;
    const auto sound = command.check(options.sound, status);
    if (!sound)
        return status;

    struct State {
        bool isDone = false;
        NSImagePtr image;
    };
    const auto state = std::make_shared<State>();
    const LogWatch log;
    const auto asset =
        std::make_shared<platform::AVURLAsset>(NSURL::fileURLWithPath(sound->path.native()),
                                               platform::AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
    MORAudioWaveImage::loadWaveFormImageAsynchronouslyForTimeRange(
        asset, timeRangeOf(*sound), {static_cast<double>(options.width), static_cast<double>(options.height)},
        [state](NSImagePtr image, const std::optional<platform::NSError>&) {
            state->image = std::move(image);
            state->isDone = true;
        });
    if (!command.waitFor(localized("Drawing the sound"), [&] { return state->isDone; }))
        return command.stopped();
    if (const std::string line = log.line(); !line.empty())
        return command.fail(kExitBadInput, fmt::format("{}: {}", sound->path.native(), reasonIn(line)));
    if (!state->image)
        return command.fail(kExitBadInput, sound->path.native() + ": it cannot be read any more");

    const NSImagePtr image = options.ground == WaveformOptions::Ground::White ? onWhite(state->image) : state->image;
    const auto file = image->pngData();
    platform::NSError error;
    if (!file)
        return command.fail(kExitFailed, "there is not enough memory for the picture");
    if (!platform::NSFileManager::defaultManager().writeContents(*file, NSURL::fileURLWithPath(options.output), &error))
        return command.fail(kExitFailed, error.localizedDescription);
    command.note(fmt::format("{} x {}, {}", options.width, options.height, secondsText(sound->length)));
    return command.succeed(options.output, command.resultOf(options.output)
                                               .add("width", options.width)
                                               .add("height", options.height)
                                               .add("seconds", sound->length.count()));
}

} // namespace stillora
