#include "client/questions/FileReader.h"

#include "client/questions/ReaderMessage.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/sandbox/Sandbox.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr const char* kProgramVariable = "STILLORA_FILE_READER";
constexpr const char* kSegmentationFault =
    "cannot be read: the program that reads it ended by signal 11 (Segmentation fault)";

class FileReaders : public testing::Test {
protected:
    std::string file(const std::string& name) const { return folder_.makeFile(name, "x"); }

    static std::string faultOf(FileReader& reader, const std::string& path)
    {
        const auto look = reader.ask(PhotoQuestion{path});
        return look ? "none" : look.error().message;
    }

    const TemporaryFolder folder_;
    const EnvironmentVariable program_{kProgramVariable, STILLORA_PRETENDED_READER};
};

TEST_F(FileReaders, GivesWhatTheProgramSays)
{
    FileReader reader;
    for (int i = 0; i < 3; ++i) {
        const auto look = reader.ask(PhotoQuestion{file("good")});
        ASSERT_TRUE(look) << look.error().message;
        EXPECT_EQ(look->kind, PhotoLook::Kind::Good);
        EXPECT_EQ(look->size, (Size{640, 480}));
    }
}

TEST_F(FileReaders, LogsWhatTheProgramLogsWithoutItsControls)
{
    const LogRecorder log;
    FileReader reader;
    EXPECT_EQ(faultOf(reader, file("log")), "none");
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0], testing::AllOf(HasSubstr("seen"), testing::Not(HasSubstr("\x1b"))));
}

TEST_F(FileReaders, WaitsForAVersionNoLongerThanItIsAsked)
{
    const EnvironmentVariable version("STILLORA_PRETENDED_VERSION", "never said");
    FileReader reader;
    int looks = 0;
    EXPECT_FALSE(reader.fault([&looks] { return ++looks < 3; }));
    EXPECT_EQ(looks, 3);
}

TEST_F(FileReaders, TellsHowTheProgramEndedOverAFile)
{
    FileReader reader;
    EXPECT_EQ(faultOf(reader, file("crash")), kSegmentationFault);
    EXPECT_EQ(faultOf(reader, file("leave")), "cannot be read: the program that reads it ended with exit status 7");
    EXPECT_EQ(faultOf(reader, file("good")), "none");
}

TEST_F(FileReaders, FindsTheFileThatTheProgramEndsOver)
{
    FileReader reader;
    std::vector<std::string> files;
    for (int i = 0; i < 24; ++i)
        files.push_back(file((i % 8 == 3 ? "crash" : "good") + std::to_string(i)));
    std::vector<std::string> faults(files.size());
    {
        std::atomic<size_t> next{0};
        std::vector<std::jthread> threads;
        for (int i = 0; i < 6; ++i)
            threads.emplace_back([&] {
                for (size_t at = next++; at < files.size(); at = next++)
                    faults[at] = faultOf(reader, files[at]);
            });
    }
    for (size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(faults[i], i % 8 == 3 ? kSegmentationFault : "none") << i;
}

TEST_F(FileReaders, BelievesNoProgramOfAnotherVersion)
{
    FileReader fitting;
    EXPECT_FALSE(fitting.fault());
    const EnvironmentVariable version("STILLORA_PRETENDED_VERSION", "9.8.7");
    FileReader reader;
    EXPECT_THAT(faultOf(reader, file("good")), testing::AllOf(HasSubstr("cannot be read: "), HasSubstr("9.8.7")));
    const auto fault = reader.fault();
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->code, ErrorCode::ServiceNotStarted);
    EXPECT_THAT(fault->message, testing::AllOf(HasSubstr(STILLORA_PRETENDED_READER), HasSubstr("9.8.7")));
}

TEST_F(FileReaders, GivesUpOnAFileThatTakesTooLong)
{
    FileReader reader({.wait = 200ms});
    EXPECT_EQ(faultOf(reader, file("hang")), "cannot be read: it takes longer than 0.2 s");
}

TEST_F(FileReaders, GivesUpOnAFileThatTakesTooMuchOfTheProcessor)
{
    FileReader reader({.work = 100ms});
    EXPECT_THAT(faultOf(reader, file("compute")),
                testing::StartsWith("cannot be read: it takes more than 0.1 s of the processor's time"));
    EXPECT_EQ(faultOf(reader, file("good")), "none");
}

TEST_F(FileReaders, EndsTheProgramWhereItIsNotToGoOn)
{
    FileReader reader;
    int asked = 0;
    const auto look = reader.ask(PhotoQuestion{file("hang")}, [&] { return ++asked < 3; });
    ASSERT_FALSE(look);
    EXPECT_EQ(look.error().code, ErrorCode::Cancelled);
    EXPECT_EQ(faultOf(reader, file("good")), "none");
}

