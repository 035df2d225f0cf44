#include "client/command/options/NameList.h"

#include "client/command/CommandLine.h"
#include "client/command/InfoCommand.h"
#include "client/command/options/CreateOptions.h"
#include "tests/support/TemporaryFolder.h"

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace stillora;

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::string_literals;

class NameListTest : public testing::Test {
protected:
    NameList listOf(std::string_view contents, NameList::NameEnd nameEnd = NameList::NameEnd::Line)
    {
        std::ofstream(path_, std::ios::binary) << contents;
        return {path_, nameEnd};
    }

    std::vector<std::string> names(std::string_view contents, NameList::NameEnd nameEnd = NameList::NameEnd::Line)
    {
        const auto read = namesIn(listOf(contents, nameEnd));
        if (read)
            return *read;
        ADD_FAILURE() << read.error().message;
        return {};
    }

    std::string fault(const NameList& list)
    {
        const auto read = namesIn(list);
        EXPECT_FALSE(read) << "the list was read";
        return read ? "" : read.error().message;
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_.path() + "/names.txt";
};

TEST_F(NameListTest, HasANameOnEachLineInItsOrder)
{
    EXPECT_THAT(names("b\na\n"), ElementsAre("b", "a"));
    EXPECT_THAT(names("b\na"), ElementsAre("b", "a")) << "the last line may lack its end";
    EXPECT_THAT(names("\n\na\n\n"), ElementsAre("a"));
    EXPECT_THAT(names(""), IsEmpty());
    EXPECT_THAT(names(" a b \n"), ElementsAre(" a b "));
    EXPECT_THAT(names("-o\n--json\n"), ElementsAre("-o", "--json"));
    EXPECT_THAT(names("caf\xE9.jpg\n"), ElementsAre("caf\xE9.jpg"));
}

TEST_F(NameListTest, MayBeWrittenOnAnotherSystem)
{
    EXPECT_THAT(names("\xEF\xBB\xBF"
                      "a\r\n\r\nb\r\n"),
                ElementsAre("a", "b"));
    EXPECT_THAT(names("a\xEF\xBB\xBF\n\xEF\xBB\xBF"
                      "b\n"),
                ElementsAre("a\xEF\xBB\xBF", "\xEF\xBB\xBF"
                                             "b"))
        << "only at the start it is no part of a name";
}

TEST_F(NameListTest, MayHoldAnyNameWhereZeroBytesEndThem)
{
    EXPECT_THAT(names("a\nb\r\0\0c\xFF\0"s, NameList::NameEnd::Null), ElementsAre("a\nb\r", "c\xFF"));
    EXPECT_THAT(names("a\0b"s, NameList::NameEnd::Null), ElementsAre("a", "b"));
}

TEST_F(NameListTest, MayBeLong)
{
    std::string contents;
    for (int i = 0; i < 100'000; ++i)
        contents += "/some/where/" + std::to_string(i) + ".jpg\n";
    const auto all = names(contents);
    ASSERT_THAT(all, SizeIs(100'000));
    EXPECT_EQ(all.front(), "/some/where/0.jpg");
    EXPECT_EQ(all[54'321], "/some/where/54321.jpg") << "names lie across the pieces that are read";
    EXPECT_EQ(all.back(), "/some/where/99999.jpg");
}

TEST_F(NameListTest, IsRefusedWithTheReason)
{
    EXPECT_THAT(fault({"/nowhere/list.txt"}), AllOf(HasSubstr("/nowhere/list.txt"), HasSubstr("No such file")));
    EXPECT_THAT(fault({folder_.path()}), AllOf(HasSubstr(folder_.path()), HasSubstr("Is a directory")));
    EXPECT_THAT(fault(listOf("a\nb\0c\n"s)), AllOf(HasSubstr("line 2 of " + path_), HasSubstr("--null")));
    EXPECT_THAT(fault(listOf("a\n" + std::string(5000, 'x'))), HasSubstr("name 2 in " + path_));
    EXPECT_THAT(fault({"/dev/full"}), HasSubstr("/dev/full")) << "a file of zero bytes without an end";
}

TEST_F(NameListTest, FollowsTheNamesThatWereGiven)
{
    std::vector<std::string> all{"z"};
    EXPECT_TRUE(addListedNames(std::optional(listOf("b\na\n")), all));
    EXPECT_THAT(all, ElementsAre("z", "b", "a"));
    EXPECT_TRUE(addListedNames(std::optional(listOf("\n")), all)) << "there are names without it";
    EXPECT_TRUE(addListedNames(std::optional<NameList>(), all));
    EXPECT_THAT(all, SizeIs(3));

    std::vector<std::string> none;
    EXPECT_TRUE(addListedNames(std::optional<NameList>(), none));
    const auto added = addListedNames(std::optional(listOf("\n\r\n")), none);
    ASSERT_FALSE(added);
    EXPECT_EQ(added.error().message, "there is no name in the list " + path_);
}

TEST(NameListOptions, TellWhereTheListIsAndHowNamesEnd)
{
    const auto created = [](std::vector<std::string> arguments) {
        return std::get<CreateOptions>(parseCreate(arguments)).list;
    };
    EXPECT_FALSE(created({"a"}));
    const auto lines = created({"--files-from", "names"});
    ASSERT_TRUE(lines);
    EXPECT_EQ(lines->file, "names");
    EXPECT_EQ(lines->nameEnd, NameList::NameEnd::Line);
    EXPECT_FALSE(lines->isStandardInput());
    for (const char* option : {"-0", "--null"}) {
        const auto nulls = created({"a", option, "--files-from=-"});
        ASSERT_TRUE(nulls);
        EXPECT_EQ(nulls->nameEnd, NameList::NameEnd::Null);
        EXPECT_TRUE(nulls->isStandardInput());
    }
}

TEST(NameListOptions, AreRefusedWithTheReason)
{
    const auto refused = [](const std::vector<std::string>& arguments) {
        const auto parsed = parseInfo(arguments);
        const auto* answer = std::get_if<CommandLineAnswer>(&parsed);
        EXPECT_TRUE(answer && answer->exitStatus == 2);
        return answer ? answer->text : "";
    };
    EXPECT_THAT(refused({"a", "-0"}), HasSubstr("--null says how names end in the list of --files-from"));
    EXPECT_THAT(refused({"--files-from", ""}), HasSubstr("--files-from takes the path of a list"));
    EXPECT_THAT(refused({"--files-from", "a", "--files-from", "b"}), HasSubstr("--files-from is given twice"));
    EXPECT_THAT(refused({"--files-from", "a", "--cover", "b"}), HasSubstr("--cover takes one file alone"));
}

} // namespace
