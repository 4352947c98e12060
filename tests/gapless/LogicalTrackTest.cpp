#include <oru/GaplessPlayer.h>

#include "NamedToken.h"

#include <gtest/gtest.h>

#include <typeinfo>

namespace oru {
namespace {

TEST(PhysicalTokenTest, ComparesBytesThenLengths) {
  PhysicalToken const a("http://host/a");
  EXPECT_EQ(a.compare(PhysicalToken("http://host/a")), 0);
  EXPECT_LT(PhysicalToken("a").compare(PhysicalToken("ab")), 0);
  EXPECT_GT(PhysicalToken("ab").compare(PhysicalToken("a")), 0);
  EXPECT_LT(PhysicalToken("http://host/a").compare(PhysicalToken("http://host/b")), 0);
  std::unique_ptr<AudioPlayer::Token> const copy(a.clone());
  EXPECT_EQ(copy->compare(a), 0);
  EXPECT_EQ(copy->toString(), "http://host/a");
}

TEST(PhysicalTokenTest, ComparingWithAnotherKindOfToken_Throws) {
  EXPECT_THROW(PhysicalToken("a").compare(test::NamedToken("a")), std::bad_cast);
}

TEST(GaplessLogicalTrackTest, StartsUnsetAndClonesDeeply) {
  GaplessLogicalTrack track(std::make_unique<test::NamedToken>("host"), "7", "file:album.flac",
                            std::make_unique<PhysicalToken>("file:album.flac"));
  EXPECT_EQ(track.startOffsetMs, 4294967295);
  EXPECT_EQ(track.endOffsetMs, 4294967295);
  EXPECT_FALSE(track.started);

  track.startOffsetMs = 1000;
  track.started = true;
  std::unique_ptr<GaplessLogicalTrack> copy = track.clone();
  copy->startOffsetMs = 2000;
  copy->logicalToken = std::make_unique<test::NamedToken>("other");
  EXPECT_EQ(track.startOffsetMs, 1000);
  EXPECT_EQ(track.logicalToken->toString(), "host");
  EXPECT_TRUE(copy->started);
  EXPECT_EQ(copy->physicalToken->compare(*track.physicalToken), 0);
  EXPECT_NE(copy->physicalToken.get(), track.physicalToken.get());
}

}  // namespace
}  // namespace oru
