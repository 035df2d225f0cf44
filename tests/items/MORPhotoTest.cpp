#include "items/MORPhoto.h"

#include "items/SavedForm.h"

#include "platform/archive/NSKeyedArchiver.h"
#include "platform/foundation/NSString.h"
#include "tests/items/ReferenceReader.h"
#include "tests/support/ArchiveBytes.h"
#include "tests/support/CommaLocale.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <random>
#include <thread>

using namespace platform;
using namespace archive_bytes;

namespace {

const NSURL kDocument = NSURL::fileURLWithPath("/Volumes/B/Doc.x", true);

MORPhoto& filled(MORPhoto& photo, const std::string& path = "/Users/a/Doc.x/Resources/Photos/p1.jpg")
{
    photo.setPhotoURL(NSURL::fileURLWithPath(path, false));
    photo.setTitle("Beach");
    photo.setSize({4000, 3000});
    photo.setFileSize(2411724);
    photo.setDateCreated(NSDate{509523358.684097});
    photo.setAverageImageColor(NSColor{NSColor::Space::Device, 108.0 / 255, 0.6, 187.0 / 255, 1});
    return photo;
}

/// The dictionary of a saved form.
NSDictionary savedDictionary(const MORPhoto& photo)
{
    NSError error;
    const auto data = photo.saveData(&error);
    EXPECT_TRUE(data) << error.localizedDescription;
    const auto root = data ? NSKeyedUnarchiver::unarchiveObjectWithData(*data) : std::nullopt;
    EXPECT_TRUE(root && root->as<NSDictionary>());
    return root && root->as<NSDictionary>() ? *root->as<NSDictionary>() : NSDictionary();
}

template <typename T>
std::optional<T> valueIn(const NSDictionary& dictionary, std::string_view key)
{
    const ArchivedValue* value = dictionary.objectForKey(key);
    const T* found = value ? value->as<T>() : nullptr;
    return found ? std::optional(*found) : std::nullopt;
}

/// A saved form of these entries, made by hand.
NSData saved(const std::vector<std::pair<std::string, Node>>& entries)
{
    return archive(dictionaryObjects(entries));
}

std::vector<std::pair<std::string, Node>> minimalEntries()
{
    return {{"version", text("1.0")}, {"photoURL", text("/a/Resources/p.jpg")}};
}

MORPhotoPtr load(const NSData& data)
{
    return MORPhoto::photoWithSaveData(data, kDocument);
}

/// What comes out at the other side of the connection.
MORPhotoPtr recoded(const MORPhoto& photo)
{
    NSCoder coder;
    photo.encodeWithCoder(coder);
    return MORPhoto::initWithCoder(coder);
}

/// The photo example, object for object as the platform writes it.
NSData platformArchive()
{
    return archive({
        text("$null"),
        dictionary({{"NS.keys", uids({2, 3, 4, 5, 6, 7, 8, 9})},
                    {"NS.objects", uids({10, 11, 12, 13, 14, 15, 16, 18})},
                    {"$class", uid(20)}}),
        text("version"),
        text("photoURL"),
        text("title"),
        text("size"),
        text("fileSize"),
        text("isFeatured"),
        text("dateCreated"),
        text("averageImageColor"),
        text("1.0"),
        text("/Users/a/Doc.x/Resources/Photos/p1.jpg"),
        text("Beach"),
        text("{4000, 3000}"),
        integer(2411724),
        boolean(false),
        dictionary({{"NS.time", real(509523358.684097)}, {"$class", uid(17)}}),
        classRecord({"NSDate", "NSObject"}),
        dictionary({{"NSRGB", data(std::string_view("0.4235294118 0.6 0.7333333333\0", 30))},
                    {"NSColorSpace", integer(2)},
                    {"$class", uid(19)}}),
        classRecord({"NSColor", "NSObject"}),
        classRecord({"NSMutableDictionary", "NSDictionary", "NSObject"}),
    });
}

class SpecialPhoto : public MORPhoto {
public:
    int ownValue = 7;
};

} // namespace

