// usage: make-movie-in-a-loop FOLDER PHOTO|FOLDER...
// Makes a movie as MakeMovie.cpp does, while a main loop goes on: here it reads standard input, whose end stops the
// work, and a window would draw and take clicks.

#include <stillora/Localization.h>
#include <stillora/Movie.h>
#include <stillora/Photos.h>

#include <array>
#include <iostream>
#include <optional>

#include <poll.h>
#include <unistd.h>

using namespace stillora;

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: make-movie-in-a-loop FOLDER PHOTO|FOLDER...\n";
        return 2;
    }
    setUpLocalization();
    const CheckedPhotos photos = checkPhotos(listPhotos({argv + 2, argv + argc}).candidates);
    const auto plan = planMovie({.photos = photos.good, .timePerPhoto = std::chrono::seconds(2), .sounds = {}});
    if (!plan) {
        std::cerr << plan.error().message << '\n';
        return 1;
    }

    std::optional<int> status;
    MovieJob job({.photos = photos.good,
                  .sounds = {},
                  .plan = *plan,
                  .title = titleForPhotos(photos.good),
                  .saveFolder = argv[1]},
                 {.progressChanged =
                      [](const MovieProgress& progress) {
                          std::cerr << localized(progress.stage);
                          if (progress.isDeterminate && progress.total > 0)
                              std::cerr << ' ' << static_cast<int>(100 * progress.progress / progress.total) << " %";
                          std::cerr << '\n';
                      },
                  .ended =
                      [&status](const Result<Movie>& movie) {
                          status = movie ? 0 : 1;
                          if (movie)
                              std::cout << movie->path.native() << '\n';
                          else
                              std::cerr << movie.error().message << '\n';
                      }});

    std::array<pollfd, 2> watched{pollfd{job.descriptor(), POLLIN, 0}, pollfd{STDIN_FILENO, POLLIN, 0}};
    while (!status) {
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents != 0)
            job.dispatch();
        std::array<char, 256> input{};
        if (watched[1].revents != 0 && read(STDIN_FILENO, input.data(), input.size()) <= 0) {
            // A negative descriptor is not watched any more.
            watched[1].fd = -1;
            job.cancel();
        }
    }
    return *status;
}
