#include "window/state/photos/ThumbnailCache.h"

#include "window/state/photos/MD5.h"
#include "window/state/photos/UserFolders.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora::window {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kLargeFolder = "large";
/// By the program that failed, since another one might not.
constexpr std::string_view kFailFolder = "fail/stillora";
constexpr std::string_view kAddressKey = "Thumb::URI";
constexpr std::string_view kTimeKey = "Thumb::MTime";
/// A picture of 256 x 256 pixels, uncompressed, and some texts.
constexpr std::uintmax_t kMostBytes = std::uintmax_t{1} << 20;

constexpr std::array<std::uint8_t, 8> kSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
/// Of a chunk without its data: length, kind, check.
constexpr std::size_t kChunkBytes = 12;

std::uint32_t checkOf(std::string_view bytes)
{
    std::uint32_t check = ~0U;
    for (const char byte : bytes) {
        check ^= static_cast<std::uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit)
            check = (check >> 1) ^ ((check & 1) != 0 ? 0xedb88320U : 0U);
    }
    return ~check;
}

std::string bigEndian(std::uint32_t number)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift);
    return bytes;
}

std::string textChunk(std::string_view key, std::string_view text)
{
    const std::string data = fmt::format("tEXt{}{}{}", key, '\0', text);
    return bigEndian(static_cast<std::uint32_t>(data.size() - 4)) + data + bigEndian(checkOf(data));
}

std::uint32_t numberAt(std::string_view bytes, std::size_t place)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8 | static_cast<std::uint8_t>(bytes[place + i]);
    return number;
}

bool isPNG(std::string_view file)
{
    return file.size() > kSignature.size() + kChunkBytes &&
           std::ranges::equal(file.substr(0, kSignature.size()), kSignature,
                              [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

/// The file with texts right behind its header, where programs look for them.
std::string withTexts(std::string_view file, const ThumbnailSource& source)
{
    constexpr std::size_t kHeader = 13;
    const std::size_t place = kSignature.size() + kChunkBytes + kHeader;
    return fmt::format("{}{}{}{}{}", file.substr(0, place), textChunk(kAddressKey, addressOfFile(source.file)),
                       textChunk(kTimeKey, std::to_string(source.modified.time_since_epoch().count())),
                       textChunk("Software", "Stillora"), file.substr(place));
}

std::string contentsOf(const fs::path& path)
{
    std::error_code failure;
    if (!fs::is_regular_file(path, failure) || fs::file_size(path, failure) > kMostBytes || failure)
        return {};
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Whether the texts are those of the file as it is.
bool isOf(std::string_view file, const ThumbnailSource& source)
{
    const auto texts = textsOfPNG(file);
    const auto address = texts.find(kAddressKey);
    const auto time = texts.find(kTimeKey);
    return address != texts.end() && time != texts.end() && address->second == addressOfFile(source.file) &&
           time->second == std::to_string(source.modified.time_since_epoch().count());
}

fs::path placeIn(const fs::path& cache, std::string_view folder, const fs::path& file)
{
    return cache / folder / (md5Of(addressOfFile(file)) + ".png");
}

/// For the user alone, as thumbnails of private photos are private.
bool makeFolder(const fs::path& folder)
{
    std::error_code failure;
    if (fs::is_directory(folder, failure))
        return true;
    if (folder.has_parent_path() && folder.parent_path() != folder && !makeFolder(folder.parent_path()))
        return false;
    return mkdir(folder.c_str(), 0700) == 0 || fs::is_directory(folder, failure);
}

void write(const fs::path& path, std::string_view contents)
{
    if (!makeFolder(path.parent_path()))
        return;
    std::string growing = path.parent_path() / ".stillora-XXXXXX";
    const int descriptor = mkstemp(growing.data());
    if (descriptor < 0)
        return;
    const bool isWritten =
        ::write(descriptor, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size());
    ::close(descriptor);
    if (!isWritten || rename(growing.c_str(), path.c_str()) != 0)
        unlink(growing.c_str());
}

bool isInside(const fs::path& folder, const fs::path& file)
{
    const auto [end, other] = std::ranges::mismatch(folder, file);
    return end == folder.end();
}

void keep(const fs::path& cache, std::string_view folder, const ThumbnailSource& source, const Pixels& pixels)
{
    if (isInside(cache, source.file))
        return;
    const auto file = pngOfPixels(pixels);
    if (!file)
        return;
    const std::string_view bytes(reinterpret_cast<const char*>(file->data()), file->size());
    if (isPNG(bytes))
        write(placeIn(cache, folder, source.file), withTexts(bytes, source));
}

} // namespace

std::map<std::string, std::string, std::less<>> textsOfPNG(std::string_view file)
{
    std::map<std::string, std::string, std::less<>> texts;
    if (!isPNG(file))
        return texts;
    for (std::size_t place = kSignature.size(); file.size() - place >= kChunkBytes;) {
        const std::size_t length = numberAt(file, place);
        if (length > file.size() - place - kChunkBytes)
            break;
        const std::string_view kind = file.substr(place + 4, 4);
        const std::string_view data = file.substr(place + 8, length);
        const std::size_t end = data.find('\0');
        if (kind == "tEXt" && end != std::string_view::npos)
            texts.emplace(data.substr(0, end), data.substr(end + 1));
        place += kChunkBytes + length;
    }
    return texts;
}

std::string addressOfFile(const std::filesystem::path& file)
{
    constexpr std::string_view kPlain =
        "!$&'()*+,-./:=@_~0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::error_code failure;
    std::string address = "file://";
    const fs::path whole = fs::absolute(file, failure);
    for (const char byte : whole.native()) {
        const bool isPlain = kPlain.find(byte) != std::string_view::npos;
        address += isPlain ? std::string(1, byte) : fmt::format("%{:02X}", static_cast<std::uint8_t>(byte));
    }
    return address;
}

std::filesystem::path thumbnailPath(const std::filesystem::path& cache, const std::filesystem::path& file)
{
    return placeIn(cache, kLargeFolder, file);
}

std::optional<Pixels> cachedThumbnail(const std::filesystem::path& cache, const ThumbnailSource& source)
{
    const std::string file = contentsOf(thumbnailPath(cache, source.file));
    if (!isOf(file, source))
        return std::nullopt;
    auto pixels = pixelsOfPicture(std::as_bytes(std::span(file)));
    return pixels ? std::optional(*std::move(pixels)) : std::nullopt;
}

void keepThumbnail(const std::filesystem::path& cache, const ThumbnailSource& source, const Pixels& pixels)
{
    keep(cache, kLargeFolder, source, pixels);
}

bool isThumbnailImpossible(const std::filesystem::path& cache, const ThumbnailSource& source)
{
    return isOf(contentsOf(placeIn(cache, kFailFolder, source.file)), source);
}

void keepThumbnailFailure(const std::filesystem::path& cache, const ThumbnailSource& source)
{
    keep(cache, kFailFolder, source, Pixels{1, 1, 4, Bytes(4)});
}

std::filesystem::path usualThumbnailCache()
{
    return usualCacheFolder() / "thumbnails";
}

} // namespace stillora::window
