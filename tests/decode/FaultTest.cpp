// HTTP servers that fail in each way a real one does: each track ends once, with the expected
// event, in bounded time. Data callbacks that fail are the fuzz target's (tests/fuzz).
#include "FaultServer.h"
#include "PlayerHarness.h"
#include "RecordingLogger.h"
#include "decode/AudioTrack.h"

#include <gtest/gtest.h>

using namespace oru;
using test::FaultServer;

namespace {

constexpr long kFrames = 480000;  // long.mp3: 10 s at 48 kHz
std::string const kFailed = std::string("playbackFailed a 2 ") + Failure::kDemuxer;
std::string const kFinished = "playbackFinished a";

struct Fault {
  char const* name;
  FaultServer::Mode mode;
  std::string end;
  long frames;  // a stream cut at half of its bytes plays about half
};
void PrintTo(Fault const& fault, std::ostream* out) { *out << fault.name; }

class FaultTest : public ::testing::TestWithParam<Fault> {};

TEST_P(FaultTest, EndsTheTrackOnceWithTheExpectedEventAndAudio) {
  FaultServer server(test::readText(test::fixture("long.mp3")), GetParam().mode);
  test::PlayerHarness harness;
  harness.prepare(server.url(), "a");
  harness.play("a");
  // Past the engine's own 12 s network deadline, with room for a loaded machine.
  ASSERT_TRUE(harness.listener.waitFor(GetParam().end, 1, std::chrono::seconds(25)));
  EXPECT_EQ(harness.listener.startingWith("playbackF").size(), 1u) << "one terminal event";
  EXPECT_NEAR(harness.device.writtenFrames(), GetParam().frames, kFrames / 8);
  if (GetParam().mode == FaultServer::kIcy) {
    EXPECT_THAT(harness.listener.startingWith("streamMetadataExtracted a"),
                testing::Contains(testing::HasSubstr("\"StreamTitle\":\"Song ")));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Server, FaultTest,
    ::testing::Values(Fault{"NotFound", FaultServer::kNotFound, kFailed, 0},
                      Fault{"CloseEarly", FaultServer::kCloseEarly, kFailed, 0},
                      Fault{"Truncated", FaultServer::kTruncated, kFinished, kFrames / 2},
                      Fault{"ResetOnce", FaultServer::kResetOnce, kFinished, kFrames},
                      Fault{"StallMidStream", FaultServer::kStallMidStream, kFinished, kFrames / 2},
                      Fault{"StallBeforeAnswer", FaultServer::kStallBeforeAnswer, kFailed, 0},
                      Fault{"Trickle", FaultServer::kTrickle, kFinished, kFrames},
                      Fault{"Redirect", FaultServer::kRedirect, kFinished, kFrames},
                      Fault{"Icy", FaultServer::kIcy, kFinished, kFrames}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(FaultTest, DestroyingAPlayerBlockedOnASilentServer_InterruptsItQuietly) {
  test::RecordingLogger logger;
  FaultServer server("", FaultServer::kStallBeforeAnswer);
  {
    test::PlayerHarness harness;
    harness.prepare(server.url(), "a");
    ASSERT_TRUE(server.requests.waitUntil([](auto const& all) { return !all.empty(); }));
  }
  EXPECT_TRUE(logger.errors().empty()) << testing::PrintToString(logger.errors());
}

}  // namespace
