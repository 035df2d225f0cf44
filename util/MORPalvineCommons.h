#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSGeometry.h"

#include <optional>
#include <string>
#include <vector>

namespace platform {
class LaunchServices;
}

/// Operations that all parts share: where files go, and what an image is. Never instantiated. Any thread.
class MORPalvineCommons final {
public:
    MORPalvineCommons() = delete;

    /// "~/Movies/Stillora/". Made if it is missing; returned whether or not that succeeds.
    static platform::NSURL defaultSaveDirectory();

    /// The folder of the user default "destinationURL", a bookmark, if it is there, else the default save folder. A
    /// bookmark that went stale is replaced.
    static platform::NSURL customSaveDirectory();

    /// ".MORStilloraTemporaryFiles/" in the custom save folder, or in the system's temporary folder where it cannot be
    /// made there.
    static platform::NSURL temporarySaveDirectory();

    /// Pixels of the image, upright; zero for what is no image.
    static platform::CGSize sizeOfImageAtURL(const std::optional<platform::NSURL>& url);

    /// @name What the running system can do, by the classes that are registered; the first answer is kept.
    /// On this system no such class is there unless the program registered it.
    /// @{
    static bool isAtLeastMavericks();
    static bool isAtLeastYosemite();
    static bool isAtLeastElCapitan();
    static bool supportsTouchBar();
    /// @}

    /// The other applications that can open a file, by the desktop's database: those that can be read and run, sorted
    /// by the last component of their URLs' text, without regard to case.
    /// @return nothing if there is no URL, or the desktop knows no application for it
    static std::optional<std::vector<platform::NSURL>>
    URLsOfApplicationsForOpeningFileURL(const std::optional<platform::NSURL>& fileURL);
    /// As above, with another database.
    static std::optional<std::vector<platform::NSURL>>
    URLsOfApplicationsForOpeningFileURL(const std::optional<platform::NSURL>& fileURL,
                                        const platform::LaunchServices& launchServices);

    /// A length of time in minutes and seconds, in the user's language: "62 minutes, 5 seconds". Rounded to whole
    /// seconds, halves to even; no number is no time, and what is too large is the largest time that can be told.
    ///
    /// @param timeInterval  seconds
    static std::string soundtrackDurationStringForTimeInterval(double timeInterval);
};
