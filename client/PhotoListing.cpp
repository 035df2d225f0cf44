#include <stillora/Photos.h>

#include "client/FileReason.h"
#include "client/Text.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
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

void listFolder(const std::string& path, size_t index, FolderSounds sounds, PhotoListing& listing)
{
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (!folder) {
        listing.bad.push_back({path, fmt::format("the folder cannot be read: {}", reasonOfErrno(errno)), index});
        return;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(folder.get()))
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end(), isBeforeInNaturalOrder);

    const auto found = [&listing] { return listing.candidates.size() + listing.sounds.size(); };
    const size_t before = found();
    size_t folders = 0;
    size_t others = 0;
    for (const std::string& name : names) {
        const std::string file = joined(path, name);
        const std::string extension = platform::lowercaseASCII(platform::pathExtension(name));
        struct stat status = {};
        const bool exists = stat(file.c_str(), &status) == 0;
        if (exists && S_ISDIR(status.st_mode)) {
            ++folders;
        } else if (isPictureExtension(extension)) {
            // A dangling link with a picture's name is a photo that the user would miss.
            listing.candidates.push_back({file, PhotoCandidate::Origin::FoundAsPicture});
        } else if (sounds == FolderSounds::Listed && isSoundExtension(extension)) {
            listing.sounds.push_back(file);
        } else if (!exists || !S_ISREG(status.st_mode) || contains(kOtherExtensions, extension)) {
            ++others;
        } else {
            listing.candidates.push_back({file, PhotoCandidate::Origin::FoundAsFile});
        }
    }
    if (found() == before) {
        listing.bad.push_back(
            {path,
             sounds == FolderSounds::Listed ? "the folder holds no photos and no sounds" : "the folder holds no photos",
             index});
        return;
    }
    if (others > 0)
        addNote(listing, fmt::format("{}: {} passed over", path,
                                     others == 1 ? "1 file that is no photo was"
                                                 : fmt::format("{} files that are no photos were", others)));
    if (folders > 0)
        addNote(listing,
                fmt::format("{}: {} not looked into", path,
                            folders == 1 ? "1 folder inside was" : fmt::format("{} folders inside were", folders)));
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

PhotoListing listPhotos(const std::vector<std::filesystem::path>& arguments, FolderSounds sounds)
{
    PhotoListing listing;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i].native();
        struct stat status = {};
        if (stat(argument.c_str(), &status) != 0)
            listing.bad.push_back({argument, reasonOfErrno(errno), i});
        else if (S_ISDIR(status.st_mode))
            listFolder(argument, i, sounds, listing);
        else
            listing.candidates.push_back({argument, PhotoCandidate::Origin::Named});
    }
    return listing;
}

} // namespace stillora
