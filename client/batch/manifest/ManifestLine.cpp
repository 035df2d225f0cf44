#include "client/batch/manifest/ManifestLine.h"

#include "client/batch/manifest/MoviePieces.h"
#include "client/command/making/MoviePreparation.h"
#include "client/command/options/Operands.h"
#include "client/text/FileReason.h"
#include "client/text/JSONValue.h"
#include "client/text/LocalizedText.h"
#include "platform/system/SHA256.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using Kind = ManifestField::Kind;

constexpr FittingNames kFittingNames{"fitMusic", "loop", "seconds"};

/// One line while it is read.
class LineReading final {
public:
    LineReading(const JSONValue& line, const std::filesystem::path& folder, ManifestMovie& movie,
                std::vector<ManifestFault>& faults)
        : line_(line), folder_(folder), movie_(movie), faults_(faults)
    {}

    void readAll()
    {
        for (const auto& [name, value] : *line_.object())
            checkField(name, value);
        readSources();
        readOptions();
        readSwitches();
        readSplit();
        checkTogether();
        movie_.key = keyOf();
    }

private:
    void refuse(std::string_view field, std::string reason)
    {
        faults_.push_back({movie_.line, std::string(field), std::move(reason)});
    }

    void checkField(const std::string& name, const JSONValue& value)
    {
        const auto& fields = manifestFields();
        const auto field = std::ranges::find(fields, name, &ManifestField::name);
        if (field == fields.end())
            refuse(name, localized("there is no such field"));
        else if (const std::string fault = faultOfKind(field->kind, value); !fault.empty())
            refuse(name, fault);
        else
            good_.push_back(name);
    }

    static std::string faultOfKind(Kind kind, const JSONValue& value)
    {
        switch (kind) {
        case Kind::Text:
            return value.text() && !value.text()->empty() ? "" : localized("it takes a text that is not empty");
        case Kind::Number:
            return value.number() ? "" : localized("it takes a number");
        case Kind::NumberOrText:
            return value.number() || value.text() ? "" : localized("it takes a number or a text");
        case Kind::Flag:
            return value.boolean() ? "" : localized("it takes true or false");
        case Kind::Texts:
            break;
        }
        const auto isGood = [](const JSONValue& each) { return each.text() && !each.text()->empty(); };
        return value.list() && !value.list()->empty() && std::ranges::all_of(*value.list(), isGood)
                   ? ""
                   : localized("it takes a list of texts that are not empty");
    }

    /// The field's value, if it is there and of its kind.
    const JSONValue* good(std::string_view field) const
    {
        return std::ranges::count(good_, field) > 0 ? line_.member(field) : nullptr;
    }

    bool isTrue(std::string_view field) const
    {
        const JSONValue* const value = good(field);
        return value && *value->boolean();
    }

    std::string absolute(const std::string& path) const { return (folder_ / path).lexically_normal().native(); }

    void readSources()
    {
        if (const JSONValue* const id = good("id"))
            movie_.id = *id->text();
        const JSONValue* const document = good("document");
        const JSONValue* const photos = good("photos");
        if (line_.member("document") && line_.member("photos"))
            refuse("photos", localized("a line has photos or a document, not both"));
        else if (!line_.member("document") && !line_.member("photos"))
            refuse("photos", localized("a line needs photos or a document"));
        if (document) {
            movie_.document = absolute(*document->text());
            movie_.options.photos = {*movie_.document};
        } else if (photos) {
            for (const JSONValue& photo : *photos->list())
                movie_.options.photos.emplace_back(absolute(*photo.text()));
        }
        if (const JSONValue* const sounds = good("sounds"))
            for (const JSONValue& sound : *sounds->list())
                readOption("sounds", "soundtrack", absolute(*sound.text()));
    }

    void readOption(std::string_view field, std::string_view option, const std::string& text)
    {
        if (std::string fault = readMovieOption(option, text, movie_.options, field); !fault.empty())
            refuse(field, std::move(fault));
    }

    void readOptions()
    {
        for (const std::string_view field : {"seconds", "quality", "codec", "sort", "title", "save", "output"}) {
            const JSONValue* const value = good(field);
            if (!value)
                continue;
            const bool isPath = field == "save" || field == "output";
            const std::string text = value->number() ? fmt::format("{}", *value->number()) : *value->text();
            readOption(field, field, isPath ? absolute(text) : text);
        }
    }

    void readSwitches()
    {
        CreateOptions& options = movie_.options;
        options.loopsSounds = isTrue("loop");
        options.fitsMusic = isTrue("fitMusic");
        options.fillsSilence = !good("silence") || isTrue("silence");
        options.reducesBorders = isTrue("reduceBorders");
        options.skipsBad = isTrue("skipBad");
        options.use = isTrue("web") ? MovieUse::Web : MovieUse::Anywhere;
        options.order.isReversed = isTrue("reverse");
        if (isTrue("recursive"))
            options.innerFolders = InnerFolders::Listed;
        if (good("watermark"))
            options.watermark = isTrue("watermark") ? Watermark::Drawn : Watermark::Absent;
    }

