// The FFmpeg that the engine runs against, and what the demuxer makes of its inputs.
#include "decode/AVDemuxer.h"

#include "Fixtures.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <set>

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

std::unique_ptr<AVDemuxer> open(std::string const& file, std::string const& mimeType = "") {
  static std::atomic<bool> running{true};
  static AudioPlayer::Resource resource;  // borrowed by the demuxer
  resource.uri = test::fixture(file);
  resource.mimeType = mimeType;
  return AVDemuxer::create(&resource, running, std::make_shared<AVWrapper>(), 1);
}

TEST(AVDemuxerTest, MimeType_ChoosesTheInputFormatWithL16ParametersOrLetsFFmpegProbe) {
  struct {
    char const* file;
    char const* mimeType;
    int rate, channels;
  } const cases[] = {{"tone.s16be", "audio/L16; rate=22050; channels=1", 22050, 1},
                     {"tone.s16be", "audio/L16;rate=48000;channels=2;rate=8000", 48000, 2},
                     {"tone.s16be", "audio/L16", 44100, 1},  // the raw demuxer's defaults
                     {"tone.flac", "audio/x-nothing-registered", 44100, 2}};
  for (auto const& c : cases) {
    auto demuxer = open(c.file, c.mimeType);
    ASSERT_TRUE(demuxer) << c.mimeType;
    AVCodecParameters const* stream = demuxer->getStream()->codecpar;
    EXPECT_EQ(std::make_pair(stream->sample_rate, stream->ch_layout.nb_channels),
              std::make_pair(c.rate, c.channels))
        << c.mimeType;
  }
}

TEST(AVDemuxerTest, StreamFilter_PassesStreamsZeroAndOneAndEndsAtTheThird) {
  auto demuxer = open("three-streams.mka");
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

}  // namespace