TEST(MORPhoto, BeginsEmpty)
{
    const MORPhoto photo;
    EXPECT_EQ(photo.photoURL(), std::nullopt);
    EXPECT_EQ(photo.title(), std::nullopt);
    EXPECT_EQ(photo.dateCreated(), std::nullopt);
    EXPECT_EQ(photo.averageImageColor(), std::nullopt);
    EXPECT_EQ(photo.size(), kNSZeroSize);
    EXPECT_EQ(photo.fileSize(), 0);
    EXPECT_FALSE(photo.isFeatured());
    EXPECT_TRUE(MORPhoto::supportsSecureCoding());
    EXPECT_EQ(photo.className(), "MORPhoto");
}

TEST(MORPhoto, GivenOnlyLocationAndTitleSavesTheDefaults)
{
    MORPhoto photo;
    photo.setPhotoURL(NSURL::fileURLWithPath("/a/p.jpg", false));
    photo.setTitle("p");
    const NSDictionary dictionary = savedDictionary(photo);
    EXPECT_EQ(dictionary.entries.size(), 6u);
    EXPECT_EQ(valueIn<std::string>(dictionary, "version"), "1.0");
    EXPECT_EQ(valueIn<std::string>(dictionary, "photoURL"), "/a/p.jpg");
    EXPECT_EQ(valueIn<std::string>(dictionary, "title"), "p");
    EXPECT_EQ(valueIn<std::string>(dictionary, "size"), "{0, 0}");
    EXPECT_EQ(valueIn<NSNumber>(dictionary, "fileSize"), NSNumber(int64_t{0}));
    EXPECT_EQ(valueIn<NSNumber>(dictionary, "isFeatured"), NSNumber(false));
    EXPECT_EQ(dictionary.objectForKey("dateCreated"), nullptr);
    EXPECT_EQ(dictionary.objectForKey("averageImageColor"), nullptr);
    EXPECT_TRUE(dictionary.isMutable);
}

TEST(MORPhoto, FollowsItsDocumentToAnotherPlace)
{
    MORPhoto photo;
    const auto loaded = load(filled(photo).saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->photoURL()->path(), "/Volumes/B/Doc.x/Resources/Photos/p1.jpg");
    EXPECT_EQ(loaded->photoURL()->absoluteString(), "file:///Volumes/B/Doc.x/Resources/Photos/p1.jpg");
}

TEST(MORPhoto, KeepsOnlyTheTailFromTheLastResources)
{
    MORPhoto photo;
    const auto loaded = load(filled(photo, "/a/Resources/b/Resources/c.jpg").saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->photoURL()->path(), "/Volumes/B/Doc.x/Resources/c.jpg");
}

TEST(MORPhoto, FindsResourcesAtTheEndOfALongerName)
{
    auto entries = minimalEntries();
    entries[1].second = text("/a/MyResources/c.jpg");
    const auto loaded = load(saved(entries));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->photoURL()->path(), "/Volumes/B/Doc.x/Resources/c.jpg");
}

TEST(MORPhoto, RefusesEveryVersionButItsOwn)
{
    for (const Node& version : {text("1.0 "), text("1"), text(" 1.0"), text("1.1"), text("1.00"), text(""), integer(1),
                                real(1.0), data("1.0")}) {
        auto entries = minimalEntries();
        EXPECT_TRUE(load(saved(entries)));
        entries[0].second = version;
        NSError error;
        EXPECT_FALSE(MORPhoto::photoWithSaveData(saved(entries), kDocument, &error)) << version.bytes;
        EXPECT_EQ(error, NSError{});
    }
    EXPECT_FALSE(load(saved({{"photoURL", text("/a/Resources/p.jpg")}})));
}