    void readSplit()
    {
        const JSONValue* const split = good("split");
        if (!split)
            return;
        const double number = *split->number();
        if (number >= 1 && number <= kMostPieces && number == std::floor(number))
            movie_.split = static_cast<size_t>(number);
        else
            refuse("split", localized("it takes a whole number from 1 to {}", kMostPieces));
    }

    void checkTogether()
    {
        const CreateOptions& options = movie_.options;
        if (const JSONValue* const output = good("output"); output && (line_.member("title") || line_.member("save")))
            refuse("output", localized("it names the movie and its folder, without {}",
                                       line_.member("title") ? "title" : "save"));
        if (const std::string fault = faultOfFitting(options, kFittingNames); !fault.empty())
            refuse(options.loopsSounds ? "loop" : "fitMusic", fault);
        if (movie_.document)
            checkDocument();
        else if ((options.loopsSounds || options.fitsMusic) && options.sounds.empty() && !hasSoundAmongPhotos())
            refuse(options.loopsSounds ? "loop" : "fitMusic", faultOfMissingSound(options, kFittingNames));
    }

    bool hasSoundAmongPhotos() const
    {
        return std::ranges::any_of(movie_.options.photos,
                                   [](const auto& photo) { return soundOperand(photo.native()).has_value(); });
    }

    void checkDocument()
    {
        for (const std::string_view field :
             {"sounds", "loop", "fitMusic", "silence", "reduceBorders", "sort", "reverse", "recursive"})
            if (line_.member(field)) {
                refuse(field, localized("it does not go with a document, which itself says so"));
                return;
            }
    }

    std::string keyOf() const
    {
        platform::SHA256 hash;
        const auto add = [&](std::string_view text) {
            hash.add(text);
            hash.add(std::string_view("\0", 1));
        };
        if (!movie_.id.empty()) {
            add("id");
            add(movie_.id);
        } else {
            // As the line says it, so that the whole folder can be moved.
            for (const std::string_view field : {"document", "photos", "sounds", "title", "save", "output"}) {
                const JSONValue* const value = good(field);
                if (!value)
                    continue;
                add(field);
                if (value->text())
                    add(*value->text());
                else
                    for (const JSONValue& each : *value->list())
                        add(*each.text());
            }
        }
        return hash.digest().substr(0, 32);
    }

    const JSONValue& line_;
    const std::filesystem::path& folder_;
    ManifestMovie& movie_;
    std::vector<ManifestFault>& faults_;
    /// Names of fields whose values are of their kind.
    std::vector<std::string> good_;
};

std::string reasonOfMissing(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? "" : fmt::format("{}: {}", path, reasonOfErrno(errno));
}

} // namespace

const std::vector<ManifestField>& manifestFields()
{
    static const auto* const fields = new std::vector<ManifestField>{
        {"id", Kind::Text},        {"document", Kind::Text},      {"photos", Kind::Texts},
        {"sounds", Kind::Texts},   {"seconds", Kind::Number},     {"quality", Kind::NumberOrText},
        {"codec", Kind::Text},     {"loop", Kind::Flag},          {"fitMusic", Kind::Flag},
        {"silence", Kind::Flag},   {"sort", Kind::Text},          {"reverse", Kind::Flag},
        {"recursive", Kind::Flag}, {"reduceBorders", Kind::Flag}, {"watermark", Kind::Flag},
        {"web", Kind::Flag},       {"title", Kind::Text},         {"save", Kind::Text},
        {"output", Kind::Text},    {"skipBad", Kind::Flag},       {"split", Kind::Number},
    };
    return *fields;
}

std::string ManifestMovie::name() const
{
    return id.empty() ? localized("line {}", line) : id;
}

std::optional<ManifestMovie> readManifestLine(std::string_view text, const std::filesystem::path& folder, size_t line,
                                              std::vector<ManifestFault>& faults)
{
    const size_t before = faults.size();
    JSONValue::Fault fault;
    const auto value = JSONValue::read(text, fault);
    if (!value) {
        faults.push_back({line, {}, localized("{}, at byte {}", fault.reason, fault.place + 1)});
        return std::nullopt;
    }
    if (!value->object()) {
        faults.push_back({line, {}, localized("a line is one JSON object")});
        return std::nullopt;
    }
    ManifestMovie movie;
    movie.line = line;
    LineReading(*value, folder, movie, faults).readAll();
    return faults.size() == before ? std::optional(std::move(movie)) : std::nullopt;
}

void findMissingFiles(const ManifestMovie& movie, std::vector<ManifestFault>& faults)
{
    if (movie.document) {
        if (!documentOperand(movie.document->native()))
            faults.push_back({movie.line, "document", localized("{} is no document", movie.document->native())});
        return;
    }
    for (const std::filesystem::path& photo : movie.options.photos) {
        const auto sound = soundOperand(photo.native());
        if (std::string reason = reasonOfMissing(sound ? sound->path.native() : photo.native()); !reason.empty())
            faults.push_back({movie.line, "photos", std::move(reason)});
    }
    for (const SoundArgument& sound : movie.options.sounds)
        if (std::string reason = reasonOfMissing(sound.path.native()); !reason.empty())
            faults.push_back({movie.line, "sounds", std::move(reason)});
}

} // namespace stillora
