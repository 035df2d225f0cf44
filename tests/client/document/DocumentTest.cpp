#include <stillora/Document.h>

#include "items/MORSoundtrack.h"
#include "platform/archive/NSKeyedArchiver.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/FileDescriptor.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using platform::NSData;
using platform::NSURL;
using platform::PropertyList;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

/// For comparing: equal lists have equal bytes.
NSData bytesOf(const PropertyList& list)
{
    return platform::dataWithPropertyList(list).value_or(NSData());
}

/// Nothing where there was no failure.
std::optional<ErrorCode> codeOf(const Result<void>& result)
{
    return result ? std::nullopt : std::optional(result.error().code);
}

class DocumentTest : public testing::Test {
protected:
    std::string path() const { return folder_.path("Rome.stillora"); }
    std::string listPath() const { return path() + "/Document.plist"; }

    PhotoFacts photo(const std::string& name, const std::string& contents = "a picture") const
    {
        return {folder_.makeFile(name, contents), {4000, 3000}, static_cast<int64_t>(contents.size())};
    }
    SoundFacts sound(const std::string& name, std::optional<SoundFacts::Selection> selection = std::nullopt) const
    {
        return {folder_.makeFile(name, "a song of " + name), selection, 10s, 44100};
    }

    Result<Document> created() const
    {
        auto document = Document::create(path());
        EXPECT_TRUE(document) << document.error().message;
        return document;
    }
    Result<Document> loaded(const std::string& from) const
    {
        auto document = Document::load(from);
        EXPECT_TRUE(document) << document.error().message;
        return document;
    }
    Result<Document> loaded() const { return loaded(path()); }

    /// A saved document of three photos and two soundtracks.
    void makeDocument() const
    {
        auto document = created();
        ASSERT_TRUE(document->add({photo("a/img1.jpg"), photo("a/img2.jpg"), photo("b/img1.jpg")},
                                  {sound("a/song.mp3"), sound("a/air.wav", SoundFacts::Selection{1.5s, 4s})}));
        ASSERT_TRUE(document->save());
    }

    PropertyList::Dictionary propertyList() const
    {
        const std::string bytes = TemporaryFolder::contentsOf(listPath());
        const auto list = platform::propertyListWithData(NSData(bytes.begin(), bytes.end()));
        return list ? *list->as<PropertyList::Dictionary>() : PropertyList::Dictionary();
    }
    PropertyList::Array photosOf(const PropertyList::Dictionary& list) const
    {
        return *list.at("photos").as<PropertyList::Array>();
    }
    PropertyList::Array soundtracksOf(const PropertyList::Dictionary& list) const
    {
        return *list.at("soundtracks").as<PropertyList::Array>();
    }
    void write(const PropertyList::Dictionary& list) const
    {
        const auto data = platform::dataWithPropertyList(PropertyList(list));
        ASSERT_TRUE(data);
        write(*data);
    }
    void write(const NSData& data) const
    {
        ASSERT_TRUE(platform::NSFileManager::defaultManager().writeContents(data, NSURL::fileURLWithPath(listPath())));
    }
    void setPhotos(PropertyList::Array photos) const
    {
        auto list = propertyList();
        list.insert_or_assign("photos", std::move(photos));
        write(list);
    }

    /// The error of a document that cannot be opened.
    Error refusal(const std::string& from) const
    {
        const auto document = Document::load(from);
        EXPECT_FALSE(document);
        return document ? Error() : document.error();
    }
    Error refusal() const { return refusal(path()); }

    std::vector<std::string> filesIn(const std::string& folder) const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().native());
        return names;
    }
    std::vector<std::string> savedPhotos() const { return filesIn(path() + "/Resources/Photos"); }

    const TemporaryFolder folder_;
};

