#pragma once

#include <stillora/Movie.h>

#include "video/ReusedFrames.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// What tells the frames of a movie from all that would look or be coded otherwise: the photo by its size, its time and
/// its ends, so that it is known under another name and not taken for what it replaced; the frame's size, codec and
/// framing, its watermark, and the program that makes it.
class FrameKeys final {
public:
    /// @param request  outlives the object
    /// @param program  the service's file
    FrameKeys(const MovieRequest& request, const std::string& program);

    /// One a frame, in the movie's order; empty for a photo that is not as it was looked at.
    const std::vector<std::string>& keys() const { return keys_; }

    /// Takes back those of photos that have been written to since they were looked at.
    void forgetChangedPhotos();

private:
    const std::vector<PhotoFacts>& photos_;
    const size_t framesPerPhoto_;
    std::vector<std::string> keys_;
};

/// Which frames the movies have that were made lately, so that another one need not make them again. It is kept in a
/// folder, whose loss costs nothing but time. Any thread, and any number of processes.
class FrameMemory final {
public:
    /// Of the user: "stillora/frames" in the folder for what can be made again.
    static FrameMemory ofUser();

    /// @param folder  made when it is needed
    explicit FrameMemory(std::filesystem::path folder);

    /// The movie that has the most of these frames, and is as it was when it was made.
    /// @return nothing where none has one, or they lie there in more runs than the service can be told of
    std::optional<FrameSource> find(const std::vector<std::string>& keys) const;

    /// Movies that were remembered long ago are forgotten. Does nothing where the folder cannot be written.
    void remember(const std::filesystem::path& movie, const std::vector<std::string>& keys) const;

private:
    const std::filesystem::path folder_;
};

/// As the service takes it when it is started: "0+9@1,12+1@0:FILE".
std::string argumentOf(const FrameSource& source);

} // namespace stillora
