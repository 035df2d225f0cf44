#include "client/movie/MovieSettings.h"

#include <stillora/Movie.h>

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <algorithm>

#include <fmt/format.h>

namespace stillora {

using platform::PropertyList;

namespace {

/// Longer texts of a file are not repeated in a sentence.
constexpr size_t kMaxQuotedBytes = 60;

std::string inQuotes(const std::string& text)
{
    return localized("\"{}\"", prefixOfBytes(printable(text), kMaxQuotedBytes));
}

class Reader final {
public:
    Reader(const PropertyList::Dictionary& saved, std::vector<std::string>& faults) : saved_(saved), faults_(faults) {}

    /// Nothing where there is none, or, which is a fault, where it is of another kind.
    template <typename T>
    std::optional<T> value(std::string_view key) const
    {
        const PropertyList* const object = find(key);
        if (!object)
            return std::nullopt;
        if (const T* found = object->as<T>())
            return *found;
        fault(key, localized("is of another kind"));
        return std::nullopt;
    }
    template <typename T>
    void read(std::string_view key, T& value) const
    {
        value = this->value<T>(key).value_or(value);
    }

    const PropertyList* find(std::string_view key) const
    {
        const auto entry = saved_.find(key);
        return entry == saved_.end() ? nullptr : &entry->second;
    }
    void fault(std::string_view key, const std::string& what) const
    {
        faults_.push_back(localized("the setting \"{}\" {}", key, what));
    }

private:
    const PropertyList::Dictionary& saved_;
    std::vector<std::string>& faults_;
};

/// A number of either kind: other programs write whole numbers as integers.
std::optional<double> numberOf(const PropertyList& object)
{
    if (const auto* number = object.as<double>())
        return *number;
    if (const auto* number = object.as<int64_t>())
        return static_cast<double>(*number);
    return std::nullopt;
}

} // namespace

MovieSettings readMovieSettings(const PropertyList::Dictionary& saved, std::vector<std::string>& faults)
{
    const Reader reader(saved, faults);
    MovieSettings settings;
    if (const PropertyList* object = reader.find(kSecondsPerPhotoKey)) {
        const auto seconds = numberOf(*object);
        if (seconds && *seconds >= kMinTimePerPhoto.count() && *seconds <= kMaxTimePerPhoto.count())
            settings.timePerPhoto = Seconds(*seconds);
        else
            reader.fault(kSecondsPerPhotoKey,
                         seconds ? localized("is out of range: {}", *seconds) : localized("is of another kind"));
    }
    reader.read(kQualityKey, settings.quality);
    std::string codec = settings.codec;
    reader.read(kCodecKey, codec);
    if (std::find(kMovieCodecs.begin(), kMovieCodecs.end(), codec) != kMovieCodecs.end())
        settings.codec = codec;
    else
        reader.fault(kCodecKey, localized("is {}, which is no codec", inQuotes(codec)));
    reader.read(kLoopsSoundsKey, settings.loopsSounds);
    reader.read(kFitsMusicKey, settings.fitsMusic);
    reader.read(kFillsSilenceKey, settings.fillsSilence);
    reader.read(kReducesBordersKey, settings.reducesBorders);
    if (const auto draws = reader.value<bool>(kDrawsWatermarkKey))
        settings.watermark = *draws ? Watermark::Drawn : Watermark::Absent;
    if (const auto title = reader.value<std::string>(kTitleKey)) {
        if (const auto fault = faultOfTitle(*title))
            reader.fault(kTitleKey, localized("is {}, which {}", inQuotes(*title), *fault));
        else
            settings.title = *title;
    }
    return settings;
}

void writeMovieSettings(const std::optional<MovieSettings>& before, const MovieSettings& after,
                        const std::set<std::string, std::less<>>& rewritten, PropertyList::Dictionary& saved)
{
    const auto isToWrite = [&](std::string_view key, auto member) {
        return !before || rewritten.contains(key) || *before.*member != after.*member;
    };
    const auto write = [&](std::string_view key, auto member) {
        if (isToWrite(key, member))
            saved.insert_or_assign(std::string(key), PropertyList(after.*member));
    };
    if (isToWrite(kSecondsPerPhotoKey, &MovieSettings::timePerPhoto))
        saved.insert_or_assign(std::string(kSecondsPerPhotoKey), PropertyList(after.timePerPhoto.count()));
    write(kQualityKey, &MovieSettings::quality);
    write(kCodecKey, &MovieSettings::codec);
    write(kLoopsSoundsKey, &MovieSettings::loopsSounds);
    write(kFitsMusicKey, &MovieSettings::fitsMusic);
    write(kFillsSilenceKey, &MovieSettings::fillsSilence);
    write(kReducesBordersKey, &MovieSettings::reducesBorders);
    if (isToWrite(kTitleKey, &MovieSettings::title)) {
        saved.erase(std::string(kTitleKey));
        if (after.title)
            saved.emplace(kTitleKey, *after.title);
    }
    if (isToWrite(kDrawsWatermarkKey, &MovieSettings::watermark)) {
        saved.erase(std::string(kDrawsWatermarkKey));
        if (after.watermark != Watermark::Usual)
            saved.emplace(kDrawsWatermarkKey, after.watermark == Watermark::Drawn);
    }
}

} // namespace stillora
