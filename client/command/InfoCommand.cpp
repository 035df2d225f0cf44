#include "client/command/InfoCommand.h"

#include <stillora/Files.h>
#include <stillora/Photos.h>
#include <stillora/Picture.h>

#include "client/command/making/FileIdentity.h"
#include "client/command/terminal/CommandOutput.h"
#include "client/command/terminal/Swatch.h"
#include "client/questions/FactsOfFile.h"
#include "client/text/JSONWriter.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/dispatch/NSOperationQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/LocaleEncoding.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

/// What a format is called where people read it.
std::string displayName(const std::string& format)
{
    constexpr std::pair<std::string_view, std::string_view> kNames[] = {
        {"webp", "WebP"},     {"jp2", "JPEG 2000"}, {"h264", "H.264"},  {"hevc", "HEVC"},
        {"vorbis", "Vorbis"}, {"opus", "Opus"},     {"mjpeg", "JPEG"},  {"prores", "ProRes"},
        {"mpeg4", "MPEG-4"},  {"mp3float", "MP3"},  {"speex", "Speex"},
    };
    for (const auto& [name, shown] : kNames)
        if (format == name)
            return std::string(shown);
    if (format.starts_with("pcm_"))
        return "PCM";
    std::string upper = format;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return upper;
}

std::string pixelsText(const Size& size)
{
    return localized("{} x {} pixels", static_cast<int64_t>(size.width), static_cast<int64_t>(size.height));
}

std::string channelsText(int channels)
{
    if (channels == 1)
        return localized("mono");
    if (channels == 2)
        return localized("stereo");
    return localized("{} channels", channels);
}

/// "2024-05-31 09:08:07.25 +02:00"
std::string dateText(const DateTaken& date)
{
    const std::string text = textOfDate(date);
    const size_t time = text.find('T') + 1;
    const size_t offset = std::min(text.size(), text.find_first_of("+-", time));
    return fmt::format("{} {}{}{}", text.substr(0, time - 1), text.substr(time, offset - time),
                       offset < text.size() ? " " : "", text.substr(offset));
}

/// A name and what is told under it.
using Row = std::pair<std::string, std::string>;

std::string kindText(const FileFacts& facts)
{
    const std::string bytes = bytesText(static_cast<double>(facts.bytes));
    switch (facts.kind) {
    case FileFacts::Kind::Photo:
        return localized("{} photo, {}", displayName(facts.pictureFormat), bytes);
    case FileFacts::Kind::Sound:
        return localized("{} sound, {}", displayName(facts.soundFormat), bytes);
    case FileFacts::Kind::Movie:
        break;
    }
    return localized("{} movie, {}", displayName(facts.pictureFormat), bytes);
}

std::vector<Row> rowsOf(const FileFacts& facts, TerminalColors colors)
{
    std::vector<Row> rows = {{localized("Kind"), kindText(facts)}};
    const auto add = [&](const std::string& name, std::string text) { rows.emplace_back(name, std::move(text)); };
    if (facts.kind != FileFacts::Kind::Sound)
        add(localized("Size"), pixelsText(facts.size));
    if (facts.orientation)
        add(localized("Orientation"), std::to_string(*facts.orientation));
    if (facts.averageColor) {
        const std::string shown = swatch(*facts.averageColor, colors);
        add(localized("Average colour"),
            fmt::format("{}{}{}", shown, shown.empty() ? "" : " ", hexOf(*facts.averageColor)));
    }
    if (facts.taken)
        add(localized("Taken"), dateText(*facts.taken));
    if (!facts.camera.empty())
        add(localized("Camera"), printable(facts.camera));
    if (facts.place)
        add(localized("Place"), fmt::format("{:.6f}, {:.6f}", facts.place->latitude, facts.place->longitude));
    if (facts.kind == FileFacts::Kind::Photo)
        return rows;
    // Of a movie, only what its tags tell: it is seen by its name.
    const bool isSound = facts.kind == FileFacts::Kind::Sound;
    if (isSound || facts.tags.title)
        add(localized("Title"), printable(facts.tags.shownTitle));
    if (isSound || facts.tags.artist)
        add(localized("Artist"), printable(facts.tags.shownArtist));
    if (isSound || facts.tags.album)
        add(localized("Album"), printable(facts.tags.shownAlbum));
    add(localized("Length"), lengthInWords(facts.length));
    if (facts.sampleRateHz > 0) {
        const std::string format = isSound ? std::string() : displayName(facts.soundFormat) + ", ";
        add(localized("Sound"), format + fmt::format("{} Hz, {}", facts.sampleRateHz, channelsText(facts.channels)));
    }
    if (facts.cover) {
        const std::string bytes = bytesText(static_cast<double>(facts.cover->picture.size()));
        add(localized("Cover"),
            facts.cover->format.empty()
                ? localized("no picture that can be read, {}", bytes)
                : fmt::format("{}, {}, {}", displayName(facts.cover->format), pixelsText(facts.cover->size), bytes));
    }
    return rows;
}

