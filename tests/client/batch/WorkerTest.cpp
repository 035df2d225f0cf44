#include "client/batch/Worker.h"

#include "client/text/JSONWriter.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using Taking = Worker::Taking;

const std::string kKey(32, 'a');
constexpr std::chrono::seconds kLease{120};

class WorkerTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(state_.make()); }

    std::unique_ptr<Worker> worker() const
    {
        auto made = Worker::create(state_, kLease);
        EXPECT_TRUE(made);
        return made ? *std::move(made) : nullptr;
    }

    /// What a process does that then ends without a word.
    static int endedProcess(const std::function<int()>& act)
    {
        const pid_t child = fork();
        if (child == 0)
            _exit(act());
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// The claim of a worker of another machine.
    void claimOfOther(std::chrono::seconds silent) const
    {
        const std::filesystem::path file = state_.workers() / "other-1";
        const std::string text =
            JSONWriter().add("name", "other-1").add("machine", "other").add("system", "another").add("pid", 1).text();
        ASSERT_EQ(StateFolder::write(file, text), 0);
        state_.makeShard(kKey);
        ASSERT_EQ(link(file.c_str(), state_.claim(kKey, 1).c_str()), 0);
        makeOlder(file, silent);
    }

    static void makeOlder(const std::filesystem::path& file, std::chrono::seconds age)
    {
        struct stat status = {};
        ASSERT_EQ(stat(file.c_str(), &status), 0);
        timespec time = status.st_mtim;
        time.tv_sec -= age.count();
        const timespec times[] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    }

    TemporaryFolder folder_;
    const StateFolder state_{folder_.path() + "/list.jsonl"};
};

} // namespace

TEST_F(WorkerTest, TakesAMovieThatNobodyHas)
{
    const auto first = worker();
    const auto second = worker();
    EXPECT_EQ(first->take(kKey), Taking::Taken);
    EXPECT_TRUE(first->stillHolds());
    EXPECT_EQ(second->take(kKey), Taking::Held);
    first->release();
    EXPECT_FALSE(first->stillHolds());
    EXPECT_EQ(second->take(kKey), Taking::Taken);
    EXPECT_TRUE(second->predecessors().empty());
}

TEST_F(WorkerTest, ComesAfterAProcessThatHasEnded)
{
    EXPECT_EQ(endedProcess([&] {
                  const auto made = Worker::create(state_, kLease);
                  // Before it can give anything up.
                  _exit(made && (*made)->take(kKey) == Taking::Taken ? 0 : 1);
                  return 1;
              }),
              0);
    const auto next = worker();
    EXPECT_EQ(next->take(kKey), Taking::Taken);
    EXPECT_EQ(next->predecessors().size(), 1u);
    EXPECT_EQ(state_.look(kKey).newestClaim(), 2);
    next->release();
    EXPECT_TRUE(state_.look(kKey).claims.empty());
}

TEST_F(WorkerTest, GivesAWorkerOfAnotherMachineItsLease)
{
    claimOfOther(kLease - std::chrono::seconds(20));
    EXPECT_EQ(worker()->take(kKey), Taking::Held);
    makeOlder(state_.workers() / "other-1", std::chrono::seconds(40));
    EXPECT_EQ(worker()->take(kKey), Taking::Taken);
}

TEST_F(WorkerTest, LeavesAWorkerAloneWhoseSignOfLifeIsInTheFuture)
{
    claimOfOther(std::chrono::hours(-24));
    EXPECT_EQ(worker()->take(kKey), Taking::Held);
}

TEST_F(WorkerTest, LosesAMovieWhereItWasSilentForTooLong)
{
    const auto slow = worker();
    ASSERT_EQ(slow->take(kKey), Taking::Taken);
    makeOlder(state_.workers() / slow->name(), kLease + std::chrono::seconds(60));
    const auto next = worker();
    EXPECT_EQ(next->take(kKey), Taking::Taken);
    EXPECT_FALSE(slow->stillHolds());
    EXPECT_TRUE(next->stillHolds());
    slow->renew();
    slow->release();
    EXPECT_TRUE(next->stillHolds()) << "it takes nothing of the newer one with it";
}

TEST_F(WorkerTest, HoldsNothingWhereItsClaimWasRemoved)
{
    const auto holder = worker();
    ASSERT_EQ(holder->take(kKey), Taking::Taken);
    unlink(state_.claim(kKey, 1).c_str());
    EXPECT_FALSE(holder->stillHolds());
}

TEST_F(WorkerTest, SaysWhyItCannotClaim)
{
    const auto claiming = worker();
    std::filesystem::remove_all(state_.path() / "movies");
    EXPECT_EQ(claiming->take(kKey), Taking::Failed);
    EXPECT_EQ(claiming->failure(), ENOENT);
    ASSERT_EQ(StateFolder::write(state_.path() / "movies", "text"), 0);
    EXPECT_EQ(claiming->take(kKey), Taking::Failed);
    EXPECT_EQ(claiming->failure(), ENOTDIR);
}

TEST_F(WorkerTest, NamesTheFolderThatIsNotThere)
{
    std::filesystem::remove_all(state_.path());
    const auto made = Worker::create(state_, kLease);
    ASSERT_FALSE(made);
    EXPECT_NE(made.error().message.find(state_.workers().native()), std::string::npos);
}

TEST_F(WorkerTest, PutsTheFirstOfTwoTexts)
{
    const auto first = worker();
    const auto second = worker();
    const std::filesystem::path file = folder_.path() + "/delivery";
    EXPECT_EQ(first->putFirst(file, "first"), 0);
    EXPECT_EQ(second->putFirst(file, "second"), EEXIST);
    EXPECT_EQ(StateFolder::read(file), "first");
    EXPECT_EQ(second->put(file, "second"), 0);
    EXPECT_EQ(StateFolder::read(file), "second");
    EXPECT_FALSE(std::filesystem::exists(first->draft()) || std::filesystem::exists(second->draft()));
}

TEST_F(WorkerTest, KeepsTheOldTextWhereThereIsNoRoomForTheNewOne)
{
    const std::filesystem::path file = folder_.path() + "/receipt";
    ASSERT_EQ(StateFolder::write(file, "old"), 0);
    EXPECT_EQ(endedProcess([&] {
                  const auto made = Worker::create(state_, kLease);
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{1000, 1000};
                  if (!made || setrlimit(RLIMIT_FSIZE, &limit) != 0)
                      return 1;
                  const std::string text(5000, 'x');
                  const bool isFine = (*made)->put(file, text) == EFBIG && (*made)->putFirst(file, text) == EFBIG;
                  return isFine ? 0 : 2;
              }),
              0);
    EXPECT_EQ(StateFolder::read(file), "old");
}

TEST_F(WorkerTest, PutsAwayWhatDeadWorkersLeft)
{
    const auto living = worker();
    endedProcess([&] {
        const auto idle = Worker::create(state_, kLease);
        const auto busy = Worker::create(state_, kLease);
        _exit(idle && busy && (*busy)->take(kKey) == Taking::Taken ? 0 : 1);
        return 0;
    });
    ASSERT_EQ(StateFolder::write(state_.workers() / "gone-1.new", "text"), 0);
    living->removeDeadWorkers();
    size_t left = 0;
    for (const auto& entry : std::filesystem::directory_iterator(state_.workers()))
        left += entry.is_regular_file();
    EXPECT_EQ(left, 2u) << "the living one, and the one on which a claim hangs";
    EXPECT_EQ(living->take(kKey), Taking::Taken);
    living->release();
    living->removeDeadWorkers();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(state_.workers()), {}), 1);
}
