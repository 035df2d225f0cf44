#include "client/batch/StateFolder.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

using namespace stillora;

namespace {

const std::string kKey(32, 'a');

class StateFolderTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(state_.make()); }

    void put(const std::filesystem::path& file)
    {
        state_.makeShard(kKey);
        ASSERT_EQ(StateFolder::write(file, "text"), 0);
    }

    TemporaryFolder folder_;
    const StateFolder state_{folder_.path() + "/list.jsonl"};
};

} // namespace

TEST_F(StateFolderTest, TellsWhatThereIsOfAMovie)
{
    EXPECT_FALSE(state_.look(kKey).hasReceipt);
    put(state_.receipt(kKey));
    put(state_.claim(kKey, 2));
    put(state_.claim(kKey, 10));
    const StateFolder::Traces traces = state_.look(kKey);
    EXPECT_TRUE(traces.hasReceipt);
    EXPECT_FALSE(traces.hasFailure || traces.hasDelivery || traces.hasPieces);
    EXPECT_EQ(traces.newestClaim(), 10);
}

TEST_F(StateFolderTest, KeepsPiecesApartFromTheirMovie)
{
    const std::string piece = StateFolder::keyOfPiece(kKey, 3);
    EXPECT_EQ(StateFolder::keyOfMovie(piece), kKey);
    EXPECT_EQ(StateFolder::numberOfPiece(piece), 3u);
    EXPECT_EQ(StateFolder::numberOfPiece(kKey), 0u);
    put(state_.receipt(piece));
    put(state_.claim(StateFolder::keyOfPiece(kKey, 4), 1));
    put(state_.failure(kKey));

    const StateFolder::Traces movie = state_.look(kKey);
    EXPECT_TRUE(movie.hasFailure && movie.hasPieces);
    EXPECT_FALSE(movie.hasReceipt);
    EXPECT_EQ(movie.newestClaim(), 0);
    EXPECT_TRUE(state_.look(piece).hasReceipt);
    std::map<std::string, StateFolder::Traces> all;
    state_.forEach([&](const std::string& key, const StateFolder::Traces& traces) { all[key] = traces; });
    ASSERT_EQ(all.size(), 3u);
    EXPECT_TRUE(all[kKey].hasFailure);
    EXPECT_TRUE(all[piece].hasReceipt);

    state_.removePieces(kKey);
    EXPECT_FALSE(state_.look(piece).hasReceipt);
    EXPECT_TRUE(state_.look(kKey).hasFailure) << "the movie's own files stay";
    EXPECT_EQ(state_.look(StateFolder::keyOfPiece(kKey, 4)).newestClaim(), 1) << "claims belong to workers";
}

TEST_F(StateFolderTest, TellsOfNothingWhereItWasRemoved)
{
    put(state_.receipt(kKey));
    std::filesystem::remove_all(state_.path());
    EXPECT_FALSE(state_.look(kKey).hasReceipt);
    state_.forEach([](const std::string& key, const StateFolder::Traces&) { ADD_FAILURE() << key; });
    EXPECT_EQ(StateFolder::write(state_.receipt(kKey), "text"), ENOENT);
    EXPECT_FALSE(StateFolder::read(state_.receipt(kKey)));
}

TEST_F(StateFolderTest, NamesWhatIsInItsWay)
{
    std::filesystem::remove_all(state_.path());
    ASSERT_EQ(StateFolder::write(state_.path(), "text"), 0);
    const auto made = state_.make();
    ASSERT_FALSE(made);
    EXPECT_NE(made.error().message.find(state_.path().native()), std::string::npos) << made.error().message;
}

TEST_F(StateFolderTest, DoesNotWaitForAPipeNorReadWithoutEnd)
{
    state_.makeShard(kKey);
    ASSERT_EQ(mkfifo(state_.receipt(kKey).c_str(), 0600), 0);
    EXPECT_FALSE(StateFolder::read(state_.receipt(kKey)));
    put(state_.failure(kKey));
    ASSERT_EQ(truncate(state_.failure(kKey).c_str(), off_t{1} << 40), 0);
    EXPECT_FALSE(StateFolder::read(state_.failure(kKey))) << "of a terabyte of zeros";
}