TEST_F(DocumentTest, ADocumentHoldsCopiesAndAListOfThem)
{
    makeDocument();
    EXPECT_THAT(filesIn(path()), UnorderedElementsAre("Document.plist", "Resources"));
    EXPECT_THAT(savedPhotos(), UnorderedElementsAre("img1.jpg", "img2.jpg", "img1-2.jpg"));
    EXPECT_THAT(filesIn(path() + "/Resources/Soundtracks"), UnorderedElementsAre("song.mp3", "air.wav"));
    EXPECT_EQ(TemporaryFolder::contentsOf(path() + "/Resources/Soundtracks/song.mp3"), "a song of a/song.mp3");

    auto document = loaded();
    EXPECT_EQ(document->name(), "Rome");
    ASSERT_THAT(document->photos(), SizeIs(3));
    const DocumentPhoto second = document->photos()[1];
    EXPECT_EQ(second.path, path() + "/Resources/Photos/img2.jpg");
    EXPECT_EQ(second.title, "img2");
    EXPECT_EQ(second.size, (Size{4000, 3000}));
    EXPECT_EQ(second.fileSize, 9);
    EXPECT_TRUE(second.created);
    EXPECT_FALSE(second.averageColor) << "it is no picture";
    EXPECT_EQ(document->photos()[2].title, "img1");
    ASSERT_THAT(document->soundtracks(), SizeIs(2));
    EXPECT_EQ(document->soundtracks()[0].selection, std::nullopt);
    EXPECT_EQ(document->soundtracks()[0].originalPath, folder_.path("a/song.mp3"));
    EXPECT_EQ(document->soundtracks()[1].selection, (SoundFacts::Selection{1.5s, 4s}));
}

TEST_F(DocumentTest, AddedFilesAreThereOnlyOnceTheDocumentIsSaved)
{
    auto document = created();
    ASSERT_TRUE(document->add({photo("a.jpg")}, {}));
    EXPECT_FALSE(fs::exists(path()));
    ASSERT_TRUE(document->save());
    EXPECT_TRUE(fs::exists(path()));
    EXPECT_EQ(document->photos()[0].path, path() + "/Resources/Photos/a.jpg");
    EXPECT_THAT(filesIn(folder_.path()), UnorderedElementsAre("a.jpg", "Rome.stillora"));
}

TEST_F(DocumentTest, AddedFilesAreGoneIfTheDocumentIsNeverSaved)
{
    {
        auto document = created();
        ASSERT_TRUE(document->add({photo("a.jpg")}, {}));
    }
    EXPECT_THAT(filesIn(folder_.path()), ElementsAre("a.jpg"));
    makeDocument();
    {
        auto document = loaded();
        ASSERT_TRUE(document->add({photo("new.jpg")}, {}));
        EXPECT_THAT(savedPhotos(), testing::Contains("new.jpg"));
    }
    EXPECT_THAT(savedPhotos(), UnorderedElementsAre("img1.jpg", "img2.jpg", "img1-2.jpg"));
}

