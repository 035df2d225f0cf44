#include "items/morStilloraVideoCreatorProtocol.h"

#include "items/ProtocolDocuments.h"

#include <cassert>
#include <utility>

using platform::NSData;
using platform::NSError;
using platform::NSXPCClass;
using platform::NSXPCInterface;
using platform::NSXPCObjects;
using platform::NSXPCReply;
using platform::NSXPCValues;

namespace {

std::shared_ptr<NSXPCInterface> makeInterface(const char* document)
{
    NSError error;
    auto interface = NSXPCInterface::interfaceWithProtocol(document, &error);
    assert(interface);
    return interface;
}

/// The classes of an argument were checked when it was decoded.
template <typename Item>
std::vector<std::shared_ptr<Item>> itemsOf(const NSXPCObjects& objects)
{
    std::vector<std::shared_ptr<Item>> items;
    items.reserve(objects.size());
    for (const auto& object : objects) {
        if (auto item = std::dynamic_pointer_cast<Item>(object))
            items.push_back(std::move(item));
    }
    return items;
}

template <typename Item>
NSXPCObjects objectsOf(const std::vector<std::shared_ptr<Item>>& items)
{
    return NSXPCObjects(items.begin(), items.end());
}

std::optional<std::string> textOrNone(std::string text)
{
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::optional<NSData> dataOrNone(NSData data)
{
    return data.empty() ? std::nullopt : std::optional(std::move(data));
}

template <typename Value>
Value& take(NSXPCValues& values, size_t index)
{
    return std::get<Value>(values[index]);
}

} // namespace

std::shared_ptr<NSXPCInterface> morStilloraVideoCreatorProtocol::interface()
{
    return makeInterface(kVideoCreatorDocument);
}

NSXPCClass morStilloraVideoCreatorProtocol::photoClass()
{
    return {"MORPhoto",
            [](const platform::NSCoder& coder, NSError* error) { return MORPhoto::initWithCoder(coder, error); }};
}

NSXPCClass morStilloraVideoCreatorProtocol::soundtrackClass()
{
    return {"MORSoundtrack",
            [](const platform::NSCoder& coder, NSError* error) { return MORSoundtrack::initWithCoder(coder, error); }};
}

void morStilloraVideoCreatorProtocol::invoke(const std::string& selector, NSXPCValues arguments, NSXPCReply reply)
{
    if (selector == kCancelCreationSelector) {
        cancelCreation();
        reply({});
        return;
    }
    createStillMotionVideoWithPhotos(
        itemsOf<MORPhoto>(take<NSXPCObjects>(arguments, 0)), itemsOf<MORSoundtrack>(take<NSXPCObjects>(arguments, 1)),
        take<double>(arguments, 2), take<double>(arguments, 3), take<bool>(arguments, 4), take<double>(arguments, 5),
        textOrNone(take<std::string>(arguments, 6)), take<int64_t>(arguments, 7), take<bool>(arguments, 8),
        take<NSData>(arguments, 9), take<NSData>(arguments, 10), take<NSData>(arguments, 11),
        [reply = std::move(reply)](std::optional<NSData> movie, std::optional<NSError> error,
                                   bool isCancelled) mutable {
            reply({std::move(movie).value_or(NSData()), std::move(error), isCancelled});
        });
}

std::shared_ptr<NSXPCInterface> morStilloraXPCCreatorUpdateProtocol::interface()
{
    return makeInterface(kCreatorUpdateDocument);
}

void morStilloraXPCCreatorUpdateProtocol::invoke(const std::string&, NSXPCValues arguments, NSXPCReply reply)
{
    updateProgressWithTitle(take<std::string>(arguments, 0), dataOrNone(std::move(take<NSData>(arguments, 1))),
                            take<bool>(arguments, 2), take<double>(arguments, 3), take<double>(arguments, 4),
                            take<double>(arguments, 5));
    reply({});
}

void VideoCreatorProxy::createStillMotionVideoWithPhotos(const PhotoList& photos, const SoundtrackList& soundtracks,
                                                         double totalVideoDuration, double totalSoundtrackDuration,
                                                         bool shouldLoopSoundtrack, double durationPerPhoto,
                                                         const std::optional<std::string>& desiredCodec,
                                                         int64_t quality, bool shouldReduceBorders,
                                                         const NSData& documentURL, const NSData& saveURL,
                                                         const NSData& temporaryURL,
                                                         morStilloraVideoCreatorProtocol::Reply reply) const
{
    proxy_.call(kCreateStillMotionVideoSelector,
                {objectsOf(photos), objectsOf(soundtracks), totalVideoDuration, totalSoundtrackDuration,
                 shouldLoopSoundtrack, durationPerPhoto, desiredCodec.value_or(""), quality, shouldReduceBorders,
                 documentURL, saveURL, temporaryURL},
                [reply = std::move(reply)](std::optional<NSXPCValues> values, const NSError& error) mutable {
                    if (!values) {
                        reply(std::nullopt, error, false);
                        return;
                    }
                    reply(dataOrNone(std::move(take<NSData>(*values, 0))),
                          std::move(take<std::optional<NSError>>(*values, 1)), take<bool>(*values, 2));
                });
}

void VideoCreatorProxy::cancelCreation() const
{
    // Also a service that reads nothing any more is asked, by a client that has other things to do.
    proxy_.post(kCancelCreationSelector, {});
}

void ProgressReceiverProxy::updateProgressWithTitle(const std::string& title, const std::optional<NSData>& image,
                                                    bool determinate, double progress, double total,
                                                    double timeInterval) const
{
    proxy_.call(kUpdateProgressSelector, {title, image.value_or(NSData()), determinate, progress, total, timeInterval});
}
