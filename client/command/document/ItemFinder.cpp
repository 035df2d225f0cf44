#include "client/command/document/ItemFinder.h"

#include "client/text/LocalizedText.h"

#include <charconv>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace stillora {

namespace {

using Kind = BadItem::Kind;

/// Numbers of `document list`, the first and the last.
struct NumberRange {
    Kind kind = Kind::Photo;
    size_t first = 0;
    size_t last = 0;
};

std::optional<size_t> takeNumber(std::string_view& text)
{
    size_t number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc())
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return number;
}

/// "p3", "s1", "3", "p3-5" or "p3-p5"; nothing for other words.
std::optional<NumberRange> rangeOf(std::string_view word)
{
    NumberRange range;
    const char letter = word.starts_with('s') ? 's' : 'p';
    range.kind = letter == 's' ? Kind::Soundtrack : Kind::Photo;
    const auto takeLetter = [&word, letter] {
        if (word.starts_with(letter))
            word.remove_prefix(1);
    };
    takeLetter();
    const auto first = takeNumber(word);
    if (!first)
        return std::nullopt;
    range.first = range.last = *first;
    if (word.starts_with('-')) {
        word.remove_prefix(1);
        takeLetter();
        const auto last = takeNumber(word);
        if (!last)
            return std::nullopt;
        range.last = *last;
    }
    return word.empty() ? std::optional(range) : std::nullopt;
}

} // namespace

std::string numberOf(ItemPlace place)
{
    return fmt::format("{}{}", place.kind == Kind::Photo ? 'p' : 's', place.index + 1);
}

bool readsAsSoundNumber(const std::string& word)
{
    const auto range = rangeOf(word);
    return range && range->kind == Kind::Soundtrack;
}

ItemFinder::ItemFinder(const Document& document) : document_(document.location().native())
{
    for (const DocumentPhoto& photo : document.photos()) {
        const ItemPlace place{Kind::Photo, photoCount_++};
        byFile_[photo.path.filename()].push_back(place);
        byOtherName_[photo.title].push_back(place);
    }
    for (const DocumentSoundtrack& sound : document.soundtracks()) {
        const ItemPlace place{Kind::Soundtrack, soundCount_++};
        byFile_[sound.path.filename()].push_back(place);
        if (sound.originalPath)
            byOtherName_[sound.originalPath->filename()].push_back(place);
    }
}

Result<ItemFinder::Places> ItemFinder::findAll(const std::vector<std::string>& words) const
{
    Places places;
    std::set<ItemPlace> known;
    for (const std::string& word : words) {
        const auto found = find(word);
        if (!found)
            return found.error();
        for (const ItemPlace place : *found)
            if (known.insert(place).second)
                places.push_back(place);
    }
    return places;
}

Result<ItemFinder::Places> ItemFinder::find(const std::string& word) const
{
    if (const auto range = rangeOf(word))
        return numbered(word, range->kind, range->first, range->last);
    for (const auto* names : {&byFile_, &byOtherName_}) {
        // Items that are damaged have no names.
        const auto found = word.empty() ? names->end() : names->find(word);
        if (found == names->end())
            continue;
        const Places& places = found->second;
        if (places.size() == 1)
            return places;
        std::vector<std::string> numbers;
        for (const ItemPlace place : places)
            numbers.push_back(numberOf(place));
        return Error{ErrorCode::OutOfRange, document_,
                     localized("{} stands for more than one in {}: {}", word, document_, fmt::join(numbers, ", "))};
    }
    return Error{
        ErrorCode::OutOfRange, document_,
        localized("there is no {} in {}; \"stillora document list\" shows the numbers and names", word, document_)};
}

Result<ItemFinder::Places> ItemFinder::numbered(const std::string& word, Kind kind, size_t first, size_t last) const
{
    const size_t count = kind == Kind::Photo ? photoCount_ : soundCount_;
    if (first > last)
        return Error{ErrorCode::OutOfRange, document_, localized("the range {} ends before it starts", word)};
    if (first < 1 || last > count)
        return Error{ErrorCode::OutOfRange, document_,
                     kind == Kind::Photo
                         ? localizedCount(count, "there is no {1} in {2}, which has {0} photo",
                                          "there is no {1} in {2}, which has {0} photos", word, document_)
                         : localizedCount(count, "there is no {1} in {2}, which has {0} sound",
                                          "there is no {1} in {2}, which has {0} sounds", word, document_)};
    Places places;
    for (size_t number = first; number <= last; ++number)
        places.push_back({kind, number - 1});
    return places;
}

} // namespace stillora