TEST_F(DocumentTest, AddedFilesAreCleanedUpAfterAProcessThatWasKilled)
{
    folder_.makeFile(".stillora-new-ABC/Resources/Photos/a.jpg");
    const std::string inUse = folder_.makeFolder(".stillora-new-DEF");
    const platform::FileDescriptor lock(open(inUse.c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    makeDocument();
    EXPECT_FALSE(fs::exists(folder_.path(".stillora-new-ABC")));
    EXPECT_TRUE(fs::exists(inUse)) << "somebody is at work there";
}

TEST_F(DocumentTest, AddedFilesAreNeverWrittenOverWhatIsThere)
{
    folder_.makeFile("Rome.stillora", "my diary");
    const auto refused = Document::create(path());
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, ErrorCode::DocumentExists);
    EXPECT_EQ(refused.error().file, path());
    fs::remove(path());
    auto document = created();
    folder_.makeFile("Rome.stillora/diary.txt", "mine");
    EXPECT_EQ(codeOf(document->save()), ErrorCode::DocumentExists);
    EXPECT_THAT(filesIn(path()), ElementsAre("diary.txt"));
}

TEST_F(DocumentTest, FilesAreFoundWhereverTheDocumentIsMovedOrCopied)
{
    makeDocument();
    fs::remove_all(folder_.path("a"));
    const std::string moved = folder_.makeFolder("some/Resources/deep") + "/Anders.stillora";
    fs::rename(path(), moved);
    const std::string copied = folder_.path("copy.of it");
    fs::copy(moved, copied, fs::copy_options::recursive);
    for (const std::string& place : {moved, copied}) {
        auto document = loaded(place);
        for (const DocumentPhoto& each : document->photos()) {
            EXPECT_EQ(each.state, DocumentPhoto::State::Good) << each.fault;
            EXPECT_EQ(each.path.native().substr(0, place.size()), place);
        }
        for (const DocumentSoundtrack& each : document->soundtracks())
            EXPECT_EQ(each.state, DocumentSoundtrack::State::Good) << each.fault;
    }
    EXPECT_EQ(loaded(copied)->name(), "copy.of it") << "an extension holds no blank";
}

TEST_F(DocumentTest, FilesAreCopiedOnceIfTheyAreGivenTwice)
{
    auto document = created();
    const PhotoFacts same = photo("a.jpg");
    ASSERT_TRUE(document->add({same, photo("b.jpg"), same}, {}));
    ASSERT_TRUE(document->save());
    EXPECT_THAT(savedPhotos(), UnorderedElementsAre("a.jpg", "b.jpg"));
    EXPECT_THAT(loaded()->photos(), SizeIs(3));
}

TEST_F(DocumentTest, FilesMayHaveNamesOfAnyBytes)
{
    const std::string name = "caf\xE9 {1}\n.jpg";
    const std::string longName = std::string(251, 'x') + ".jpg";
    auto document = created();
    ASSERT_TRUE(
        document->add({photo("a/" + name), photo("b/" + name), photo("a/" + longName), photo("b/" + longName)}, {}));
    ASSERT_TRUE(document->save());
    auto again = loaded();
    EXPECT_EQ(again->photos()[0].path, path() + "/Resources/Photos/" + name);
    EXPECT_EQ(again->photos()[1].path, path() + "/Resources/Photos/caf\xE9 {1}\n-2.jpg");
    for (const DocumentPhoto& each : again->photos())
        EXPECT_EQ(each.state, DocumentPhoto::State::Good) << each.fault;
}

TEST_F(DocumentTest, CopiesKeepThePrivacyAndTheTimeOfTheirOriginals)
{
    const PhotoFacts secret = photo("secret.jpg");
    fs::permissions(secret.path, fs::perms::owner_read);
    const auto when = fs::file_time_type::clock::now() - std::chrono::hours(1000);
    fs::last_write_time(secret.path, when);
    auto document = created();
    ASSERT_TRUE(document->add({secret}, {}));
    const fs::path copy = document->photos()[0].path;
    EXPECT_EQ(fs::status(copy).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::last_write_time(copy), when);
}

TEST_F(DocumentTest, CopiesAreTakenAwayAgainWhenCopyingFailsOrIsStopped)
{
    makeDocument();
    const auto before = TemporaryFolder::contentsOf(listPath());
    auto document = loaded();
    const PhotoFacts gone{folder_.path("gone.jpg"), {1, 1}, 1};
    const auto failed = document->add({photo("c.jpg"), gone}, {});
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().code, ErrorCode::FileNotFound);
    EXPECT_THAT(failed.error().message, HasSubstr("gone.jpg"));

    const auto stopped = document->add({photo("d.jpg")}, {}, [](const CopyProgress&) { return false; });
    EXPECT_EQ(codeOf(stopped), ErrorCode::Cancelled);

    // A disk that is full refuses in the same way.
    const PhotoFacts large = photo("large.jpg", std::string(100'000, 'x'));
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{50'000, limit.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const auto added = document->add({large}, {});
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, handler);
    ASSERT_FALSE(added);
    EXPECT_THAT(added.error().message, HasSubstr("large.jpg"));

    EXPECT_THAT(document->photos(), SizeIs(3));
    EXPECT_THAT(savedPhotos(), UnorderedElementsAre("img1.jpg", "img2.jpg", "img1-2.jpg"));
    EXPECT_EQ(TemporaryFolder::contentsOf(listPath()), before);
}

TEST_F(DocumentTest, FilesOfRemovedItemsGoAfterTheSaveAndNotBefore)
{
    makeDocument();
    auto document = loaded();
    document->removePhoto(0);
    document->removeSoundtrack(1);
    EXPECT_THAT(savedPhotos(), SizeIs(3));
    ASSERT_TRUE(document->save());
    EXPECT_THAT(savedPhotos(), UnorderedElementsAre("img2.jpg", "img1-2.jpg"));
    EXPECT_THAT(filesIn(path() + "/Resources/Soundtracks"), ElementsAre("song.mp3"));
    EXPECT_THAT(loaded()->photos(), SizeIs(2));
}

TEST_F(DocumentTest, FilesStayWhileAnotherItemUsesThem)
{
    auto document = created();
    const PhotoFacts same = photo("a.jpg");
    ASSERT_TRUE(document->add({same, same}, {}) && document->save());
    document->removePhoto(0);
    ASSERT_TRUE(document->save());
    EXPECT_THAT(savedPhotos(), ElementsAre("a.jpg"));
    document->removePhoto(0);
    ASSERT_TRUE(document->save());
    EXPECT_THAT(savedPhotos(), IsEmpty());
}

TEST_F(DocumentTest, FilesOfRemovedItemsStayWhereTheyMayComeBack)
{
    makeDocument();
    auto document = loaded();
    document->keepRemovedFiles();
    const fs::path removed = document->photos()[1].path;
    document->removePhoto(1);
    ASSERT_TRUE(document->save());
    EXPECT_TRUE(fs::exists(removed));
    ASSERT_TRUE(document->add({{.path = removed, .size = {4000, 3000}, .fileSize = 9}}, {}));
    ASSERT_TRUE(document->save());
    EXPECT_EQ(document->photos().back().title, "img2");
    {
        auto other = loaded();
        other->setFeatured(0, true);
        ASSERT_TRUE(other->save());
    }
    document->removeKeptFiles();
    EXPECT_TRUE(fs::exists(removed)) << "another program may need it";
    EXPECT_EQ(codeOf(document->save()), ErrorCode::DocumentChanged);
    document = loaded();
    document->keepRemovedFiles();
    document->removePhoto(2);
    ASSERT_TRUE(document->save());
    const fs::path last = path() + "/Resources/Photos/img2-2.jpg";
    EXPECT_TRUE(fs::exists(last));
    document->removeKeptFiles();
    EXPECT_FALSE(fs::exists(last));
    EXPECT_THAT(loaded()->photos(), SizeIs(2));
    EXPECT_TRUE(badItemsOf(*loaded()).empty());
}

TEST_F(DocumentTest, FilesStayWhileADamagedItemMayUseThem)
{
    makeDocument();
    auto photos = photosOf(propertyList());
    photos[1] = PropertyList(NSData{1, 2, 3});
    setPhotos(photos);
    auto document = loaded();
    document->removePhoto(0);
    ASSERT_TRUE(document->save());
    EXPECT_THAT(savedPhotos(), SizeIs(3));
    EXPECT_THAT(document->unusedFiles(), IsEmpty()) << "nobody can know";
}

TEST_F(DocumentTest, FilesOutsideTheDocumentAreNeverTouched)
{
    makeDocument();
    auto document = loaded();
    // A link instead of the folder of photos.
    fs::rename(path() + "/Resources/Photos", folder_.path("Pictures"));
    fs::create_directory_symlink(folder_.path("Pictures"), path() + "/Resources/Photos");
    document->removePhoto(0);
    ASSERT_TRUE(document->save());
    EXPECT_THAT(filesIn(folder_.path("Pictures")), SizeIs(3));
    EXPECT_FALSE(document->add({photo("new.jpg")}, {}));
    EXPECT_THAT(filesIn(folder_.path("Pictures")), SizeIs(3));
}

TEST_F(DocumentTest, MissingFilesAreNamed)
{
    makeDocument();
    fs::remove(path() + "/Resources/Photos/img2.jpg");
    fs::remove_all(path() + "/Resources/Soundtracks");
    auto document = loaded();
    EXPECT_EQ(document->photos()[0].state, DocumentPhoto::State::Good);
    EXPECT_EQ(document->photos()[1].state, DocumentPhoto::State::FileMissing);
    EXPECT_EQ(document->photos()[1].fault, "is missing");
    EXPECT_EQ(document->soundtracks()[0].state, DocumentSoundtrack::State::FileMissing);
    ASSERT_TRUE(document->save());
    EXPECT_THAT(loaded()->photos(), SizeIs(3)) << "they may come back";
}

TEST_F(DocumentTest, FilesThatNoItemUsesAreNamed)
{
    makeDocument();
    folder_.makeFile("Rome.stillora/Resources/Photos/other.jpg");
    EXPECT_THAT(loaded()->unusedFiles(), ElementsAre(path() + "/Resources/Photos/other.jpg"));
}

TEST_F(DocumentTest, ItemsThatWereNotChangedAreSavedByteForByte)
{
    makeDocument();
    // As another program may write it: other keys, in another order.
    platform::NSDictionary item;
    item.setObjectForKey(std::string("Zz"), "title");
    item.setObjectForKey(std::string("1.0"), "version");
    item.setObjectForKey(std::string("/Users/a/Doc.x/Resources/Photos/img2.jpg"), "photoURL");
    item.setObjectForKey(std::string("sepia"), "filter");
    const auto data = platform::NSKeyedArchiver::archivedDataWithRootObject(item);
    auto photos = photosOf(propertyList());
    photos[1] = PropertyList(*data);
    setPhotos(photos);

    auto document = loaded();
    EXPECT_EQ(document->photos()[1].state, DocumentPhoto::State::Good);
    document->setFeatured(0, true);
    document->movePhoto(0, 2);
    ASSERT_TRUE(document->save());
    const auto saved = photosOf(propertyList());
    ASSERT_THAT(saved, SizeIs(3));
    EXPECT_EQ(*saved[0].as<NSData>(), *data);
    EXPECT_EQ(*saved[1].as<NSData>(), *photos[2].as<NSData>());
    EXPECT_TRUE(loaded()->photos()[2].isFeatured);
    document->movePhoto(2, 0);
    ASSERT_TRUE(document->save());
    EXPECT_EQ(loaded()->photos()[0].title, "img1");
}

TEST_F(DocumentTest, DamagedItemsAreReportedAndKeptByteForByte)
{
    makeDocument();
    auto photos = photosOf(propertyList());
    const NSData whole = *photos[0].as<NSData>();
    const NSData cut(whole.begin(), whole.begin() + 100);
    platform::NSDictionary other;
    other.setObjectForKey(std::string("1.1"), "version");
    platform::NSDictionary outside;
    outside.setObjectForKey(std::string("1.0"), "version");
    outside.setObjectForKey(std::string("/x/Resources/../../diary.jpg"), "photoURL");
    platform::NSDictionary nowhere;
    nowhere.setObjectForKey(std::string("1.0"), "version");
    nowhere.setObjectForKey(std::string("/x/y.jpg"), "photoURL");
    photos.push_back(PropertyList(cut));
    photos.push_back(PropertyList(std::string("a text")));
    photos.push_back(PropertyList(*platform::NSKeyedArchiver::archivedDataWithRootObject(other)));
    photos.push_back(PropertyList(*platform::NSKeyedArchiver::archivedDataWithRootObject(outside)));
    photos.push_back(PropertyList(*platform::NSKeyedArchiver::archivedDataWithRootObject(nowhere)));
    setPhotos(photos);

    auto document = loaded();
    ASSERT_THAT(document->photos(), SizeIs(8));
    for (size_t i = 3; i < 8; ++i) {
        EXPECT_EQ(document->photos()[i].state, DocumentPhoto::State::Damaged);
        EXPECT_TRUE(document->photos()[i].path.empty());
    }
    EXPECT_THAT(document->photos()[3].fault, HasSubstr("is damaged: "));
    EXPECT_EQ(document->photos()[4].fault, "is damaged: it is no saved item");
    EXPECT_EQ(document->photos()[5].fault, "is of another version, or is damaged");
    EXPECT_EQ(document->photos()[6].fault, "is damaged: its file is not among the document's resources");
    EXPECT_EQ(document->photos()[7].fault, "is damaged: it names no file among the document's resources");

    ASSERT_TRUE(document->add({photo("new.jpg")}, {}));
    ASSERT_TRUE(document->save());
    const auto saved = photosOf(propertyList());
    ASSERT_THAT(saved, SizeIs(9));
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(bytesOf(saved[i]), bytesOf(photos[i])) << i;
}

TEST_F(DocumentTest, WhatOtherVersionsPutIntoTheListIsKept)
{
    makeDocument();
    auto list = propertyList();
    list.emplace("chapters", PropertyList(PropertyList::Array{PropertyList(std::string("One")), PropertyList(2.5)}));
    auto settings = *list.at("settings").as<PropertyList::Dictionary>();
    settings.emplace("transition", PropertyList(std::string("fade")));
    list.insert_or_assign("settings", PropertyList(settings));
    write(list);
    auto document = loaded();
    MovieSettings changed = document->settings();
    changed.quality = 720;
    document->setSettings(changed);
    ASSERT_TRUE(document->save());
    const auto saved = propertyList();
    EXPECT_EQ(bytesOf(saved.at("chapters")), bytesOf(list.at("chapters")));
    EXPECT_EQ(*saved.at("settings").objectForKey<std::string>("transition"), "fade");
    EXPECT_EQ(*saved.at("settings").objectForKey<int64_t>("quality"), 720);
}

TEST_F(DocumentTest, SettingsAreKept)
{
    auto document = created();
    MovieSettings settings;
    settings.timePerPhoto = 2.5s;
    settings.quality = 1080;
    settings.codec = "hvc1";
    settings.loopsSounds = settings.fitsMusic = settings.reducesBorders = true;
    settings.fillsSilence = false;
    settings.title = "Römische Ferien";
    document->setSettings(settings);
    ASSERT_TRUE(document->save());
    EXPECT_EQ(loaded()->settings(), settings);
    settings.title = std::nullopt;
    document->setSettings(settings);
    ASSERT_TRUE(document->save());
    EXPECT_EQ(loaded()->settings(), settings);
    EXPECT_FALSE(propertyList().at("settings").objectForKey("title"));
    EXPECT_FALSE(propertyList().at("settings").objectForKey("drawsWatermark"));
    for (const Watermark watermark : {Watermark::Drawn, Watermark::Absent, Watermark::Usual}) {
        settings.watermark = watermark;
        document->setSettings(settings);
        ASSERT_TRUE(document->save());
        EXPECT_EQ(loaded()->settings(), settings);
    }
    EXPECT_FALSE(propertyList().at("settings").objectForKey("drawsWatermark"));
}

TEST_F(DocumentTest, KeepsTheQualityAsANumberThatEarlierProgramsTakeForTheSmallestPhoto)
{
    auto document = created();
    EXPECT_EQ(document->settings().quality, kAutomaticQuality);
    MovieSettings settings;
    settings.quality = kSmallestQuality;
    document->setSettings(settings);
    ASSERT_TRUE(document->save());
    EXPECT_EQ(loaded()->settings().quality, kSmallestQuality);
    // They know every number but the heights as the rule of the smallest photo.
    EXPECT_EQ(*propertyList().at("settings").objectForKey<int64_t>("quality"), -1);
    settings.quality = kAutomaticQuality;
    document->setSettings(settings);
    ASSERT_TRUE(document->save());
    EXPECT_EQ(*propertyList().at("settings").objectForKey<int64_t>("quality"), 0);
    EXPECT_THAT(loaded()->settingFaults(), IsEmpty());
}

TEST_F(DocumentTest, SettingsThatCannotBeUsedAreToldAndKept)
{
    makeDocument();
    auto list = propertyList();
    PropertyList::Dictionary settings;
    settings.emplace("secondsPerPhoto", PropertyList(std::string("four")));
    settings.emplace("quality", PropertyList(1.5));
    settings.emplace("codec", PropertyList(std::string("mp4v")));
    settings.emplace("fitsMusic", PropertyList(int64_t{1}));
    settings.emplace("title", PropertyList(std::string("../x")));
    settings.emplace("drawsWatermark", PropertyList(std::string("no")));
    list.insert_or_assign("settings", PropertyList(settings));
    write(list);
    auto document = loaded();
    EXPECT_EQ(document->settings(), MovieSettings());
    EXPECT_THAT(document->settingFaults(), SizeIs(6));
    EXPECT_THAT(document->settingFaults(), testing::Contains("the setting \"codec\" is \"mp4v\", which is no codec"));
    ASSERT_TRUE(document->save());
    EXPECT_EQ(bytesOf(propertyList().at("settings")), bytesOf(PropertyList(settings)));
    settings.insert_or_assign("secondsPerPhoto", PropertyList(1e9));
    list.insert_or_assign("settings", PropertyList(settings));
    write(list);
    EXPECT_THAT(loaded()->settingFaults(), SizeIs(6));
}

TEST_F(DocumentTest, DocumentsOfANewerVersionAreRefusedAndLeftAlone)
{
    makeDocument();
    auto list = propertyList();
    list.insert_or_assign("formatVersion", PropertyList(int64_t{2}));
    write(list);
    const std::string before = TemporaryFolder::contentsOf(listPath());
    EXPECT_EQ(refusal().code, ErrorCode::DocumentTooNew);
    EXPECT_THAT(refusal().message, HasSubstr("newer version"));
    const auto refused = Document::loadForChange(path(), [] { return false; });
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, ErrorCode::DocumentTooNew);
    EXPECT_EQ(TemporaryFolder::contentsOf(listPath()), before);
}

TEST_F(DocumentTest, FoldersThatAreNoDocumentAreRefusedWithTheReason)
{
    EXPECT_EQ(refusal(folder_.path("gone")).message, folder_.path("gone") + ": No such file or directory");
    EXPECT_THAT(refusal(folder_.makeFile("file.stillora")).message, HasSubstr("it is not a folder"));
    EXPECT_THAT(refusal(folder_.makeFolder("empty.stillora")).message, HasSubstr("there is no Document.plist in it"));
    EXPECT_EQ(refusal(folder_.path("empty.stillora")).code, ErrorCode::NoDocument);

    makeDocument();
    const auto list = propertyList();
    for (const char* key : {"photos", "soundtracks", "settings", "formatVersion"}) {
        auto damaged = list;
        damaged.insert_or_assign(key, PropertyList(true));
        write(damaged);
        EXPECT_EQ(refusal().code, ErrorCode::DocumentDamaged) << key;
    }
    write(NSData());
    EXPECT_THAT(refusal().message, HasSubstr("its Document.plist is empty"));
    fs::remove(listPath());
    ASSERT_EQ(mkfifo(listPath().c_str(), 0600), 0);
    EXPECT_THAT(refusal().message, Not(IsEmpty())) << "and does not wait for somebody to write";
}

TEST_F(DocumentTest, DocumentsWithoutListsAreEmpty)
{
    makeDocument();
    write(PropertyList::Dictionary{{"formatVersion", PropertyList(int64_t{1})}});
    auto document = loaded();
    EXPECT_THAT(document->photos(), IsEmpty());
    EXPECT_THAT(document->soundtracks(), IsEmpty());
    EXPECT_EQ(document->settings(), MovieSettings());
    ASSERT_TRUE(document->add({photo("new.jpg")}, {}) && document->save());
    EXPECT_THAT(loaded()->photos(), SizeIs(1));
}

TEST_F(DocumentTest, DocumentsThatOthersHaveChangedAreNotWrittenOver)
{
    makeDocument();
    auto first = loaded();
    auto second = loaded();
    ASSERT_TRUE(first->add({photo("first.jpg")}, {}) && first->save());
    ASSERT_TRUE(second->add({photo("second.jpg")}, {}));
    const std::string before = TemporaryFolder::contentsOf(listPath());
    EXPECT_EQ(codeOf(second->save()), ErrorCode::DocumentChanged);
    EXPECT_EQ(TemporaryFolder::contentsOf(listPath()), before);
    ASSERT_TRUE(first->add({photo("third.jpg")}, {}) && first->save()) << "its own changes are none of others";
    EXPECT_THAT(loaded()->photos(), SizeIs(5));
    fs::remove(listPath());
    EXPECT_EQ(codeOf(first->save()), ErrorCode::DocumentChanged);
}

TEST_F(DocumentTest, DocumentsAreChangedByOneProcessAtATime)
{
    makeDocument();
    auto opened = Document::loadForChange(path(), [] { return false; });
    ASSERT_TRUE(opened);
    std::optional<Document> first = *std::move(opened);
    int questions = 0;
    const auto refused = Document::loadForChange(path(), [&questions] { return ++questions < 3; });
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, ErrorCode::Cancelled);
    EXPECT_EQ(questions, 3);
    ASSERT_TRUE(first->add({photo("first.jpg")}, {}) && first->save());
    // It is let go while the other waits.
    auto second = Document::loadForChange(path(), [&first] {
        first.reset();
        return true;
    });
    ASSERT_TRUE(second);
    EXPECT_THAT(second->photos(), SizeIs(4));
    EXPECT_TRUE(second->save());
}

