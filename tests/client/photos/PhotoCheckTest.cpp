#include <stillora/Photos.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace stillora;

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Origin = PhotoCandidate::Origin;

class PhotoCheck : public testing::Test {
protected:
    std::string picture(const std::string& name, int width, int height) const
    {
        const std::string path = folder_.path(name);
        const std::string command = "ffmpeg -v error -y -f lavfi -i testsrc=size=" + std::to_string(width) + "x" +
                                    std::to_string(height) + ":rate=1 -frames:v 1 '" + path + "'";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return path;
    }

    static CheckedPhotos check(const std::vector<std::string>& paths, Origin origin = Origin::Named)
    {
        std::vector<PhotoCandidate> candidates;
        for (const std::string& path : paths)
            candidates.push_back({path, origin});
        return checkPhotos(candidates, [](size_t) { return true; });
    }

    std::string reasonFor(const std::string& path) const
    {
        const CheckedPhotos checked = check({path});
        EXPECT_THAT(checked.good, IsEmpty());
        return checked.bad.size() == 1 && checked.bad[0].path == path ? checked.bad[0].reason : "not refused";
    }

    const TemporaryFolder folder_;
};

TEST_F(PhotoCheck, MeasuresGoodPhotosInTheOrderGiven)
{
    const std::string a = picture("a.jpg", 320, 240);
    const std::string b = picture("b.png", 640, 480);
    const CheckedPhotos checked = check({b, a, b});
    ASSERT_THAT(checked.good, SizeIs(3));
    EXPECT_THAT(checked.bad, IsEmpty());
    EXPECT_EQ(checked.good[0].path, b);
    EXPECT_EQ(checked.good[0].size, (Size{640, 480}));
    EXPECT_EQ(checked.good[1].size, (Size{320, 240}));
    struct stat status = {};
    ASSERT_EQ(stat(a.c_str(), &status), 0);
    EXPECT_EQ(checked.good[1].fileSize, status.st_size);
}

TEST_F(PhotoCheck, MeasuresTurnedPhotosUpright)
{
    const std::string photo = picture("turned.jpg", 320, 240);
    ASSERT_EQ(std::system(("exiftool -q -overwrite_original -n -Orientation=6 " + photo).c_str()), 0);
    const CheckedPhotos checked = check({photo});
    ASSERT_THAT(checked.good, SizeIs(1));
    EXPECT_EQ(checked.good[0].size, (Size{240, 320}));
}

TEST_F(PhotoCheck, ReadsWhenAPhotoWasTakenWhateverItsFormat)
{
    using namespace std::chrono_literals;
    const DateTaken taken{std::chrono::local_days(std::chrono::year(2024) / 5 / 31) + 9h + 8min + 7s + 250ms, 825min};
    const std::string tags = " -EXIF:DateTimeOriginal='2024:05:31 09:08:07' -EXIF:SubSecTimeOriginal=25"
                             " -EXIF:OffsetTimeOriginal=+13:45 ";
    for (const char* name : {"a.jpg", "a.png", "a.webp", "a.tiff", "a.avif"}) {
        const std::string photo = picture(name, 320, 240);
        ASSERT_EQ(std::system(("exiftool -q -overwrite_original" + tags + photo).c_str()), 0) << name;
        const CheckedPhotos checked = check({photo});
        ASSERT_THAT(checked.good, SizeIs(1)) << name;
        EXPECT_EQ(checked.good[0].taken, taken) << name;
    }
}

TEST_F(PhotoCheck, TellsNoDateWhereAPhotoHasNoneOrNonsense)
{
    const std::string bare = picture("bare.jpg", 320, 240);
    const std::string unset = picture("unset.jpg", 320, 240);
    const std::string bitmap = picture("a.bmp", 320, 240);
    ASSERT_EQ(std::system(
                  ("exiftool -q -n -overwrite_original -EXIF:DateTimeOriginal='0000:00:00 00:00:00' " + unset).c_str()),
              0);
    ASSERT_EQ(std::system(("touch -d '2020-02-03 04:05:06.5 UTC' " + bare).c_str()), 0);
    const CheckedPhotos checked = check({bare, unset, bitmap});
    ASSERT_THAT(checked.good, SizeIs(3));
    for (const PhotoFacts& photo : checked.good)
        EXPECT_FALSE(photo.taken) << photo.path;
    EXPECT_EQ(checked.good[0].modified.time_since_epoch(), std::chrono::milliseconds(1'580'702'706'500));
}

TEST_F(PhotoCheck, TakesAPhotoByItsContentNotByItsName)
{
    const std::string photo = picture("a.jpg", 320, 240);
    const std::string other = folder_.makeFile("named.txt", TemporaryFolder::contentsOf(photo));
    EXPECT_THAT(check({other}).good, SizeIs(1));
    EXPECT_THAT(check({other}, Origin::FoundAsFile).good, SizeIs(1));
}

TEST_F(PhotoCheck, SaysWhyAFileIsNoPhoto)
{
    EXPECT_EQ(reasonFor(folder_.path("missing.jpg")), "No such file or directory");
    EXPECT_EQ(reasonFor(folder_.makeFile("empty.jpg", "")), "is empty");
    EXPECT_EQ(reasonFor(folder_.makeFolder("folder.jpg")), "is not a regular file");
    EXPECT_THAT(reasonFor(folder_.makeFile("text.jpg", "Dear diary")), Not(testing::AnyOf("", "not refused")));
}

