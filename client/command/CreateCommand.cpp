#include "client/command/CreateCommand.h"

#include "client/MovieTitle.h"
#include "client/PhotoCheck.h"
#include "client/PhotoListing.h"
#include "client/SoundCheck.h"
#include "client/command/MovieCommand.h"

#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace stillora {

int runCreateCommand(const CreateOptions& options)
{
    MovieCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "movie"});
    PhotoListing listing = listPhotos(options.photos);
    for (const std::string& text : listing.notes)
        command.note(text);
    CheckedPhotos checked = checkPhotos(
        listing.candidates, [&](size_t done) { return command.photosChecked(done, listing.candidates.size()); });
    command.clearProgress();
    if (checked.isCancelled)
        return command.stopped();
    if (checked.passedOver > 0)
        command.note(checked.passedOver == 1
                         ? "1 more file that is no photo was passed over"
                         : fmt::format("{} more files that are no photos were passed over", checked.passedOver));
    std::vector<BadInput> bad;
    for (const std::vector<BadPhoto>& photos : {listing.bad, checked.bad})
        for (const BadPhoto& photo : photos)
            bad.push_back({photo.path, photo.reason});
    CheckedSounds sounds = checkSounds(options.sounds);
    std::vector<BadInput> badSounds;
    for (const BadSound& sound : sounds.bad)
        badSounds.push_back({sound.path, sound.reason});
    if (!bad.empty() && !options.skipsBad)
        return command.refuseBadInput(bad, badSounds, "; --skip-bad leaves out photos that cannot");
    if (!badSounds.empty())
        return command.refuseBadInput({}, badSounds);
    for (const BadInput& photo : bad)
        command.note(fmt::format("left out: {}: {}", photo.path, photo.reason));
    if (checked.good.empty())
        return command.fail(kExitBadInput,
                            bad.empty() ? fmt::format("there are no photos in {}", fmt::join(options.photos, ", "))
                                        : "no photo can be used");
    const std::string title = options.title.value_or(titleForPhotos(checked.good));
    return command.makeMovie(std::move(checked.good), std::move(sounds.good), settingsOf(options), title, std::nullopt,
                             options.saveFolder, options.use);
}

} // namespace stillora
