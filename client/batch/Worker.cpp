#include "client/batch/Worker.h"

#include "client/text/FileReason.h"
#include "client/text/JSONValue.h"
#include "client/text/JSONWriter.h"

#include <cerrno>
#include <cstdlib>
#include <random>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

/// How often a claim is tried where others come and go.
constexpr int kMostTries = 20;

std::string firstLineOf(const char* file)
{
    const auto text = [&]() -> std::string {
        // Files of the kernel do not tell their size.
        const platform::FileDescriptor descriptor(open(file, O_RDONLY | O_CLOEXEC));
        std::string read(4096, '\0');
        const ssize_t count = descriptor ? ::read(descriptor.get(), read.data(), read.size()) : 0;
        read.resize(static_cast<size_t>(count > 0 ? count : 0));
        return read;
    }();
    return text.substr(0, text.find('\n'));
}

/// The running system that the process is part of: processes of the same one see each other's numbers.
const std::string& systemName()
{
    static const auto* const name = [] {
        std::error_code ignored;
        return new std::string(fmt::format("{} {}", firstLineOf("/proc/sys/kernel/random/boot_id"),
                                           std::filesystem::read_symlink("/proc/self/ns/pid", ignored).native()));
    }();
    return *name;
}

/// When the process began, in the kernel's ticks: a later process of the same number began later. Empty if there is
/// none.
std::string startOf(int pid)
{
    const std::string line = firstLineOf(fmt::format("/proc/{}/stat", pid).c_str());
    // The name stands in brackets and may hold any of them.
    std::string_view rest = std::string_view(line).substr(std::min(line.rfind(')') + 1, line.size()));
    // A zombie will do nothing any more.
    if (rest.starts_with(" Z") || rest.starts_with(" X"))
        return {};
    // The 22nd field; the state, the third, comes first here.
    constexpr int kPlaceOfStart = 19;
    for (int i = 0; i < kPlaceOfStart && !rest.empty(); ++i)
        rest.remove_prefix(std::min(rest.find(' ', 1), rest.size()));
    return rest.empty() ? std::string() : std::string(rest.substr(1, rest.find(' ', 1) - 1));
}

std::string newName()
{
    std::random_device random;
    std::string machine = Worker::machineName();
    for (char& c : machine)
        if (c == '/')
            c = '_';
    return fmt::format("{}-{}-{:08x}{:08x}", machine, getpid(), random(), random());
}

int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

} // namespace

std::string Worker::machineName()
{
    // One machine that plays several of a cluster has a name for each.
    if (const char* const node = getenv("SLURMD_NODENAME"); node && *node)
        return node;
    std::string name(256, '\0');
    gethostname(name.data(), name.size() - 1);
    return name.c_str();
}

