// What a listener hears: three codecs played back to back by a host that plays whatever is
// ready and enqueues the next input as soon as it may. The reference WAV output then holds,
// sample for sample, what the ffmpeg program decodes from the files.
#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"

#include <oru/host/WavFileOutput.h>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace oru;

namespace {

std::string readAll(FILE* file) {
  std::string bytes;
  char chunk[65536];
  for (size_t got = 0; file != nullptr && (got = std::fread(chunk, 1, sizeof chunk, file)) > 0;) {
    bytes.append(chunk, got);
  }
  return bytes;
}

TEST(PlayerWavOutputTest, ThreeCodecsBackToBack_InOrderAndEqualToTheReferenceDecodeOfEach) {
  std::string const files[] = {test::fixture("tone48.flac"), test::fixture("tone48.mp3"),
                               test::fixture("tone48.ogg")};
  std::string const path = ::testing::TempDir() + "oruplay-" + std::to_string(getpid()) + ".wav";
  test::RecordingPlayerListener listener;
  {
    host::WavFileOutput output(path);
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    auto prepare = [&](int index, AudioPlayer::PlayBehavior behavior) {
      AudioPlayer::Resource resource;
      resource.uri = files[index];
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
  std::string decoded;
  for (std::string const& file : files) {
    FILE* pipe = popen(("ffmpeg -nostdin -v error -i '" + file + "' -f s16le -").c_str(), "r");
    decoded += readAll(pipe);
    pclose(pipe);
  }
  FILE* wav = std::fopen(path.c_str(), "rb");
  std::string const written = readAll(wav);
  std::fclose(wav);
  std::remove(path.c_str());
  ASSERT_GT(decoded.size(), 3u * 47000u * 4u) << "ffmpeg could not decode the files";
  EXPECT_TRUE(written.size() == 44 + decoded.size() &&
              written.compare(44, decoded.size(), decoded) == 0)
      << "the played samples differ from the reference decode";
}

}  // namespace
