#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace oru::host {

// The 44-byte header of a WAV file, little-endian throughout: a RIFF chunk of form "WAVE" that
// holds a 16-byte "fmt " chunk and then the "data" chunk, whose header ends this one. Sizes past
// 4 GiB cannot be expressed: a size field saturates at 0xFFFFFFFF.
struct WavHeader {
  // Where each field lies.
  static constexpr size_t kRiffId = 0;      // "RIFF"
  static constexpr size_t kRiffSize = 4;    // the bytes after this field
  static constexpr size_t kWaveId = 8;      // "WAVE"
  static constexpr size_t kFmtId = 12;      // "fmt "
  static constexpr size_t kFmtSize = 16;    // the fmt chunk's bytes after this field
  static constexpr size_t kFormatTag = 20;  // kPcm or kFloat
  static constexpr size_t kChannels = 22;
  static constexpr size_t kRate = 24;  // frames per second
  static constexpr size_t kBytesPerSecond = 28;
  static constexpr size_t kFrameBytes = 32;  // bytes of one frame, all channels
  static constexpr size_t kBitsPerSample = 34;
  static constexpr size_t kDataId = 36;    // "data"
  static constexpr size_t kDataSize = 40;  // the samples' bytes
  static constexpr size_t kBytes = 44;     // the samples follow
  static constexpr uint32_t kFmtChunkBytes = kDataId - kFormatTag;
  // The RIFF chunk's bytes besides the samples.
  static constexpr uint32_t kRiffBytesBeforeData = kBytes - kWaveId;

  static constexpr uint16_t kPcm = 1;
  static constexpr uint16_t kFloat = 3;

  // The header of `dataBytes` of samples, `bytesPerSample` bytes each, of `channels` channels
  // at `rate`.
  static std::array<uint8_t, kBytes> make(uint16_t formatTag, int channels, uint32_t rate,
                                          int bytesPerSample, uint64_t dataBytes) {
    std::array<uint8_t, kBytes> header{};
    auto const frameBytes = static_cast<uint32_t>(bytesPerSample * channels);
    uint64_t const largest = UINT32_MAX;
    std::memcpy(&header[kRiffId], "RIFF", 4);
    put(header, kRiffSize, std::min(dataBytes + kRiffBytesBeforeData, largest), 4);
    std::memcpy(&header[kWaveId], "WAVE", 4);
    std::memcpy(&header[kFmtId], "fmt ", 4);
    put(header, kFmtSize, kFmtChunkBytes, 4);
    put(header, kFormatTag, formatTag, 2);
    put(header, kChannels, static_cast<uint32_t>(channels), 2);
    put(header, kRate, rate, 4);
    put(header, kBytesPerSecond, rate * frameBytes, 4);
    put(header, kFrameBytes, frameBytes, 2);
    put(header, kBitsPerSample, static_cast<uint32_t>(bytesPerSample * 8), 2);
    std::memcpy(&header[kDataId], "data", 4);
    put(header, kDataSize, std::min(dataBytes, largest), 4);
    return header;
  }

 private:
  static void put(std::array<uint8_t, kBytes>& header, size_t at, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      header[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (8 * i));
    }
  }
};

}  // namespace oru::host
