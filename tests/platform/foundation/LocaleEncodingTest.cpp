#include "platform/foundation/LocaleEncoding.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <clocale>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

using namespace platform;

namespace {

/// Puts the process into a locale that is made for the test.
class LocaleEncoding : public testing::Test {
protected:
    ~LocaleEncoding() override { std::setlocale(LC_CTYPE, "C"); }

    void speak(const std::string& language, const std::string& charset)
    {
        const std::string command = "localedef -c -i " + language + " -f " + charset + " '" +
                                    folder_.path(language + "." + charset) + "' >/dev/null 2>&1";
        ASSERT_NE(std::system(command.c_str()), -1);
        ASSERT_NE(std::setlocale(LC_CTYPE, (language + "." + charset).c_str()), nullptr) << command;
    }

    const TemporaryFolder folder_;
    const EnvironmentVariable path_{"LOCPATH", folder_.path()};
};

} // namespace

TEST_F(LocaleEncoding, LeavesUTF8AsItIs)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_EQ(encodedForLocale("„geprüft“ 日本"), "„geprüft“ 日本");
    EXPECT_EQ(representableInLocale("„geprüft“ 日本"), "„geprüft“ 日本");
}

TEST_F(LocaleEncoding, WritesTheBytesOfTheCharset)
{
    speak("de_DE", "ISO-8859-1");
    EXPECT_EQ(encodedForLocale("geprüft, ß, « »"), "gepr\xFC"
                                                   "ft, \xDF, \xAB \xBB");
    speak("ja_JP", "EUC-JP");
    EXPECT_EQ(encodedForLocale("日本"), "\xC6\xFC\xCB\xDC");
}

TEST_F(LocaleEncoding, WritesOtherwiseWhatTheCharsetLacks)
{
    speak("de_DE", "ISO-8859-1");
    EXPECT_EQ(encodedForLocale("„a“ – …"), "\"a\" - ...");
    EXPECT_EQ(encodedForLocale("20 €, 日, čaj"), "20 \\u{20AC}, \\u{65E5}, caj");
    EXPECT_EQ(representableInLocale("„ü“ €"), "\"ü\" \\u{20AC}") << "still in UTF-8";
    speak("de_DE@euro", "ISO-8859-15");
    EXPECT_EQ(encodedForLocale("20 €"), "20 \xA4");
}

TEST_F(LocaleEncoding, KnowsASCIIAloneWithoutALocale)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
    EXPECT_EQ(encodedForLocale("Größe geprüft\u00A0: café\t«x»\n"), "Groesse geprueft : cafe\t\"x\"\n");
    EXPECT_EQ(encodedForLocale("日\U0001F600"), "\\u{65E5}\\u{1F600}");
}
