// What a listener hears: three codecs played back to back by a host that plays whatever is
// ready and enqueues the next input as soon as it may. The reference WAV output then holds,
// sample for sample, what the ffmpeg program decodes from the files.
#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"

#include <oru/host/WavFileOutput.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>

using namespace oru;

namespace {

TEST(PlayerWavOutputTest, ThreeCodecsBackToBack_InOrderAndEqualToTheReferenceDecodeOfEach) {
  std::string const files[] = {test::fixture("tone48.flac"), test::fixture("tone48.mp3"),
                               test::fixture("tone48.ogg")};
  std::string const path = ::testing::TempDir() + "oruplay-" + std::to_string(getpid()) + ".wav";
  test::RecordingPlayerListener listener;
  {
    host::WavFileOutput output(path);
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    auto prepare = [&](int index, AudioPlayer::PlayBehavior behavior) {
      AudioPlayer::Resource const resource{files[index], ""};
      player.prepare(behavior, resource, 0, -1, -1, test::NamedToken(std::to_string(index)), 1);
    };
    listener.hook = [&](std::string const& event) {
      if (event.rfind("trackReady ", 0) == 0) {
        player.play(test::NamedToken(event.substr(11, 1)), 0);
      } else if (event.rfind("playbackNearlyFinished ", 0) == 0 && event[23] != '2') {
        prepare(event[23] - '0' + 1, AudioPlayer::ENQUEUE);
      }
    };
    prepare(0, AudioPlayer::REPLACE_ALL);
    ASSERT_TRUE(listener.waitFor("playbackFinished 2"));
  }

  // At the device's own rate nothing is resampled or held back, and the decoders and the 16-bit
  // conversion are the ffmpeg program's: the file is the three decodes in a row, to the sample.
  // (A cross build allows one step per sample: see CMakeLists.txt.)
  std::string decoded;
  for (std::string const& file : files) {
    std::string const command = "ffmpeg -nostdin -v error -y -i '" + file + "' -f s16le ";
    ASSERT_EQ(std::system((command + "'" + path + ".raw'").c_str()), 0);
    decoded += test::readText(path + ".raw");
  }
  std::string const written = test::readText(path);
  std::remove(path.c_str());
  std::remove((path + ".raw").c_str());
  ASSERT_GT(decoded.size(), 3u * 47000u * 4u) << "ffmpeg could not decode the files";
  ASSERT_EQ(written.size(), 44 + decoded.size());
  size_t differing = 0;
  for (size_t at = 0; at < decoded.size(); at += 2) {
    int16_t played, reference;
    written.copy(reinterpret_cast<char*>(&played), 2, 44 + at);
    decoded.copy(reinterpret_cast<char*>(&reference), 2, at);
    differing += std::abs(played - reference) > ORUPLAY_REFERENCE_TOLERANCE;
  }
  EXPECT_EQ(differing, 0u) << "the played samples differ from the reference decode";
}

}  // namespace
