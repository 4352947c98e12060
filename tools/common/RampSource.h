#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace oru::tools {

// A host data source: a 32-bit float stereo WAV stream whose samples say which frame they are
// (left: the frame index modulo 2^20, right: the index divided by 2^20), so that whatever a
// device presents, after any resampling, tells which source position is heard then. It can
// hold its data at a frame, as a stalled network source would. Read on the track's decoding
// thread; held and released from any thread; must outlive the track.
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
  // The resource's cancel callback: a held read ends the data.
  static void cancel(void* source);

  // Gives no frame from `frame` on until release(); waitUntilHeld() returns once it is there.
  void holdAt(int64_t frame);
  void waitUntilHeld();
  void release();

 private:
  int fill(uint8_t* buffer, int size);
  // Blocks while the data is held at `frame`; false once cancelled.
  bool passHold(int64_t frame);

  std::mutex mMutex;  // guards the hold
  std::condition_variable mChanged;
  int64_t mHoldAt = -1;  // -1: not held
  bool mHeld = false;
  bool mCancelled = false;

  std::string mHeader;
  int64_t const mFrames;
  int64_t mOffset = 0;  // bytes given so far, header included
};

}  // namespace oru::tools
