// usage: make-movie FOLDER PHOTO|FOLDER...
// Makes a movie of photos in the first folder, and prints its path. Built by the CMakeLists.txt beside it, or by
//     g++ -std=c++23 MakeMovie.cpp $(pkg-config --cflags --libs stillora-client) -o make-movie

#include <stillora/client/Localization.h>
#include <stillora/client/MovieMaker.h>
#include <stillora/client/MoviePlan.h>
#include <stillora/client/MovieTitle.h>
#include <stillora/client/PhotoCheck.h>
#include <stillora/client/PhotoListing.h>

#include <iostream>

using namespace stillora;

/// Tells how far the service is, in the user's language.
class Progress final : public MovieMaker::Observer {
public:
    void progressChanged(const MovieProgress& progress) override
    {
        std::cerr << localized(progress.stage);
        if (progress.isDeterminate && progress.total > 0)
            std::cerr << ' ' << static_cast<int>(100 * progress.progress / progress.total) << " %";
        std::cerr << '\n';
    }
};

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: make-movie FOLDER PHOTO|FOLDER...\n";
        return 2;
    }
    setUpLocalization();

    // What cannot be shown is told before anything starts.
    const PhotoListing listing = listPhotos({argv + 2, argv + argc});
    const CheckedPhotos photos = checkPhotos(listing.candidates, [](size_t) { return true; });
    for (const auto& bad : {listing.bad, photos.bad})
        for (const BadPhoto& photo : bad)
            std::cerr << photo.path << ": " << photo.reason << '\n';

    platform::NSError error;
    const auto plan = planMovie({.photos = photos.good, .secondsPerPhoto = 2, .sounds = {}}, &error);
    if (!plan) {
        std::cerr << error.localizedDescription << '\n';
        return 1;
    }

    MovieMaker maker;
    Progress progress;
    const MovieOutcome outcome = maker.makeMovie({.photos = photos.good,
                                                  .sounds = {},
                                                  .plan = *plan,
                                                  .title = titleForPhotos(photos.good),
                                                  .saveFolder = platform::NSURL::fileURLWithPath(argv[1], true)},
                                                 progress);
    if (!outcome.movie) {
        std::cerr << outcome.error.localizedDescription << '\n';
        return 1;
    }
    for (const std::string& fault : outcome.faults)
        std::cerr << fault << '\n';
    std::cout << outcome.movie->path() << '\n';
}
