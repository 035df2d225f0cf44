#pragma once

#include <stillora/Files.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>
#include <stillora/Waveform.h>

#include "platform/pixels/CGImage.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// What the program that reads files may be asked. By its number it knows what to do; each has the type `Answer` for
/// what it gives. Neither side believes the other more than its `Decoder` does, and of an answer's values those alone
/// that `isPlausible`.
enum class ReaderTask : uint32_t {
    LookAtPhoto,
    MeasureSound,
    TellFacts,
    AverageColors,
    FitPicture,
    ReadPicture,
    DrawFrame,
    DrawWaveform,
    CopySound,
    CheckMovie,
    SampleFrame,
    SampleBlackFrame,
    TellAbilities,
};

constexpr ReaderTask lastOf(ReaderTask)
{
    return ReaderTask::TellAbilities;
}

/// What is in a photo that may become one of a movie.
struct PhotoLook {
    enum class Kind { Good, Bad, NoPhoto };

    Kind kind = Kind::NoPhoto;
    /// Upright.
    Size size;
    bool isCutOff = false;
    bool isProgressive = false;
    /// As in `PhotoFacts`.
    std::string fingerprint;
    std::optional<DateTaken> taken;
    /// Of a bad one, without its path.
    std::string reason;
};

struct PhotoQuestion {
    static constexpr ReaderTask kTask = ReaderTask::LookAtPhoto;
    using Answer = PhotoLook;

    std::filesystem::path file;
};

/// What is known of a sound, or why it cannot be used.
struct SoundMeasure {
    Seconds length{0};
    int sampleRateHz = 0;
    /// Without its path.
    std::string fault;
};

struct SoundQuestion {
    static constexpr ReaderTask kTask = ReaderTask::MeasureSound;
    using Answer = SoundMeasure;

    std::filesystem::path file;
    /// Whether it may take reading all of the file; else the length may be an estimate.
    bool isExact = true;
};

/// The facts of a file, but for its path and its length in bytes.
struct FactsQuestion {
    static constexpr ReaderTask kTask = ReaderTask::TellFacts;
    using Answer = Result<FileFacts>;

    std::filesystem::path file;
};

/// A decoded picture.
struct PictureAnswer {
    /// Rows of pixels, one after the other.
    platform::CGImage image;
    /// Where faces were looked for.
    uint64_t faceCount = 0;
    /// In points, by what the file says of its resolution; zero where that does not count.
    Size points = {};
};

/// The average colour of a picture file, if it is one.
struct ColorQuestion {
    static constexpr ReaderTask kTask = ReaderTask::AverageColors;
    using Answer = std::optional<Color>;

    std::filesystem::path file;
};

/// A picture file scaled down to a box, upright.
struct FittedQuestion {
    static constexpr ReaderTask kTask = ReaderTask::FitPicture;
    using Answer = Result<PictureAnswer>;

    std::filesystem::path file;
    Size box;
};

/// A picture file's bytes, decoded. The answer is an error without a message where they are none.
struct PictureQuestion {
    static constexpr ReaderTask kTask = ReaderTask::ReadPicture;
    using Answer = Result<PictureAnswer>;

    Bytes picture;
};

/// A photo as the frame of a movie. The answer is an error without a message where there is none.
struct FrameQuestion {
    static constexpr ReaderTask kTask = ReaderTask::DrawFrame;
    using Answer = Result<PictureAnswer>;

    std::filesystem::path file;
    /// Of the photo, upright.
    Size photoSize;
    Size frame;
    bool reducesBorders = false;
    bool carriesWatermark = false;
    /// Finds and outlines the faces.
    bool showsFaces = false;
    /// A frame of more is scaled down to so many, once it is drawn; 0 leaves it as it is.
    uint64_t mostLines = 0;
};

/// How loud a sound is over time. The answer's errors do not name the file.
struct WaveformQuestion {
    static constexpr ReaderTask kTask = ReaderTask::DrawWaveform;
    /// Hours of sound take as long as they take.
    static constexpr bool kIsEndless = true;
    using Answer = Result<PictureAnswer>;

    std::filesystem::path file;
    std::optional<SoundFacts::Selection> selection;
    int sampleRateHz = 0;
    WaveformStyle style;
};

/// A sound, or a part of it, as an M4A file. The answer is the time that it took; where it is an error, what was
/// written is of no use.
struct SoundCopyQuestion {
    static constexpr ReaderTask kTask = ReaderTask::CopySound;
    static constexpr bool kIsEndless = true;
    using Answer = Result<Seconds>;

    enum class Way { Encoded, PacketByPacket };

