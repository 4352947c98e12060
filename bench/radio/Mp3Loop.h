#pragma once

#include "Stream.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace bench::radio {

// The loop of MP3 frames, and where each frame lies in the endless stream made of it. Made once
// on the main thread before the server starts; then read by any thread.
class Mp3Loop {
 public:
  // Writes the signal to a temporary file, encodes it with lame and keeps the first
  // kLoopMp3Frames frames. Empty `error` on success.
  void make(std::string& error);

  std::vector<uint8_t> const& bytes() const { return mBytes; }

  // Byte of the endless stream at which MP3 frame `frame` (counted from its start) begins.
  int64_t byteOfFrame(int64_t frame) const {
    return frame / kLoopMp3Frames * static_cast<int64_t>(mBytes.size()) +
           mStarts[static_cast<size_t>(frame % kLoopMp3Frames)];
  }
  // MP3 frame of the endless stream that holds byte `byte`.
  int64_t frameOfByte(int64_t byte) const {
    int64_t const size = static_cast<int64_t>(mBytes.size());
    auto const next = std::upper_bound(mStarts.begin(), mStarts.end() - 1, byte % size);
    return byte / size * kLoopMp3Frames + (next - mStarts.begin()) - 1;
  }
  // Output frame at which the audio of stream byte `byte` plays, to within an MP3 frame.
  int64_t outputFrameOfByte(int64_t byte) const {
    return frameOfByte(byte) * kSamplesPerMp3Frame * kOutputRate / kSourceRate;
  }
  // Stream bytes whose audio lies before output frame `frame`, to within an MP3 frame.
  int64_t bytesBefore(int64_t frame) const {
    return byteOfFrame(frame * kSourceRate / kOutputRate / kSamplesPerMp3Frame);
  }

 private:
  std::vector<uint8_t> mBytes;
  std::vector<int64_t> mStarts;  // kLoopMp3Frames + 1 entries, the last one the loop's size
};

}  // namespace bench::radio
