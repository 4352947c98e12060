#pragma once

#include <cstdint>

namespace oruplay {

// Standard input as a player's data source. A read waits for input or for cancel(), which the
// engine calls when the track stops, so that a blocked read never holds the player up.
// read() is called on the track's decoding thread; cancel() on the player's thread.
class StdinSource {
 public:
  StdinSource();
  ~StdinSource();

  StdinSource(StdinSource const&) = delete;
  StdinSource& operator=(StdinSource const&) = delete;

  // The engine's data and cancel callbacks; `opaque` is the StdinSource.
  static int read(void* opaque, uint8_t* buffer, int size);
  static void cancel(void* opaque);

 private:
  int mCancelPipe[2] = {-1, -1};
};

}  // namespace oruplay
