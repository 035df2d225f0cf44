#include "client/command/options/NameList.h"

#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "platform/foundation/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <climits>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace stillora {

namespace {

/// A path, and what may say which part of a sound is meant.
constexpr size_t kLongestName = PATH_MAX + 100;

/// What some editors put at the start of a text.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string shownName(const NameList& list)
{
    return list.isStandardInput() ? localized("standard input") : list.file;
}

/// Takes a list apart that comes in pieces.
class NameReader final {
public:
    explicit NameReader(const NameList& list) : list_(list), end_(list.nameEnd == NameList::NameEnd::Null ? '\0' : '\n')
    {}

    /// @return what is wrong, or nothing
    std::string take(std::string_view piece)
    {
        while (!piece.empty()) {
            const size_t end = piece.find(end_);
            name_ += piece.substr(0, end);
            if (std::string fault = faultOfName(); !fault.empty())
                return fault;
            if (end == std::string_view::npos)
                break;
            finishName();
            piece.remove_prefix(end + 1);
        }
        return {};
    }

    std::vector<std::string> finish()
    {
        finishName();
        return std::move(names_);
    }

private:
    std::string faultOfName() const
    {
        // Told early, so that a file without line ends does not fill the memory.
        if (name_.size() > kLongestName)
            return localized("name {} in {} is longer than any name of a file", count_ + 1, shownName(list_));
        if (name_.find('\0') != std::string::npos)
            return localized("line {} of {} holds a zero byte; --null reads names that end in one", count_ + 1,
                             shownName(list_));
        return {};
    }

    void finishName()
    {
        if (list_.nameEnd == NameList::NameEnd::Line) {
            if (count_ == 0 && name_.starts_with(kByteOrderMark))
                name_.erase(0, kByteOrderMark.size());
            if (name_.ends_with('\r'))
                name_.pop_back();
        }
        ++count_;
        if (!name_.empty())
            names_.push_back(std::move(name_));
        name_.clear();
    }

    const NameList& list_;
    const char end_;
    std::string name_;
    /// Of all names so far, the empty ones too: a reader finds the line by it.
    size_t count_ = 0;
    std::vector<std::string> names_;
};

} // namespace

std::string readNameListOptions(const CommandArguments& arguments, std::optional<NameList>& list)
{
    const auto file = arguments.value("files-from");
    const bool isNullEnded = arguments.has("null");
    if (!file)
        return isNullEnded ? localized("--null says how names end in the list of --files-from, which is missing") : "";
    if (file->empty())
        return localized("--files-from takes the path of a list of names, or - for standard input");
    list = NameList{*file, isNullEnded ? NameList::NameEnd::Null : NameList::NameEnd::Line};
    return {};
}

Error errorOfEmptyList(const NameList& list)
{
    return {ErrorCode::NothingToShow, list.file, localized("there is no name in the list {}", shownName(list))};
}

Result<std::vector<std::string>> namesIn(const NameList& list)
{
    const auto unreadable = [&](int reason) {
        return Error{ErrorCode::Failed, list.file,
                     localized("the list {} cannot be read: {}", shownName(list), reasonOfErrno(reason))};
    };
    const platform::FileDescriptor file(list.isStandardInput() ? dup(STDIN_FILENO)
                                                               : open(list.file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return unreadable(errno);
    NameReader reader(list);
    std::array<char, 1 << 16> piece{};
    for (;;) {
        const ssize_t count = read(file.get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return unreadable(errno);
        if (count == 0)
            return reader.finish();
        if (std::string fault = reader.take({piece.data(), static_cast<size_t>(count)}); !fault.empty())
            return Error{ErrorCode::Unsupported, list.file, std::move(fault)};
    }
}

} // namespace stillora
