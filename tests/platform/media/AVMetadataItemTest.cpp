#include "platform/media/AVMetadataItem.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

using namespace platform;

namespace {

AVMetadataItemPtr item(std::string_view keySpace, std::string_view key, std::string_view commonKey, std::string value)
{
    return std::make_shared<AVMetadataItem>(
        AVMetadataItem{std::string(keySpace), std::string(key), std::string(commonKey), std::move(value)});
}

const AVMetadataItemList kItems = {
    item(kAVMetadataKeySpaceID3, "TIT2", "title", "first"),
    item(kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeySongName, "title", "second"),
    item(kAVMetadataKeySpaceID3, "TIT2", "title", "third"),
    item(kAVMetadataKeySpaceID3, "TALB", "albumName", "album"),
};

} // namespace

TEST(AVMetadataItem, IsFoundByItsOwnKeyInTheOrderOfTheList)
{
    const auto found = AVMetadataItem::metadataItemsFromArray(kItems, "TIT2", kAVMetadataKeySpaceID3);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(*found[0]->stringValue(), "first");
    EXPECT_EQ(*found[1]->stringValue(), "third");
}

TEST(AVMetadataItem, IsFoundByItsCommonKeyWhateverItsOwnKeySpace)
{
    const auto found = AVMetadataItem::metadataItemsFromArray(kItems, "title", kAVMetadataKeySpaceCommon);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(*found[1]->stringValue(), "second");
}

TEST(AVMetadataItem, IsNotFoundInAnotherKeySpace)
{
    EXPECT_TRUE(AVMetadataItem::metadataItemsFromArray(kItems, "TIT2", kAVMetadataKeySpaceiTunes).empty());
    EXPECT_TRUE(AVMetadataItem::metadataItemsFromArray(kItems, "title", kAVMetadataKeySpaceID3).empty());
    EXPECT_TRUE(AVMetadataItem::metadataItemsFromArray(kItems, "TIT2", kAVMetadataKeySpaceCommon).empty());
}

TEST(AVMetadataItem, TellsTextFromBytes)
{
    AVMetadataItem item;
    EXPECT_FALSE(item.hasValue());
    EXPECT_EQ(item.stringValue(), nullptr);
    item.value = std::string("text");
    EXPECT_TRUE(item.hasValue());
    EXPECT_EQ(*item.stringValue(), "text");
    EXPECT_EQ(item.dataValue(), nullptr);
    item.value = NSData{1, 2};
    EXPECT_EQ(item.dataValue()->size(), 2U);
    EXPECT_EQ(item.stringValue(), nullptr);
}
