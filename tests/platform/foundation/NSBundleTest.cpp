#include "platform/foundation/NSBundle.h"

#include "platform/foundation/NSLocale.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <map>

using namespace platform;

namespace {

enum class ByteOrder { Little, Big };

/// A compiled gettext catalogue, made by hand.
std::string catalogue(const std::map<std::string, std::string>& texts, ByteOrder order = ByteOrder::Little)
{
    std::string bytes;
    const auto number = [&](size_t value) {
        for (int i = 0; i < 4; ++i)
            bytes += static_cast<char>(value >> (order == ByteOrder::Little ? 8 * i : 24 - 8 * i));
    };
    const size_t keys = 28;
    const size_t values = keys + 8 * texts.size();
    number(0x950412DE);
    number(0);
    number(texts.size());
    number(keys);
    number(values);
    number(0);
    number(0);
    size_t offset = values + 8 * texts.size();
    for (const auto& [key, value] : texts) {
        number(key.size());
        number(offset);
        offset += key.size() + 1;
    }
    for (const auto& [key, value] : texts) {
        number(value.size());
        number(offset);
        offset += value.size() + 1;
    }
    for (const auto& [key, value] : texts)
        bytes += key + '\0';
    for (const auto& [key, value] : texts)
        bytes += value + '\0';
    return bytes;
}

/// The bundle with catalogues in a folder of the test's own and a chosen language.
class BundleTest : public testing::Test {
protected:
    ~BundleTest() override { NSBundle::mainBundle().setLocalizations("", ""); }

    void speak(const std::string& locale, const std::string& languages = "")
    {
        const EnvironmentVariable all("LC_ALL", std::nullopt);
        const EnvironmentVariable messages("LC_MESSAGES", std::nullopt);
        const EnvironmentVariable lang("LANG", locale);
        const EnvironmentVariable list("LANGUAGE", languages);
        NSBundle::mainBundle().setLocalizations(folder_.path(), "domain");
    }

    TemporaryFolder folder_;
};

std::string text(std::string_view key, std::string_view value = "", std::string_view table = "")
{
    return NSBundle::mainBundle().localizedStringForKey(key, value, table);
}

} // namespace

TEST_F(BundleTest, GivesTheKeyWhereThereAreNoTexts)
{
    EXPECT_EQ(text("VideoCreationMovieFileTitleUntitled"), "VideoCreationMovieFileTitleUntitled");
    EXPECT_EQ(text("UnknownTitle", "", "MORAudioWaveStrings"), "UnknownTitle");
}

TEST_F(BundleTest, GivesTheValueForAMissingKey)
{
    EXPECT_EQ(text("Missing", "value"), "value");
    EXPECT_EQ(text("", "value"), "value");
    EXPECT_EQ(text(""), "");
}

TEST_F(BundleTest, SpeaksTheUsersLanguage)
{
    folder_.makeFile("de/LC_MESSAGES/domain.mo", catalogue({{"", "header"}, {"Untitled", "Ohne Titel"}}));
    folder_.makeFile("en/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Untitled movie"}, {"Only", "English"}}));
    speak("de_AT.UTF-8");
    EXPECT_EQ(text("Untitled"), "Ohne Titel");
    EXPECT_EQ(text("Only"), "English");
    EXPECT_EQ(text(""), "");
}

TEST_F(BundleTest, SpeaksEnglishWithoutALocale)
{
    folder_.makeFile("en/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Untitled movie"}}));
    for (const char* locale : {"C", "POSIX", "", "xx_YY"}) {
        speak(locale);
        EXPECT_EQ(text("Untitled"), "Untitled movie") << locale;
    }
}

TEST_F(BundleTest, PrefersTheListOfLanguages)
{
    folder_.makeFile("fr/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Sans titre"}}));
    folder_.makeFile("de/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Ohne Titel"}}));
    speak("de_DE.UTF-8", "it:fr");
    EXPECT_EQ(text("Untitled"), "Sans titre");
    speak("C", "fr");
    EXPECT_EQ(text("Untitled"), "Untitled");
}

TEST_F(BundleTest, PrefersEnglishWhereThatIsPreferred)
{
    folder_.makeFile("de/LC_MESSAGES/domain.mo",
                     catalogue({{"A text", "Ein Text"},
                                {std::string("{} text\0{} texts", 15), std::string("{} Text\0{} Texte", 15)}}));
    folder_.makeFile("en/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Untitled movie"}}));
    for (const char* languages : {"en:de", "en_GB:de"}) {
        speak("de_DE.UTF-8", languages);
        EXPECT_EQ(text("A text"), "A text") << languages;
        EXPECT_EQ(NSBundle::mainBundle().localizedStringForCount(2, "{} text", "{} texts"), "{} texts") << languages;
    }
    speak("de_DE.UTF-8", "fr:de:en");
    EXPECT_EQ(text("A text"), "Ein Text");
}

TEST_F(BundleTest, PrefersTheLanguageThatWasChosen)
{
    folder_.makeFile("fr/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Sans titre"}}));
    folder_.makeFile("de/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Ohne Titel"}}));
    setPreferredLanguage("fr");
    for (const char* locale : {"de_DE.UTF-8", "C", ""}) {
        speak(locale, "de");
        EXPECT_EQ(text("Untitled"), "Sans titre") << locale;
    }
    setPreferredLanguage("");
    speak("de_DE.UTF-8");
    EXPECT_EQ(text("Untitled"), "Ohne Titel");
}

