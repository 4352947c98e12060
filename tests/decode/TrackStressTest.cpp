// Many tracks made and dropped in a row, some while the renderer holds them: no thread and no
// memory (the sanitizer builds check that) may be left behind.
#include "ThreadCount.h"
#include "TrackHarness.h"

#include <gtest/gtest.h>

namespace oru {
namespace {

TEST(TrackLifecycleStressTest, CreatingAndDestroyingManyTracks_LeavesNoThreadBehind) {
  // A first harness lets the runtime start what it starts once (a sanitizer's own thread).
  { test::TrackHarness warmUp; }
  int const before = test::threadCount();
  {
    test::TrackHarness harness;
    for (int i = 0; i < 300; ++i) {
      auto track = harness.createFromFile(i % 3 == 0 ? "tone.mp3" : "tone.flac");
      if (i % 2 == 0) {
        track->play(0);  // some are handed to the renderer and let go by it
      }
      harness.track.reset();
    }
  }
  EXPECT_EQ(test::threadCount(), before);
}

}  // namespace
}  // namespace oru