TEST_F(FileReaders, BelievesNoNonsense)
{
    FileReader reader;
    for (const char* name : {"nonsense", "short", "huge"})
        EXPECT_EQ(faultOf(reader, file(name)), "cannot be read: what its reader says of it makes no sense") << name;
    EXPECT_EQ(faultOf(reader, file("good")), "none");
}

TEST_F(FileReaders, TellsThatThereIsNoProgram)
{
    const EnvironmentVariable none(kProgramVariable, "/nowhere/reader");
    FileReader reader;
    EXPECT_THAT(faultOf(reader, file("good")), HasSubstr("/nowhere/reader"));
    const EnvironmentVariable bad(kProgramVariable, folder_.makeFile("bad", "no program").c_str());
    ASSERT_EQ(chmod(folder_.path("bad").c_str(), 0755), 0);
    EXPECT_THAT(faultOf(reader, file("good")), HasSubstr("cannot be started"));
}

/// The program itself, asked without the library.
class FileReaderProgram : public testing::Test {
protected:
    FileReaderProgram()
    {
        std::array<int, 2> control{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, control.data()), 0);
        control_.reset(control[0]);
        const platform::FileDescriptor theirs(control[1]);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, theirs.get(), ReaderMessage::kControlDescriptor);
        std::string program = STILLORA_READER;
        std::array<char*, 2> arguments{program.data(), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, program.c_str(), &files, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&files);
    }

    ~FileReaderProgram() override
    {
        control_.reset();
        int status = 0;
        // It ends by itself once nobody can ask any more.
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        EXPECT_TRUE(WIFEXITED(status)) << status;
    }

    platform::FileDescriptor channel() const
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        const platform::FileDescriptor theirs(ends[1]);
        EXPECT_EQ(sendPart(control_.get(), std::array{std::byte{1}}, std::array{theirs.get()}), 1);
        return platform::FileDescriptor(ends[0]);
    }

    static bool receive(int channel, std::span<std::byte> bytes)
    {
        while (!bytes.empty()) {
            const ssize_t received = receivePart(channel, bytes);
            if (received <= 0)
                return false;
            bytes = bytes.subspan(static_cast<size_t>(received));
        }
        return true;
    }

    std::optional<PhotoLook> look(const std::string& path, int file) const
    {
        const platform::FileDescriptor socket = channel();
        Encoder encoder;
        encoder(PhotoQuestion{path});
        const Bytes question = encoder.bytes();
        ReaderMessage head{.number = static_cast<uint32_t>(PhotoQuestion::kTask),
                           .hasFile = static_cast<uint16_t>(file >= 0 ? 1 : 0),
                           .length = question.size()};
        const auto files = std::span(&file, file >= 0 ? 1 : 0);
        if (sendPart(socket.get(), std::as_bytes(std::span(&head, 1)), files) != sizeof head ||
            sendPart(socket.get(), question) != static_cast<ssize_t>(question.size()) ||
            !receive(socket.get(), std::as_writable_bytes(std::span(&head, 1))))
            return std::nullopt;
        Bytes log(head.logLength);
        Bytes answer(head.length);
        PhotoLook look;
        if (!receive(socket.get(), log) || !receive(socket.get(), answer))
            return std::nullopt;
        Decoder decoder(answer);
        decoder(look);
        return decoder.isWhole() ? std::optional(look) : std::nullopt;
    }

    const TemporaryFolder folder_;

private:
    platform::FileDescriptor control_;
    pid_t pid_ = 0;
};

TEST_F(FileReaderProgram, ReadsWhatItIsHandedAndNoOtherFile)
{
    if (platform::SandboxKernel::running().landlockVersion < 2)
        GTEST_SKIP() << "this kernel cannot keep a process from files";
    const std::string path = folder_.path("photo.png");
    test::save(test::plain(8, 6, test::kRed), path);
    const platform::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const auto handed = look(path, file.get());
    ASSERT_TRUE(handed);
    EXPECT_EQ(handed->kind, PhotoLook::Kind::Good);
    EXPECT_EQ(handed->size, (Size{8, 6}));
    const auto named = look(path, -1);
    ASSERT_TRUE(named);
    EXPECT_EQ(named->kind, PhotoLook::Kind::NoPhoto);
}

TEST_F(FileReaderProgram, EndsAChannelOverWhatIsNoQuestion)
{
    for (const ReaderMessage head : {ReaderMessage{.number = 4711}, ReaderMessage{.number = 0, .length = ~uint64_t{0}},
                                     ReaderMessage{.number = 0, .length = 0}}) {
        const platform::FileDescriptor socket = channel();
        ASSERT_EQ(sendPart(socket.get(), std::as_bytes(std::span(&head, 1))), static_cast<ssize_t>(sizeof head));
        std::array<std::byte, 1> answer{};
        EXPECT_FALSE(receive(socket.get(), answer)) << head.number;
    }
}

} // namespace
