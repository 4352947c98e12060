// What a listener would hear: three codecs played back to back into the reference WAV output
// must hold, sample for sample, what the ffmpeg program decodes from the same files.
#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"

#include <oru/AudioPlayer.h>
#include <oru/host/WavFileOutput.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace oru {
namespace {

std::vector<int16_t> samplesOf(std::vector<uint8_t> const& bytes) {
  std::vector<int16_t> samples(bytes.size() / 2);
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return samples;
}

// The ffmpeg program's decode of `file` as 48 kHz stereo 16-bit samples.
std::vector<int16_t> referenceDecode(std::string const& file) {
  std::string const command =
      "ffmpeg -nostdin -v error -i '" + file + "' -f s16le -ar 48000 -ac 2 -";
  FILE* pipe = popen(command.c_str(), "r");
  std::vector<uint8_t> bytes;
  if (pipe != nullptr) {
    uint8_t chunk[65536];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) {
      bytes.insert(bytes.end(), chunk, chunk + got);
    }
    pclose(pipe);
  }
  return samplesOf(bytes);
}

// The samples of a WAV file written by WavFileOutput (a 44-byte header).
std::vector<int16_t> wavSamples(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  return bytes.size() < 44 ? std::vector<int16_t>{}
                           : samplesOf(std::vector<uint8_t>(bytes.begin() + 44, bytes.end()));
}

TEST(PlayerWavOutputTest, ThreeCodecsBackToBack_EqualTheReferenceDecodeOfEachFile) {
  std::vector<std::string> const files{test::fixture("tone48.flac"), test::fixture("tone48.mp3"),
                                       test::fixture("tone48.ogg")};
  std::string const path = ::testing::TempDir() + "oruplay-three-codecs.wav";
  {
    test::RecordingPlayerListener listener;
    host::WavFileOutput output(path);
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    listener.setHook([&](std::string const& event) {
      std::istringstream words(event);
      std::string name;
      std::string token;
      words >> name >> token;
      if (name == "trackReady") {
        player.play(test::NamedToken(token), 0);
      } else if (name == "playbackNearlyFinished" && token != "2") {
        AudioPlayer::Resource next;
        int const index = std::stoi(token) + 1;
        next.uri = files[static_cast<size_t>(index)];
        player.prepare(AudioPlayer::ENQUEUE, next, 0, -1, -1,
                       test::NamedToken(std::to_string(index)), 1);
      }
    });
    AudioPlayer::Resource first;
    first.uri = files[0];
    player.prepare(AudioPlayer::REPLACE_ALL, first, 0, -1, -1, test::NamedToken("0"), 1);
    ASSERT_TRUE(listener.waitFor("playbackFinished 2"));
  }

  // At the device's own rate nothing is resampled, so nothing is held back at the end of a
  // track: the file is the three decodes one after the other, to the sample.
  std::vector<int16_t> expected;
  for (std::string const& file : files) {
    std::vector<int16_t> const decoded = referenceDecode(file);
    ASSERT_GT(decoded.size(), 90000u) << "ffmpeg could not decode " << file;
    expected.insert(expected.end(), decoded.begin(), decoded.end());
  }
  std::vector<int16_t> const written = wavSamples(path);
  ASSERT_EQ(written.size(), expected.size());
  // Same decoders and the same conversion to 16 bits as the ffmpeg program: no tolerance.
  EXPECT_TRUE(written == expected) << "the played samples differ from the reference decode";
  std::remove(path.c_str());
}

}  // namespace
}  // namespace oru
