#include "decode/AVDemuxer.h"

#include "RecordingLogger.h"
#include "TrackHarness.h"

#include <gtest/gtest.h>

#include <set>

namespace oru {
namespace {

class AVDemuxerTest : public ::testing::Test {
 protected:
  std::unique_ptr<AVDemuxer> open(std::string const& file, std::string const& mimeType = "") {
    resource.uri = file.empty() ? "" : test::fixture(file);
    resource.mimeType = mimeType;
    return AVDemuxer::create(&resource, running, std::make_shared<AVWrapper>(), 1);
  }

  bool logged(std::string const& text) const {
    for (auto const& line : logger.lines()) {
      if (line.tag == "AVDemuxer" && line.message.find(text) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

  test::RecordingLogger logger;
  AudioPlayer::Resource resource;
  std::atomic<bool> running{true};
};

TEST_F(AVDemuxerTest, L16MimeParameters_SetRateAndChannelsOfTheRawInput) {
  auto demuxer = open("tone.s16be", "audio/L16; rate=22050; channels=1");
  ASSERT_TRUE(demuxer);
  EXPECT_EQ(demuxer->getStream()->codecpar->sample_rate, 22050);
  EXPECT_EQ(demuxer->getStream()->codecpar->ch_layout.nb_channels, 1);
  EXPECT_EQ(demuxer->getCodecName(), "pcm_s16be");
  EXPECT_TRUE(logged(": Found format s16be supporting audio/L16; rate=22050; channels=1"));
}

TEST_F(AVDemuxerTest, L16MimeParameters_OnlyTheFirstRateCounts) {
  auto demuxer = open("tone.s16be", "audio/L16;rate=48000;channels=2;rate=8000");
  ASSERT_TRUE(demuxer);
  EXPECT_EQ(demuxer->getStream()->codecpar->sample_rate, 48000);
  EXPECT_EQ(demuxer->getStream()->codecpar->ch_layout.nb_channels, 2);
}

TEST_F(AVDemuxerTest, L16WithoutParameters_KeepsTheRawDemuxersDefaults) {
  auto demuxer = open("tone.s16be", "audio/L16");
  ASSERT_TRUE(demuxer);
  EXPECT_EQ(demuxer->getStream()->codecpar->sample_rate, 44100);
  EXPECT_EQ(demuxer->getStream()->codecpar->ch_layout.nb_channels, 1);
}

TEST_F(AVDemuxerTest, UnknownMimeType_LetsFFmpegProbeTheContent) {
  auto demuxer = open("tone.flac", "audio/x-nothing-registered");
  ASSERT_TRUE(demuxer);
  EXPECT_EQ(demuxer->getCodecName(), "flac");
}

TEST_F(AVDemuxerTest, NoUriAndNoCallback_CannotBeOpened) {
  EXPECT_FALSE(open(""));
  EXPECT_TRUE(logged(": Could not open or parse input: "));
  EXPECT_FALSE(AVDemuxer::create(nullptr, running, std::make_shared<AVWrapper>(), 1));
  EXPECT_TRUE(logged(": No audio resource"));
}

TEST_F(AVDemuxerTest, Packets_CarryNanosecondTimesAndTheSameReusedPacket) {
  auto demuxer = open("tone.flac");
  ASSERT_TRUE(demuxer);
  std::shared_ptr<EncodedPacket> packet;
  ASSERT_EQ(demuxer->getDemuxedChunk(packet), 0);
  EncodedPacket* const first = packet.get();
  EXPECT_EQ(packet->timestampNs, 0);
  EXPECT_GT(packet->size, 0);
  demuxer->releaseChunk(packet);
  EXPECT_EQ(packet->data, nullptr);

  int64_t previous = 0;
  int packets = 1;
  while (demuxer->getDemuxedChunk(packet) == 0) {
    EXPECT_EQ(packet.get(), first);
    EXPECT_GT(packet->timestampNs, previous);
    previous = packet->timestampNs;
    demuxer->releaseChunk(packet);
    ++packets;
  }
  EXPECT_GT(packets, 10);
  EXPECT_NEAR(previous, 1500000000, 100000000) << "the last packet starts near the end";
}

TEST_F(AVDemuxerTest, PacketOfAnotherKind_IsRefused) {
  auto demuxer = open("tone.flac");
  ASSERT_TRUE(demuxer);
  std::shared_ptr<EncodedPacket> foreign = std::make_shared<EncodedPacket>();
  EXPECT_EQ(demuxer->getDemuxedChunk(foreign), 1);
}

TEST_F(AVDemuxerTest, StreamFilter_PassesStreamsZeroAndOneAndEndsAtTheThird) {
  auto demuxer = open("three-streams.mka");
  ASSERT_TRUE(demuxer);
  std::set<int> seen;
  std::shared_ptr<EncodedPacket> packet;
  int packets = 0;
  while (demuxer->getDemuxedChunk(packet) == 0) {
    seen.insert(static_cast<AVEncodedPacket*>(packet.get())->packet.stream_index);
    demuxer->releaseChunk(packet);
    ++packets;
  }
  EXPECT_EQ(seen, (std::set<int>{0, 1}));
  EXPECT_LT(packets, 20) << "the data ended at the first packet of stream 2";
}

TEST_F(AVDemuxerTest, Metadata_StreamTagsOverlayContainerTags) {
  auto demuxer = open("tagged.mka");
  ASSERT_TRUE(demuxer);
  auto const metadata = demuxer->getMetadata();
  EXPECT_EQ(metadata.at("title"), "Stream Title");
  EXPECT_EQ(metadata.at("ALBUM"), "The Album");
  EXPECT_FALSE(demuxer->updatedMetadata());
}

TEST_F(AVDemuxerTest, StoppedTrack_InterruptsTheOpen) {
  running = false;
  resource.uri = "http://127.0.0.1:9/unreachable";
  EXPECT_FALSE(AVDemuxer::create(&resource, running, std::make_shared<AVWrapper>(), 1));
  EXPECT_TRUE(logged(": Could not open or parse input: Immediate exit requested"));
}

}  // namespace
}  // namespace oru
