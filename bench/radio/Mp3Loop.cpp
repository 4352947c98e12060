#include "Mp3Loop.h"

#include "WavHeader.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace bench::radio {
namespace {

// Writes a WAV file of `samples` frames, 16-bit stereo at kSourceRate: music-like, and never
// the same twice within the loop, three voices on notes that change every quarter second,
// different on each side, over a little noise.
void writeSignal(FILE* file, int64_t samples) {
  constexpr int kChannels = 2;
  auto const dataBytes = static_cast<uint32_t>(samples * kChannels * sizeof(int16_t));
  auto const header = oru::host::WavHeader::make(oru::host::WavHeader::kPcm, kChannels, kSourceRate,
                                                 sizeof(int16_t), dataBytes);
  std::fwrite(header.data(), 1, header.size(), file);

  uint32_t seed = 20261124;
  auto random = [&seed] {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
  };
  constexpr double kTwoPi = 6.283185307179586;
  double phase[2][3] = {};
  double step[2][3] = {};
  std::vector<int16_t> chunk;
  chunk.reserve(2 * 4096);
  for (int64_t i = 0; i < samples; ++i) {
    if (i % (kSourceRate / 4) == 0) {
      for (auto& side : step) {
        for (double& voice : side) {
          voice = kTwoPi * 110.0 * std::pow(2.0, static_cast<double>(random() % 36) / 12.0) /
                  kSourceRate;
        }
      }
    }
    for (int channel = 0; channel < 2; ++channel) {
      double value = 0.05 * (static_cast<double>(random() % 65536) / 32768.0 - 1.0);
      for (int voice = 0; voice < 3; ++voice) {
        phase[channel][voice] = std::fmod(phase[channel][voice] + step[channel][voice], kTwoPi);
        value += 0.2 / (voice + 1) * std::sin(phase[channel][voice]);
      }
      chunk.push_back(static_cast<int16_t>(std::lround(value * 32767.0)));
    }
    if (chunk.size() == chunk.capacity() || i + 1 == samples) {
      std::fwrite(chunk.data(), sizeof(int16_t), chunk.size(), file);
      chunk.clear();
    }
  }
}

}  // namespace

void Mp3Loop::make(std::string& error) {
  char path[] = "/tmp/oru-radio-XXXXXX.wav";
  int const fd = mkstemps(path, 4);
  FILE* file = fd < 0 ? nullptr : fdopen(fd, "wb");
  if (file == nullptr) {
    error = "cannot make a temporary file for the signal";
    return;
  }
  // Some frames more than the loop: the encoder's delay and its last frames are not used.
  writeSignal(file, int64_t{kLoopMp3Frames + 4} * kSamplesPerMp3Frame);
  bool const written = std::fflush(file) == 0 && std::ferror(file) == 0;
  std::fclose(file);
  // CBR without the information frame that lame puts first by default (-t): concatenated frames
  // are a valid stream, and the loop holds nothing but audio frames.
  std::string const command =
      "lame --quiet -m j -b 128 --cbr -t --resample 44.1 " + std::string(path) + " -";
  FILE* encoder = written ? popen(command.c_str(), "r") : nullptr;
  if (encoder != nullptr) {
    uint8_t buffer[65536];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, encoder)) > 0;) {
      mBytes.insert(mBytes.end(), buffer, buffer + got);
    }
  }
  int const status = encoder != nullptr ? pclose(encoder) : -1;
  unlink(path);
  if (status != 0) {
    error = "`" + command + "` failed (is lame installed? scripts/install-deps.sh)";
    return;
  }
  // MPEG-1 Layer III, 128 kbit/s, 44.1 kHz: 417 bytes, 418 with padding.
  size_t at = 0;
  while (mStarts.size() < static_cast<size_t>(kLoopMp3Frames) && at + 4 <= mBytes.size()) {
    if (mBytes[at] != 0xff || (mBytes[at + 1] & 0xfe) != 0xfa || (mBytes[at + 2] & 0xfc) != 0x90) {
      error = "lame's output is not 128 kbit/s 44.1 kHz MP3 frames at byte " + std::to_string(at);
      return;
    }
    mStarts.push_back(static_cast<int64_t>(at));
    at += 417 + ((mBytes[at + 2] >> 1) & 1);
  }
  if (mStarts.size() < static_cast<size_t>(kLoopMp3Frames) || at > mBytes.size()) {
    error = "lame made " + std::to_string(mStarts.size()) + " frames, fewer than the loop's " +
            std::to_string(kLoopMp3Frames);
    return;
  }
  mBytes.resize(at);
  mStarts.push_back(static_cast<int64_t>(at));
}

}  // namespace bench::radio
