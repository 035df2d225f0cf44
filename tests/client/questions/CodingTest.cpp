#include "client/questions/Coding.h"

#include "client/questions/Questions.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

template <typename Value>
Bytes coded(const Value& value)
{
    Encoder encoder;
    encoder(value);
    return encoder.bytes();
}

template <typename Value>
std::optional<Value> decoded(std::span<const std::byte> bytes)
{
    Value value{};
    Decoder decoder(bytes);
    decoder(value);
    return decoder.isWhole() ? std::optional(std::move(value)) : std::nullopt;
}

FileFacts facts()
{
    using namespace std::chrono_literals;
    FileFacts facts;
    facts.kind = FileFacts::Kind::Sound;
    facts.size = {640, 480};
    facts.orientation = 6;
    facts.averageColor = Color{0.25, 0.5, 1};
    facts.taken = DateTaken{std::chrono::local_days(2024y / 5 / 31) + 9h + 250ms, 120min};
    facts.camera = "Lumora 3";
    facts.place = GeographicPlace{-12.5, 170.25};
    facts.isCutOff = true;
    facts.length = Seconds(1.5);
    facts.soundFormat = "mp3";
    facts.sampleRateHz = 44100;
    facts.channels = 2;
    facts.tags.title = "Title";
    facts.tags.shownAlbum = "Unknown";
    facts.cover = Cover{"png", {3, 4}, Bytes(5, std::byte{7})};
    return facts;
}

TEST(Coding, GivesBackWhatWasWritten)
{
    const auto back = decoded<FileFacts>(coded(facts()));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->kind, FileFacts::Kind::Sound);
    EXPECT_EQ(back->size, (Size{640, 480}));
    EXPECT_EQ(back->orientation, 6);
    EXPECT_EQ(back->averageColor, (Color{0.25, 0.5, 1}));
    EXPECT_EQ(back->taken, facts().taken);
    EXPECT_EQ(back->camera, "Lumora 3");
    EXPECT_EQ(back->place, (GeographicPlace{-12.5, 170.25}));
    EXPECT_TRUE(back->isCutOff);
    EXPECT_EQ(back->length, Seconds(1.5));
    EXPECT_EQ(back->sampleRateHz, 44100);
    EXPECT_EQ(back->tags.title, "Title");
    EXPECT_EQ(back->tags.artist, std::nullopt);
    EXPECT_EQ(back->tags.shownAlbum, "Unknown");
    ASSERT_TRUE(back->cover);
    EXPECT_EQ(back->cover->picture, Bytes(5, std::byte{7}));
}

TEST(Coding, GivesBackAValueOrAnError)
{
    const Bytes bytes = coded(Result<FileFacts>(Error{ErrorCode::NoPermission, "/a/b", "not so"}));
    Result<FileFacts> back = FileFacts{};
    Decoder decoder(bytes);
    decoder(back);
    ASSERT_TRUE(decoder.isWhole());
    ASSERT_FALSE(back);
    EXPECT_EQ(back.error().code, ErrorCode::NoPermission);
    EXPECT_EQ(back.error().file, "/a/b");
    EXPECT_EQ(back.error().message, "not so");
}

TEST(Coding, TakesNothingThatIsTooShortOrTooLong)
{
    Bytes bytes = coded(facts());
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(decoded<FileFacts>(std::span(bytes).first(length))) << length;
    bytes.push_back(std::byte{0});
    EXPECT_FALSE(decoded<FileFacts>(bytes));
}

