#include "platform/system/LaunchServices.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using platform::LaunchServices;
using platform::LSRolesMask;
using platform::NSURL;
using testing::ElementsAre;

namespace {

/// A desktop with five applications for pictures and one for text; found by GIO before it first looks anywhere.
class Desktop final {
public:
    Desktop()
    {
        setenv("XDG_DATA_HOME", folder_.path("data").c_str(), 1);
        setenv("XDG_DATA_DIRS", folder_.path("none").c_str(), 1);
        setenv("XDG_CONFIG_HOME", folder_.path("config").c_str(), 1);
        setenv("XDG_CONFIG_DIRS", folder_.path("none").c_str(), 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        setenv("LANGUAGE", "", 1);
        addEntry("org.example.Paint", "Exec=/bin/true %F\nMimeType=image/jpeg;image/png;\n");
        addEntry("viewer", "Exec=/bin/true --open %u\nMimeType=image/jpeg;\nNoDisplay=true\n");
        addEntry("sub/tool", "Exec=/bin/true %U\nMimeType=image/jpeg;\n");
        addEntry("takes-no-files", "Exec=/bin/true\nMimeType=image/jpeg;\n");
        addEntry("removed", "Exec=/bin/no-such-program %f\nMimeType=image/jpeg;\n");
        addEntry("hidden", "Exec=/bin/true %f\nMimeType=image/jpeg;\nHidden=true\n");
        addEntry("bus.Only", "DBusActivatable=true\nMimeType=image/jpeg;\n");
        addEntry("editor", "Exec=/bin/true %f\nMimeType=text/plain;\n");
        folder_.makeFile(kEntries + "mimeinfo.cache",
                         "[MIME Cache]\n"
                         "image/jpeg=viewer.desktop;org.example.Paint.desktop;sub-tool.desktop;takes-no-files.desktop;"
                         "removed.desktop;hidden.desktop;bus.Only.desktop;not-there.desktop;\n"
                         "image/png=org.example.Paint.desktop;\n"
                         "text/plain=editor.desktop;\n");
    }

    NSURL entry(const std::string& name) const { return folder_.url(kEntries + name + ".desktop"); }
    const TemporaryFolder& folder() const { return folder_; }

private:
    void addEntry(const std::string& name, const std::string& lines) const
    {
        folder_.makeFile(kEntries + name + ".desktop",
                         "[Desktop Entry]\nType=Application\nName=The " + name + "\n" + lines);
    }

    const std::string kEntries = "data/applications/";
    const TemporaryFolder folder_;
};

const Desktop desktop;

std::vector<std::string> namesOf(const std::optional<std::vector<NSURL>>& urls)
{
    std::vector<std::string> names;
    for (const NSURL& url : urls.value_or(std::vector<NSURL>()))
        names.push_back(url.lastPathComponent());
    std::ranges::sort(names);
    return names;
}

std::optional<std::vector<NSURL>> applicationsFor(const NSURL& file)
{
    return LaunchServices::desktop().copyApplicationURLsForURL(file, LSRolesMask::Editor);
}

} // namespace

TEST(LaunchServices, FindsApplicationsByTheFilesTypeThatTakeFiles)
{
    const TemporaryFolder folder;
    test::writeFile(folder.path("photo.jpg"), test::jpegBytes(test::plain(8, 8, test::kRed)));
    EXPECT_THAT(namesOf(applicationsFor(folder.url("photo.jpg"))),
                ElementsAre("bus.Only.desktop", "org.example.Paint.desktop", "tool.desktop", "viewer.desktop"));
    folder.makeFile("notes.txt", "Some words.\n");
    EXPECT_EQ(applicationsFor(folder.url("notes.txt")), std::vector{desktop.entry("editor")});
}

TEST(LaunchServices, HasNothingWhereNoApplicationFits)
{
    const TemporaryFolder folder;
    folder.makeFile("unknown", std::string("\x01\x02\x03\x00\x04", 5));
    EXPECT_EQ(applicationsFor(folder.url("unknown")), std::nullopt);
    EXPECT_EQ(applicationsFor(folder.url("not there.jpg")), std::nullopt);
    EXPECT_EQ(applicationsFor(folder.url()), std::nullopt) << "a folder";
}

TEST(LaunchServices, TellsWhatCanBeReadAndRun)
{
    const auto& services = LaunchServices::desktop();
    for (const char* name : {"org.example.Paint", "bus.Only", "sub/tool"}) {
        EXPECT_TRUE(services.isReadable(desktop.entry(name))) << name;
        EXPECT_TRUE(services.isExecutable(desktop.entry(name))) << name;
    }
    EXPECT_TRUE(services.isReadable(desktop.entry("removed")));
    EXPECT_FALSE(services.isExecutable(desktop.entry("removed")));
    EXPECT_FALSE(services.isReadable(desktop.entry("not-there")));
    EXPECT_FALSE(services.isExecutable(desktop.entry("not-there")));
    EXPECT_FALSE(services.isExecutable(NSURL::fileURLWithPath("/bin/true"))) << "a program is no desktop entry";
}

TEST(LaunchServices, TellsAnApplicationsNameAndIdentifier)
{
    const auto& services = LaunchServices::desktop();
    const auto paint = services.applicationAtURL(desktop.entry("org.example.Paint"));
    ASSERT_TRUE(paint);
    EXPECT_EQ(paint->name, "The org.example.Paint");
    EXPECT_EQ(paint->identifier, "org.example.Paint.desktop");
    const auto tool = services.applicationAtURL(desktop.entry("sub/tool"));
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->identifier, "sub-tool.desktop");
    EXPECT_FALSE(services.applicationAtURL(desktop.entry("not-there")));
}
