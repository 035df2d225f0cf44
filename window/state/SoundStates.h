#pragma once

#include <stillora/Files.h>
#include <stillora/Picture.h>
#include <stillora/Sounds.h>
#include <stillora/Types.h>

#include "window/state/document/DocumentSession.h"
#include "window/state/document/Items.h"
#include "window/state/loop/Background.h"
#include "window/state/loop/Signal.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace stillora::window {

/// What is known of a sound.
struct SoundState {
    enum class Kind {
        Waiting,
        Good,
        /// It cannot be used: the movie is made without it.
        Unusable,
    };

    Kind kind = Kind::Waiting;
    /// What is wrong with it, a sentence without the path.
    std::string reason;
    /// @name Of one that can be used
    /// @{

    /// Of the whole file.
    Seconds length{0};
    int sampleRateHz = 0;
    /// For people; the file's name where the tags tell none.
    std::string title;
    /// Empty where the tags tell none.
    std::string artist;
    /// The picture in the file, fitted into a square of `SoundStates::kCoverPixels`; null where it has none.
    std::shared_ptr<const Pixels> cover;
    /// How loud it is from its start to its end, from 0 to 1, `SoundStates::kLevels` of them; null until it is drawn.
    std::shared_ptr<const std::vector<float>> levels;
    /// @}
};

/// Measures the sounds of the document in the background, reads their tags and covers and draws their wave forms. A
/// file is looked at once. Main thread.
class SoundStates final {
public:
    static constexpr int kCoverPixels = 128;
    static constexpr int kLevels = 2000;

    /// @param loop     of the main thread
    /// @param session  whose sounds; outlives this
    SoundStates(MainLoop& loop, DocumentSession& session);

    const SoundState& state(SoundID id) const;
    /// Also where only its wave form has come.
    Signal<SoundID> changed;

    /// The sounds of the document that can be used, with the parts that play, in its order; and which they are.
    std::vector<SoundFacts> usable() const;
    std::vector<SoundID> usableIDs() const;
    bool isAnyWaiting() const;

private:
    struct Look;

    void soundsChanged();
    void take(SoundID id, Look look);
    void draw(SoundID id);

    DocumentSession& session_;
    std::unordered_map<SoundID, SoundState> states_;
    Connection soundsChanged_;
    Background background_;
};

} // namespace stillora::window