TEST(MORPhoto, RefusesAPathThatIsMissing)
{
    NSError error;
    EXPECT_FALSE(MORPhoto::photoWithSaveData(saved({{"version", text("1.0")}}), kDocument, &error));
    EXPECT_EQ(error, NSError{});
}

TEST(MORPhoto, RefusesAPathWithoutResources)
{
    for (const char* path : {"/a/b/c.jpg", "", "/a/Resources", "/a/resources/c.jpg"}) {
        auto entries = minimalEntries();
        entries[1].second = text(path);
        EXPECT_FALSE(load(saved(entries))) << path;
    }
}

TEST(MORPhoto, RefusesAPathWithAZeroByte)
{
    auto entries = minimalEntries();
    entries[1].second = text(std::string_view("/a/Resources/p\0.jpg", 19));
    EXPECT_FALSE(load(saved(entries)));
}

TEST(MORPhoto, IsNoItemWithoutABlob)
{
    NSError error;
    EXPECT_FALSE(MORPhoto::photoWithSaveData(std::nullopt, kDocument, &error));
    EXPECT_EQ(error, NSError{});
}

TEST(MORPhoto, HandsOnWhyABlobIsNoArchive)
{
    for (const NSData& blob : {NSData(), NSData{'n', 'o'}, write(array({}))}) {
        NSError error;
        EXPECT_FALSE(MORPhoto::photoWithSaveData(blob, kDocument, &error));
        EXPECT_EQ(error.domain, kNSCocoaErrorDomain);
        EXPECT_EQ(error.code, kNSCoderReadCorruptError);
    }
}

TEST(MORPhoto, IsNoItemWhereTheRootIsNoDictionary)
{
    EXPECT_FALSE(load(archive({text("$null"), text("1.0")})));
}

TEST(MORPhoto, ReadsThePlatformsArchive)
{
    const NSData archived = platformArchive();
    ASSERT_EQ(archived.size(), 715u);
    const auto photo = load(archived);
    ASSERT_TRUE(photo);
    EXPECT_EQ(photo->photoURL()->path(), "/Volumes/B/Doc.x/Resources/Photos/p1.jpg");
    EXPECT_EQ(photo->title(), "Beach");
    EXPECT_EQ(photo->size(), (CGSize{4000, 3000}));
    EXPECT_EQ(photo->fileSize(), 2411724);
    EXPECT_FALSE(photo->isFeatured());
    EXPECT_EQ(photo->dateCreated(), NSDate{509523358.684097});
    EXPECT_EQ(photo->averageImageColor(), (NSColor{NSColor::Space::Device, 0.4235294118, 0.6, 0.7333333333, 1}));
}

TEST(MORPhoto, WritesWhatThePlatformWrites)
{
    MORPhoto photo;
    const NSData ours = filled(photo).saveData().value();
    EXPECT_EQ(ours.size(), platformArchive().size());
    EXPECT_EQ(readByReference(ours), readByReference(platformArchive()));
    EXPECT_EQ(readByReference(ours),
              "NSMutableDictionary<NSDictionary<NSObject {averageImageColor: NSColor<NSObject {NSColorSpace: 2, NSRGB: "
              "b'0.4235294118 0.6 0.7333333333\\x00'}, dateCreated: NSDate<NSObject {NS.time: 509523358.684097}, "
              "fileSize: 2411724, isFeatured: False, photoURL: '/Users/a/Doc.x/Resources/Photos/p1.jpg', "
              "size: '{4000, 3000}', title: 'Beach', version: '1.0'}");
}

