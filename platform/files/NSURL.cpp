#include "platform/files/NSURL.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

std::string compressingSlashes(std::string_view path)
{
    std::string result;
    result.reserve(path.size());
    for (const char character : path) {
        if (character != '/' || result.empty() || result.back() != '/')
            result += character;
    }
    if (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}

std::string_view withoutTrailingSlashes(std::string_view path)
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

/// Extensions hold no blank, no "/" and none of the marks that turn the direction of writing, by which a name could
/// show another extension than it has.
bool isValidExtension(std::string_view extension)
{
    if (extension.empty() || extension.find_first_of(" /") != std::string_view::npos)
        return false;
    for (const std::string_view mark : {"\u200E", "\u200F", "\u202A", "\u202B", "\u202C", "\u202D", "\u202E", "\u2066",
                                        "\u2067", "\u2068", "\u2069"}) {
        if (extension.find(mark) != std::string_view::npos)
            return false;
    }
    return true;
}

/// Where the dot before the extension stands in a single component.
std::optional<size_t> extensionDot(std::string_view component)
{
    const size_t dot = component.rfind('.');
    if (dot == std::string_view::npos || !isValidExtension(component.substr(dot + 1)))
        return std::nullopt;
    // Dots alone are no name.
    if (component.find_first_not_of('.') > dot)
        return std::nullopt;
    return dot;
}

std::string homeFolder()
{
    const char* home = getenv("HOME");
    if (home && *home)
        return home;
    std::string buffer(16384, '\0');
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 && result && result->pw_dir)
        return result->pw_dir;
    return "/";
}

bool isExistingFolder(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool endsInSlash(std::string_view path)
{
    return !path.empty() && path.back() == '/';
}

std::string absolutePath(std::string_view path)
{
    if (!path.empty() && path.front() == '/')
        return std::string(path);
    std::error_code failure;
    std::string folder = std::filesystem::current_path(failure).native();
    // The folder was removed: what lies in it is nowhere, and least of all below the root.
    if (failure)
        folder = "/proc/self/cwd";
    if (!endsInSlash(folder))
        folder += '/';
    folder += path;
    return folder;
}

int hexDigit(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return -1;
}

/// Nothing if an escape is not one, or what stands there is no path.
std::optional<std::string> removingPercentEscapes(std::string_view text)
{
    std::string path;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '?' || text[i] == '#')
            return std::nullopt;
        if (text[i] != '%') {
            path += text[i];
            continue;
        }
        const int high = i + 1 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            return std::nullopt;
        path += static_cast<char>(high * 16 + low);
        i += 2;
    }
    if (path.find('\0') != std::string::npos)
        return std::nullopt;
    return path;
}

} // namespace

std::string lastPathComponent(std::string_view path)
{
    std::string compressed = compressingSlashes(path);
    if (compressed == "/")
        return compressed;
    return compressed.substr(compressed.rfind('/') + 1);
}

std::string pathExtension(std::string_view path)
{
    const std::string component = lastPathComponent(path);
    const auto dot = extensionDot(component);
    return dot ? component.substr(*dot + 1) : std::string();
}

std::string stringByDeletingPathExtension(std::string_view path)
{
    std::string compressed = compressingSlashes(path);
    const size_t begin = compressed.rfind('/') + 1;
    if (const auto dot = extensionDot(std::string_view(compressed).substr(begin)))
        compressed.resize(begin + *dot);
    return compressed;
}

std::optional<std::string> stringByAppendingPathExtension(std::string_view path, std::string_view extension)
{
    std::string compressed = compressingSlashes(path);
    if (compressed.empty() || compressed == "/")
        return std::nullopt;
    return compressed + "." + std::string(extension);
}

std::string stringByExpandingTildeInPath(std::string_view path)
{
    if (path != "~" && !path.starts_with("~/"))
        return std::string(path);
    return compressingSlashes(homeFolder() + std::string(path.substr(1)));
}

