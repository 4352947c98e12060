#pragma once

#include "Stream.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

namespace bench::radio {

// Hashes every block of kBlockFrames frames (16-bit stereo) and compares each pass of the loop
// from the third on with the second. Render thread; the atomic counts are read by any thread,
// the rest once the render thread has ended.
class LoopCheck {
 public:
  LoopCheck() : mReference(static_cast<size_t>(kLoopBlocks)) {}

  void add(uint8_t const* data, unsigned frames) {
    for (unsigned i = 0; i < frames; ++i) {
      uint32_t frame;
      std::memcpy(&frame, data + size_t{4} * i, sizeof frame);
      mHash = (mHash ^ frame) * kFnvPrime;
      if (++mInBlock == kBlockFrames) {
        endBlock();
      }
    }
  }

  struct Stretch {
    int64_t firstBlock = 0;
    int64_t blocks = 0;
  };
  static constexpr size_t kStretchesKept = 8;

  std::atomic<int64_t> compared{0};
  std::atomic<int64_t> mismatched{0};
  std::array<Stretch, kStretchesKept> stretches{};  // the first mismatched stretches
  int64_t stretchCount = 0;

 private:
  static constexpr uint64_t kFnvOffset = 14695981039346656037ull;
  static constexpr uint64_t kFnvPrime = 1099511628211ull;

  void endBlock() {
    int64_t const pass = mBlock / kLoopBlocks;
    size_t const slot = static_cast<size_t>(mBlock % kLoopBlocks);
    if (pass == 1) {
      mReference[slot] = mHash;
    } else if (pass >= 2) {
      ++compared;
      bool const same = mReference[slot] == mHash;
      if (!same) {
        ++mismatched;
        stretchCount += mInStretch ? 0 : 1;
        size_t const kept = static_cast<size_t>(stretchCount - 1);
        if (kept < kStretchesKept) {
          stretches[kept].firstBlock = mInStretch ? stretches[kept].firstBlock : mBlock;
          ++stretches[kept].blocks;
        }
      }
      mInStretch = !same;
    }
    ++mBlock;
    mInBlock = 0;
    mHash = kFnvOffset;
  }

  std::vector<uint64_t> mReference;
  int64_t mBlock = 0;
  int mInBlock = 0;
  uint64_t mHash = kFnvOffset;
  bool mInStretch = false;
};

}  // namespace bench::radio
