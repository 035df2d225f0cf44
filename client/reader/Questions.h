#pragma once

#include <stillora/Files.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace stillora {

/// What the program that reads files may be asked. By its number it knows what to do; each has the type `Answer` for
/// what it gives. Neither side believes the other more than its `Decoder` does, and of an answer's values those alone
/// that `isPlausible`.
enum class ReaderTask : uint32_t { LookAtPhoto, MeasureSound, TellFacts };

constexpr ReaderTask lastOf(ReaderTask)
{
    return ReaderTask::TellFacts;
}

/// What is in a photo that may become one of a movie.
struct PhotoLook {
    enum class Kind { Good, Bad, NoPhoto };

    Kind kind = Kind::NoPhoto;
    /// Upright.
    Size size;
    bool isCutOff = false;
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
};

/// The facts of a file, but for its path and its length in bytes.
struct FactsQuestion {
    static constexpr ReaderTask kTask = ReaderTask::TellFacts;
    using Answer = Result<FileFacts>;

    std::filesystem::path file;
};

/// @name What of an answer can be, whoever gave it
/// @{
bool isPlausible(const PhotoLook& look);
bool isPlausible(const SoundMeasure& measure);
bool isPlausible(const Result<FileFacts>& facts);
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
    coder(look.kind, look.size, look.isCutOff, look.taken, look.reason);
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
    coder(question.file);
}

template <typename Coder>
void fields(Coder& coder, FactsQuestion& question)
{
    coder(question.file);
}
/// @}

} // namespace stillora
