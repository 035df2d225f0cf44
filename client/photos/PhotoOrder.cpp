#include <stillora/Photos.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <numeric>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using std::chrono::microseconds;
using Moment = std::chrono::sys_time<microseconds>;

/// By how much the clocks of this computer are ahead of UTC.
std::chrono::seconds offsetAt(std::chrono::sys_seconds moment)
{
    const auto time = static_cast<time_t>(moment.time_since_epoch().count());
    tm local = {};
    return std::chrono::seconds(localtime_r(&time, &local) ? local.tm_gmtoff : 0);
}

/// Not mktime, whose answer where a time came twice depends on what it was asked before.
std::chrono::seconds localOffset(std::chrono::local_seconds clock)
{
    tzset();
    const std::chrono::sys_seconds asUTC(clock.time_since_epoch());
    // No zone changes twice within these.
    const auto before = offsetAt(asUTC - std::chrono::days(1));
    const auto after = offsetAt(asUTC + std::chrono::days(1));
    const bool isBefore = offsetAt(asUTC - before) == before;
    const bool isAfter = offsetAt(asUTC - after) == after;
    return isBefore || !isAfter ? before : after;
}

using Indexes = std::vector<size_t>;

/// -1, 0 or 1.
int naturalOrder(const std::string& a, const std::string& b)
{
    return isBeforeInNaturalOrder(a, b) ? -1 : isBeforeInNaturalOrder(b, a) ? 1 : 0;
}

struct Place {
    std::string folder;
    std::string name;
};

std::vector<Place> placesOf(const std::vector<PhotoFacts>& photos)
{
    std::vector<Place> places;
    for (const PhotoFacts& photo : photos)
        places.push_back({photo.path.parent_path().native(), photo.path.filename().native()});
    return places;
}

/// Indexes of all places in natural order, first by one part and then by the other.
Indexes sortedByPlace(const std::vector<Place>& places, std::string Place::*first, std::string Place::*second)
{
    Indexes indexes(places.size());
    std::iota(indexes.begin(), indexes.end(), size_t{0});
    std::ranges::stable_sort(indexes, [&](size_t a, size_t b) {
        const int order = naturalOrder(places[a].*first, places[b].*first);
        return (order != 0 ? order : naturalOrder(places[a].*second, places[b].*second)) < 0;
    });
    return indexes;
}

/// When each of the photos was taken, or by which moment it goes; in the order of `indexes`.
std::vector<Moment> momentsOf(const std::vector<PhotoFacts>& photos, const Indexes& indexes)
{
    std::vector<std::optional<Moment>> told;
    for (const size_t index : indexes)
        told.push_back(photos[index].taken ? std::optional(momentOf(*photos[index].taken)) : std::nullopt);
    const auto first = std::ranges::find_if(told, [](const auto& moment) { return moment.has_value(); });
    std::vector<Moment> moments;
    for (size_t i = 0; i < told.size(); ++i)
        moments.push_back(first == told.end() ? std::chrono::floor<microseconds>(photos[indexes[i]].modified)
                          : told[i]           ? *told[i]
                          : moments.empty()   ? **first
                                              : moments.back());
    return moments;
}

Indexes sortedByDate(const std::vector<PhotoFacts>& photos)
{
    const Indexes byPlace = sortedByPlace(placesOf(photos), &Place::folder, &Place::name);
    const std::vector<Moment> moments = momentsOf(photos, byPlace);
    Indexes places(photos.size());
    std::iota(places.begin(), places.end(), size_t{0});
    std::ranges::stable_sort(places, {}, [&](size_t place) { return moments[place]; });
    Indexes indexes;
    for (const size_t place : places)
        indexes.push_back(byPlace[place]);
    return indexes;
}

Indexes indexesInOrder(const std::vector<PhotoFacts>& photos, PhotoSort sort)
{
    if (sort == PhotoSort::ByName)
        return sortedByPlace(placesOf(photos), &Place::name, &Place::folder);
    if (sort == PhotoSort::ByDate)
        return sortedByDate(photos);
    Indexes indexes(photos.size());
    std::iota(indexes.begin(), indexes.end(), size_t{0});
    return indexes;
}

} // namespace

std::chrono::sys_time<std::chrono::microseconds> momentOf(const DateTaken& date)
{
    const auto clock = std::chrono::floor<std::chrono::seconds>(date.clock);
    const auto offset = date.offset ? std::chrono::seconds(*date.offset) : localOffset(clock);
    return Moment(date.clock.time_since_epoch()) - offset;
}

std::string textOfDate(const DateTaken& date)
{
    const auto day = std::chrono::floor<std::chrono::days>(date.clock);
    const std::chrono::year_month_day ymd(day);
    const std::chrono::hh_mm_ss time(date.clock - day);
    std::string text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(ymd.year()),
                                   static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                                   time.hours().count(), time.minutes().count(), time.seconds().count());
    if (time.subseconds().count() > 0) {
        text += fmt::format(".{:06}", time.subseconds().count());
        text.erase(text.find_last_not_of('0') + 1);
    }
    if (!date.offset)
        return text;
    const std::chrono::hh_mm_ss offset(*date.offset);
    return fmt::format("{}{}{:02}:{:02}", text, offset.is_negative() ? '-' : '+', offset.hours().count(),
                       offset.minutes().count());
}

SortedPhotos sortPhotos(std::vector<PhotoFacts> photos, PhotoOrder order)
{
    Indexes indexes = indexesInOrder(photos, order.sort);
    if (order.isReversed)
        std::ranges::reverse(indexes);
    SortedPhotos sorted;
    for (const size_t index : indexes) {
        if (order.sort == PhotoSort::ByDate && !photos[index].taken)
            sorted.undated.push_back(sorted.photos.size());
        sorted.photos.push_back(std::move(photos[index]));
    }
    return sorted;
}

} // namespace stillora
