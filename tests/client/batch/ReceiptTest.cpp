#include "client/batch/Receipt.h"

#include "client/batch/StateFolder.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>

using namespace stillora;

namespace {

Receipt someReceipt()
{
    Receipt receipt;
    receipt.id = "a \"name\"";
    receipt.line = 12;
    receipt.movie = "save/A.mov";
    // More digits than a number of JSON keeps.
    receipt.movieStamp = {123, 1'795'405'027'307'086'119};
    receipt.checksum = "c0ffee";
    receipt.settings = "{}";
    receipt.inputDigest = "d1";
    receipt.inputs = {{"p/1.jpg", 5, 1'795'405'027'307'086'117, "f00d"}, {"p/2.jpg", 6, 7, ""}};
    receipt.worker = "vm-1";
    receipt.seconds = 1.5;
    receipt.waitsAt = "/save/.stillora/A.mov";
    receipt.replaced = "/save/A.mov";
    receipt.replacedStamp = {9, -1};
    return receipt;
}

class ReceiptTest : public testing::Test {
protected:
    std::optional<Receipt> readBack(const std::string& text)
    {
        EXPECT_EQ(StateFolder::write(file_, text), 0);
        return Receipt::read(file_);
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_.path() + "/receipt";
};

} // namespace

TEST_F(ReceiptTest, IsReadAsItWasWritten)
{
    const Receipt written = someReceipt();
    const auto read = readBack(written.text());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->text(), written.text());
    EXPECT_EQ(read->movieStamp, written.movieStamp);
    EXPECT_EQ(read->inputs.front().modified, written.inputs.front().modified);
    EXPECT_EQ(read->replacedStamp, written.replacedStamp);
}

TEST_F(ReceiptTest, IsNoneWhereItIsHalfWritten)
{
    const std::string text = someReceipt().text();
    // Without the end of the line it is whole.
    for (size_t length = 0; length + 1 < text.size(); length += 13)
        ASSERT_FALSE(readBack(text.substr(0, length))) << length;
    EXPECT_FALSE(readBack(text.substr(0, text.size() - 2)));
    EXPECT_TRUE(readBack(text.substr(0, text.size() - 1)));
}

TEST_F(ReceiptTest, IsNoneOfAnotherKind)
{
    for (const char* text : {"", "[]", "{}", "null", "{\"version\": 2}", "{\"version\": \"1\"}"})
        EXPECT_FALSE(readBack(text)) << text;
    EXPECT_FALSE(Receipt::read(folder_.path() + "/none"));
}