TEST_F(DocumentTest, SoundsPlayTheSelectionsThatWereSaved)
{
    auto document = created();
    // More decimals than are saved: what reaches the end still does.
    ASSERT_TRUE(
        document->add({}, {sound("whole.wav"), sound("part.wav", SoundFacts::Selection{1.25s, 30.12344671201814s})}) &&
        document->save());
    auto again = loaded();
    const SoundArgument whole = soundArgumentOf(again->soundtracks()[0]);
    EXPECT_FALSE(whole.start || whole.end);
    const SoundArgument part = soundArgumentOf(again->soundtracks()[1]);
    EXPECT_EQ(part.start, 1.25s);
    EXPECT_GE(*part.end, 30.12344671201814s);
    EXPECT_LT(*part.end, 30.123448s);
    // As other programs save that nothing is selected.
    auto saved = MORSoundtrack::soundtrackWithSaveData(*soundtracksOf(propertyList())[1].as<NSData>(),
                                                       NSURL::fileURLWithPath(path(), true));
    ASSERT_TRUE(saved);
    saved->setSelection(kNoSelection);
    auto list = propertyList();
    list.insert_or_assign("soundtracks", PropertyList::Array{PropertyList(*saved->saveData())});
    write(list);
    const SoundArgument marked = soundArgumentOf(loaded()->soundtracks()[0]);
    EXPECT_FALSE(marked.start || marked.end);
}

