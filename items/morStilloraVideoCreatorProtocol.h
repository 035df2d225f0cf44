#pragma once

#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "platform/connection/NSXPCConnection.h"
#include "platform/connection/NSXPCInterface.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// The service's reverse-DNS identifier.
inline constexpr std::string_view kServiceIdentifier = "app.stillora.VideoCreator";

/// Full names of the operations.
inline constexpr std::string_view kCreateStillMotionVideoSelector =
    "createStillMotionVideoWithPhotos:soundtracks:totalVideoDuration:totalSoundtrackDuration:shouldLoopSoundtrack:"
    "durationPerPhoto:desiredCodec:quality:shouldReduceBorders:documentURL:saveURL:temporaryURL:reply:";
inline constexpr std::string_view kCancelCreationSelector = "cancelCreation";
inline constexpr std::string_view kUpdateProgressSelector =
    "updateProgressWithTitle:image:determinate:progress:total:timeInterval:";

/// What the service offers on each connection. A class that implements it can be exported as it is.
class morStilloraVideoCreatorProtocol : public platform::NSXPCExportedObject {
public:
    /// Called exactly once: bookmark data of the movie, present only on success; the error of the stage that failed;
    /// whether the creator is cancelled.
    using Reply = std::move_only_function<void(std::optional<platform::NSData> movie,
                                               std::optional<platform::NSError> error, bool isCancelled)>;

    /// The interface that both sides build from the installed document; without restrictions of classes. Never null.
    static std::shared_ptr<platform::NSXPCInterface> interface();
    /// The item classes as an argument may hold them.
    static platform::NSXPCClass photoClass();
    static platform::NSXPCClass soundtrackClass();

    /// Makes one movie; returns at once. Durations are in seconds.
    ///
    /// @param photos        in showing order; none ends the request at once
    /// @param soundtracks   may be empty: the movie then has no sound
    /// @param desiredCodec  empty for none
    /// @param documentURL   bookmark data of the document that names the movie; may fail to resolve, as the others
    /// @param saveURL       bookmark data of the folder that receives the movie
    /// @param temporaryURL  bookmark data of the folder for intermediate files
    virtual void createStillMotionVideoWithPhotos(PhotoList photos, SoundtrackList soundtracks,
                                                  double totalVideoDuration, double totalSoundtrackDuration,
                                                  bool shouldLoopSoundtrack, double durationPerPhoto,
                                                  const std::optional<std::string>& desiredCodec, int64_t quality,
                                                  bool shouldReduceBorders, const platform::NSData& documentURL,
                                                  const platform::NSData& saveURL, const platform::NSData& temporaryURL,
                                                  Reply reply) = 0;

    /// Asks the running job to stop. Later requests on the connection are answered as cancelled.
    virtual void cancelCreation() = 0;

    void invoke(const std::string& selector, platform::NSXPCValues arguments, platform::NSXPCReply reply) final;
};

/// What the client offers, so that the service can report progress. A class that implements it can be exported.
class morStilloraXPCCreatorUpdateProtocol : public platform::NSXPCExportedObject {
public:
    /// As above.
    static std::shared_ptr<platform::NSXPCInterface> interface();

    /// @param title         a key of the application's localised strings
    /// @param image         a PNG file, or none
    /// @param determinate   whether `progress` of `total` is a meaningful fraction
    /// @param timeInterval  seconds left; -1 while there is no estimate, -2 where the stage gives none
    virtual void updateProgressWithTitle(const std::string& title, const std::optional<platform::NSData>& image,
                                         bool determinate, double progress, double total, double timeInterval) = 0;

    void invoke(const std::string& selector, platform::NSXPCValues arguments, platform::NSXPCReply reply) final;
};

/// The service as its client sees it. Needs the interface set as the connection's remote object interface.
class VideoCreatorProxy final {
public:
    explicit VideoCreatorProxy(platform::NSXPCProxy proxy) : proxy_(std::move(proxy)) {}

    /// As the operation of the same name. `reply` is called exactly once, on the connection's own queue, however long
    /// that takes: with the service's answer, or with an error where the service refused the request or went away.
    void createStillMotionVideoWithPhotos(const PhotoList& photos, const SoundtrackList& soundtracks,
                                          double totalVideoDuration, double totalSoundtrackDuration,
                                          bool shouldLoopSoundtrack, double durationPerPhoto,
                                          const std::optional<std::string>& desiredCodec, int64_t quality,
                                          bool shouldReduceBorders, const platform::NSData& documentURL,
                                          const platform::NSData& saveURL, const platform::NSData& temporaryURL,
                                          morStilloraVideoCreatorProtocol::Reply reply) const;
    void cancelCreation() const;

private:
    platform::NSXPCProxy proxy_;
};

/// The client as the service sees it.
class ProgressReceiverProxy final {
public:
    explicit ProgressReceiverProxy(platform::NSXPCProxy proxy) : proxy_(std::move(proxy)) {}

    /// Fire and forget; returns when the update has left for the client's socket.
    void updateProgressWithTitle(const std::string& title, const std::optional<platform::NSData>& image,
                                 bool determinate, double progress, double total, double timeInterval) const;

private:
    platform::NSXPCProxy proxy_;
};