TEST(MORPhoto, LoadsWhatItSaved)
{
    MORPhoto photo;
    filled(photo);
    photo.setIsFeatured(true);
    photo.setFileSize(5'000'000'000);
    photo.setSize({0.1, 1e21});
    photo.setTitle("Grüße 😀\n\"x\"");
    photo.setAverageImageColor(NSColor{NSColor::Space::Calibrated, 0.25, 0.5, 0.75, 0.125});
    const auto loaded = load(photo.saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->title(), photo.title());
    EXPECT_EQ(loaded->size(), photo.size());
    EXPECT_EQ(loaded->fileSize(), photo.fileSize());
    EXPECT_TRUE(loaded->isFeatured());
    EXPECT_EQ(loaded->dateCreated(), photo.dateCreated());
    EXPECT_EQ(loaded->averageImageColor(), photo.averageImageColor());
}

TEST(MORPhoto, WritesItsNumbersAlikeInEveryLocale)
{
    const CommaLocale comma;
    ASSERT_TRUE(comma) << "localedef could not make a locale";
    MORPhoto photo;
    filled(photo).setSize({0.5, 2.25});
    photo.setAverageImageColor(NSColor{NSColor::Space::Device, 0.25, 0.5, 0.75, 0.125});
    const auto loaded = load(photo.saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->size(), photo.size());
    EXPECT_EQ(loaded->averageImageColor(), photo.averageImageColor());
}

TEST(MORPhoto, LoadsWithDefaultsForWhatIsAbsent)
{
    const auto photo = load(saved(minimalEntries()));
    ASSERT_TRUE(photo);
    EXPECT_EQ(photo->title(), std::nullopt);
    EXPECT_EQ(photo->size(), kNSZeroSize);
    EXPECT_EQ(photo->fileSize(), 0);
    EXPECT_FALSE(photo->isFeatured());
    EXPECT_EQ(photo->dateCreated(), std::nullopt);
    EXPECT_EQ(photo->averageImageColor(), std::nullopt);
}

TEST(MORPhoto, TakesAnyNumberForAFlagAndASize)
{
    for (const Node& number : {boolean(true), integer(1), integer(-3), real(0.5)}) {
        auto entries = minimalEntries();
        entries.emplace_back("isFeatured", number);
        entries.emplace_back("fileSize", real(12.9));
        const auto photo = load(saved(entries));
        ASSERT_TRUE(photo);
        EXPECT_TRUE(photo->isFeatured());
        EXPECT_EQ(photo->fileSize(), 12);
    }
}

TEST(MORPhoto, LoadsWithoutAColourThatIsNotUnderstood)
{
    for (const Node& color : {text("red"), dictionary({{"$class", uid(9)}}),
                              dictionary({{"NSColorSpace", integer(6)}, {"$class", uid(10)}})}) {
        auto entries = minimalEntries();
        entries.emplace_back("averageImageColor", color);
        std::vector<Node> objects = dictionaryObjects(entries);
        ASSERT_EQ(objects.size(), 9u);
        objects.push_back(classRecord({"XYZColor", "NSObject"}));
        objects.push_back(classRecord({"NSColor", "NSObject"}));
        const auto photo = load(archive(objects));
        ASSERT_TRUE(photo);
        EXPECT_EQ(photo->averageImageColor(), std::nullopt);
    }
}

TEST(MORPhoto, SavesAColourAsItWasLoaded)
{
    const auto component = [](std::string_view key, std::string_view numbers, int64_t space) {
        return dictionary({{std::string(key), data(numbers)}, {"NSColorSpace", integer(space)}, {"$class", uid(13)}});
    };
    for (const Node& color : {
             component("NSRGB", "2 -1 0.5 5", 2),
             component("NSRGB", "1.0 .5 1e-1", 1),
             component("NSWhite", "0.25 0.5", 3),
             component("NSWhite", "1.5", 4),
             component("NSCMYK", "0 0.5 1 0.5 0.75", 5),
             component("NSCYMK", "0 0.5 1 0.5", 5),
             dictionary({{"NSRGB", data("0.1 0.2 0.3")},
                         {"NSColorSpace", integer(1)},
                         {"NSComponents", data("0.4 0.5 0.6 1")},
                         {"NSCustomColorSpace", uid(14)},
                         {"NSLinearExposure", text("1")},
                         {"$class", uid(13)}}),
             dictionary({{"NSCatalogName", text("System")}, {"NSColorSpace", integer(6)}, {"$class", uid(13)}}),
             dictionary({{"$class", uid(13)}}),
             dictionary({{"part", uid(14)}, {"$class", uid(17)}}),
             text("red"),
         }) {
        std::vector<Node> objects = dictionaryObjects({{"version", text("1.0")},
                                                       {"photoURL", text("/a/Resources/p.jpg")},
                                                       {"title", text("p")},
                                                       {"averageImageColor", color},
                                                       {"fileSize", integer(7)}});
        ASSERT_EQ(objects.size(), 13u);
        objects.push_back(classRecord({"NSColor", "NSObject"}));
        objects.push_back(dictionary({{"NSICC", uid(15)}, {"NSID", integer(7)}, {"$class", uid(16)}}));
        objects.push_back(data("a profile"));
        objects.push_back(classRecord({"NSColorSpace", "NSObject"}));
        objects.push_back(classRecord({"XYZColor", "NSColor", "NSObject"}));
        const auto photo = load(archive(objects));
        ASSERT_TRUE(photo);
        const auto colorIn = [](const std::string& dictionary) {
            const size_t start = dictionary.find("averageImageColor: ");
            return start == std::string::npos ? dictionary
                                              : dictionary.substr(start, dictionary.find(", fileSize") - start);
        };
        // Not every archive refers to all of these objects, which the reader would tell.
        const std::string saved = readByReference(photo->saveData().value());
        EXPECT_TRUE(saved.starts_with("NSMutableDictionary<")) << saved;
        EXPECT_EQ(colorIn(saved), colorIn(readByReference(archive(objects), Unreferred::Allowed)));

        photo->setAverageImageColor(NSColor{NSColor::Space::Device, 0.25, 0.5, 0.75, 1});
        EXPECT_EQ(load(photo->saveData().value())->averageImageColor(), photo->averageImageColor());
        photo->setAverageImageColor(std::nullopt);
        EXPECT_EQ(savedDictionary(*photo).objectForKey("averageImageColor"), nullptr);
    }
}

TEST(MORPhoto, LoadsBesideAnEntryOfAnUnknownClassThatNobodyReads)
{
    auto entries = minimalEntries();
    entries.emplace_back("other", dictionary({{"$class", uid(9)}}));
    std::vector<Node> objects = dictionaryObjects(entries);
    ASSERT_EQ(objects.size(), 9u);
    objects.push_back(classRecord({"XYZThing", "NSObject"}));
    EXPECT_TRUE(load(archive(objects)));
}

TEST(MORPhoto, RefusesAnUnknownClassUnderAKeyThatIsRead)
{
    auto entries = minimalEntries();
    entries.emplace_back("title", dictionary({{"$class", uid(9)}}));
    std::vector<Node> objects = dictionaryObjects(entries);
    objects.push_back(classRecord({"XYZThing", "NSObject"}));
    NSError error;
    EXPECT_FALSE(MORPhoto::photoWithSaveData(archive(objects), kDocument, &error));
    EXPECT_EQ(error.code, kNSCoderReadCorruptError);
}

TEST(MORPhoto, RefusesAValueOfAnotherClass)
{
    for (const char* key : {"title", "size", "fileSize", "isFeatured", "dateCreated"}) {
        auto entries = minimalEntries();
        entries.emplace_back(key, data("x"));
        NSError error;
        EXPECT_FALSE(MORPhoto::photoWithSaveData(saved(entries), kDocument, &error)) << key;
        EXPECT_EQ(error.code, kNSCoderReadCorruptError);
        EXPECT_NE(error.localizedDescription.find(key), std::string::npos);
    }
}

TEST(MORPhoto, CannotBeSavedWithoutALocation)
{
    MORPhoto photo;
    photo.setTitle("p");
    NSError error;
    EXPECT_FALSE(photo.saveData(&error));
    EXPECT_EQ(error.code, kNSFileWriteUnknownError);
    EXPECT_EQ(error.localizedDescription, "The photo cannot be saved: it has no location");
}

TEST(MORPhoto, CannotBeSavedWithoutATitle)
{
    MORPhoto photo;
    photo.setPhotoURL(NSURL::fileURLWithPath("/a/p.jpg", false));
    NSError error;
    EXPECT_FALSE(photo.saveData(&error));
    EXPECT_EQ(error.code, kNSFileWriteUnknownError);
    EXPECT_EQ(error.localizedDescription, "The photo cannot be saved: \"/a/p.jpg\" has no title");
}

TEST(MORPhoto, KeepsANameThatIsNotUTF8)
{
    MORPhoto photo;
    filled(photo, "/a/Resources/gr\xFC\xDF"
                  "e.jpg");
    photo.setTitle("gr\xFC\xDF"
                   "e");
    const auto form = saved_form::read(photo.saveData(), nullptr);
    ASSERT_TRUE(form);
    EXPECT_NE(form->objectForKey("photoURLBytes"), nullptr) << "beside the text, which has lost them";
    const auto loaded = load(photo.saveData().value());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->photoURL()->path(), "/Volumes/B/Doc.x/Resources/gr\xFC\xDF"
                                          "e.jpg");
    EXPECT_EQ(loaded->title(), "gr\uFFFD\uFFFDe");
    EXPECT_TRUE(isValidUTF8(*recoded(photo)->title()));
}

