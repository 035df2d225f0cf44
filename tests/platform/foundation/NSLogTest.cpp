#include "platform/foundation/NSLog.h"

#include "platform/foundation/FileDescriptor.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/LogRecorder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace platform;

namespace {

/// What `work` writes to standard error, which is a pipe meanwhile; `setUp` may look at it first.
template <typename Work>
std::string standardErrorOf(const Work& work)
{
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    const FileDescriptor old(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    dup2(writer.get(), STDERR_FILENO);
    writer.reset();
    work();
    dup2(old.get(), STDERR_FILENO);
    std::string text(65536, '\0');
    const ssize_t bytes = read(reader.get(), text.data(), text.size());
    text.resize(bytes > 0 ? static_cast<size_t>(bytes) : 0);
    return text;
}

} // namespace

TEST(NSLog, WritesOneLineToStandardError)
{
    const EnvironmentVariable noJournal("JOURNAL_STREAM", std::nullopt);
    EXPECT_EQ(standardErrorOf([] { NSLog("*!!* creation took 1.5 seconds"); }), "*!!* creation took 1.5 seconds\n");
}

TEST(NSLog, GivesTheJournalAPriority)
{
    const std::string text = standardErrorOf([] {
        struct stat status {};
        fstat(STDERR_FILENO, &status);
        const EnvironmentVariable journal("JOURNAL_STREAM",
                                          std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino));
        NSLog("a line");
    });
    EXPECT_EQ(text, "<5>a line\n");
}

TEST(NSLog, KnowsAJournalThatIsNotItsStandardError)
{
    const EnvironmentVariable journal("JOURNAL_STREAM", "1:2");
    EXPECT_EQ(standardErrorOf([] { NSLog("a line"); }), "a line\n");
}

TEST(NSLog, JoinsOperationAndMessage)
{
    const LogRecorder log;
    logFailure("-[Creator create:]", "no soundtrack");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"-[Creator create:] - no soundtrack"});
}

TEST(NSLog, IsOneLineWhateverTheTextHolds)
{
    const LogRecorder log;
    NSLog("first\nsecond\r\x1B[31m\tred\x7F\xFF");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"first\\nsecond\\r\\x1b[31m\tred\\x7f\uFFFD"});
}
