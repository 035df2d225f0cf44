#include "client/questions/FileReader.h"

#include "client/processes/ChildEnvironment.h"
#include "client/processes/ChildProgram.h"
#include "client/processes/WorkingClock.h"
#include "client/questions/ReaderMessage.h"
#include "client/text/ClientError.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stillora {

namespace {

using Clock = WorkingClock;
using std::chrono::milliseconds;

/// Between two looks at whether to go on.
constexpr milliseconds kTick{40};

/// Until a program has loaded its libraries; one that takes longer is asked all the same.
constexpr milliseconds kLongestStart{10'000};

/// For a process that was killed; one that has closed its sockets may still have much to do before it ends, on a
/// machine that has more to do.
constexpr milliseconds kLongestDeath{250};
constexpr milliseconds kLongestEnd{3000};

/// More than any answer has: a picture of the largest size.
constexpr uint64_t kLongestAnswer = uint64_t{1} << 31;
constexpr uint64_t kLongestLog = uint64_t{1} << 20;
/// So much room is made at a time, whatever an answer claims.
constexpr size_t kPart = size_t{4} << 20;

std::string notFound(const std::string& places, const char* variable)
{
    return localized("the program that reads files was not found as {}; {} may name it", places, variable);
}

Error notStarted(const std::string& program, int errnoValue)
{
    return {
        ErrorCode::ServiceNotStarted, {}, localized("{} cannot be started: {}", program, reasonOfErrno(errnoValue))};
}

Error ofAnotherVersion(const std::string& program, const std::string& version)
{
    return {ErrorCode::ServiceNotStarted,
            {},
            localized("{}, which reads files, is of version {} and does not fit version {}, which asks it: they have "
                      "to be installed together",
                      program, printable(version), STILLORA_VERSION)};
}

Error tooLong(milliseconds limit)
{
    return {ErrorCode::Unsupported, {}, localized("cannot be read: it takes longer than {}", secondsText(limit))};
}

Error tooMuchWork(milliseconds limit, const std::filesystem::path* file)
{
    struct stat status = {};
    if (!file || stat(file->c_str(), &status) != 0)
        return tooLong(limit);
    constexpr double kBytesPerBlock = 512;
    const double held =
        std::min(static_cast<double>(status.st_size), static_cast<double>(status.st_blocks) * kBytesPerBlock);
    return {ErrorCode::Unsupported,
            {},
            localized("cannot be read: it takes more than {} of the processor's time, and a file that holds {} gets no "
                      "more",
                      secondsText(limit), bytesText(held))};
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Starts a program whose only open file, besides nothing for the standard ones, is the socket.
/// @return what errno would say; 0 where it runs
int spawn(const std::string& program, int socket, pid_t& pid)
{
    // Above what is opened below, which would close it.
    const platform::FileDescriptor moved(fcntl(socket, F_DUPFD_CLOEXEC, ReaderMessage::kControlDescriptor + 1));
    if (!moved)
        return errno;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&files, standard, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&files, moved.get(), ReaderMessage::kControlDescriptor);
    posix_spawn_file_actions_addclosefrom_np(&files, ReaderMessage::kControlDescriptor + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The terminal's signals are for this process, which ends the other; both are stopped together.
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&blocked, signal);
    posix_spawnattr_setsigmask(&attributes, &blocked);
    sigset_t usual;
    sigfillset(&usual);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> arguments{program};
    // Where this process has no translations, the answers are in English too.
    if (const auto& languages = platform::NSBundle::mainBundle().languages(); !languages.empty())
        arguments.insert(arguments.end(), {"--language", languages.front()});
    std::vector<std::string> environment = environmentForChild();
    const int failure = posix_spawn(&pid, program.c_str(), &files, &attributes, pointersTo(arguments).data(),
                                    pointersTo(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return failure;
}

/// The file of a question, as it goes along with it.
struct OpenedFile {
    platform::FileDescriptor descriptor;
    int openErrno = 0;

    OpenedFile(const std::filesystem::path* path, int flags)
    {
        if (!path)
            return;
        // Nothing is waited for.
        descriptor.reset(open(path->c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666));
        openErrno = descriptor ? 0 : errno;
    }
};

/// What is written is not looked for behind a link.
constexpr int kForWriting = O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW;

Error notWritten(const std::filesystem::path& path, int errnoValue)
{
    platform::NSError error;
    platform::failWithErrno(&error, errnoValue, localized("{} cannot be written", path.native()));
    return errorOf(error, path);
}

} // namespace

/// A process that runs, and its channels.
class FileReader::Program final {
public:
    Program(std::string path, pid_t pid, platform::FileDescriptor control)
        : path_(std::move(path)), pid_(pid), control_(std::move(control))
    {}
    ~Program() { end(Ending::AskedFor); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    static std::shared_ptr<Program> start(Error& error);

    /// One that nobody uses; none if the process has ended.
    platform::FileDescriptor takeChannel();
    void giveBack(platform::FileDescriptor channel)
    {
        const platform::LockGuard guard(lock_);
        free_.push_back(std::move(channel));
    }

    /// Why it does not fit, by the version that it has said; waits so long for that, or as long as the asker goes on.
    /// @return nothing as long as it has said none, or if it ended before
    std::optional<Error> faultOfVersion(milliseconds wait, const std::function<bool()>& goesOn = {});

    enum class Ending { ByItself, AskedFor };
    /// Ends the process, after a moment where it is said to end by itself.
    /// @return how, as part of a sentence
    std::string end(Ending ending);
    bool hasEnded()
    {
        const platform::LockGuard guard(lock_);
        return isEnded_;
    }

private:
    /// @return whether there is something to be read of what it says of itself
    bool waitForNews(milliseconds limit, const std::function<bool()>& goesOn);
    /// @return whether it has ended, or is no child of this process
    bool wait(milliseconds limit) REQUIRES(lock_);

    const std::string path_;
    const pid_t pid_;
    const platform::FileDescriptor control_;
    platform::Lock lock_;
    /// Empty as long as it has said none.
    std::string version_ GUARDED_BY(lock_);
    std::vector<platform::FileDescriptor> free_ GUARDED_BY(lock_);
    bool isEnded_ GUARDED_BY(lock_) = false;
    /// As waitpid gives it; nothing where another part of the program has asked before.
    std::optional<int> status_ GUARDED_BY(lock_);
};

std::shared_ptr<FileReader::Program> FileReader::Program::start(Error& error)
{
    platform::NSError why;
    const auto path = ChildProgram{"stillora-file-reader", "STILLORA_FILE_READER", notFound}.find(&why);
    if (!path) {
        error = errorOf(why);
        return nullptr;
    }
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        error = notStarted(*path, errno);
        return nullptr;
    }
    platform::FileDescriptor ours(ends[0]);
    const platform::FileDescriptor theirs(ends[1]);
    pid_t pid = 0;
    if (const int failure = spawn(*path, theirs.get(), pid); failure != 0) {
        error = notStarted(*path, failure);
        return nullptr;
    }
    return std::make_shared<Program>(*path, pid, std::move(ours));
}

bool FileReader::Program::waitForNews(milliseconds limit, const std::function<bool()>& goesOn)
{
    for (const auto deadline = Clock::now() + limit;;) {
        if (goesOn && !goesOn())
            return false;
        pollfd news{control_.get(), POLLIN, 0};
        if (poll(&news, 1, static_cast<int>(std::min(limit, kTick).count())) > 0)
            return true;
        if (Clock::now() >= deadline)
            return false;
    }
}

std::optional<Error> FileReader::Program::faultOfVersion(milliseconds wait, const std::function<bool()>& goesOn)
{
    const platform::LockGuard guard(lock_);
    if (version_.empty()) {
        std::array<std::byte, ReaderMessage::kLongestVersion> text{};
        const ssize_t length = waitForNews(wait, goesOn) ? receivePart(control_.get(), text) : 0;
        if (length <= 0)
            return std::nullopt;
        version_.assign(reinterpret_cast<const char*>(text.data()), static_cast<size_t>(length));
    }
    return version_ == STILLORA_VERSION ? std::nullopt : std::optional(ofAnotherVersion(path_, version_));
}

platform::FileDescriptor FileReader::Program::takeChannel()
{
    const platform::LockGuard guard(lock_);
    if (isEnded_)
        return {};
    if (!free_.empty()) {
        platform::FileDescriptor channel = std::move(free_.back());
        free_.pop_back();
        return channel;
    }
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return {};
    platform::FileDescriptor ours(ends[0]);
    const platform::FileDescriptor theirs(ends[1]);
    constexpr std::array kNews{std::byte{1}};
    fcntl(ours.get(), F_SETFL, O_NONBLOCK);
    return sendPart(control_.get(), kNews, std::array{theirs.get()}) == 1 ? std::move(ours)
                                                                          : platform::FileDescriptor();
}

std::string FileReader::Program::end(Ending ending)
{
    const platform::LockGuard guard(lock_);
    if (!isEnded_) {
        isEnded_ = true;
        free_.clear();
        // What ended by itself says how, a moment after its sockets were closed.
        if (ending == Ending::AskedFor || !wait(kLongestEnd)) {
            ::kill(pid_, SIGKILL);
            wait(kLongestDeath);
        }
    }
    return status_ ? howItEnded(*status_) : localized("without saying how");
}

bool FileReader::Program::wait(milliseconds limit)
{
    for (const auto deadline = Clock::now() + limit; Clock::now() < deadline;) {
        int status = 0;
        const pid_t ended = waitpid(pid_, &status, WNOHANG);
        if (ended == pid_)
            status_ = status;
        // Another part of the program may have been told of it.
        if (ended == pid_ || (ended < 0 && errno == ECHILD))
            return true;
        poll(nullptr, 0, 1);
    }
    return false;
}

/// Keeps a question that has to be alone apart from the others.
class FileReader::Turn final {
public:
    enum class Kind { WithOthers, Alone };

    Turn(FileReader& reader, Kind kind, const std::function<bool()>& goesOn) : reader_(reader), kind_(kind)
    {
        const platform::LockGuard guard(reader_.lock_);
        const auto mayStart = [&]() REQUIRES(reader_.lock_) {
            return !reader_.isAlone_ && (kind_ == Kind::WithOthers || reader_.asking_ == 0);
        };
        while (!mayStart()) {
            if (goesOn && !goesOn())
                return;
            reader_.changed_.wait_for(reader_.lock_, kTick);
        }
        ++reader_.asking_;
        reader_.isAlone_ = kind_ == Kind::Alone;
        isTaken_ = true;
    }
    ~Turn()
    {
        if (!isTaken_)
            return;
        const platform::LockGuard guard(reader_.lock_);
        --reader_.asking_;
        if (kind_ == Kind::Alone)
            reader_.isAlone_ = false;
        reader_.changed_.notify_all();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    /// False where the question was given up before.
    bool isTaken() const { return isTaken_; }

private:
    FileReader& reader_;
    const Kind kind_;
    bool isTaken_ = false;
};

struct FileReader::Question {
    uint32_t task = 0;
    const Bytes& arguments;
    Files files;
    const Limits& limits;
    const std::function<bool()>& goesOn;
    const std::function<bool(const Bytes&)>& take;
};

/// How asking once came out.
struct FileReader::Attempt {
    enum class End {
        Answered,
        /// The program ended, whichever question it was for.
        ProgramEnded,
        /// It took too long over this question.
        TookTooLong,
        /// What it says cannot be.
        MadeNoSense,
        GivenUp,
        /// There is no program.
        NoProgram,
        NoOutput,
    };

    End end = End::ProgramEnded;
    Error error;
};

namespace {

/// Talks over a channel that waits for nothing.
class Talk final {
public:
    enum class End { Done, Closed, TookTooLong, GivenUp };

    Talk(int channel, const std::function<bool()>& goesOn, milliseconds wait)
        : channel_(channel), goesOn_(goesOn), deadline_(Clock::now() + wait)
    {}

    End send(std::span<const std::byte> bytes, std::span<const int> descriptors = {})
    {
        while (!bytes.empty()) {
            const ssize_t sent = sendPart(channel_, bytes, descriptors);
            if (sent < 0 && errno != EAGAIN)
                return End::Closed;
            if (sent > 0) {
                bytes = bytes.subspan(static_cast<size_t>(sent));
                descriptors = {};
            } else if (const End end = waitFor(POLLOUT); end != End::Done) {
                return end;
            }
        }
        return End::Done;
    }

    End receive(std::span<std::byte> bytes)
    {
        while (!bytes.empty()) {
            const ssize_t received = receivePart(channel_, bytes);
            if (received == 0 || (received < 0 && errno != EAGAIN))
                return End::Closed;
            if (received > 0)
                bytes = bytes.subspan(static_cast<size_t>(received));
            else if (const End end = waitFor(POLLIN); end != End::Done)
                return end;
        }
        return End::Done;
    }

private:
    End waitFor(short event)
    {
        for (;;) {
            if (goesOn_ && !goesOn_())
                return End::GivenUp;
            pollfd wait{channel_, event, 0};
            const int count = poll(&wait, 1, static_cast<int>(kTick.count()));
            const bool isRefused = count < 0 && errno != EINTR;
            if (count > 0)
                return End::Done;
            if (Clock::now() >= deadline_)
                return End::TookTooLong;
            if (isRefused) {
                // Where the system lets nothing be waited for, it is tried again after a moment.
                std::this_thread::sleep_for(milliseconds(5));
                return End::Done;
            }
        }
    }

    const int channel_;
    const std::function<bool()>& goesOn_;
    const Clock::time_point deadline_;
};

template <typename Value>
std::span<const std::byte> bytesOfValue(const Value& value)
{
    return std::as_bytes(std::span(&value, 1));
}

Talk::End receiveBytes(Talk& talk, uint64_t length, Bytes& bytes)
{
    while (bytes.size() < length) {
        const size_t before = bytes.size();
        bytes.resize(before + std::min<uint64_t>(kPart, length - before));
        if (const auto end = talk.receive(std::span(bytes).subspan(before)); end != Talk::End::Done)
            return end;
    }
    return Talk::End::Done;
}

/// Lines of the program, as this one's own.
void writeLog(const Bytes& coded)
{
    std::vector<std::string> lines;
    Decoder decoder(coded);
    decoder(lines);
    if (!decoder.isWhole() || lines.size() > ReaderMessage::kMostLogLines)
        return;
    for (const std::string& line : lines)
        platform::NSLog(printable(line));
}

/// @param message  out: the answer's head
Talk::End receiveAnswer(Talk& talk, ReaderMessage& message, Bytes& answer)
{
    if (const auto end = talk.receive(std::as_writable_bytes(std::span(&message, 1))); end != Talk::End::Done)
        return end;
    if (message.length > kLongestAnswer || message.logLength > kLongestLog)
        return Talk::End::Closed;
    Bytes log;
    if (const auto end = receiveBytes(talk, message.logLength, log); end != Talk::End::Done)
        return end;
    if (!log.empty())
        writeLog(log);
    return receiveBytes(talk, message.length, answer);
}

} // namespace

FileReader& FileReader::shared()
{
    // Never destroyed: questions may still be asked while the process ends, and the program ends with it.
    static auto& reader = *new FileReader;
    return reader;
}

FileReader::FileReader() : FileReader(Limits{}) {}

FileReader::FileReader(Limits limits) : limits_(limits) {}

FileReader::~FileReader() = default;

std::shared_ptr<FileReader::Program> FileReader::program(Error& error)
{
    const platform::LockGuard guard(lock_);
    if (!program_ || program_->hasEnded())
        program_ = Program::start(error);
    return program_;
}

std::optional<Error> FileReader::fault(const std::function<bool()>& goesOn)
{
    Error error;
    const auto program = this->program(error);
    return program ? program->faultOfVersion(kLongestStart, goesOn) : std::optional(std::move(error));
}

FileReader::Attempt FileReader::attempt(const Question& question, const Turn& turn)
{
    Attempt result;
    if (!turn.isTaken()) {
        result.end = Attempt::End::GivenUp;
        result.error = {ErrorCode::Cancelled, {}, localized("stopped")};
        return result;
    }
    const auto program = this->program(result.error);
    if (!program) {
        result.end = Attempt::End::NoProgram;
        result.error.message = localized("cannot be read: {}", result.error.message);
        return result;
    }
    platform::FileDescriptor channel = program->takeChannel();
    Talk::End end = Talk::End::Closed;
    ReaderMessage head;
    Bytes answer;
    if (channel) {
        const OpenedFile file(question.files.read, O_RDONLY);
        const OpenedFile output(question.files.written, kForWriting);
        if (output.openErrno != 0) {
            program->giveBack(std::move(channel));
            result.end = Attempt::End::NoOutput;
            result.error = notWritten(*question.files.written, output.openErrno);
            return result;
        }
        const ReaderMessage message{.number = question.task,
                                    .openErrno = file.openErrno,
                                    .milliseconds = static_cast<uint32_t>(question.limits.work.count()),
                                    .hasFile = question.files.read ? uint16_t{1} : uint16_t{0},
                                    .hasOutput = question.files.written ? uint16_t{1} : uint16_t{0},
                                    .length = question.arguments.size()};
        Talk talk(channel.get(), question.goesOn, question.limits.wait);
        std::vector<int> descriptors;
        for (const OpenedFile* each : {&file, &output})
            if (each->descriptor)
                descriptors.push_back(each->descriptor.get());
        end = talk.send(bytesOfValue(message), descriptors);
        if (end == Talk::End::Done)
            end = talk.send(question.arguments);
        if (end == Talk::End::Done)
            end = receiveAnswer(talk, head, answer);
    }
    // It says its version before it answers anything.
    if (auto fault = program->faultOfVersion(milliseconds(0))) {
        program->end(Program::Ending::AskedFor);
        result.end = Attempt::End::NoProgram;
        result.error = *std::move(fault);
        result.error.message = localized("cannot be read: {}", result.error.message);
        return result;
    }
    if (end == Talk::End::Done && head.number == 1) {
        // While the turn lasts: those that it answers at the moment are asked again.
        if (!question.take(answer)) {
            program->end(Program::Ending::AskedFor);
            result.end = Attempt::End::MadeNoSense;
            result.error = {
                ErrorCode::Unsupported, {}, localized("cannot be read: what its reader says of it makes no sense")};
            return result;
        }
        program->giveBack(std::move(channel));
        result.end = Attempt::End::Answered;
        return result;
    }
    // Whatever happened, nothing that it says is believed any more.
    const std::string how =
        program->end(end == Talk::End::Closed ? Program::Ending::ByItself : Program::Ending::AskedFor);
    switch (end) {
    case Talk::End::GivenUp:
        result.end = Attempt::End::GivenUp;
        result.error = {ErrorCode::Cancelled, {}, localized("stopped")};
        break;
    case Talk::End::TookTooLong:
        result.end = Attempt::End::TookTooLong;
        result.error = tooLong(question.limits.wait);
        break;
    case Talk::End::Done:
        result.end = Attempt::End::TookTooLong;
        result.error = tooMuchWork(milliseconds(head.milliseconds), question.files.read);
        break;
    case Talk::End::Closed:
        result.end = Attempt::End::ProgramEnded;
        result.error = {
            ErrorCode::Unsupported, {}, localized("cannot be read: the program that reads it ended {}", how)};
        break;
    }
    return result;
}

std::optional<Error> FileReader::exchange(uint32_t task, const Bytes& arguments, const Files& files,
                                          const Limits& limits, const std::function<bool()>& goesOn,
                                          const std::function<bool(const Bytes&)>& take)
{
    const Question question{task, arguments, files, limits, goesOn, take};
    Attempt last;
    // With others it is not known for which of them the program ended.
    for (const auto kind : {Turn::Kind::WithOthers, Turn::Kind::Alone}) {
        last = attempt(question, Turn(*this, kind, goesOn));
        if (last.end != Attempt::End::ProgramEnded)
            break;
    }
    if (last.end == Attempt::End::Answered)
        return std::nullopt;
    return last.error;
}

} // namespace stillora