TEST(MORPhoto, LoadsASubclassAsItself)
{
    MORPhoto photo;
    const auto loaded = SpecialPhoto::photoWithSaveData<SpecialPhoto>(filled(photo).saveData(), kDocument);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->ownValue, 7);
    EXPECT_EQ(loaded->title(), "Beach");
    NSCoder coder;
    photo.encodeWithCoder(coder);
    EXPECT_EQ(MORPhoto::initWithCoder<SpecialPhoto>(coder)->ownValue, 7);
}

TEST(MORPhoto, CrossesTheConnectionUnchanged)
{
    const TemporaryFolder folder;
    MORPhoto photo;
    filled(photo, folder.makeFile("p.jpg"));
    photo.setIsFeatured(true);
    const auto received = recoded(photo);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->photoURL(), photo.photoURL());
    EXPECT_EQ(received->title(), photo.title());
    EXPECT_EQ(received->size(), photo.size());
    EXPECT_EQ(received->fileSize(), photo.fileSize());
    EXPECT_TRUE(received->isFeatured());
    EXPECT_EQ(received->dateCreated(), photo.dateCreated());
    EXPECT_EQ(received->averageImageColor(), photo.averageImageColor());
}

TEST(MORPhoto, CodesSevenValuesOfTheirClasses)
{
    const TemporaryFolder folder;
    MORPhoto photo;
    filled(photo, folder.makeFile("p.jpg"));
    NSCoder coder;
    photo.encodeWithCoder(coder);
    std::map<std::string, std::string> classes;
    for (const auto& [key, value] : coder.values())
        classes.emplace(key, nameOf(classOf(value)));
    EXPECT_EQ(classes, (std::map<std::string, std::string>{{"photoURL", "data"},
                                                           {"title", "string"},
                                                           {"size", "string"},
                                                           {"fileSize", "number"},
                                                           {"isFeatured", "number"},
                                                           {"dateCreated", "date"},
                                                           {"averageImageColor", "colour"}}));
    EXPECT_EQ(coder.values().at("size"), CodedValue("{4000, 3000}"));
    EXPECT_EQ(coder.values().at("isFeatured"), CodedValue(NSNumber(false)));
}