std::string textOf(const FileFacts& facts, TerminalColors colors)
{
    std::vector<Row> rows = rowsOf(facts, colors);
    for (Row& row : rows)
        row.first = platform::representableInLocale(row.first);
    int width = 0;
    for (const Row& row : rows)
        width = std::max(width, displayWidth(row.first));
    std::string text = printable(facts.path.native()) + "\n";
    for (const auto& [name, value] : rows)
        text += fmt::format("  {}{:{}}{}\n", name, "", width - displayWidth(name) + 2, value);
    return text;
}

JSONWriter& addText(JSONWriter& json, std::string_view key, const std::optional<std::string>& text)
{
    return text ? json.add(key, *text) : json.addNull(key);
}

JSONWriter jsonOf(const FileFacts& facts)
{
    constexpr std::array<std::string_view, 3> kKinds = {"photo", "sound", "movie"};
    JSONWriter json;
    json.add("path", facts.path.native()).add("ok", true).add("kind", kKinds[static_cast<size_t>(facts.kind)]);
    json.add("bytes", facts.bytes);
    if (facts.kind != FileFacts::Kind::Sound) {
        json.add("format", facts.pictureFormat);
        json.add("width", static_cast<int64_t>(facts.size.width))
            .add("height", static_cast<int64_t>(facts.size.height));
    }
    if (facts.kind == FileFacts::Kind::Photo) {
        facts.orientation ? json.add("orientation", *facts.orientation) : json.addNull("orientation");
        json.add("isCutOff", facts.isCutOff);
        facts.averageColor ? json.add("averageColor", hexOf(*facts.averageColor)) : json.addNull("averageColor");
        facts.taken ? json.add("taken", textOfDate(*facts.taken)) : json.addNull("taken");
        facts.camera.empty() ? json.addNull("camera") : json.add("camera", facts.camera);
        if (facts.place)
            json.add("latitude", facts.place->latitude).add("longitude", facts.place->longitude);
        else
            json.addNull("latitude").addNull("longitude");
        return json;
    }
    addText(json, "title", facts.tags.title);
    addText(json, "artist", facts.tags.artist);
    addText(json, "album", facts.tags.album);
    json.add("duration", facts.length.count());
    if (facts.soundFormat.empty())
        json.addNull("soundFormat").addNull("sampleRate").addNull("channels");
    else
        json.add("soundFormat", facts.soundFormat)
            .add("sampleRate", facts.sampleRateHz)
            .add("channels", facts.channels);
    if (!facts.cover)
        return json.addNull("cover");
    JSONWriter cover;
    if (facts.cover->format.empty())
        cover.addNull("format").addNull("width").addNull("height");
    else
        cover.add("format", facts.cover->format)
            .add("width", static_cast<int64_t>(facts.cover->size.width))
            .add("height", static_cast<int64_t>(facts.cover->size.height));
    return json.add("cover", cover.add("bytes", static_cast<int64_t>(facts.cover->picture.size())));
}

bool endsInPNG(const std::string& path)
{
    return platform::lowercaseASCII(platform::pathExtension(path)) == "png";
}

/// Saves the cover as it is embedded, unless the name asks for PNG and it is none.
/// @param reason  out: why it was not saved
ExitStatus saveCover(const FileFacts& facts, const std::string& output, std::string& reason)
{
    if (!facts.cover) {
        reason = localized("{} has no cover", facts.path.native());
        return kExitBadInput;
    }
    const bool isConverted = endsInPNG(output) && facts.cover->format != "png";
    const auto picture = isConverted ? pictureAsPNG(facts.cover->picture) : Result<Bytes>(facts.cover->picture);
    if (!picture) {
        reason = localized("the cover of {} is no picture that can be read", facts.path.native());
        return kExitBadInput;
    }
    reason = CommandOutput::save(*picture, output);
    return reason.empty() ? kExitDone : kExitFailed;
}

