// usage: make-movie FOLDER PHOTO|FOLDER...
// Makes a movie of photos in the first folder, and prints its path. Built by the CMakeLists.txt beside it, or by
//     g++ -std=c++20 MakeMovie.cpp $(pkg-config --cflags --libs stillora-client) -o make-movie

#include <stillora/Localization.h>
#include <stillora/Movie.h>
#include <stillora/Photos.h>

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
    const CheckedPhotos photos = checkPhotos(listing.candidates);
    for (const auto& bad : {listing.bad, photos.bad})
        for (const BadFile& photo : bad)
            std::cerr << photo.path.native() << ": " << photo.reason << '\n';

    const auto plan = planMovie({.photos = photos.good, .timePerPhoto = std::chrono::seconds(2), .sounds = {}});
    if (!plan) {
        std::cerr << plan.error().message << '\n';
        return 1;
    }

    MovieMaker maker;
    Progress progress;
    const auto movie = maker.makeMovie({.photos = photos.good,
                                        .sounds = {},
                                        .plan = *plan,
                                        .title = titleForPhotos(photos.good),
                                        .saveFolder = argv[1]},
                                       progress);
    if (!movie) {
        std::cerr << movie.error().message << '\n';
        return 1;
    }
    for (const std::string& fault : movie->faults)
        std::cerr << fault << '\n';
    std::cout << movie->path.native() << '\n';
}