TEST(MORPhoto, CodesNoValueForAFileThatIsNotThere)
{
    MORPhoto photo;
    photo.setPhotoURL(NSURL::fileURLWithPath("/no/such/p.jpg", false));
    NSCoder coder;
    photo.encodeWithCoder(coder);
    EXPECT_FALSE(coder.values().contains("photoURL"));
    const auto received = MORPhoto::initWithCoder(coder);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->photoURL(), std::nullopt);
}

TEST(MORPhoto, HasNoLocationWhenItsBookmarkLeadsNowhere)
{
    NSCoder coder;
    coder.encodeObject(NSURL::fileURLWithPath("/no/such/p.jpg").bookmarkDataOfPathAlone(), "photoURL");
    EXPECT_EQ(MORPhoto::initWithCoder(coder)->photoURL(), std::nullopt);
    coder.encodeObject(NSData{1, 2, 3}, "photoURL");
    EXPECT_EQ(MORPhoto::initWithCoder(coder)->photoURL(), std::nullopt);
}

TEST(MORPhoto, CodedWithoutASizeKeepsTheZeroSize)
{
    NSCoder coder;
    coder.encodeObject("title", "title");
    const auto photo = MORPhoto::initWithCoder(coder);
    ASSERT_TRUE(photo);
    EXPECT_EQ(photo->size(), kNSZeroSize);
}

