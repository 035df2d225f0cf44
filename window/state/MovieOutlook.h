#pragma once

#include <stillora/Movie.h>
#include <stillora/Types.h>

#include "window/state/MusicPlan.h"
#include "window/state/SoundStates.h"
#include "window/state/document/DocumentSession.h"
#include "window/state/loop/MainLoop.h"
#include "window/state/loop/Signal.h"
#include "window/state/photos/PhotoStates.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// What the movie of the document would be, as far as its files are known: kept up to date with every change, once for
/// all changes of one turn of the loop. Main thread.
class MovieOutlook final {
public:
    MovieOutlook(MainLoop& loop, DocumentSession& session, PhotoStates& photos, SoundStates& sounds);
    ~MovieOutlook();
    MovieOutlook(const MovieOutlook&) = delete;
    MovieOutlook& operator=(const MovieOutlook&) = delete;

    const MusicPlan& music() const { return music_; }
    /// In pixels; none without photos.
    std::optional<Size> frameSize() const { return frameSize_; }
    /// Roughly, of the movie's file.
    std::uint64_t estimatedBytes() const { return estimatedBytes_; }

    /// @name In words
    /// @{
    /// "2 minutes, 5 seconds".
    std::string lengthText() const;
    /// "1920 × 1080", the width first in texts of either direction.
    std::string frameSizeText() const;
    /// "about 24 MB".
    std::string bytesText() const;
    /// "40 photos, 3 of them cannot be used".
    std::string photosText() const;
    /// @}

    /// Whether there is a photo to show and a plan for it. Files that were not looked at yet are left out.
    bool canBeMade() const { return request_ != nullptr; }
    /// The movie as it would be made now, without title and folder; only where it can be made.
    const MovieRequest& request() const { return *request_; }
    /// The photos of the request.
    const std::vector<PhotoID>& requestPhotos() const { return requestPhotos_; }
    /// Whether all files were looked at, and all of this reckoned from what came of that.
    bool isComplete() const;

    /// All of the above may be another.
    Signal<> changed;

private:
    void schedule();
    void reckon();
    bool areFilesKnown() const;

    MainLoop& loop_;
    DocumentSession& session_;
    PhotoStates& photos_;
    SoundStates& sounds_;
    MusicPlan music_;
    std::optional<Size> frameSize_;
    std::uint64_t estimatedBytes_ = 0;
    std::shared_ptr<const MovieRequest> request_;
    std::vector<PhotoID> requestPhotos_;
    bool isScheduled_ = false;
    bool wasComplete_ = true;
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    Connection sessionChanged_;
    Connection photosChanged_;
    Connection soundsChanged_;
};

/// Roughly what a movie's file will hold, reckoned in no time from what photos' own files hold for each pixel.
std::uint64_t estimatedBytesOf(const MovieRequest& request, Size frame);

} // namespace stillora::window
