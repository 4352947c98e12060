#pragma once

#include <oru/Decoder.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace oru::test {

// Interleaved PCM whose samples encode their frame index (sample = frame x channels + channel,
// wrapped to the format), so that a lost, repeated or reordered frame shows in the output.
struct Ramp {
  AudioFormat format = PCM_S16;
  int channels = 2;
  int rate = 48000;

  int frameBytes() const { return bytesPerSample(format) * channels; }
  std::vector<uint8_t> frames(int64_t first, unsigned count) const {
    std::vector<uint8_t> bytes(size_t{count} * frameBytes());
    for (size_t s = 0; s < size_t{count} * channels; ++s) {
      int64_t const value = first * channels + static_cast<int64_t>(s);
      int16_t const s16 = static_cast<int16_t>(value % 32768);
      int32_t const s32 = static_cast<int32_t>(value);
      float const f32 = static_cast<float>(value);
      void const* const samples[] = {&s16, &s32, &f32};  // indexed by the format
      std::memcpy(&bytes[s * bytesPerSample(format)], samples[format], bytesPerSample(format));
    }
    return bytes;
  }
};

}  // namespace oru::test
