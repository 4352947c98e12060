// HTTP servers that fail in each way a real one does: each track ends once, with the expected
// event, in bounded time. Data callbacks that fail are the fuzz target's (tests/fuzz).
#include "FaultServer.h"
#include "PlayerHarness.h"
#include "RecordingLogger.h"
#include "decode/AudioTrack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

using namespace oru;
using test::FaultServer;

namespace {

constexpr long kFrames = 480000;  // long.mp3: 10 s at 48 kHz
constexpr long kWhole = -1;
std::string const kFailed = std::string("playbackFailed a 2 ") + Failure::kDemuxer;
std::string const kFinished = "playbackFinished a";

struct Fault {
  char const* name;
  FaultServer::Mode mode;
  std::string end;
  long frames;  // about as many of the decode's first frames; kWhole: all of them, exactly
};
void PrintTo(Fault const& fault, std::ostream* out) { *out << fault.name; }

// The samples of 16-bit PCM.
std::vector<int16_t> samplesOf(std::vector<uint8_t> const& bytes) {
  std::vector<int16_t> samples(bytes.size() / 2);
  std::copy_n(bytes.begin(), samples.size() * 2, reinterpret_cast<uint8_t*>(samples.data()));
  return samples;
}

// What the player writes of a file it reads from the disk.
std::vector<int16_t> decodeOf(std::string const& file) {
  test::PlayerHarness harness;
  harness.prepare(file, "a");
  harness.play("a");
  EXPECT_TRUE(harness.listener.waitFor(kFinished));
  return samplesOf(harness.device.writtenBytes());
}

class FaultTest : public ::testing::TestWithParam<Fault> {};

TEST_P(FaultTest, EndsTheTrackOnce_HavingPlayedThePartOfTheFileThatCame) {
  static std::vector<int16_t> const reference = decodeOf("long.mp3");
  FaultServer server(test::readText(test::fixture("long.mp3")), GetParam().mode);
  test::PlayerHarness harness;
  harness.prepare(server.url(), "a");
  harness.play("a");
  // Past the engine's own 12 s network deadline, with room for a loaded machine.
  ASSERT_TRUE(harness.listener.waitFor(GetParam().end, 1, std::chrono::seconds(25)));
  EXPECT_EQ(harness.listener.startingWith("playbackF").size(), 1u) << "one terminal event";
  // Nothing repeated, nothing skipped: the audio is the file's decode from its start, up to the
  // last frames of a stream cut short, which the decoder and resampler end on their own.
  // A stream without a length also keeps the encoder's padding at its end. A cross build's
  // float decoders may round a sample one step the other way (see CMakeLists.txt).
  std::vector<int16_t> const written = samplesOf(harness.device.writtenBytes());
  bool const whole = GetParam().frames == kWhole;
  size_t const common = std::min(written.size(), reference.size());
  size_t const compared = whole ? common : common - std::min<size_t>(common, 8192 * 2);
  EXPECT_TRUE(std::equal(written.begin(), written.begin() + compared, reference.begin(),
                         [](int16_t played, int16_t decoded) {
                           return std::abs(played - decoded) <= ORUPLAY_REFERENCE_TOLERANCE;
                         }));
  if (whole) {
    EXPECT_EQ(written.size(), reference.size());
  } else {
    EXPECT_NEAR(harness.device.writtenFrames(), GetParam().frames, kFrames / 8);
  }
  if (GetParam().mode == FaultServer::kIcy || GetParam().mode == FaultServer::kLiveCloses) {
    EXPECT_THAT(harness.listener.startingWith("streamMetadataExtracted a"),
                testing::Contains(testing::HasSubstr("\"StreamTitle\":\"Song 36\"")));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Server, FaultTest,
    ::testing::Values(
        Fault{"NotFound", FaultServer::kNotFound, kFailed, 0},
        Fault{"CloseEarly", FaultServer::kCloseEarly, kFailed, 0},
        Fault{"Truncated", FaultServer::kTruncated, kFinished, kFrames / 2},
        Fault{"ResetOnce", FaultServer::kResetOnce, kFinished, kWhole},
        Fault{"StallMidStream", FaultServer::kStallMidStream, kFinished, kFrames / 2},
        Fault{"StallBeforeAnswer", FaultServer::kStallBeforeAnswer, kFailed, 0},
        Fault{"Trickle", FaultServer::kTrickle, kFinished, kWhole},
        Fault{"Redirect", FaultServer::kRedirect, kFinished, kWhole},
        Fault{"Icy", FaultServer::kIcy, kFinished, kFrames},
        Fault{"StallThenWhole", FaultServer::kStallThenWhole, kFinished, kWhole},
        Fault{"StallThenWrongRange", FaultServer::kStallThenWrongRange, kFinished, kFrames / 2},
        Fault{"StallThenResendHalf", FaultServer::kStallThenResendHalf, kFinished, kFrames / 2},
        Fault{"LiveCloses", FaultServer::kLiveCloses, kFinished, kFrames}),
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
