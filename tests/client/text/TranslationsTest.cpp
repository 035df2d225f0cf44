// Every language has every text, and every text that the client library asks for is there.

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(Translations, AreCompleteInEveryLanguage)
{
    size_t count = 0;
    for (const char* domain : {"stillora", "MORAudioWaveStrings"})
        for (const char* language : {"de", "fr"}) {
            const std::string folder = std::string(STILLORA_PO_FOLDER) + "/" + domain + "/";
            const std::string command = "msgcmp '" + folder + language + ".po' '" + folder + domain + ".pot'";
            EXPECT_EQ(std::system(command.c_str()), 0) << command;
            ++count;
        }
    EXPECT_EQ(count, 4u);
}

TEST(Translations, HaveEnglishTextsForAllKeys)
{
    // Texts that are no keys are English themselves.
    const std::string folder = std::string(STILLORA_PO_FOLDER) + "/stillora/";
    const std::string keys = "grep -o '^msgid \"VideoCreation[A-Za-z]*\"' ";
    const std::string command = "test \"$(" + keys + folder + "en.po)\" = \"$(" + keys + folder + "stillora.pot)\"";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

} // namespace
