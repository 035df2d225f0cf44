#include "client/batch/manifest/LineIndex.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

/// The start of the file. As all of it in the byte order of the machine: what another one wrote is none, and made anew.
struct Head {
    std::array<char, 8> magic{'l', 'i', 'n', 'e', 's', ' ', '2', '\n'};
    uint64_t byteOrder = 0x0102030405060708;
    int64_t manifestBytes = 0;
    int64_t manifestModified = 0;
    uint64_t lineCount = 0;
    uint64_t movieCount = 0;
    uint64_t turnCount = 0;
};
static_assert(sizeof(Head) == 56 && sizeof(LineIndex::Entry) == 24);

constexpr size_t kPieceEntries = 4096;
/// Keys that are compared at a time.
constexpr size_t kMostKeys = 1 << 18;

/// @return 0, or the reason
int writeAll(int file, const void* data, size_t bytes, int64_t offset)
{
    const auto* place = static_cast<const char*>(data);
    while (bytes > 0) {
        const ssize_t count = pwrite(file, place, bytes, offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : EIO;
        place += count;
        offset += count;
        bytes -= static_cast<size_t>(count);
    }
    return 0;
}

int64_t offsetOf(size_t line)
{
    return static_cast<int64_t>(sizeof(Head) + (line - 1) * sizeof(LineIndex::Entry));
}

/// Keys are evenly spread, as they are digests.
size_t shareOf(const LineIndex::Entry& entry, size_t shares)
{
    const auto high = std::to_integer<size_t>(entry.key[0]) << 16 | std::to_integer<size_t>(entry.key[1]) << 8 |
                      std::to_integer<size_t>(entry.key[2]);
    return high * shares >> 24;
}

} // namespace

std::string LineIndex::Entry::keyText() const
{
    std::string text;
    for (const std::byte byte : key)
        text += fmt::format("{:02x}", std::to_integer<int>(byte));
    return text;
}

LineIndex::LineIndex(platform::FileDescriptor file, FileStamp manifest) : file_(std::move(file)), manifest_(manifest) {}

std::optional<LineIndex> LineIndex::open(const std::filesystem::path& file)
{
    platform::FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    Head head;
    if (!descriptor || pread(descriptor.get(), &head, sizeof head, 0) != sizeof head || head.magic != Head{}.magic ||
        head.byteOrder != Head{}.byteOrder || head.movieCount > head.lineCount)
        return std::nullopt;
    // What was cut off, or claims more lines than there are, is none.
    struct stat status = {};
    if (fstat(descriptor.get(), &status) != 0 || head.lineCount > static_cast<uint64_t>(status.st_size) ||
        status.st_size != offsetOf(head.lineCount + 1))
        return std::nullopt;
    LineIndex index(std::move(descriptor), {head.manifestBytes, head.manifestModified});
    index.lineCount_ = head.lineCount;
    index.movieCount_ = head.movieCount;
    index.turnCount_ = head.turnCount;
    return index;
}

std::array<std::byte, 16> LineIndex::keyOf(const std::string& text)
{
    std::array<std::byte, 16> key{};
    for (size_t i = 0; i < key.size() && text.size() == 2 * key.size(); ++i) {
        unsigned byte = 0;
        std::from_chars(text.data() + 2 * i, text.data() + 2 * i + 2, byte, 16);
        key[i] = static_cast<std::byte>(byte);
    }
    return key;
}

void LineIndex::add(int64_t offset, const std::string& key, size_t turns)
{
    Entry entry;
    entry.offset = offset;
    entry.turns = turns;
    entry.key = keyOf(key);
    turnCount_ += turns;
    movieCount_ += entry.hasMovie() ? 1 : 0;
    ++lineCount_;
    unwritten_.push_back(entry);
    if (unwritten_.size() == kPieceEntries)
        flush();
}

bool LineIndex::flush()
{
    if (failure_ == 0 && !unwritten_.empty())
        failure_ = writeAll(file_.get(), unwritten_.data(), unwritten_.size() * sizeof(Entry),
                            offsetOf(lineCount_ - unwritten_.size() + 1));
    unwritten_.clear();
    return failure_ == 0;
}

int LineIndex::finish()
{
    Head head;
    head.manifestBytes = manifest_.bytes;
    head.manifestModified = manifest_.modified;
    head.lineCount = lineCount_;
    head.movieCount = movieCount_;
    head.turnCount = turnCount_;
    if (flush())
        failure_ = writeAll(file_.get(), &head, sizeof head, 0);
    return failure_;
}

std::optional<LineIndex::Entry> LineIndex::entry(size_t line) const
{
    Entry entry;
    return pread(file_.get(), &entry, sizeof entry, offsetOf(line)) == sizeof entry ? std::optional(entry)
                                                                                    : std::nullopt;
}

LineIndex::Lines LineIndex::share(size_t task, size_t tasks) const
{
    const size_t begin = (task - 1) * turnCount_ / tasks;
    const size_t end = task * turnCount_ / tasks;
    if (turnCount_ == lineCount_)
        return {begin + 1, end};
    Lines lines;
    size_t turn = 0;
    forEach([&](size_t line, const Entry& entry) {
        const size_t next = turn + entry.turns;
        if (turn < end && next > begin) {
            lines.first = lines.last == 0 ? line : lines.first;
            lines.last = line;
        }
        turn = next;
        return turn < end;
    });
    return lines;
}

void LineIndex::forEach(const std::function<bool(size_t line, const Entry&)>& take) const
{
    std::vector<Entry> piece(kPieceEntries);
    size_t line = 1;
    while (line <= lineCount_) {
        const ssize_t count = pread(file_.get(), piece.data(), piece.size() * sizeof(Entry), offsetOf(line));
        const size_t entries = count > 0 ? static_cast<size_t>(count) / sizeof(Entry) : 0;
        if (entries == 0)
            return;
        for (size_t i = 0; i < entries && line <= lineCount_; ++i)
            if (!take(line++, piece[i]))
                return;
    }
}

void LineIndex::forEachDuplicate(const std::function<void(size_t line, size_t earlier)>& tell) const
{
    struct Known {
        std::array<std::byte, 16> key;
        size_t line;
    };
    const size_t shares = movieCount_ / kMostKeys + 1;
    std::vector<std::pair<size_t, size_t>> found;
    for (size_t share = 0; share < shares; ++share) {
        std::vector<Known> known;
        known.reserve(movieCount_ / shares + kPieceEntries);
        forEach([&](size_t line, const Entry& entry) {
            if (entry.hasMovie() && shareOf(entry, shares) == share)
                known.push_back({entry.key, line});
            return true;
        });
        std::ranges::sort(
            known, [](const Known& a, const Known& b) { return std::tie(a.key, a.line) < std::tie(b.key, b.line); });
        for (size_t i = 1, first = 0; i < known.size(); ++i) {
            if (known[i].key == known[first].key)
                found.emplace_back(known[i].line, known[first].line);
            else
                first = i;
        }
        // Few, as a rule: those of a share are told in their order, without keeping all.
        std::ranges::sort(found);
        for (const auto& [line, earlier] : found)
            tell(line, earlier);
        found.clear();
    }
}

} // namespace stillora
