#pragma once

#include "LoopCheck.h"
#include "Mp3Loop.h"
#include "ProcessSample.h"
#include "RadioListener.h"
#include "RadioServer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace bench::radio {

// What a run leaves to check, once the player and the server have ended.
struct Outcome {
  std::string how;  // "stopped" when it played for as long as asked
  int64_t framesAtStop = 0;
  int endedByPlayerAtStop = 0;  // the server's count when the player was stopped
  int titlesSentAtStop = 0;     // and its count of titles sent
  double wallS = 0;
  Sample before;                // before the server and the player
  std::vector<Sample> samples;  // at every mark
  Sample after;                 // after them
};

// Each check prints what it found and adds a line to `failures` for each goal missed. On the
// main thread, once the player and the server have ended.

// Resident memory from `referenceFrames` on; threads and descriptors, steady and given back.
void checkResources(Outcome const& run, int64_t referenceFrames,
                    std::vector<std::string>& failures);
// Every connection ended by the server, at a drop.
void checkConnections(RadioServer const& server, Outcome const& run,
                      std::vector<std::string>& failures);
// The audio repeats exactly with the loop, across every drop.
void checkContinuity(Mp3Loop const& loop, LoopCheck const& check, Outcome const& run,
                     std::vector<std::string>& failures);
// Every title played was reported, in order, and none that was not sent.
void checkTitles(Mp3Loop const& loop, RadioListener const& listener, RadioServer const& server,
                 Outcome const& run, std::vector<std::string>& failures);

}  // namespace bench::radio
