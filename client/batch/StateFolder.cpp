#include "client/batch/StateFolder.h"

#include "client/text/FileReason.h"
#include "platform/foundation/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <map>
#include <memory>
#include <system_error>

#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

constexpr size_t kKeyDigits = 32;
constexpr size_t kShardDigits = 3;

/// Of a file. The largest is the receipt of a movie of a hundred thousand photos, which takes a tenth of that.
constexpr off_t kMostBytes = off_t{256} << 20;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

/// "KEY.kind" or "KEY.claim.2", into the traces of its movie.
void note(std::string_view kind, StateFolder::Traces& traces)
{
    constexpr std::string_view kClaim = "claim.";
    traces.hasReceipt |= kind == "receipt";
    traces.hasFailure |= kind == "failure";
    traces.hasDelivery |= kind == "delivery";
    int generation = 0;
    if (kind.starts_with(kClaim))
        std::from_chars(kind.data() + kClaim.size(), kind.data() + kind.size(), generation);
    if (generation > 0)
        traces.claims.push_back(generation);
}

template <typename Take>
void forEachName(const std::filesystem::path& folder, Take take)
{
    const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder.c_str()));
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr)
        take(std::string_view(entry->d_name));
}

} // namespace

StateFolder::StateFolder(const std::filesystem::path& manifest) : path_(manifest.native() + ".state") {}

Result<void> StateFolder::make() const
{
    for (const std::filesystem::path& folder : {path_, path_ / "movies", workers(), logs()})
        if (mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST)
            return Error{errno == EACCES || errno == EROFS ? ErrorCode::NoPermission : ErrorCode::Failed, folder,
                         fmt::format("{}: {}", folder.native(), reasonOfErrno(errno))};
    return {};
}

std::filesystem::path StateFolder::shard(const std::string& key) const
{
    return path_ / "movies" / key.substr(0, kShardDigits);
}

std::filesystem::path StateFolder::file(const std::string& key, std::string_view kind) const
{
    return shard(key) / fmt::format("{}.{}", key, kind);
}

std::filesystem::path StateFolder::claim(const std::string& key, int generation) const
{
    return file(key, fmt::format("claim.{}", generation));
}

int StateFolder::Traces::newestClaim() const
{
    return claims.empty() ? 0 : *std::ranges::max_element(claims);
}

StateFolder::Traces StateFolder::look(const std::string& key) const
{
    Traces traces;
    forEachName(shard(key), [&](std::string_view name) {
        if (name.size() <= key.size() || !name.starts_with(key))
            return;
        if (name[key.size()] == '.')
            note(name.substr(key.size() + 1), traces);
        else
            traces.hasPieces = true;
    });
    return traces;
}

void StateFolder::forEach(const std::function<void(const std::string& key, const Traces&)>& take) const
{
    forEachName(path_ / "movies", [&](std::string_view shard) {
        if (shard.size() != kShardDigits)
            return;
        std::map<std::string, Traces> movies;
        forEachName(path_ / "movies" / shard, [&](std::string_view name) {
            const size_t end = std::min(name.find('.'), name.size());
            if (end >= kKeyDigits && end < name.size())
                note(name.substr(end + 1), movies[std::string(name.substr(0, end))]);
        });
        for (const auto& [key, traces] : movies)
            take(key, traces);
    });
}

void StateFolder::removePieces(const std::string& key) const
{
    forEachName(shard(key), [&](std::string_view name) {
        if (name.starts_with(key + "-") && name.find(".claim.") == std::string_view::npos)
            unlink((shard(key) / name).c_str());
    });
}

std::string StateFolder::keyOfPiece(const std::string& key, size_t number)
{
    return fmt::format("{}-{:04}", key, number);
}

std::string StateFolder::keyOfMovie(const std::string& key)
{
    return key.substr(0, kKeyDigits);
}

size_t StateFolder::numberOfPiece(const std::string& key)
{
    size_t number = 0;
    if (key.size() > kKeyDigits + 1)
        std::from_chars(key.data() + kKeyDigits + 1, key.data() + key.size(), number);
    return number;
}

void StateFolder::makeShard(const std::string& key) const
{
    mkdir(shard(key).c_str(), 0777);
}

std::optional<std::string> StateFolder::read(const std::filesystem::path& file)
{
    // A pipe would be waited for.
    const platform::FileDescriptor descriptor(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > kMostBytes)
        return std::nullopt;
    std::string text(static_cast<size_t>(status.st_size), '\0');
    const ssize_t count = ::read(descriptor.get(), text.data(), text.size());
    if (count < 0)
        return std::nullopt;
    text.resize(static_cast<size_t>(count));
    return text;
}

int StateFolder::write(const std::filesystem::path& file, std::string_view text)
{
    platform::FileDescriptor descriptor(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!descriptor)
        return errno;
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor.get(), text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : EIO;
        text.remove_prefix(static_cast<size_t>(count));
    }
    // A network's file system tells of a full disk only now.
    return close(descriptor.release()) == 0 ? 0 : errno;
}

} // namespace stillora
