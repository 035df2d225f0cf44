#include <stillora/Photos.h>

#include <stillora/Document.h>

#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>

#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

constexpr std::array<std::string_view, 20> kPictureExtensions{"avif", "bmp", "dib",  "gif", "heic", "heif", "hif",
                                                              "j2c",  "j2k", "jfif", "jp2", "jpc",  "jpe",  "jpeg",
                                                              "jpf",  "jpg", "png",  "tif", "tiff", "webp"};

constexpr std::array<std::string_view, 11> kSoundExtensions{"aif", "aifc", "aiff", "caf",  "flac", "m4a",
                                                            "mp3", "oga",  "ogg",  "opus", "wav"};

/// Files that lie beside photos, and camera raw files, whose containers would pass for small pictures.
constexpr std::array<std::string_view, 50> kOtherExtensions{
    "3gp", "aac", "aae",  "aif",  "aiff", "arw",  "avi", "caf",  "cr2",  "cr3",  "crw", "csv", "db",
    "dng", "doc", "docx", "flac", "htm",  "html", "ini", "json", "log",  "m4a",  "m4v", "md",  "mkv",
    "mov", "mp3", "mp4",  "mpg",  "mts",  "nef",  "nrw", "odt",  "ogg",  "opus", "orf", "pdf", "pef",
    "raf", "raw", "rw2",  "srw",  "svg",  "thm",  "txt", "wav",  "webm", "xmp",  "zip"};

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

template <size_t N>
bool contains(const std::array<std::string_view, N>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string joined(const std::string& folder, const std::string& name)
{
    return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

/// A folder may be given twice; once is enough to say it.
void addNote(PhotoListing& listing, std::string note)
{
    if (std::find(listing.notes.begin(), listing.notes.end(), note) == listing.notes.end())
        listing.notes.push_back(std::move(note));
}

/// How many things in a folder were not listed.
struct PassedOver {
    size_t folders = 0;
    size_t others = 0;
};

/// A link may lead back to a folder that it is in; a document's photos are copies of others.
bool isLookedInto(const std::string& path, const std::string& extension)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && extension != kDocumentExtension;
}

/// The names of what is not hidden, in natural order; nothing if the folder cannot be read, as errno says.
std::optional<std::vector<std::string>> namesIn(const std::string& path)
{
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (!folder)
        return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = readdir(folder.get()))
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end(), isBeforeInNaturalOrder);
    return names;
}

/// Lists the files of one argument's folder.
class FolderLister final {
public:
    FolderLister(size_t index, FolderSounds sounds, InnerFolders folders, PhotoListing& listing)
        : index_(index), sounds_(sounds), folders_(folders), listing_(listing)
    {}

    void list(const std::string& path)
    {
        const auto names = namesIn(path);
        if (!names) {
            listing_.bad.push_back({path, localized("the folder cannot be read: {}", reasonOfErrno(errno)), index_});
            return;
        }
        std::vector<std::string> inner;
        for (const std::string& name : *names)
            listEntry(joined(path, name), platform::lowercaseASCII(platform::pathExtension(name)), inner);
        for (const std::string& folder : inner)
            list(folder);
    }

    const PassedOver& passedOver() const { return passedOver_; }

private:
    void listEntry(const std::string& file, const std::string& extension, std::vector<std::string>& inner)
    {
        struct stat status = {};
        const bool exists = stat(file.c_str(), &status) == 0;
        if (exists && S_ISDIR(status.st_mode)) {
            if (folders_ == InnerFolders::Listed && isLookedInto(file, extension))
                inner.push_back(file);
            else
                ++passedOver_.folders;
        } else if (isPictureExtension(extension)) {
            // A dangling link with a picture's name is a photo that the user would miss.
            listing_.candidates.push_back({file, PhotoCandidate::Origin::FoundAsPicture});
        } else if (sounds_ == FolderSounds::Listed && isSoundExtension(extension)) {
            listing_.sounds.push_back(file);
        } else if (!exists || !S_ISREG(status.st_mode) || contains(kOtherExtensions, extension)) {
            ++passedOver_.others;
        } else {
            listing_.candidates.push_back({file, PhotoCandidate::Origin::FoundAsFile});
        }
    }

    const size_t index_;
    const FolderSounds sounds_;
    const InnerFolders folders_;
    PhotoListing& listing_;
    PassedOver passedOver_;
};

void listFolder(const std::string& path, size_t index, FolderSounds sounds, InnerFolders folders, PhotoListing& listing)
{
    const auto found = [&listing] { return listing.candidates.size() + listing.sounds.size(); };
    const size_t before = found();
    const size_t badBefore = listing.bad.size();
    FolderLister lister(index, sounds, folders, listing);
    lister.list(path);
    const PassedOver& passed = lister.passedOver();
    if (found() == before) {
        // A folder that cannot be read is told already.
        if (listing.bad.size() == badBefore)
            listing.bad.push_back({path,
                                   sounds == FolderSounds::Listed
                                       ? localized("the folder holds no photos and no sounds")
                                       : localized("the folder holds no photos"),
                                   index});
        return;
    }
    if (passed.others > 0)
        addNote(listing, localizedCount(passed.others, "{1}: {0} file that is no photo was passed over",
                                        "{1}: {0} files that are no photos were passed over", path));
    if (passed.folders > 0)
        addNote(listing, localizedCount(passed.folders, "{1}: {0} folder inside was not looked into",
                                        "{1}: {0} folders inside were not looked into", path));
}

} // namespace

bool isPictureExtension(const std::string& extension)
{
    return contains(kPictureExtensions, platform::lowercaseASCII(extension));
}

bool isSoundExtension(const std::string& extension)
{
    return contains(kSoundExtensions, platform::lowercaseASCII(extension));
}

PhotoListing listPhotos(const std::vector<std::filesystem::path>& arguments, FolderSounds sounds, InnerFolders folders)
{
    PhotoListing listing;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i].native();
        struct stat status = {};
        if (stat(argument.c_str(), &status) != 0)
            listing.bad.push_back({argument, reasonOfErrno(errno), i});
        else if (S_ISDIR(status.st_mode))
            listFolder(argument, i, sounds, folders, listing);
        else
            listing.candidates.push_back({argument, PhotoCandidate::Origin::Named});
    }
    return listing;
}

} // namespace stillora
