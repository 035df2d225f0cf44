#pragma once

#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSFileManager.h"
#include "service/VideoCreatorStages.h"
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

/// Stages that write small files at once, note what they were asked, and do besides what a test wants.
class FakeStages {
public:
    using Hook = std::function<void(StageContext& context)>;

    explicit FakeStages(const std::filesystem::path& folder) : folder_(folder) {}

    VideoCreatorStages stages()
    {
        return {
            .finishedSoundtrack = [this](StageContext& context, const SoundtrackList& list, double totalVideoDuration,
                                         double totalSoundtrackDuration, bool shouldLoopSoundtrack,
                                         platform::NSError* error) -> platform::AVURLAssetPtr {
                journal.add("soundtrack " + std::to_string(list.size()) + " " + number(totalVideoDuration) + " " +
                            number(totalSoundtrackDuration) + (shouldLoopSoundtrack ? " loop" : ""));
                duringSoundtrack(context);
                return result("soundtrack.m4a", soundtrackFailure, error);
            },
            .silentVideo = [this](VideoStageContext& context, const PhotoList& list, int64_t quality,
                                  bool reduceBorders, double durationPerPhoto,
                                  const std::optional<std::string>& desiredCodec,
                                  platform::NSError* error) -> platform::AVURLAssetPtr {
                journal.add("video " + std::to_string(list.size()) + " " + std::to_string(quality) + " " +
                            number(durationPerPhoto) + " " + desiredCodec.value_or("none") +
                            (reduceBorders ? " reduce" : ""));
                duringVideo(context);
                return result("video.mov", videoFailure, error);
            },
            .videoSize =
                [this](StageContext&, int64_t quality, const PhotoList& list, uint64_t* totalFileSize, PhotoList*) {
                    journal.add("size " + std::to_string(quality) + " " + std::to_string(list.size()));
                    if (totalFileSize)
                        *totalFileSize = 77;
                    return platform::CGSize{640, 480};
                },
            .fillBufferArray =
                [this](VideoStageContext&, const PhotoList& list, platform::CGSize size, bool reduceBorders) {
                    journal.add("frames " + std::to_string(list.size()) + " " + number(size.width) +
                                (reduceBorders ? " reduce" : ""));
                },
            .movieByCombining = [this](StageContext& context, const platform::AVURLAssetPtr& video,
                                       const platform::AVURLAssetPtr& soundtrack,
                                       const std::optional<platform::NSURL>& document,
                                       platform::NSError* error) -> platform::AVURLAssetPtr {
                journal.add("combine " + video->URL().lastPathComponent() + " " +
                            soundtrack->URL().lastPathComponent() + " " +
                            (document ? document->lastPathComponent() : "none"));
                duringComposition(context);
                return result("movie.mov", compositionFailure, error);
            },
            .finalVideoURL =
                [this](StageContext& context, const std::optional<platform::NSURL>& document) {
                    journal.add("name " + (document ? document->lastPathComponent() : "none"));
                    auto url = context.destinationURL().URLByAppendingPathComponent(
                        finalNames.size() > 1 ? finalNames[namesAsked++ % finalNames.size()] : finalNames[0], false);
                    duringNaming(context);
                    return url;
                },
            .customSaveDirectory =
                [this] {
                    journal.add("custom folder");
                    return platform::NSURL::fileURLWithPath((folder_ / "custom").string(), true);
                },
            .temporarySaveDirectory =
                [this] {
                    journal.add("scratch folder");
                    return platform::NSURL::fileURLWithPath((folder_ / "scratch").string(), true);
                },
            .createAssertion =
                [this](const std::string& name, platform::IOPMAssertionID* assertion) {
                    journal.add("assertion " + name);
                    *assertion = 42;
                    return assertionStatus;
                },
            .releaseAssertion =
                [this](platform::IOPMAssertionID assertion) { journal.add("release " + std::to_string(assertion)); },
        };
    }

    std::filesystem::path file(const std::string& name) const { return filesFolder.value_or(folder_) / name; }

    Journal journal;
    Hook duringSoundtrack = [](StageContext&) {};
    Hook duringVideo = [](StageContext&) {};
    Hook duringComposition = [](StageContext&) {};
    Hook duringNaming = [](StageContext&) {};
    /// An error without a text is failure without an error.
    std::optional<platform::NSError> soundtrackFailure;
    std::optional<platform::NSError> videoFailure;
    std::optional<platform::NSError> compositionFailure;
    platform::IOReturn assertionStatus = platform::kIOReturnSuccess;
    std::vector<std::string> finalNames{"final.mov"};
    std::optional<std::filesystem::path> filesFolder;

private:
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
