#include "client/command/doctor/Diagnosis.h"

#include <stillora/Photos.h>

#include "client/command/doctor/PictureSamples.h"
#include "client/command/making/RememberedSettings.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/service/ServiceConnection.h"
#include "client/service/ServiceProcess.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/faces/CIDetectorModule.h"
#include "platform/files/NSFileManager.h"
#include "platform/files/NSUserDefaults.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/NSString.h"
#include "platform/system/IOPMAssertion.h"
#include "util/UserSettings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stillora {

namespace {

using namespace std::chrono_literals;
using Need = Finding::Need;
using State = Finding::State;
namespace fs = std::filesystem;

/// How long somebody who does not answer is waited for.
constexpr std::chrono::milliseconds kPatience = 3s;
/// What a short movie and its intermediate files take.
constexpr double kLeastFreeBytes = 64e6;

std::string withReason(const std::string& path, int errnoValue)
{
    return fmt::format("{}: {}", path, reasonOfErrno(errnoValue));
}

Finding service()
{
    Finding finding{.identifier = "service", .name = localized("rendering service"), .package = "stillora"};
    const auto broken = [&](State state, const platform::NSError& error) {
        finding.state = state;
        finding.detail = error.localizedDescription;
        return finding;
    };
    platform::NSError error;
    const auto program = ServiceProcess::findProgram(&error);
    if (!program)
        return broken(State::Missing, error);
    const auto process = ServiceProcess::start(*program, {}, &error);
    if (!process || !connectionTo(*process, *program, &error))
        return broken(State::Broken, error);
    finding.detail = *program;
    return finding;
}

/// An encoder or a decoder of the linked libraries.
struct Codec {
    const char* identifier;
    const char* name;
    const char* library;
    Need need;
};

constexpr std::array<Codec, 3> kEncoders{{
    {"encoder.h264", translatable("H.264 encoder"), "libx264", Need::Needed},
    {"encoder.hevc", translatable("HEVC encoder"), "libx265", Need::Optional},
    {"encoder.prores", translatable("ProRes encoder"), "prores_ks", Need::Optional},
}};

/// What the program says that is to work with files, of the same libraries as the service.
Result<Abilities> abilities(bool asksForFaces)
{
    AbilitiesQuestion question;
    for (const Codec& codec : kEncoders)
        question.encoders.emplace_back(codec.library);
    question.decoders = {"aac", "alac", "flac", "mp3float", "opus", "pcm_s16le", "vorbis"};
    question.asksForFaces = asksForFaces;
    return FileReader::shared().ask(question);
}

Finding reader(const Result<Abilities>& found)
{
    Finding finding{.identifier = "reader", .name = localized("program that reads files"), .package = "stillora"};
    if (found)
        return finding;
    finding.state = found.error().code == ErrorCode::ServiceNotFound ? State::Missing : State::Broken;
    finding.detail = found.error().message;
    return finding;
}

/// Whether the kernel can keep what reads files from all else.
Finding confinement(const Abilities& found)
{
    Finding finding{.identifier = "confinement",
                    .name = localized("keeping what reads files from all else"),
                    .need = Need::Optional};
    for (const std::string& lack : found.lacksOfConfinement) {
        const std::string sentence = localized(lack.c_str());
        finding.detail = finding.detail.empty() ? sentence : fmt::format("{}; {}", finding.detail, sentence);
        finding.state = State::Missing;
    }
    return finding;
}

std::vector<Finding> encoders(const Abilities& found)
{
    std::vector<Finding> findings;
    for (const Codec& codec : kEncoders) {
        Finding& finding = findings.emplace_back(Finding{.identifier = codec.identifier,
                                                         .name = localized(codec.name),
                                                         .need = codec.need,
                                                         .detail = codec.library,
                                                         .package = "libavcodec59"});
        if (std::ranges::find(found.missingEncoders, codec.library) == found.missingEncoders.end())
            continue;
        finding.state = State::Missing;
        finding.detail = localized("the linked FFmpeg was built without {}", codec.library);
    }
    // Brought along, and not to be missed.
    findings.push_back(
        {.identifier = "encoder.jpeg", .name = localized("JPEG encoder"), .detail = localized("built in")});
    findings.push_back(
        {.identifier = "encoder.aac", .name = localized("AAC encoder"), .detail = localized("built in")});
    return findings;
}

Finding soundDecoders(const Abilities& found)
{
    Finding finding{.identifier = "decoders.sound", .name = localized("sound decoders"), .package = "libavcodec59"};
    if (found.missingDecoders.empty()) {
        finding.detail = "MP3, AAC, ALAC, FLAC, Vorbis, Opus, PCM";
        return finding;
    }
    finding.state = State::Missing;
    finding.detail = localized("the linked FFmpeg was built without {}", fmt::join(found.missingDecoders, ", "));
    return finding;
}

/// A folder for this process alone, removed with what is in it.
class ScratchFolder final {
public:
    explicit ScratchFolder(const std::string& parent) : path_(parent + "stillora-doctor-XXXXXX")
    {
        if (!mkdtemp(path_.data())) {
            reason_ = errno;
            path_.clear();
        }
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        if (!path_.empty())
            fs::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    /// Empty if it could not be made.
    const std::string& path() const { return path_; }
    int reason() const { return reason_; }

private:
    std::string path_;
    int reason_ = 0;
};

/// Decodes a picture of each format, as photos are looked into.
std::vector<Finding> pictureFormats(const ScratchFolder& scratch)
{
    std::vector<Finding> findings;
    if (scratch.path().empty())
        return findings;
    for (const PictureSample& sample : pictureSamples()) {
        const std::string file = fmt::format("{}/sample.{}", scratch.path(), sample.extension);
        const std::string bytes = sample.bytes();
        Finding& finding = findings.emplace_back(
            Finding{.identifier = sample.identifier, .name = localized(sample.name), .package = sample.package});
        std::ofstream stream(file, std::ios::binary);
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!stream.flush()) {
            finding.state = State::Broken;
            finding.detail = localized("{} cannot be written", file);
            continue;
        }
        const CheckedPhotos checked = checkPhotos({{file, PhotoCandidate::Origin::Named}});
        if (checked.bad.empty())
            continue;
        finding.state = State::Broken;
        finding.detail = checked.bad.front().reason;
    }
    return findings;
}

Finding font(const Abilities& found)
{
    Finding finding{.identifier = "font", .name = localized("font of the watermark"), .package = "fonts-liberation"};
    if (found.hasFontOfWatermark)
        return finding;
    finding.state = State::Missing;
    finding.detail = localized("no font has letters");
    return finding;
}

std::optional<std::string> missingFileOfFaces()
{
    return platform::CIDetectorModule::missingFile(platform::CIDetectorModule::standardPaths());
}

Finding faces(const Abilities& found)
{
    Finding finding{
        .identifier = "faces", .name = localized("face detector"), .need = Need::Optional, .package = "stillora-faces"};
    if (const auto file = missingFileOfFaces()) {
        finding.state = State::Missing;
        finding.detail = localized("{} is not there; photos are cropped around their middle", *file);
    } else if (!found.findsFaces) {
        finding.state = State::Broken;
        finding.detail = localized("the detector or its model cannot be loaded");
    }
    return finding;
}

/// The folder itself, or the nearest one above it that is there.
fs::path nearestFolder(fs::path folder)
{
    std::error_code ignored;
    while (!fs::exists(folder, ignored) && folder.has_parent_path() && folder != folder.parent_path())
        folder = folder.parent_path();
    return folder;
}

/// Whether files can be made in a folder, or the folder itself, if it is missing.
Finding folder(std::string_view identifier, const std::string& name, const std::string& path)
{
    Finding finding{.identifier = identifier, .name = name, .detail = path};
    const std::string nearest = nearestFolder(path).native();
    struct stat status = {};
    if (stat(nearest.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        finding.state = State::Broken;
        finding.detail = withReason(nearest, ENOTDIR);
        return finding;
    }
    // A file without a name, of which nothing is left whatever happens.
    platform::FileDescriptor file(open(nearest.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    const int reason = errno;
    const bool isWritable =
        file || ((reason == EOPNOTSUPP || reason == EISDIR) && access(nearest.c_str(), W_OK | X_OK) == 0);
    if (!isWritable) {
        finding.state = State::Broken;
        finding.detail = withReason(nearest, reason);
    }
    return finding;
}

std::string saveFolder()
{
    const auto chosen = RememberedSettings::value("save");
    return chosen ? *chosen : platform::stringByExpandingTildeInPath(UserSettings::kDefaultSaveFolder);
}

std::string configurationFolder()
{
    const char* const folder = getenv("XDG_CONFIG_HOME");
    return (folder && *folder == '/' ? std::string(folder) : platform::stringByExpandingTildeInPath("~/.config")) +
           "/stillora";
}

Finding diskSpace(const std::string& path)
{
    Finding finding{.identifier = "disk", .name = localized("free disk space")};
    const std::string nearest = nearestFolder(path).native();
    struct statvfs status = {};
    if (statvfs(nearest.c_str(), &status) != 0) {
        finding.state = State::Broken;
        finding.detail = withReason(nearest, errno);
        return finding;
    }
    const double free = static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
    finding.state = free < kLeastFreeBytes ? State::Broken : State::Good;
    finding.detail = free < kLeastFreeBytes
                         ? localized("{} where movies are put, which is too little for most", bytesText(free))
                         : bytesText(free);
    return finding;
}

Finding sleepInhibition()
{
    Finding finding{.identifier = "sleep",
                    .name = localized("keeping the computer awake"),
                    .need = Need::Optional,
                    .package = "systemd"};
    std::string reason;
    if (platform::IOPMAssertionIsPossible(kPatience, &reason))
        return finding;
    finding.state = State::Missing;
    finding.detail = localized("no login manager answers: {}", reason);
    return finding;
}

/// Where systemd looks for units of users, beside the folders of an installation.
std::vector<std::string> unitFolders()
{
    std::vector<std::string> folders;
    for (const char* const folder : {"~/.config/systemd/user", "~/.local/share/systemd/user"})
        folders.push_back(platform::stringByExpandingTildeInPath(folder));
    for (const char* const folder : {"/etc/systemd/user", "/usr/local/lib/systemd/user", "/usr/lib/systemd/user"})
        folders.emplace_back(folder);
    return folders;
}

/// As systemd makes one for a user's service.
bool canMakeUserNamespace()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(unshare(CLONE_NEWUSER) == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

/// Whether the user has changed how the unit starts the service.
bool hasDropIns()
{
    const auto folders = unitFolders();
    return std::ranges::any_of(folders, [](const std::string& folder) {
        return access((folder + "/app.stillora.VideoCreator@.service.d").c_str(), R_OK) == 0;
    });
}

Finding units()
{
    Finding finding{
        .identifier = "units", .name = localized("systemd units"), .need = Need::Optional, .package = "stillora"};
    for (const std::string& folder : unitFolders())
        if (access((folder + "/app.stillora.VideoCreator.socket").c_str(), R_OK) == 0) {
            finding.detail = folder;
            if (!hasDropIns() && !canMakeUserNamespace()) {
                finding.state = State::Broken;
                // They are installed; more of the same would change nothing.
                finding.package = {};
                finding.detail = localized("this system forbids user namespaces, without which {} cannot start the "
                                           "service; {} is a drop-in that "
                                           "does without them",
                                           folder + "/app.stillora.VideoCreator@.service",
                                           platform::installedPlace(platform::InstalledFolder::Shared,
                                                                    "stillora/without-user-namespaces.conf"));
            }
            return finding;
        }
    finding.state = State::Missing;
    finding.detail = localized("only other applications need them; this program starts the service itself");
    return finding;
}

Finding translations()
{
    Finding finding{
        .identifier = "translations", .name = localized("translations"), .need = Need::Optional, .package = "stillora"};
    const std::string folder = platform::installedPlace(platform::InstalledFolder::Shared, "locale");
    for (const char* const language : {"de", "fr"}) {
        const std::string file = fmt::format("{}/{}/LC_MESSAGES/stillora.mo", folder, language);
        if (access(file.c_str(), R_OK) == 0)
            continue;
        finding.state = State::Missing;
        finding.detail = withReason(file, errno);
        return finding;
    }
    finding.detail = folder;
    return finding;
}

} // namespace

std::vector<Finding> diagnose()
{
    std::vector<Finding> findings{service()};
    const auto add = [&findings](std::vector<Finding> more) {
        findings.insert(findings.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    };
    const std::string temporary = platform::NSTemporaryDirectory();
    const Result<Abilities> found = abilities(!missingFileOfFaces());
    add({reader(found)});
    // Without it nothing of these is known, and no movie can be made.
    if (found) {
        add(encoders(*found));
        add({soundDecoders(*found)});
    }
    const ScratchFolder scratch(temporary);
    if (found) {
        add(pictureFormats(scratch));
        add({font(*found), faces(*found), confinement(*found)});
    }
    add({folder("folder.save", localized("save folder"), saveFolder()), diskSpace(saveFolder()),
         folder("folder.temporary", localized("folder for temporary files"), temporary),
         folder("folder.settings", localized("folder for settings"), configurationFolder()), sleepInhibition(), units(),
         translations()});
    return findings;
}

} // namespace stillora
