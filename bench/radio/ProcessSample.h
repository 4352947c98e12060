#pragma once

#include "RadioServer.h"

#include <cstddef>
#include <cstdint>

namespace bench::radio {

// What the process holds at a point of the run.
struct Sample {
  int64_t frames = 0;
  double wallS = 0;
  long residentKiB = 0;
  long peakKiB = 0;
  size_t heapBytes = 0;  // allocated and not freed, in every arena
  int threads = 0;
  int fds = 0;
  bool settled = true;  // taken between two drops, with one connection open on each side
};

// Takes a sample once `frames` have been played, `wallS` into the run. With a server, waits
// (up to kSettleWait) until it is between two drops. On the sampler's thread.
Sample sample(int64_t frames, double wallS, RadioServer* server);

}  // namespace bench::radio