TEST_F(BundleTest, HasTablesOfTheirOwn)
{
    folder_.makeFile("en/LC_MESSAGES/MORAudioWaveStrings.mo", catalogue({{"UnknownTitle", "Unknown title"}}));
    speak("C");
    EXPECT_EQ(text("UnknownTitle", "", "MORAudioWaveStrings"), "Unknown title");
    EXPECT_EQ(text("UnknownTitle"), "UnknownTitle");
}

TEST_F(BundleTest, KeepsAnEmptyText)
{
    folder_.makeFile("en/LC_MESSAGES/domain.mo", catalogue({{"Empty", ""}}));
    speak("C");
    EXPECT_EQ(text("Empty", "value"), "");
}

TEST_F(BundleTest, ReadsCataloguesOfEitherByteOrder)
{
    folder_.makeFile("en/LC_MESSAGES/domain.mo", catalogue({{"Untitled", "Untitled movie"}}, ByteOrder::Big));
    speak("C");
    EXPECT_EQ(text("Untitled"), "Untitled movie");
}

TEST_F(BundleTest, HasNoTextsInADamagedCatalogue)
{
    const std::string whole = catalogue({{"Untitled", "Untitled movie"}});
    for (size_t length = 0; length + 1 < whole.size(); ++length) {
        folder_.makeFile("en/LC_MESSAGES/domain.mo", whole.substr(0, length));
        speak("C");
        EXPECT_EQ(text("Untitled"), "Untitled") << length;
    }
}

TEST_F(BundleTest, ChoosesTheFormOfTheNumber)
{
    using namespace std::string_literals;
    folder_.makeFile("de/LC_MESSAGES/domain.mo", catalogue({{"{} photo\0{} photos"s, "{} Foto\0{} Fotos"s}}));
    folder_.makeFile("fr/LC_MESSAGES/domain.mo",
                     catalogue({{"", "Language: fr\nPlural-Forms: nplurals=2; plural=(n > 1);\n"},
                                {"{} photo\0{} photos"s, "{} vue\0{} vues"s}}));
    // A catalogue that lacks the form it asks for gives its last one.
    folder_.makeFile("pl/LC_MESSAGES/domain.mo",
                     catalogue({{"", "Plural-Forms: nplurals=3; plural=2;\n"}, {"{} photo\0{} photos"s, "a\0b"s}}));
    const auto texts = [] {
        std::string all;
        for (const uint64_t count : {0, 1, 2})
            all += NSBundle::mainBundle().localizedStringForCount(count, "{} photo", "{} photos") + ", ";
        return all;
    };
    EXPECT_EQ(texts(), "{} photos, {} photo, {} photos, ");
    speak("de_DE.UTF-8");
    EXPECT_EQ(texts(), "{} Fotos, {} Foto, {} Fotos, ");
    speak("fr_FR.UTF-8");
    EXPECT_EQ(texts(), "{} vue, {} vue, {} vues, ");
    speak("pl_PL.UTF-8");
    EXPECT_EQ(texts(), "b, b, b, ");
    EXPECT_EQ(text(""), "") << "the header is no text";
}

TEST(PluralFormsTest, FollowsTheExpressionOfTheHeader)
{
    const auto forms = [](std::string_view expression) {
        const PluralForms rule("Plural-Forms: nplurals=3; plural=" + std::string(expression) + ";\n");
        std::string all;
        for (const uint64_t number : {0, 1, 2, 5, 11, 12, 21, 22, 101, 112})
            all += static_cast<char>('0' + rule.formOf(number));
        return all;
    };
    EXPECT_EQ(forms("n>1"), "0011111111");
    EXPECT_EQ(forms("0"), "0000000000");
    // Polish, Czech and Latvian, as the gettext manual gives them.
    EXPECT_EQ(forms("n==1 ? 0 : n%10>=2 && n%10<=4 && (n%100<10 || n%100>=20) ? 1 : 2"), "2012222122");
    EXPECT_EQ(forms("(n==1) ? 0 : (n>=2 && n<=4) ? 1 : 2"), "2012222222");
    EXPECT_EQ(forms("n%10==1 && n%100!=11 ? 0 : n != 0 ? 1 : 2"), "2011110101");
    EXPECT_EQ(forms("7 - 2 - 1 - 4 + n / 200 * 3"), "0000000000") << "from left to right";
    EXPECT_EQ(forms("!n"), "1000000000");
    EXPECT_EQ(forms("n%0 + n/0"), "0000000000");
    // As for English.
    for (const char* faulty : {"", "n +", "(n", "n)", "n ? 1", "m", "99999999999", "n n", "1 2"})
        EXPECT_EQ(forms(faulty), "1011111111") << faulty;
    EXPECT_EQ(forms(std::string(900, '(') + "n" + std::string(90, ')')), "1011111111");
    EXPECT_EQ(forms(std::string(990, '!') + "n"), "1011111111");
    EXPECT_EQ(PluralForms("Language: de\n").formOf(1), 0u);
}
