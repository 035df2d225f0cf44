#include "tests/window/state/TestLoop.h"
#include "window/state/MovieOutlook.h"
#include "window/state/SoundStates.h"
#include "window/state/photos/PhotoStates.h"
#include "window/state/photos/Selection.h"
#include "window/state/photos/Thumbnails.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fmt/format.h>

// What stands behind the window, with many photos: usage: window-state-program FOLDER SCRATCH. FOLDER holds the photos,
// SCRATCH the user's folders of this run.

namespace {

using namespace stillora;
using namespace stillora::window;
using Clock = std::chrono::steady_clock;

/// So many photos are on the screen.
constexpr std::size_t kScreen = 30;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// In megabytes, of this process.
std::string peakMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return fmt::format("{} MB", std::stol(line.substr(6)) / 1024);
    return "unknown";
}

/// Does something on the main thread and keeps the longest time that such a thing took.
class Watch final {
public:
    template <typename Function>
    void operator()(const char* what, Function function)
    {
        const auto start = Clock::now();
        function();
        const double seconds = secondsSince(start);
        fmt::print("{:40} {:8.1f} ms\n", what, seconds * 1000);
        longest_ = std::max(longest_, seconds);
    }
    double longest() const { return longest_; }

private:
    double longest_ = 0;
};

} // namespace

int main(int count, char** arguments)
{
    if (count != 3) {
        fmt::print(stderr, "usage: {} FOLDER SCRATCH\n", arguments[0]);
        return 2;
    }
    const std::filesystem::path scratch = arguments[2];
    TestLoop loop;
    Watch watch;
    DocumentSession session(loop, scratch / "state");
    Selection selection(session);
    PhotoStates photos(loop, session);
    SoundStates sounds(loop, session);
    Thumbnails thumbnails(loop, session, photos, scratch / "thumbnails");
    MovieOutlook outlook(loop, session, photos, sounds);
    session.setKnownFacts([&](PhotoID id) { return photos.facts(id); });
    const auto setView = [&](std::size_t first) {
        photos.setView(first, first + kScreen);
        thumbnails.setView(first, first + kScreen);
    };
    const auto isScreenThere = [&](std::size_t first) {
        const std::size_t end = std::min(first + kScreen, session.photos().size());
        for (std::size_t i = first; i < end; ++i)
            if (!thumbnails.thumbnail(session.photos()[i]))
                return false;
        return true;
    };

    const auto start = Clock::now();
    watch("order to add", [&] {
        setView(0);
        session.add({arguments[1]});
    });
    loop.runUntil([&] { return !session.photos().empty(); });
    fmt::print("{:40} {:8.3f} s, {} photos\n", "in the list after", secondsSince(start), session.photos().size());
    loop.runUntil([&] { return isScreenThere(0); });
    fmt::print("{:40} {:8.3f} s\n", "a screen of thumbnails after", secondsSince(start));
    const std::size_t middle = session.photos().size() / 2;
    const auto scrolled = Clock::now();
    watch("order to scroll", [&] { setView(middle); });
    loop.runUntil([&] { return isScreenThere(middle); });
    fmt::print("{:40} {:8.3f} s\n", "another screen of thumbnails after", secondsSince(scrolled));

    watch("move 100 photos", [&] {
        std::vector<PhotoID> first(session.photos().begin(), session.photos().begin() + 100);
        session.movePhotos(first, DocumentSession::kAtEnd);
    });
    watch("reverse", [&] { session.reversePhotos(); });
    watch("undo", [&] { session.undo(); });
    watch("select all", [&] { selection.selectAll(); });
    watch("sort by name", [&] { photos.sort(PhotoSort::ByName); });
    // Minutes of looking are more than one wait.
    while (!loop.runUntil([&] { return photos.waitingCount() == 0; }))
        fmt::print("{} are waiting\n", photos.waitingCount());
    fmt::print("{:40} {:8.3f} s\n", "sizes of all known after", secondsSince(start));
    watch("sort by date", [&] { photos.sort(PhotoSort::ByDate); });
    watch("remove all", [&] { session.removePhotos(session.photos()); });
    watch("undo that", [&] { session.undo(); });
    loop.runUntil([&] { return session.isSaved() && outlook.isComplete(); });
    fmt::print("{:40} {:8.1f} ms\n", "longest order", watch.longest() * 1000);
    fmt::print("{:40} {:8.1f} ms\n", "longest call of the loop", loop.longestCall().count() * 1000);
    fmt::print("{:40} {:>8}\n", "peak memory", peakMemory());
    session.finish();
    return 0;
}