namespace {

/// A worker's file is whole when it gets its name: of one without a text nobody could tell that its worker is dead.
/// @return 0, or the error's number
int writeFile(const std::filesystem::path& path, const std::string& name, platform::FileDescriptor& file)
{
    const std::string draft = path.native() + ".new";
    const std::string text = JSONWriter()
                                 .add("name", name)
                                 .add("machine", Worker::machineName())
                                 .add("system", systemName())
                                 .add("pid", getpid())
                                 .add("start", startOf(getpid()))
                                 .text() +
                             "\n";
    file = platform::FileDescriptor(open(draft.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file)
        return errno;
    if (::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(file.get()) == 0 &&
        rename(draft.c_str(), path.c_str()) == 0)
        return 0;
    const int reason = errno;
    unlink(draft.c_str());
    return reason;
}

} // namespace

Worker::Worker(const StateFolder& state, std::chrono::seconds lease, std::string name, platform::FileDescriptor file)
    : state_(state), lease_(lease), name_(std::move(name)), file_(std::move(file))
{}

Result<std::unique_ptr<Worker>> Worker::create(const StateFolder& state, std::chrono::seconds lease)
{
    std::filesystem::path path;
    int reason = 0;
    for (int i = 0; i < kMostTries; ++i) {
        std::string name = newName();
        path = state.workers() / name;
        platform::FileDescriptor file;
        reason = writeFile(path, name, file);
        if (reason == 0)
            return std::unique_ptr<Worker>(new Worker(state, lease, std::move(name), std::move(file)));
        // Who tidied up took it for what a dead worker left.
        if (reason != ENOENT)
            break;
    }
    return Error{ErrorCode::Failed, path, fmt::format("{}: {}", path.native(), reasonOfErrno(reason))};
}

Worker::~Worker()
{
    release();
    unlink(draft().c_str());
    unlink(path().c_str());
}

void Worker::renew() const
{
    // Without times, which would be this machine's: the server takes its own.
    futimens(file_.get(), nullptr);
}

std::optional<Worker::Owner> Worker::ownerOf(const std::filesystem::path& claim)
{
    const auto text = StateFolder::read(claim);
    JSONValue::Fault fault;
    const auto value = text ? JSONValue::read(*text, fault) : std::nullopt;
    if (!value || value->textOf("name").empty())
        return std::nullopt;
    Owner owner;
    owner.name = value->textOf("name");
    owner.machine = value->textOf("machine");
    const int64_t pid = value->wholeNumberOf("pid");
    owner.pid = std::in_range<int>(pid) ? static_cast<int>(pid) : 0;
    owner.isOfThisSystem = value->textOf("system") == systemName();
    owner.isRunning = owner.isOfThisSystem && startOf(owner.pid) == value->textOf("start");
    return owner;
}

bool Worker::isDead(const std::filesystem::path& claim) const
{
    const auto owner = ownerOf(claim);
    if (owner && owner->isOfThisSystem && !owner->isRunning)
        return true;
    // Opened, as a network's file system then asks for the times anew.
    const platform::FileDescriptor file(open(claim.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat theirs = {};
    struct stat ours = {};
    renew();
    if (!file || fstat(file.get(), &theirs) != 0 || fstat(file_.get(), &ours) != 0)
        return false;
    const auto age = std::chrono::nanoseconds(nanoseconds(ours.st_mtim) - nanoseconds(theirs.st_mtim));
    return age > lease_;
}

Worker::Taking Worker::take(const std::string& key)
{
    state_.makeShard(key);
    for (int i = 0; i < kMostTries; ++i) {
        const StateFolder::Traces traces = state_.look(key);
        const int newest = traces.newestClaim();
        // Where it was given up meanwhile there is nobody to come after.
        if (newest > 0 && !isDead(state_.claim(key, newest)))
            return Taking::Held;
        predecessors_.clear();
        for (const int older : traces.claims)
            if (const auto owner = ownerOf(state_.claim(key, older)))
                predecessors_.push_back(owner->name);
        const int failure = link(path().c_str(), state_.claim(key, newest + 1).c_str()) == 0 ? 0 : errno;
        struct stat status = {};
        // The answer of a network may be lost, or that of a second try: the count tells what was done.
        if (fstat(file_.get(), &status) == 0 && status.st_nlink == 2) {
            key_ = key;
            generation_ = newest + 1;
            return Taking::Taken;
        }
        if (failure != EEXIST) {
            failure_ = failure;
            return Taking::Failed;
        }
    }
    return Taking::Held;
}

bool Worker::stillHolds() const
{
    struct stat status = {};
    return generation_ > 0 && state_.look(key_).newestClaim() == generation_ && fstat(file_.get(), &status) == 0 &&
           status.st_nlink == 2;
}

void Worker::release()
{
    if (generation_ == 0)
        return;
    // The older ones first: who looks in between must find that a newer one holds.
    for (int older = generation_ - 1; older > 0; --older)
        unlink(state_.claim(key_, older).c_str());
    unlink(state_.claim(key_, generation_).c_str());
    generation_ = 0;
}

int Worker::put(const std::filesystem::path& file, std::string_view text) const
{
    if (const int reason = StateFolder::write(draft(), text); reason != 0)
        return reason;
    return rename(draft().c_str(), file.c_str()) == 0 ? 0 : errno;
}

int Worker::putFirst(const std::filesystem::path& file, std::string_view text) const
{
    if (const int reason = StateFolder::write(draft(), text); reason != 0)
        return reason;
    int reason = link(draft().c_str(), file.c_str()) == 0 ? 0 : errno;
    struct stat status = {};
    if (reason != 0 && stat(draft().c_str(), &status) == 0 && status.st_nlink == 2)
        reason = 0;
    unlink(draft().c_str());
    return reason;
}

void Worker::removeDeadWorkers() const
{
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(state_.workers(), failure)) {
        std::filesystem::path worker = entry.path();
        const bool isText = worker.extension() == ".new";
        if (isText)
            worker.replace_extension();
        struct stat status = {};
        const bool isThere = stat(worker.c_str(), &status) == 0;
        // What a worker was writing goes with it, and its file once nothing hangs on it.
        const bool isUseless = isThere ? isDead(worker) && (isText || status.st_nlink == 1) : isText;
        if (isUseless)
            unlink(entry.path().c_str());
    }
}

} // namespace stillora
