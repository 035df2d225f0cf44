#include "client/batch/manifest/MoviePieces.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include <fmt/format.h>

using namespace stillora;

namespace {

MovieRequest movieOf(size_t photoCount)
{
    MovieRequest movie;
    for (size_t i = 0; i < photoCount; ++i) {
        PhotoFacts photo;
        photo.path = fmt::format("/{}.jpg", i);
        // One alone is small.
        photo.size = i == 0 ? Size{640, 480} : Size{1920, 1080};
        movie.photos.push_back(photo);
    }
    movie.plan.timePerFrame = movie.plan.timePerPhoto = Seconds(2);
    movie.plan.sounds.resize(1);
    movie.sounds.resize(1);
    movie.quality = kSmallestQuality;
    movie.codec = "jpeg";
    movie.watermark = Watermark::Drawn;
    return movie;
}

} // namespace

TEST(MoviePieces, HoldAllFramesInTheirOrderWithoutSound)
{
    for (const size_t photos : {16, 17, 41, 100, 1001})
        for (const size_t wanted : {2, 3, 7, 40}) {
            const MovieRequest movie = movieOf(photos);
            const size_t count = pieceCount(wanted, movie);
            size_t frames = 0;
            for (size_t number = 1; number <= count; ++number) {
                const MovieRequest piece = requestOfPiece(movie, number, count);
                ASSERT_TRUE(piece.part);
                EXPECT_EQ(piece.part->first, frames);
                EXPECT_EQ(piece.part->first % 2, 0u) << "neighbouring key frames would be alike";
                EXPECT_EQ(piece.part->movieCount, photos);
                EXPECT_GE(piece.photos.size(), 5u) << "the service would wait for ever";
                for (const PhotoFacts& photo : piece.photos)
                    EXPECT_EQ(photo.path, movie.photos[frames++].path);
                EXPECT_TRUE(piece.sounds.empty() && piece.plan.sounds.empty());
                EXPECT_EQ(piece.plan.timePerFrame, Seconds(2));
            }
            EXPECT_EQ(frames, photos);
        }
}

TEST(MoviePieces, AreAsTheWholeMovie)
{
    const MovieRequest piece = requestOfPiece(movieOf(96), 2, 4);
    EXPECT_EQ(piece.quality, 360) << "a small photo that is in another piece decides as well";
    EXPECT_EQ(piece.codec, "jpeg");
    EXPECT_EQ(piece.watermark, Watermark::Drawn);
    EXPECT_EQ(piece.plan.totalVideoDuration, Seconds(48));
}

TEST(MoviePieces, AreFewerWhereThereAreFewPhotos)
{
    EXPECT_EQ(pieceCount(40, movieOf(1000)), 40u);
    EXPECT_EQ(pieceCount(40, movieOf(80)), 10u);
    EXPECT_EQ(pieceCount(40, movieOf(15)), 1u);
    EXPECT_EQ(pieceCount(1, movieOf(1000)), 1u);
    MovieRequest repeated = movieOf(1000);
    repeated.plan.framesPerPhoto = 5;
    EXPECT_EQ(pieceCount(40, repeated), 1u);
}

TEST(MoviePieces, AreRememberedForOneMovie)
{
    KnownPieces known;
    EXPECT_EQ(known.find("a", "s"), nullptr);
    auto movie = std::make_shared<MovieInPieces>();
    movie->key = "a";
    movie->settings = "s";
    known.keep(movie);
    EXPECT_EQ(known.find("a", "s"), movie);
    EXPECT_EQ(known.find("a", "t"), nullptr);
    EXPECT_EQ(known.find("b", "s"), nullptr);
}
