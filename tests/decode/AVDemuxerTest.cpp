// The FFmpeg that the engine runs against, and what the demuxer makes of its inputs.
#include "decode/AVDemuxer.h"

#include "Fixtures.h"
#include "Recorder.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <set>
#include <tuple>

using namespace oru;

namespace {

TEST(FFmpegBuildTest, IsTheProjectsOwnWithOruVersionOneOnBothContexts) {
  int min = 0, max = 0;
  AVWrapper().getORUVersions(&min, &max);
  EXPECT_EQ(std::make_pair(min, max), std::make_pair(1, 1));
  for (void const* symbol : {reinterpret_cast<void const*>(&avformat_get_class),
                             reinterpret_cast<void const*>(&avcodec_get_class)}) {
    Dl_info info{};
    ASSERT_NE(dladdr(symbol, &info), 0);
    EXPECT_EQ(std::string(info.dli_fname).rfind(ORUPLAY_FFMPEG_LIBDIR, 0), 0u) << info.dli_fname;
  }
  EXPECT_NE(std::string(avformat_configuration()).find("--build-suffix=_oru"), std::string::npos);
}

TEST(MimeTypeTest, Parse_TakesTheTypeAndTheFirstNonZeroRateAndChannelCount) {
  struct {
    char const *row, *mimeType, *type;
    int rate, channels;
  } const rows[] = {
      {"no parameters", "audio/L16", "audio/L16", 0, 0},
      {"white space after ;", "audio/L16; rate=22050;\tchannels=1", "audio/L16", 22050, 1},
      {"first rate wins", "audio/L16;channels=6;rate=8000;rate=48000", "audio/L16", 8000, 6},
      {"a zero counts as none", "audio/L16;rate=0;rate=8000;channels=0", "audio/L16", 8000, 0},
      {"names are case-sensitive", "audio/L16;Rate=8000;CHANNELS=2", "audio/L16", 0, 0},
      {"blank after = only", "audio/L16;rate =8000;channels= 2", "audio/L16", 0, 2},
      {"bad numbers", "audio/L16;rate=fast;channels=", "audio/L16", 0, 0},
      {"text after the number", "audio/L16;rate=44100Hz;x=1", "audio/L16", 44100, 0},
      {"an empty parameter", "audio/L16;;channels=2", "audio/L16", 0, 2},
      {"nothing", "", "", 0, 0}};
  for (auto const& r : rows) {
    MimeType const parsed = parseMimeType(r.mimeType);
    EXPECT_EQ(std::tie(parsed.type, parsed.rate, parsed.channels),
              std::make_tuple(std::string(r.type), r.rate, r.channels))
        << r.row;
  }
}

TEST(AVDemuxerTest, StreamFilter_PassesStreamsZeroAndOneAndEndsAtTheThird) {
  std::atomic<bool> running{true};
  AudioPlayer::Resource resource{test::fixture("three-streams.mka"), ""};
  auto demuxer = AVDemuxer::create(&resource, running, std::make_shared<AVWrapper>(), 1);
  ASSERT_TRUE(demuxer);
  std::set<int> seen;
  std::shared_ptr<EncodedPacket> packet;
  int packets = 0;
  for (; demuxer->getDemuxedChunk(packet) == 0; ++packets) {
    seen.insert(static_cast<AVEncodedPacket*>(packet.get())->packet.stream_index);
    demuxer->releaseChunk(packet);
  }
  EXPECT_EQ(seen, (std::set<int>{0, 1}));
  EXPECT_LT(packets, 20) << "the data ended at the first packet of stream 2";
}

// What the demuxer logs of an input it cannot use reads back, through the public reader, as the
// kind of trouble and its cause; FFmpeg's first reconnection attempt counts once.
TEST(InputTroubleTest, TheDemuxersOwnLinesReadBackAsTheirKindAndCause) {
  struct Row {
    std::string input;
    InputTrouble::Kind kind;
    std::string reason;
  } const rows[] = {
      {"no-such.flac", InputTrouble::kCannotOpen, "No such file or directory"},
      {"not-audio.txt", InputTrouble::kCannotOpen, "Invalid data found when processing input"},
      {"", InputTrouble::kFailed, "No audio resource"}};
  struct Reader : LoggingDelegate, test::Recorder<InputTrouble> {
    void log(LogLevel level, char const* tag, char const* message) override {
      if (InputTrouble trouble = inputTroubleOf(level, tag, message); trouble.kind) add(trouble);
    }
  } reader;
  LogMessage::setLogger(&reader);
  std::atomic<bool> running{true};
  for (Row const& row : rows) {
    AudioPlayer::Resource resource{row.input.empty() ? "" : test::fixture(row.input), ""};
    EXPECT_FALSE(AVDemuxer::create(row.input.empty() ? nullptr : &resource, running,
                                   std::make_shared<AVWrapper>(), 1));
  }
  for (char const* line : {"Will reconnect at 5 in 0 second(s), error=End of file.",
                           "Will reconnect at 5 in 1 second(s), error=End of file."}) {
    reader.log(LOG_WARNING, "Libav", line);
  }
  LogMessage::setLogger(nullptr);
  std::vector<InputTrouble> const read = reader.entries();
  ASSERT_EQ(read.size(), std::size(rows) + 1);
  for (size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ(read[i].kind, rows[i].kind) << rows[i].input;
    EXPECT_EQ(read[i].reason, rows[i].reason) << rows[i].input;
  }
  EXPECT_EQ(read.back().kind, InputTrouble::kReconnecting);
}

}  // namespace