/// What is known of files, in their order. The next ones are looked at while one is shown, as many at a time as there
/// are processors.
class FactsAhead final {
public:
    explicit FactsAhead(const std::vector<std::string>& files) : files_(files), shared_(std::make_shared<Shared>())
    {
        const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
        queue_.setMaxConcurrentOperationCount(static_cast<int>(processors));
        while (next_ < processors * 2)
            lookAtNext();
    }
    ~FactsAhead()
    {
        shared_->goesOn = false;
        queue_.waitUntilAllOperationsAreFinished();
    }
    FactsAhead(const FactsAhead&) = delete;
    FactsAhead& operator=(const FactsAhead&) = delete;

    /// @param index  each once, in order
    Result<FileFacts> take(size_t index)
    {
        lookAtNext();
        const platform::LockGuard guard(shared_->lock);
        while (!shared_->found.contains(index))
            shared_->changed.wait(shared_->lock);
        return std::move(shared_->found.extract(index).mapped());
    }

private:
    struct Shared {
        std::atomic<bool> goesOn{true};
        platform::Lock lock;
        platform::Condition changed;
        std::map<size_t, Result<FileFacts>> found GUARDED_BY(lock);
    };

    void lookAtNext()
    {
        const size_t index = next_++;
        if (index >= files_.size())
            return;
        queue_.addOperationWithBlock([shared = shared_, index, file = files_[index]] {
            auto facts = factsOfFile(file, [&] { return shared->goesOn.load(); });
            const platform::LockGuard guard(shared->lock);
            shared->found.emplace(index, std::move(facts));
            shared->changed.notify_all();
        });
    }

    const std::vector<std::string>& files_;
    const std::shared_ptr<Shared> shared_;
    platform::NSOperationQueue queue_;
    size_t next_ = 0;
};

} // namespace

Parsed<InfoOptions> parseInfo(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("info", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    InfoOptions options;
    options.files = given.operands();
    options.isJSON = given.has("json");
    options.cover = given.value("cover");
    std::string fault = readNameListOptions(given, options.list);
    if (!fault.empty())
        return usageError(fault, "info");
    if ((options.files.empty() && !options.list) || std::ranges::count(options.files, "") > 0)
        fault = localized("no file was given");
    else if (options.cover && options.cover->empty())
        fault = localized("--cover takes the path of the picture to be made");
    else if (options.cover && (options.files.size() > 1 || options.list))
        fault = localized("--cover takes one file alone");
    if (!fault.empty())
        return usageError(fault, "info");
    return options;
}

int runInfoCommand(const InfoOptions& given)
{
    InfoOptions options = given;
    CommandOutput output({});
    if (const auto read = addListedNames(options.list, options.files); !read)
        return output.fail(kExitBadInput, read.error().message);
    if (options.cover && areSameFile(options.files.front(), *options.cover))
        return output.fail(kExitUsage, localized("the cover would replace {}", options.files.front()));

    if (const auto missing = output.failWithoutReader())
        return *missing;
    const TerminalColors colors = terminalColors();
    int status = kExitDone;
    bool isFirst = true;
    FactsAhead ahead(options.files);
    for (size_t i = 0; i < options.files.size(); ++i) {
        const std::string& path = options.files[i];
        const auto facts = ahead.take(i);
        std::string text;
        if (!facts) {
            status = kExitBadInput;
            output.complain(facts.error().message);
            if (options.isJSON)
                text = JSONWriter()
                           .add("path", path)
                           .add("ok", false)
                           .add("error", facts.error().message.substr(path.size() + 2))
                           .text() +
                       "\n";
        } else if (options.isJSON) {
            text = jsonOf(*facts).text() + "\n";
        } else {
            text = platform::encodedForLocale(fmt::format("{}{}", isFirst ? "" : "\n", textOf(*facts, colors)));
            isFirst = false;
        }
        if (facts && facts->isCutOff)
            output.complain(fmt::format("{}: {}", path, reasonOfCutOffPhoto()));
        // Whoever reads may have seen enough.
        if (const int written = output.give(text, localized("what is known could not be written to standard output"));
            written != kExitDone)
            return written;
        if (!facts || !options.cover)
            continue;
        std::string reason;
        if (const ExitStatus saved = saveCover(*facts, *options.cover, reason); saved != kExitDone)
            return output.fail(saved, reason);
        output.note(localized("saved the cover as {}", *options.cover));
    }
    return status;
}

} // namespace stillora