TEST(Coding, TakesNoValueThatItsTypeDoesNotHave)
{
    EXPECT_FALSE(decoded<bool>(Bytes{std::byte{2}}));
    EXPECT_FALSE(decoded<PhotoLook::Kind>(coded(int{3})));
    EXPECT_FALSE(decoded<PhotoLook::Kind>(coded(int{-1})));
    EXPECT_TRUE(decoded<PhotoLook::Kind>(coded(int{2})));
    EXPECT_FALSE(decoded<double>(coded(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_FALSE(decoded<Seconds>(coded(std::numeric_limits<double>::infinity())));
}

TEST(Coding, BelievesNoCountThatTheBytesCouldNotHold)
{
    for (const uint64_t count : {uint64_t{9}, uint64_t{1} << 40, ~uint64_t{0}}) {
        Bytes bytes = coded(count);
        bytes.resize(bytes.size() + 8);
        EXPECT_FALSE(decoded<std::string>(bytes)) << count;
        EXPECT_FALSE(decoded<Bytes>(bytes)) << count;
        EXPECT_FALSE(decoded<std::vector<int>>(bytes)) << count;
    }
}

TEST(Coding, ComesThroughAnyBytes)
{
    std::mt19937 random(7);
    const Bytes good = coded(facts());
    size_t taken = 0;
    for (int i = 0; i < 20000; ++i) {
        Bytes bytes = good;
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            bytes[random() % bytes.size()] = static_cast<std::byte>(random());
        bytes.resize(random() % 4 == 0 ? random() % bytes.size() : bytes.size());
        taken += decoded<FileFacts>(bytes).has_value();
    }
    // Another colour is as good as the first.
    EXPECT_GT(taken, 0U);
}

PhotoLook goodLook()
{
    PhotoLook look;
    look.kind = PhotoLook::Kind::Good;
    look.size = {640, 480};
    return look;
}

TEST(Questions, BelieveNoPhotoThatCannotBe)
{
    EXPECT_TRUE(isPlausible(goodLook()));
    for (const Size size : {Size{0, 1}, Size{-5, -5}, Size{1.5, 1}, Size{16385, 16384}, Size{1e300, 1e300}}) {
        PhotoLook look = goodLook();
        look.size = size;
        EXPECT_FALSE(isPlausible(look)) << size.width;
    }
    PhotoLook look = goodLook();
    look.taken = DateTaken{decltype(DateTaken::clock)::max(), std::nullopt};
    EXPECT_FALSE(isPlausible(look));
    look.taken = DateTaken{{}, std::chrono::minutes::max()};
    EXPECT_FALSE(isPlausible(look));
    look.taken = DateTaken{{}, std::chrono::minutes(-90)};
    EXPECT_TRUE(isPlausible(look));
    look.fingerprint = std::string(64, 'a');
    EXPECT_TRUE(isPlausible(look));
    look.fingerprint += 'a';
    EXPECT_FALSE(isPlausible(look));
}

TEST(Questions, BelieveNoSoundThatCannotBe)
{
    EXPECT_TRUE(isPlausible(SoundMeasure{Seconds(36000), 44100, {}}));
    EXPECT_FALSE(isPlausible(SoundMeasure{Seconds(0), 44100, {}}));
    EXPECT_FALSE(isPlausible(SoundMeasure{Seconds(1e300), 44100, {}}));
    EXPECT_FALSE(isPlausible(SoundMeasure{Seconds(1), 0, {}}));
    EXPECT_TRUE(isPlausible(SoundMeasure{Seconds(0), 0, "has no length"}));
}

TEST(Questions, BelieveNoFactsThatCannotBe)
{
    const auto isPlausibleWith = [](auto change) {
        FileFacts changed = facts();
        change(changed);
        return isPlausible(Result<FileFacts>(std::move(changed)));
    };
    EXPECT_TRUE(isPlausibleWith([](FileFacts&) {}));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) { changed.pictureFormat = "\x1b[2J"; }));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) { changed.soundFormat = std::string(100, 'a'); }));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) { changed.orientation = 9; }));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) { changed.averageColor = Color{2, 0, 0}; }));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) { changed.length = Seconds(-1); }));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) { changed.cover->format = "a b"; }));
    EXPECT_FALSE(isPlausibleWith([](FileFacts& changed) {
        changed.kind = FileFacts::Kind::Photo;
        changed.size = {0, 0};
    }));
}

} // namespace