TEST_F(DocumentTest, ASelectionThatWasChangedIsKept)
{
    makeDocument();
    auto document = loaded();
    document->setSelection(0, SoundFacts::Selection{2s, 3.5s});
    document->setSelection(1, std::nullopt);
    ASSERT_TRUE(document->save());
    EXPECT_EQ(loaded()->soundtracks()[0].selection, (SoundFacts::Selection{2s, 3.5s}));
    EXPECT_EQ(loaded()->soundtracks()[1].selection, std::nullopt);
}

TEST_F(DocumentTest, DocumentsAreOpenedByOtherNamesOfTheirFolder)
{
    makeDocument();
    const auto before = fs::current_path();
    fs::current_path(path());
    EXPECT_EQ(loaded(".")->name(), "Rome");
    fs::current_path(before);
    fs::create_directory_symlink(path(), folder_.path("Link.stillora"));
    EXPECT_EQ(loaded(folder_.path("Link.stillora/"))->name(), "Link");
}

TEST_F(DocumentTest, DamagedListsAreNeverACrashAndNeverWrittenOver)
{
    makeDocument();
    const std::string good = TemporaryFolder::contentsOf(listPath());
    std::mt19937 random(20260101);
    std::uniform_int_distribution<size_t> position(0, good.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> kind(0, 3);
    const auto files = savedPhotos();
    size_t refused = 0;
    size_t damagedItems = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string damaged = good;
        switch (kind(random)) {
        case 0:
            damaged.resize(position(random));
            break;
        case 1:
            for (int i = byte(random) % 8; i >= 0; --i)
                damaged[position(random)] = static_cast<char>(byte(random));
            break;
        case 2:
            // The offset table and the trailer, on which all depends.
            damaged[damaged.size() - 1 - position(random) % 200] = static_cast<char>(byte(random));
            break;
        default: {
            const size_t from = position(random);
            damaged.erase(from, position(random) % 40);
            damaged.insert(position(random) % damaged.size(), good.substr(from, 20));
        }
        }
        std::ofstream(listPath(), std::ios::binary) << damaged;
        const auto document = Document::load(path());
        if (!document) {
            ++refused;
            ASSERT_NE(document.error().code, ErrorCode::Failed);
            ASSERT_THAT(document.error().message, HasSubstr(path()));
        } else {
            for (const DocumentPhoto& each : document->photos()) {
                ASSERT_EQ(each.fault.empty(), each.state == DocumentPhoto::State::Good);
                damagedItems += each.state == DocumentPhoto::State::Damaged;
            }
        }
        ASSERT_EQ(TemporaryFolder::contentsOf(listPath()), damaged);
    }
    EXPECT_EQ(savedPhotos(), files);
    // The damage was of both kinds.
    EXPECT_GT(refused, 200u);
    EXPECT_GT(damagedItems, 100u);
}

TEST_F(DocumentTest, DamagedItemsSurviveASaveAsTheyAre)
{
    makeDocument();
    const auto list = propertyList();
    const NSData whole = *photosOf(list)[0].as<NSData>();
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        NSData damaged = whole;
        for (int i = 0; i < 3; ++i)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        auto photos = photosOf(list);
        photos[0] = PropertyList(damaged);
        auto changed = list;
        changed.insert_or_assign("photos", PropertyList(photos));
        write(changed);
        auto document = loaded();
        ASSERT_TRUE(document);
        MovieSettings settings = document->settings();
        settings.quality = 480;
        document->setSettings(settings);
        ASSERT_TRUE(document->save());
        ASSERT_EQ(*photosOf(propertyList())[0].as<NSData>(), damaged) << round;
    }
}

} // namespace
