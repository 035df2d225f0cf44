#pragma once

#include <stillora/Error.h>
#include <stillora/Export.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>
#include <stillora/Types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

class WakeUp;

/// @name How a movie is to be made
/// @{
inline constexpr Seconds kDefaultTimePerPhoto{4};
inline constexpr Seconds kMinTimePerPhoto{0.01};
inline constexpr Seconds kMaxTimePerPhoto{3600};

/// The service's names of the codecs that a movie can have.
inline constexpr std::array<std::string_view, 9> kMovieCodecs{"avc1", "hvc1", "jpeg", "apcn", "ap4h",
                                                              "apch", "apcs", "apco", "ap4x"};

/// The largest height that suits at least four fifths of the photos; of three and of four photos, all but one. It suits
/// a photo that covers the frame in width and height and, up to 1920 x 1080, an upright or square one that is as high.
/// So fourteen photos of 3000 x 2000 and one of 1200 x 1600 make a movie of 2560 x 1440. Never less than
/// `kSmallestQuality` chooses.
inline constexpr std::int64_t kAutomaticQuality = 0;
/// The largest height that the smallest width and the smallest height of all photos cover: of the fifteen photos above,
/// 854 x 480. Any value that is no height of the table does the same.
inline constexpr std::int64_t kSmallestQuality = -1;

/// How a movie is to be made of its photos and sounds, as a document keeps it.
struct MovieSettings {
    Seconds timePerPhoto = kDefaultTimePerPhoto;
    /// A height of the service's size table (240, 360, 480, 720, 1080, 1440 or 2160), `kAutomaticQuality` or
    /// `kSmallestQuality`.
    std::int64_t quality = kAutomaticQuality;
    /// One of `kMovieCodecs`.
    std::string codec = "avc1";
    bool loopsSounds = false;
    bool fitsMusic = false;
    bool fillsSilence = true;
    bool reducesBorders = false;
    /// Without a fault (`faultOfTitle`); nothing takes the document's name.
    std::optional<std::string> title;
    Watermark watermark = Watermark::Usual;

    friend bool operator==(const MovieSettings&, const MovieSettings&) = default;
};

/// The longest title, in bytes: it leaves room in a file's name for an extension and a number, and for the name under
/// which the movie is written.
inline constexpr std::size_t kMaxTitleBytes = 200;

/// Why a text cannot be a movie's title, as the end of a sentence; nothing if it can.
STILLORA_EXPORT std::optional<std::string> faultOfTitle(const std::string& title);

/// The title of a movie that was given none: the name of the folder that all photos lie in, else "Slideshow".
STILLORA_EXPORT std::string titleForPhotos(const std::vector<PhotoFacts>& photos);

/// Where movies go if nobody says otherwise: the folder that the user has chosen, else "Stillora" in the desktop's
/// folder for videos (XDG_VIDEOS_DIR), which may be missing yet, else ~/Movies/Stillora.
STILLORA_EXPORT std::filesystem::path usualSaveFolder();
/// @}

/// @name Planning
/// @{

/// What a movie is planned from.
struct MovieWish {
    std::vector<PhotoFacts> photos;
    Seconds timePerPhoto{0};
    std::vector<SoundFacts> sounds;
    /// Repeat the sounds until the pictures end.
    bool loopsSounds = false;
    /// The photos share the length of the sounds; `timePerPhoto` is then not looked at.
    bool fitsMusic = false;
    /// Sound reaches the end of the pictures, silent where there is no music.
    bool fillsSilence = true;
};

/// A piece of the soundtrack.
struct PlannedSound {
    /// Index of the sound; nothing for silence.
    std::optional<std::size_t> source;
    /// Nothing plays the whole file.
    std::optional<SoundFacts::Selection> selection;
    /// How long the piece lasts before the soundtrack is cut at the end of the pictures.
    Seconds length{0};
};

/// A request that the service can fulfil, and what will be seen and heard of it.
struct MoviePlan {
    /// How often each photo stands in the request, one after the other. The service waits for five frames before it
    /// writes the first.
    std::size_t framesPerPhoto = 1;
    Seconds timePerFrame{0};
    Seconds timePerPhoto{0};
    Seconds totalVideoDuration{0};

    std::vector<PlannedSound> sounds;
    /// Indexes of the sounds of which nothing is heard, because those before them last until the music fades.
    std::vector<std::size_t> leftOut;
    /// What is sent as the soundtrack's length: never more than the pictures', since the plan has chosen the pieces and
    /// the service must not choose again.
    Seconds totalSoundtrackDuration{0};
    /// When the last music ends or is cut; 0 without music.
    Seconds musicEnd{0};
    /// From here to the end the music gets quieter; nothing where it ends by itself.
    std::optional<Seconds> fadeStart;

    /// When the sound ends, silence included; nothing for a movie without sound.
    STILLORA_EXPORT std::optional<Seconds> soundEnd() const;
    std::size_t frameCount(std::size_t photoCount) const { return framesPerPhoto * photoCount; }
};

/// Chooses times and pieces of sound that the service can fulfil. Opens no file.
/// @return an error if what is wanted cannot be made
STILLORA_EXPORT Result<MoviePlan> planMovie(const MovieWish& wish);

/// The size of a movie's frames.
/// @param quality  as in `MovieSettings`
/// @param photos   as they were checked
STILLORA_EXPORT Size frameSizeForQuality(std::int64_t quality, const std::vector<PhotoFacts>& photos);

/// Indexes of the photos that do not suit the frame, which are narrower or lower: they are not enlarged, and what they
/// leave of it is black. An upright or square one suits a frame of up to 1920 x 1080 by its height alone.
STILLORA_EXPORT std::vector<std::size_t> photosSmallerThanFrame(Size frame, const std::vector<PhotoFacts>& photos);
/// @}