NSURL::NSURL(std::string path, bool isDirectory) : path_(std::move(path)), isDirectory_(isDirectory) {}

NSURL NSURL::withPath(std::string path, bool isDirectory) const
{
    NSURL url(std::move(path), isDirectory);
    url.host_ = host_;
    return url;
}

NSURL NSURL::fileURLWithPath(std::string_view path)
{
    const std::string absolute = absolutePath(path);
    return fileURLWithPath(absolute, endsInSlash(absolute) || isExistingFolder(absolute));
}

NSURL NSURL::fileURLWithPath(std::string_view path, bool isDirectory)
{
    std::string absolute(withoutTrailingSlashes(absolutePath(path)));
    const bool isRoot = absolute == "/";
    return {std::move(absolute), isDirectory || isRoot};
}

std::optional<NSURL> NSURL::URLWithString(std::string_view text)
{
    static constexpr std::string_view kScheme = "file://";
    if (!text.starts_with(kScheme))
        return std::nullopt;
    text.remove_prefix(kScheme.size());
    const size_t slash = text.find('/');
    const std::string_view host = text.substr(0, slash);
    if (slash == std::string_view::npos || (!host.empty() && host != "localhost"))
        return std::nullopt;
    const auto path = removingPercentEscapes(text.substr(slash));
    if (!path)
        return std::nullopt;
    NSURL url = fileURLWithPath(*path, endsInSlash(*path));
    url.host_ = host;
    return url;
}

std::string NSURL::absoluteString() const
{
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    static constexpr std::string_view kPlain = "!$&'()*+,-./:=@_~";
    std::string text = "file://" + host_;
    for (const char character : path_) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isAlphanumeric =
            (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
        if (isAlphanumeric || kPlain.find(character) != std::string_view::npos) {
            text += character;
        } else {
            text += '%';
            text += kHexDigits[byte >> 4];
            text += kHexDigits[byte & 0xF];
        }
    }
    if (isDirectory_ && path_ != "/")
        text += '/';
    return text;
}

std::string NSURL::lastPathComponent() const
{
    return platform::lastPathComponent(path_);
}

std::string NSURL::pathExtension() const
{
    return platform::pathExtension(path_);
}

NSURL NSURL::URLByAppendingPathComponent(std::string_view component) const
{
    NSURL plain = URLByAppendingPathComponent(component, false);
    if (component.empty() || endsInSlash(component) || isExistingFolder(plain.path_))
        return withPath(plain.path_, true);
    return plain;
}

NSURL NSURL::URLByAppendingPathComponent(std::string_view component, bool isDirectory) const
{
    std::string path = path_;
    if (!component.empty()) {
        const bool hasSlash = component.front() == '/';
        if (hasSlash && endsInSlash(path))
            path.pop_back();
        else if (!hasSlash && !endsInSlash(path))
            path += '/';
        path += component;
    }
    return withPath(std::string(withoutTrailingSlashes(path)), isDirectory || path == "/");
}

NSURL NSURL::URLByDeletingLastPathComponent() const
{
    const std::string last = lastPathComponent();
    if (last == "/")
        return *this;
    // What "." and ".." stand for lies elsewhere; only one more step up leaves it.
    if (last == "." || last == "..")
        return withPath(path_ + "/..", true);
    const std::string_view parent = std::string_view(path_).substr(0, path_.rfind('/') + 1);
    return withPath(std::string(withoutTrailingSlashes(parent)), true);
}

NSURL NSURL::URLByDeletingPathExtension() const
{
    const size_t begin = path_.rfind('/') + 1;
    if (const auto dot = extensionDot(std::string_view(path_).substr(begin)))
        return withPath(path_.substr(0, begin + *dot), isDirectory_);
    return *this;
}

NSURL NSURL::URLByAppendingPathExtension(std::string_view extension) const
{
    if (path_ == "/" || !isValidExtension(extension))
        return *this;
    return withPath(path_ + "." + std::string(extension), isDirectory_);
}

} // namespace platform
