#pragma once

#include <stillora/Document.h>
#include <stillora/Error.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace stillora {

/// Where an item of a document stands.
struct ItemPlace {
    BadItem::Kind kind = BadItem::Kind::Photo;
    std::size_t index = 0;

    friend auto operator<=>(const ItemPlace&, const ItemPlace&) = default;
};

/// As `document list` numbers an item: "p3" for the third photo, "s1" for the first sound.
std::string numberOf(ItemPlace place);

/// Whether a word reads as a number of `document list`, or as a range of them, for sounds.
bool readsAsSoundNumber(const std::string& word);

/// Finds the items of a document that words on the command line stand for.
class ItemFinder final {
public:
    /// @param document  as it is now; later changes are not seen
    explicit ItemFinder(const Document& document);

    /// @param words  numbers ("p3", "s1", "3" for p3), ranges of them ("p3-5"), names of files in the document, or else
    ///               titles of photos and names of the files that sounds were copied from
    /// @return each item once, where it is named first; an error that names the word that stands for none, or for more
    ///         than one
    Result<std::vector<ItemPlace>> findAll(const std::vector<std::string>& words) const;
    /// As `findAll` of one word.
    Result<std::vector<ItemPlace>> find(const std::string& word) const;

private:
    using Places = std::vector<ItemPlace>;

    Result<Places> numbered(const std::string& word, BadItem::Kind kind, size_t first, size_t last) const;

    const std::string document_;
    size_t photoCount_ = 0;
    size_t soundCount_ = 0;
    std::map<std::string, Places, std::less<>> byFile_;
    std::map<std::string, Places, std::less<>> byOtherName_;
};

} // namespace stillora
