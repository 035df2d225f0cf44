#include "client/batch/manifest/ManifestReader.h"

#include "client/text/FileReason.h"

#include <cerrno>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

constexpr size_t kPieceBytes = 256 << 10;

} // namespace

Result<ManifestReader> ManifestReader::open(const std::filesystem::path& file)
{
    const auto fail = [&](int reason) {
        return Error{reason == ENOENT ? ErrorCode::FileNotFound : ErrorCode::Failed, file,
                     fmt::format("{}: {}", file.native(), reasonOfErrno(reason))};
    };
    platform::FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0)
        return fail(errno);
    if (S_ISDIR(status.st_mode))
        return fail(EISDIR);
    return ManifestReader(std::move(descriptor),
                          {status.st_size, status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec});
}

void ManifestReader::seek(size_t number, int64_t offset)
{
    buffer_.clear();
    place_ = 0;
    bufferOffset_ = offset;
    number_ = number - 1;
}

/// Takes another piece of the file behind what is left of the buffer.
bool ManifestReader::fill()
{
    bufferOffset_ += static_cast<int64_t>(place_);
    buffer_.erase(0, std::exchange(place_, 0));
    const size_t before = buffer_.size();
    buffer_.resize(before + kPieceBytes);
    ssize_t count = 0;
    do
        count = pread(file_.get(), buffer_.data() + before, kPieceBytes, bufferOffset_ + static_cast<int64_t>(before));
    while (count < 0 && errno == EINTR);
    if (count < 0)
        failure_ = errno;
    buffer_.resize(before + static_cast<size_t>(count > 0 ? count : 0));
    return count > 0;
}

std::optional<ManifestReader::Line> ManifestReader::next()
{
    Line line;
    line.number = ++number_;
    line.offset = bufferOffset_ + static_cast<int64_t>(place_);
    bool isTooLong = false;
    size_t searched = place_;
    while (true) {
        if (const size_t end = buffer_.find('\n', searched); end != std::string::npos) {
            line.text = std::string_view(buffer_).substr(place_, end - place_);
            place_ = end + 1;
            break;
        }
        searched = buffer_.size();
        if (searched - place_ > kLongestLine) {
            isTooLong = true;
            place_ = searched;
        }
        const size_t taken = searched - place_;
        if (!fill()) {
            if (failure_ != 0 || (buffer_.empty() && !isTooLong))
                return std::nullopt;
            line.text = buffer_;
            place_ = buffer_.size();
            break;
        }
        searched = taken;
    }
    if (isTooLong || line.text->size() > kLongestLine)
        line.text.reset();
    return line;
}

} // namespace stillora