    std::filesystem::path file;
    std::filesystem::path output;
    std::optional<SoundFacts::Selection> selection;
    int sampleRateHz = 0;
    Way way = Way::Encoded;
};

/// What a finished movie has to be.
struct ExpectedMovie {
    uint64_t frameCount = 0;
    double secondsPerFrame = 0;
    Size size;
    /// Four-character code.
    std::string codec;
    /// Seconds at which the sound ends; nothing for a silent movie.
    std::optional<double> soundEnd;
};

/// What was found of a finished movie.
struct MovieLook {
    /// One sentence for each thing that is off.
    std::vector<std::string> faults;
    /// Whether the other file was written; else there was nothing to repeat.
    bool isRepeated = false;
};

/// Reads a finished movie back. Where no picture is to last longer than so, it is written anew, with those that do
/// shown several times, and read back as well.
struct MovieQuestion {
    static constexpr ReaderTask kTask = ReaderTask::CheckMovie;
    /// A movie of hours is copied.
    static constexpr bool kIsEndless = true;
    using Answer = Result<MovieLook>;

    std::filesystem::path file;
    /// Empty where nothing is to be repeated.
    std::filesystem::path output;
    ExpectedMovie expected;
    Seconds longestPicture{0};
};

/// What a photo is worth as one coded frame.
struct SampledFrame {
    /// Coded.
    double bytes = 0;
    /// To draw and to code it.
    Seconds time{0};
    /// The same of the processor's time: on a busy machine the same frames are made, later.
    Seconds processorTime{0};
};

/// Draws a photo as a frame and codes it as the movie's will be. The answer is an error without a message where there
/// is none.
struct SampleQuestion {
    static constexpr ReaderTask kTask = ReaderTask::SampleFrame;
    using Answer = Result<SampledFrame>;

    std::filesystem::path file;
    /// Of the photo, upright.
    Size photoSize;
    Size frame;
    bool reducesBorders = false;
    bool carriesWatermark = false;
    std::string codec;
};

/// The bytes that a frame without a photo takes; 0 where none could be made.
struct BlackFrameQuestion {
    static constexpr ReaderTask kTask = ReaderTask::SampleBlackFrame;
    using Answer = double;

    Size frame;
    std::string codec;
};

/// What the program that reads files can do, of what it was asked.
struct Abilities {
    std::vector<std::string> missingEncoders;
    std::vector<std::string> missingDecoders;
    bool hasFontOfWatermark = false;
    /// Whether a detector can be made; loads its module.
    bool findsFaces = false;
    /// What it could not give up, a sentence each.
    std::vector<std::string> lacksOfConfinement;
};

/// Names are those of the linked libraries.
struct AbilitiesQuestion {
    static constexpr ReaderTask kTask = ReaderTask::TellAbilities;
    using Answer = Abilities;

    std::vector<std::string> encoders;
    std::vector<std::string> decoders;
    bool asksForFaces = false;
};

/// @name What of an answer can be, whoever gave it
/// @{
bool isPlausible(const std::optional<Color>& color);
bool isPlausible(const Result<PictureAnswer>& picture);
bool isPlausible(const PhotoLook& look);
bool isPlausible(const SoundMeasure& measure);
bool isPlausible(const Result<FileFacts>& facts);
bool isPlausible(const Result<Seconds>& time);
bool isPlausible(const Result<MovieLook>& movie);
bool isPlausible(const Result<SampledFrame>& frame);
bool isPlausible(double frameBytes);
bool isPlausible(const Abilities& abilities);
/// @}

/// @name How values are coded
/// @{
constexpr PhotoLook::Kind lastOf(PhotoLook::Kind)
{
    return PhotoLook::Kind::NoPhoto;
}
constexpr FileFacts::Kind lastOf(FileFacts::Kind)
{
    return FileFacts::Kind::Movie;
}
constexpr ErrorCode lastOf(ErrorCode)
{
    return ErrorCode::NeedsEncoding;
}

template <typename Coder>
void fields(Coder& coder, Error& error)
{
    coder(error.code, error.file, error.message);
}

template <typename Coder>
void fields(Coder& coder, Size& size)
{
    coder(size.width, size.height);
}

template <typename Coder>
void fields(Coder& coder, Color& color)
{
    coder(color.red, color.green, color.blue);
}

template <typename Coder>
void fields(Coder& coder, DateTaken& date)
{
    coder(date.clock, date.offset);
}

template <typename Coder>
void fields(Coder& coder, GeographicPlace& place)
{
    coder(place.latitude, place.longitude);
}

