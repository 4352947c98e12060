#pragma once

#include <cstdint>
#include <string>

namespace syncsim {

// A host data source: a 32-bit float stereo WAV stream whose samples say which frame they are
// (left: the frame index modulo 2^20, right: the index divided by 2^20), so that whatever a
// device presents, after any resampling, tells which source position is heard then. Read on
// the track's decoding thread only; must outlive the track.
class RampSource {
 public:
  static constexpr int kRate = 48000;
  static constexpr int kChannels = 2;
  static constexpr int64_t kLowWrap = int64_t{1} << 20;

  explicit RampSource(int64_t frames);

  // The source position that a presented frame encodes; false when the frame straddles a wrap
  // of the low part, which interpolation makes unreadable.
  static bool position(float const* frame, double* position);

  // The resource's data callback: fills `buffer` with up to `size` bytes, then ends the data.
  static int read(void* source, uint8_t* buffer, int size);

 private:
  int fill(uint8_t* buffer, int size);

  std::string mHeader;
  int64_t const mFrames;
  int64_t mOffset = 0;  // bytes given so far, header included
};

}  // namespace syncsim
