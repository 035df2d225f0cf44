#include "client/forecast/MachinePace.h"

#include "platform/files/NSFileManager.h"
#include "platform/files/NSURL.h"
#include "platform/system/UserFolders.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace stillora {

namespace {

/// Of less, in seconds, the most is how a program starts.
constexpr double kLeastWork = 1;
/// No machine is so quick or so slow.
constexpr double kLargestPace = 16;
/// A number has fewer letters.
constexpr size_t kMostBytes = 100;

} // namespace

MachinePace MachinePace::ofUser()
{
    // Several machines may share the user's folders.
    std::string machine(256, '\0');
    gethostname(machine.data(), machine.size() - 1);
    return MachinePace(std::filesystem::path(platform::cacheFolder()) / "stillora" / "pace" / machine.c_str());
}

MachinePace::MachinePace(std::filesystem::path file) : file_(std::move(file)) {}

std::optional<double> MachinePace::known() const
{
    const auto contents = platform::NSFileManager::defaultManager().contentsAtURL(
        platform::NSURL::fileURLWithPath(file_.native(), false), kMostBytes);
    if (!contents)
        return std::nullopt;
    const auto* text = reinterpret_cast<const char*>(contents->data());
    double pace = 0;
    const auto read = std::from_chars(text, text + contents->size(), pace);
    const bool isPace = read.ec == std::errc() && pace >= 1 / kLargestPace && pace <= kLargestPace;
    return isPace ? std::optional(pace) : std::nullopt;
}

void MachinePace::learn(double seconds, double reckoned) const
{
    if (reckoned < kLeastWork)
        return;
    const double seen = std::clamp(seconds / reckoned, 1 / kLargestPace, kLargestPace);
    const std::string text = fmt::format("{:.4f}\n", std::sqrt(seen * known().value_or(seen)));
    std::error_code failure;
    std::filesystem::create_directories(file_.parent_path(), failure);
    (void)platform::NSFileManager::defaultManager().writeContents(
        platform::NSData(text.begin(), text.end()), platform::NSURL::fileURLWithPath(file_.native(), false), nullptr,
        platform::NSFileManager::NewFile::Private);
}

} // namespace stillora