template <typename Coder>
void fields(Coder& coder, Tags& tags)
{
    coder(tags.title, tags.artist, tags.album, tags.shownTitle, tags.shownArtist, tags.shownAlbum);
}

template <typename Coder>
void fields(Coder& coder, Cover& cover)
{
    coder(cover.format, cover.size, cover.picture);
}

template <typename Coder>
void fields(Coder& coder, FileFacts& facts)
{
    coder(facts.kind, facts.pictureFormat, facts.size, facts.orientation, facts.averageColor, facts.taken, facts.camera,
          facts.place, facts.isCutOff, facts.length, facts.soundFormat, facts.sampleRateHz, facts.channels, facts.tags,
          facts.cover);
}

template <typename Coder>
void fields(Coder& coder, PhotoLook& look)
{
    coder(look.kind, look.size, look.isCutOff, look.isProgressive, look.fingerprint, look.taken, look.reason);
}

template <typename Coder>
void fields(Coder& coder, SoundMeasure& measure)
{
    coder(measure.length, measure.sampleRateHz, measure.fault);
}

template <typename Coder>
void fields(Coder& coder, PhotoQuestion& question)
{
    coder(question.file);
}

template <typename Coder>
void fields(Coder& coder, SoundQuestion& question)
{
    coder(question.file, question.isExact);
}

template <typename Coder>
void fields(Coder& coder, PictureAnswer& answer)
{
    coder(answer.image.width, answer.image.height, answer.image.bytesPerRow, answer.image.hasAlpha, answer.image.pixels,
          answer.faceCount, answer.points);
}

template <typename Coder>
void fields(Coder& coder, ColorQuestion& question)
{
    coder(question.file);
}

template <typename Coder>
void fields(Coder& coder, FittedQuestion& question)
{
    coder(question.file, question.box);
}

template <typename Coder>
void fields(Coder& coder, PictureQuestion& question)
{
    coder(question.picture);
}

template <typename Coder>
void fields(Coder& coder, FrameQuestion& question)
{
    coder(question.file, question.photoSize, question.frame, question.reducesBorders, question.carriesWatermark,
          question.showsFaces, question.mostLines);
}

constexpr WaveformStyle::Ground lastOf(WaveformStyle::Ground)
{
    return WaveformStyle::Ground::White;
}

template <typename Coder>
void fields(Coder& coder, SoundFacts::Selection& selection)
{
    coder(selection.start, selection.end);
}

template <typename Coder>
void fields(Coder& coder, WaveformStyle& style)
{
    coder(style.width, style.height, style.ground);
}

template <typename Coder>
void fields(Coder& coder, WaveformQuestion& question)
{
    coder(question.file, question.selection, question.sampleRateHz, question.style);
}

constexpr SoundCopyQuestion::Way lastOf(SoundCopyQuestion::Way)
{
    return SoundCopyQuestion::Way::PacketByPacket;
}

template <typename Coder>
void fields(Coder& coder, SoundCopyQuestion& question)
{
    coder(question.file, question.output, question.selection, question.sampleRateHz, question.way);
}

template <typename Coder>
void fields(Coder& coder, ExpectedMovie& movie)
{
    coder(movie.frameCount, movie.secondsPerFrame, movie.size, movie.codec, movie.soundEnd);
}

template <typename Coder>
void fields(Coder& coder, MovieLook& look)
{
    coder(look.faults, look.isRepeated);
}

template <typename Coder>
void fields(Coder& coder, MovieQuestion& question)
{
    coder(question.file, question.output, question.expected, question.longestPicture);
}

template <typename Coder>
void fields(Coder& coder, SampledFrame& frame)
{
    coder(frame.bytes, frame.time, frame.processorTime);
}

template <typename Coder>
void fields(Coder& coder, SampleQuestion& question)
{
    coder(question.file, question.photoSize, question.frame, question.reducesBorders, question.carriesWatermark,
          question.codec);
}

template <typename Coder>
void fields(Coder& coder, BlackFrameQuestion& question)
{
    coder(question.frame, question.codec);
}

template <typename Coder>
void fields(Coder& coder, Abilities& abilities)
{
    coder(abilities.missingEncoders, abilities.missingDecoders, abilities.hasFontOfWatermark, abilities.findsFaces,
          abilities.lacksOfConfinement);
}

template <typename Coder>
void fields(Coder& coder, AbilitiesQuestion& question)
{
    coder(question.encoders, question.decoders, question.asksForFaces);
}

template <typename Coder>
void fields(Coder& coder, FactsQuestion& question)
{
    coder(question.file);
}
/// @}

} // namespace stillora
