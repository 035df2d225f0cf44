#pragma once

#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSFileManager.h"
#include "service/morStilloraVideoCreator.h"
#include "tests/support/Journal.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

inline PhotoList photos(size_t count)
{
    PhotoList list;
    for (size_t i = 0; i < count; ++i) {
        list.push_back(std::make_shared<MORPhoto>());
        list.back()->setPhotoURL(platform::NSURL::fileURLWithPath("/photos/" + std::to_string(i) + ".jpg", false));
        list.back()->setTitle(std::to_string(i));
    }
    return list;
}

/// Items cross the connection by bookmarks, so their files have to be there: any file will do.
inline SoundtrackList soundtracks(size_t count)
{
    SoundtrackList list;
    for (size_t i = 0; i < count; ++i)
        list.push_back(MORSoundtrack::soundtrackWithURL(platform::NSURL::fileURLWithPath("/proc/self/exe"), {0, 5, 5}));
    return list;
}

/// What creators are to run and ask outside themselves: stages that write small files at once, note what they were
/// asked, and do besides what a test wants. Outlives its creators.
class FakeStages {
public:
    using Hook = std::function<void(StageContext& context)>;

    explicit FakeStages(const std::filesystem::path& folder) : folder_(folder) {}

    std::shared_ptr<morStilloraVideoCreator> makeCreator();

    std::filesystem::path file(const std::string& name) const { return filesFolder.value_or(folder_) / name; }

    Journal journal;
    Hook duringSoundtrack = [](StageContext&) {};
    Hook duringVideo = [](StageContext&) {};
    Hook duringComposition = [](StageContext&) {};
    Hook duringNaming = [](StageContext&) {};
    std::function<void()> duringRelease = [] {};
    /// Written though there is a soundtrack, or a video.
    std::optional<platform::NSError> errorBesideSoundtrack;
    std::optional<platform::NSError> errorBesideVideo;
    /// An error without a text is failure without an error.
    std::optional<platform::NSError> soundtrackFailure;
    std::optional<platform::NSError> videoFailure;
    std::optional<platform::NSError> compositionFailure;
    platform::IOReturn assertionStatus = platform::kIOReturnSuccess;
    std::vector<std::string> finalNames{"final.mov"};
    std::optional<std::filesystem::path> filesFolder;

private:
    class Creator;

    static std::string number(double value)
    {
        auto text = std::to_string(value);
        text.erase(text.find_last_not_of('0') + 1);
        return text;
    }
    platform::AVURLAssetPtr result(const std::string& name, const std::optional<platform::NSError>& failure,
                                   platform::NSError* error)
    {
        if (failure) {
            if (!failure->localizedDescription.empty())
                *error = *failure;
            return nullptr;
        }
        const auto path = file(name);
        std::ofstream(path) << name;
        return platform::AVURLAsset::URLAssetWithURL(platform::NSURL::fileURLWithPath(path.string(), false));
    }

    const std::filesystem::path folder_;
    size_t namesAsked = 0;
};

class FakeStages::Creator final : public morStilloraVideoCreator {
public:
    explicit Creator(FakeStages& fakes) : fakes_(fakes) {}

    platform::AVURLAssetPtr finishedSoundtrackWithSoundtracks(const SoundtrackList& soundtracks,
                                                              double totalVideoDuration, double totalSoundtrackDuration,
                                                              bool shouldLoopSoundtrack,
                                                              platform::NSError* error) override
    {
        fakes_.journal.add("soundtrack " + std::to_string(soundtracks.size()) + " " + number(totalVideoDuration) + " " +
                           number(totalSoundtrackDuration) + (shouldLoopSoundtrack ? " loop" : ""));
        fakes_.duringSoundtrack(*this);
        if (fakes_.errorBesideSoundtrack)
            *error = *fakes_.errorBesideSoundtrack;
        return fakes_.result("soundtrack.m4a", fakes_.soundtrackFailure, error);
    }
    platform::AVURLAssetPtr videoWithPhotos(const PhotoList& photos, int64_t quality, bool reduceBorders,
                                            double durationPerPhoto, const std::optional<std::string>& desiredCodec,
                                            platform::NSError* error) override
    {
        fakes_.journal.add("video " + std::to_string(photos.size()) + " " + std::to_string(quality) + " " +
                           number(durationPerPhoto) + " " + desiredCodec.value_or("none") +
                           (reduceBorders ? " reduce" : ""));
        fakes_.duringVideo(*this);
        if (fakes_.errorBesideVideo)
            *error = *fakes_.errorBesideVideo;
        return fakes_.result("video.mov", fakes_.videoFailure, error);
    }
    platform::AVURLAssetPtr movieByCombiningVideo(const platform::AVURLAssetPtr& video,
                                                  const platform::AVURLAssetPtr& withSoundtrack,
                                                  const std::optional<platform::NSURL>& forFinalDocURL,
                                                  platform::NSError* error) override
    {
        fakes_.journal.add("combine " + video->URL().lastPathComponent() + " " +
                           withSoundtrack->URL().lastPathComponent() + " " +
                           (forFinalDocURL ? forFinalDocURL->lastPathComponent() : "none"));
        fakes_.duringComposition(*this);
        return fakes_.result("movie.mov", fakes_.compositionFailure, error);
    }
    platform::NSURL _URLForFinalVideoAtDocumentURL(const std::optional<platform::NSURL>& documentURL) override
    {
        const auto& names = fakes_.finalNames;
        fakes_.journal.add("name " + (documentURL ? documentURL->lastPathComponent() : "none"));
        auto url = destinationURL().URLByAppendingPathComponent(names[fakes_.namesAsked++ % names.size()], false);
        fakes_.duringNaming(*this);
        return url;
    }

protected:
    platform::NSURL customSaveDirectory() const override
    {
        fakes_.journal.add("custom folder");
        return platform::NSURL::fileURLWithPath((fakes_.folder_ / "custom").string(), true);
    }
    platform::NSURL temporarySaveDirectory() const override
    {
        fakes_.journal.add("scratch folder");
        return platform::NSURL::fileURLWithPath((fakes_.folder_ / "scratch").string(), true);
    }
    platform::IOReturn createAssertion(const std::string& name, platform::IOPMAssertionID* assertionID) const override
    {
        fakes_.journal.add("assertion " + name);
        *assertionID = 42;
        return fakes_.assertionStatus;
    }
    void releaseAssertion(platform::IOPMAssertionID assertionID) const override
    {
        fakes_.journal.add("release " + std::to_string(assertionID));
        fakes_.duringRelease();
    }

private:
    FakeStages& fakes_;
};

inline std::shared_ptr<morStilloraVideoCreator> FakeStages::makeCreator()
{
    return std::make_shared<Creator>(*this);
}