/// @name Making
/// @{

/// Where a movie is to be shown.
enum class MovieUse {
    Anywhere,
    /// In web pages too: each photo is told of twice a second, since a browser may else show it early.
    Web,
};

/// Which frames of a larger movie those of a request are.
struct MoviePart {
    /// The number of the first one there, counted from 0; even.
    std::size_t first = 0;
    /// Frames of the whole movie.
    std::size_t movieCount = 0;
};

/// A movie that was planned and only needs making.
struct MovieRequest {
    std::vector<PhotoFacts> photos;
    std::vector<SoundFacts> sounds;
    MoviePlan plan;
    /// One of `kMovieCodecs`.
    std::string codec = "avc1";
    /// As in `MovieSettings`.
    std::int64_t quality = kAutomaticQuality;
    bool reducesBorders = false;
    /// Names the movie; without a fault (`faultOfTitle`).
    std::string title;
    /// Receives the movie; made if it is missing.
    std::filesystem::path saveFolder;
    /// The document that the movie is made of, if there is one; its name without the extension is the title.
    std::optional<std::filesystem::path> document = {};
    MovieUse use = MovieUse::Anywhere;
    Watermark watermark = Watermark::Usual;
    /// Nothing for a whole movie.
    std::optional<MoviePart> part = {};
    /// Movies of all parts in their order, without sound: their frames are copied, and none is made anew. The result is
    /// the same movie as of a request without them.
    std::vector<std::filesystem::path> pieces = {};
    /// Copy the frames that a movie made lately on this machine has, if it is still there as it was: the result is the
    /// same. What the movie then has is remembered in turn, in the user's folder for caches. Of a part, and of a movie
    /// of pieces, nothing is.
    bool reusesFrames = false;
};

/// How far the service is.
struct MovieProgress {
    /// A key of the localised strings: `localized` makes a title of it.
    std::string stage;
    /// A PNG file; may be empty.
    Bytes image;
    bool isDeterminate = false;
    double progress = 0;
    double total = 0;
    /// Until the movie is in its place; nothing while too little is done to tell.
    std::optional<Seconds> timeLeft;
};

/// A movie that was made.
struct Movie {
    std::filesystem::path path;
    /// What is off about it, one sentence each; as a rule nothing.
    std::vector<std::string> faults;
    /// How many of its frames were copied of the movie `frameSource`.
    std::size_t reusedFrames = 0;
    std::filesystem::path frameSource = {};
};

/// Makes one movie: starts the service as a child process, sends the request, watches over it, checks what it made and
/// puts it into the save folder under a free name. Whatever way it ends, no process and no temporary file is left.
class STILLORA_EXPORT MovieMaker final {
public:
    class Observer {
    public:
        virtual ~Observer() = default;
        /// On the thread that calls `makeMovie`, soon after the service told it; older news that were not delivered yet
        /// are dropped. Nothing is told of stages that work on silence alone.
        virtual void progressChanged(const MovieProgress& progress) = 0;
        /// A few times a second, so that a display can live on between updates.
        virtual void timePassed() {}
    };

    struct Limits {
        /// How long the service may neither report nor write anything.
        std::chrono::milliseconds stall{60'000};
        /// How long a cancelled service may take to answer, before it is ended: with fewer than five frames out it
        /// never answers, and nothing of it is needed any more.
        std::chrono::milliseconds cancel{300};
    };

    MovieMaker();
    explicit MovieMaker(Limits limits);
    ~MovieMaker();
    MovieMaker(const MovieMaker&) = delete;
    MovieMaker& operator=(const MovieMaker&) = delete;

    /// Blocks until the movie is made or not; the calling thread is the one that the service process lives and dies
    /// with. One movie at a time.
    /// @return an error if none was made; `ErrorCode::Cancelled` if `cancel` was the reason
    Result<Movie> makeMovie(const MovieRequest& request, Observer& observer);

    /// Asks to stop; asked a second time, the service is ended without waiting for its answer. Stays: every later call
    /// of `makeMovie` ends at once. Any thread, and safe in a signal handler.
    void cancel() noexcept;
    bool isCancelled() const noexcept { return cancelRequests_ > 0; }

private:
    class Job;

    const Limits limits_;
    const std::shared_ptr<const WakeUp> wakeUp_;
    std::atomic<int> cancelRequests_{0};
};

/// Makes a movie beside a program's main loop, which need only watch a descriptor. The work runs on a thread of the
/// library's, with which the service process lives and dies. All but `cancel` on one thread.
class STILLORA_EXPORT MovieJob final {
public:
    /// What `dispatch` calls; each may be empty, and may destroy the job.
    struct Handlers {
        /// How far the service is; older news that were not told yet are dropped.
        std::function<void(const MovieProgress&)> progressChanged;
        /// Called once and last: the movie, or why there is none, as `MovieMaker::makeMovie` returns it.
        std::function<void(const Result<Movie>&)> ended;
    };

    /// Starts at once.
    MovieJob(MovieRequest request, Handlers handlers, MovieMaker::Limits limits = {});
    /// Cancels the work if it goes on, and waits until no process and no temporary file is left: a few seconds at the
    /// most. No handler is called.
    ~MovieJob();
    MovieJob(const MovieJob&) = delete;
    MovieJob& operator=(const MovieJob&) = delete;

    /// Readable (`POLLIN`) while there is news. It belongs to the job.
    int descriptor() const noexcept;

    /// Calls the handlers with the news on this thread, and returns at once where there is none.
    void dispatch();

    /// As `MovieMaker::cancel`; `ended` is then still called.
    void cancel() noexcept;

private:
    struct State;

    const std::shared_ptr<State> state_;
};
/// @}

} // namespace stillora
