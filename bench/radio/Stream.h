// The radio benchmark's stream, its server's schedule of drops and titles, and the run's time
// limits; times of audio are counted in output frames.
#pragma once

#include "BenchDevice.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace bench::radio {

using oru::AudioPlayer;

// The stream.
constexpr int kSourceRate = 44100;
constexpr int kOutputRate = bench::BenchDevice::kRate;
constexpr int kSamplesPerMp3Frame = 1152;
constexpr int kBitrate = 128000;
constexpr int64_t kBytesPerSecond = kBitrate / 8;
// 49 MP3 frames at 44.1 kHz last exactly 1.28 s, 61440 frames at 48 kHz: the rate converter
// is back at the same phase after each such unit.
constexpr int kMp3FramesPerUnit = 49;
constexpr int64_t kOutputFramesPerUnit = 61440;
static_assert(int64_t{kMp3FramesPerUnit} * kSamplesPerMp3Frame * kOutputRate ==
                  kOutputFramesPerUnit * kSourceRate,
              "a unit of MP3 frames is a whole number of output frames");
constexpr int kLoopUnits = 160;
constexpr int kLoopMp3Frames = kLoopUnits * kMp3FramesPerUnit;
constexpr int64_t kLoopOutputFrames = kLoopUnits * kOutputFramesPerUnit;
constexpr int kBlockFrames = 1280;
constexpr int64_t kLoopBlocks = kLoopOutputFrames / kBlockFrames;
static_assert(kLoopBlocks * kBlockFrames == kLoopOutputFrames, "the loop is whole blocks");

// The server: a drop every ten minutes of audio, a new title every 170 s of audio (so that drops
// fall at seventeen distances from a title change, one of them on it), an ICY block every 8192
// bytes of audio. Of three drops in turn, the first falls between two blocks, the second where a
// block is due, the third inside a block; and of two, the first is a clean close, the second a
// reset: the six combinations come round every six drops.
constexpr int64_t kDropBytes = 600 * kBytesPerSecond;
constexpr int64_t kTitleBytes = 170 * kBytesPerSecond;
constexpr int kMetaInt = 8192;
static_assert(kDropBytes % kMetaInt != 0, "the ten-minute mark falls between two blocks");
enum DropPlace { kBetweenBlocks, kAtBlock, kInBlock, kDropPlaces };

constexpr int64_t kMinute = int64_t{60} * kOutputRate;  // output frames
constexpr int64_t kHour = 60 * kMinute;
// A connection the server cannot hand its bytes to for this long counts as ended by the player.
constexpr int kSocketTimeoutS = 30;
// The sampler gives up waiting for the server to settle, or for the device to move, after this.
constexpr auto kSettleWait = std::chrono::seconds(30);
constexpr auto kStallWait = std::chrono::seconds(60);

// "H:MM:SS" of a count of output frames.
inline std::string hms(int64_t outputFrames) {
  int64_t const seconds = outputFrames / kOutputRate;
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
  return text;
}

}  // namespace bench::radio