TEST(MORPhoto, CodedWithoutAFlagIsNotFeatured)
{
    const auto photo = MORPhoto::initWithCoder(NSCoder());
    ASSERT_TRUE(photo);
    EXPECT_FALSE(photo->isFeatured());
    EXPECT_EQ(photo->fileSize(), 0);
    MORPhoto plain;
    filled(plain, "/a/Resources/b.jpg");
    plain.setIsFeatured(false);
    EXPECT_FALSE(recoded(plain)->isFeatured());
}

TEST(MORPhoto, RefusesACodedValueOfAnotherClass)
{
    for (const char* key :
         {"photoURL", "title", "size", "fileSize", "isFeatured", "dateCreated", "averageImageColor"}) {
        NSCoder coder;
        coder.encodeObject(std::string_view(key) == "dateCreated" ? CodedValue("text") : CodedValue(NSDate{1}), key);
        NSError error;
        EXPECT_FALSE(MORPhoto::initWithCoder(coder, &error)) << key;
        EXPECT_EQ(error.code, kNSCoderReadCorruptError);
        EXPECT_NE(error.localizedDescription.find(key), std::string::npos);
        EXPECT_FALSE(MORPhoto::initWithCoder(coder)) << "nobody has to ask why";
    }
}

TEST(MORPhoto, SurvivesDamageToItsSavedForm)
{
    MORPhoto photo;
    const NSData whole = filled(photo).saveData().value();
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(load(NSData(whole.begin(), whole.begin() + static_cast<long>(length)))) << length;

    std::mt19937 random(3);
    int refused = 0;
    constexpr int kRounds = 6000;
    for (int i = 0; i < kRounds; ++i) {
        NSData damaged = whole;
        const size_t at = random() % damaged.size();
        switch (i % 3) {
        case 0:
            damaged[at] ^= static_cast<uint8_t>(1 << random() % 8);
            break;
        case 1:
            damaged.insert(damaged.begin() + static_cast<long>(at), static_cast<uint8_t>(random()));
            break;
        default:
            damaged.erase(damaged.begin() + static_cast<long>(at));
            break;
        }
        const auto loaded = load(damaged);
        refused += !loaded;
        // What still loads is a photo of the document all the same.
        if (loaded) {
            EXPECT_TRUE(loaded->photoURL()->path().starts_with("/Volumes/B/Doc.x/Resources/"));
        }
    }
    EXPECT_GT(refused, kRounds / 2);
}

TEST(MORPhoto, MayBeReadWhileItIsSet)
{
    MORPhoto photo;
    std::jthread setter([&](const std::stop_token& stop) {
        for (double value = 1; !stop.stop_requested(); ++value) {
            photo.setSize({value, value});
            photo.setTitle(std::to_string(value));
        }
    });
    for (int i = 0; i < 2000; ++i) {
        const CGSize size = photo.size();
        EXPECT_EQ(size.width, size.height);
        (void)photo.title();
    }
}