TEST_F(PhotoCheck, DoesNotRepeatThePathInTheReason)
{
    const std::string path = folder_.makeFile("text.jpg", "Dear diary, this is no picture at all.");
    EXPECT_THAT(reasonFor(path), Not(HasSubstr("text.jpg")));
}

TEST_F(PhotoCheck, WaitsForNoPipe)
{
    const std::string path = folder_.path("pipe.jpg");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(reasonFor(path), "is not a regular file");
}

TEST_F(PhotoCheck, RefusesAPhotoWhoseHeaderAloneIsGood)
{
    // The header says what there is; only decoding tells that it is not there.
    const std::string whole = TemporaryFolder::contentsOf(picture("whole.png", 640, 480));
    const std::string damaged = folder_.makeFile("damaged.png", whole.substr(0, 60));
    EXPECT_THAT(reasonFor(damaged), Not(testing::AnyOf("", "not refused")));
}

TEST_F(PhotoCheck, TellsWhichPhotosAreCutOff)
{
    const std::string whole = picture("whole.jpg", 320, 240);
    const std::string cut = picture("cut.jpg", 320, 240);
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) / 2);
    const CheckedPhotos checked = check({whole, cut});
    EXPECT_THAT(checked.bad, IsEmpty());
    ASSERT_THAT(checked.good, SizeIs(2));
    EXPECT_FALSE(checked.good[0].isCutOff);
    EXPECT_TRUE(checked.good[1].isCutOff);
}

TEST_F(PhotoCheck, TellsWhichPhotosComeInPasses)
{
    const auto progressive = test::jpegBytes(test::textured(64, 48), {.isProgressive = true});
    const std::string fine = folder_.makeFile("fine.jpg", std::string(progressive.begin(), progressive.end()));
    const CheckedPhotos checked = check({picture("usual.jpg", 320, 240), fine});
    ASSERT_THAT(checked.good, SizeIs(2));
    EXPECT_FALSE(checked.good[0].isProgressive);
    EXPECT_TRUE(checked.good[1].isProgressive);
}

TEST_F(PhotoCheck, TellsPhotosOfTheSameLengthApartByTheirEnds)
{
    const std::string first = picture("first.bmp", 320, 240);
    const auto with = [&](const std::string& name, size_t place) {
        std::string bytes = TemporaryFolder::contentsOf(first);
        bytes[place < bytes.size() ? place : bytes.size() - 1] ^= 1;
        return folder_.makeFile(name, bytes);
    };
    const CheckedPhotos checked = check({first, folder_.makeFile("same.bmp", TemporaryFolder::contentsOf(first)),
                                         with("front.bmp", 16'000), with("back.bmp", 1'000'000)});
    ASSERT_THAT(checked.good, SizeIs(4));
    EXPECT_EQ(checked.good[0].fingerprint.size(), 64u);
    EXPECT_EQ(checked.good[1].fingerprint, checked.good[0].fingerprint);
    EXPECT_NE(checked.good[2].fingerprint, checked.good[0].fingerprint);
    EXPECT_NE(checked.good[3].fingerprint, checked.good[0].fingerprint);
    // Shorter than what is looked at.
    EXPECT_EQ(check({picture("small.png", 8, 8)}).good[0].fingerprint.size(), 64u);
}

TEST_F(PhotoCheck, PassesOverFilesOfAFolderThatAreNoPictures)
{
    const std::string text = folder_.makeFile("README", "not a picture");
    const std::string empty = folder_.makeFile("empty", "");
    const CheckedPhotos checked = check({text, empty}, Origin::FoundAsFile);
    EXPECT_THAT(checked.bad, IsEmpty());
    EXPECT_EQ(checked.passedOver, 2u);
    EXPECT_THAT(check({folder_.makeFile("a.jpg", "text")}, Origin::FoundAsPicture).bad, SizeIs(1))
        << "a damaged photo would be missed";
}

TEST_F(PhotoCheck, NamesAllBadPhotosNotOnlyTheFirst)
{
    const std::string good = picture("good.jpg", 320, 240);
    const CheckedPhotos checked =
        check({folder_.makeFile("a.jpg", "x"), good, folder_.makeFile("b.jpg", ""), folder_.path("c.jpg")});
    EXPECT_THAT(checked.good, SizeIs(1));
    EXPECT_THAT(checked.bad, SizeIs(3));
}

TEST_F(PhotoCheck, CanBeStopped)
{
    const std::string photo = picture("a.jpg", 320, 240);
    const CheckedPhotos checked =
        checkPhotos(std::vector<PhotoCandidate>(500, PhotoCandidate{photo}), [](size_t) { return false; });
    EXPECT_TRUE(checked.isCancelled);
    EXPECT_THAT(checked.good, IsEmpty());
}

TEST_F(PhotoCheck, TellsHowManyAreDone)
{
    const std::string photo = picture("a.jpg", 320, 240);
    size_t last = 0;
    bool isInOrder = true;
    checkPhotos(std::vector<PhotoCandidate>(20, PhotoCandidate{photo}), [&](size_t done) {
        isInOrder = isInOrder && done >= last;
        last = done;
        return true;
    });
    EXPECT_TRUE(isInOrder);
    EXPECT_EQ(last, 20u);
}

} // namespace
