#include "window/state/photos/ThumbnailCache.h"

#include "tests/support/TemporaryFolder.h"
#include "window/state/photos/MD5.h"

#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;
using namespace stillora::window;

namespace {

namespace fs = std::filesystem;

TEST(MD5, IsWhatEverybodyReckons)
{
    EXPECT_EQ(md5Of(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Of("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5Of("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
    EXPECT_EQ(md5Of(std::string(55, 'a')), "ef1772b6dff9a122358552954ad0df65");
    EXPECT_EQ(md5Of(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218");
}

class ThumbnailCache : public testing::Test {
protected:
    static Pixels picture()
    {
        Pixels pixels{3, 2, 12, Bytes(24, std::byte{255})};
        pixels.bytes[0] = std::byte{10};
        return pixels;
    }
    std::string contentsOf(const fs::path& path) const
    {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    const TemporaryFolder folder_;
    const fs::path cache_ = folder_.path("thumbnails");
    const ThumbnailSource source_{folder_.path("a photo.jpg"), std::chrono::sys_seconds(std::chrono::seconds(1234))};
};

TEST_F(ThumbnailCache, HasThePlacesThatOtherProgramsLookIn)
{
    EXPECT_EQ(addressOfFile("/a b/c%d/\xc3\xa4#?.jpg"), "file:///a%20b/c%25d/%C3%A4%23%3F.jpg");
    EXPECT_EQ(addressOfFile("/Photos(1)/it's~ok,+=&$!*@:-_.jpg"), "file:///Photos(1)/it's~ok,+=&$!*@:-_.jpg");
    EXPECT_EQ(thumbnailPath("/cache", "/a.jpg"), "/cache/large/" + md5Of("file:///a.jpg") + ".png");
}

TEST_F(ThumbnailCache, GivesBackWhatItKeeps)
{
    EXPECT_FALSE(cachedThumbnail(cache_, source_));
    keepThumbnail(cache_, source_, picture());
    const auto again = cachedThumbnail(cache_, source_);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->width, 3);
    EXPECT_EQ(again->bytes, picture().bytes);
    const std::string file = contentsOf(thumbnailPath(cache_, source_.file));
    EXPECT_THAT(file, testing::HasSubstr(std::string("tEXtThumb::URI\0", 15) + addressOfFile(source_.file)));
    EXPECT_THAT(file, testing::HasSubstr(std::string("tEXtThumb::MTime\0", 17) + "1234"));
    const auto mode = fs::status(thumbnailPath(cache_, source_.file)).permissions();
    EXPECT_EQ(mode, fs::perms::owner_read | fs::perms::owner_write) << "photos are private";
    EXPECT_EQ(fs::status(cache_ / "large").permissions(), fs::perms::owner_all);
    EXPECT_EQ(std::distance(fs::directory_iterator(cache_ / "large"), {}), 1) << "nothing half-written stays";
}

TEST_F(ThumbnailCache, GivesNoneOfAFileThatWasChanged)
{
    keepThumbnail(cache_, source_, picture());
    EXPECT_FALSE(cachedThumbnail(cache_, {source_.file, source_.modified + std::chrono::seconds(1)}));
    EXPECT_TRUE(cachedThumbnail(cache_, source_));
}

TEST_F(ThumbnailCache, BelievesNoStrangersFileThatIsDamaged)
{
    keepThumbnail(cache_, source_, picture());
    const fs::path path = thumbnailPath(cache_, source_.file);
    const std::string whole = contentsOf(path);
    for (const std::size_t length : {std::size_t{0}, std::size_t{7}, std::size_t{20}, whole.size() / 2}) {
        std::ofstream(path, std::ios::binary) << whole.substr(0, length);
        EXPECT_FALSE(cachedThumbnail(cache_, source_)) << length;
    }
    // A chunk that claims to be longer than any file.
    std::string claims = whole;
    claims.replace(33, 4, "\xff\xff\xff\xff");
    std::ofstream(path, std::ios::binary) << claims;
    EXPECT_FALSE(cachedThumbnail(cache_, source_));
}

TEST_F(ThumbnailCache, RemembersWhatNoThumbnailCanBeMadeOf)
{
    EXPECT_FALSE(isThumbnailImpossible(cache_, source_));
    keepThumbnailFailure(cache_, source_);
    EXPECT_TRUE(isThumbnailImpossible(cache_, source_));
    EXPECT_FALSE(isThumbnailImpossible(cache_, {source_.file, source_.modified + std::chrono::seconds(1)}));
    EXPECT_FALSE(cachedThumbnail(cache_, source_));
}

TEST_F(ThumbnailCache, HasNoThumbnailsOfItself)
{
    const ThumbnailSource inside{cache_ / "large/x.png", source_.modified};
    keepThumbnail(cache_, inside, picture());
    EXPECT_FALSE(fs::exists(thumbnailPath(cache_, inside.file)));
}

} // namespace
