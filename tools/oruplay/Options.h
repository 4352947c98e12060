#pragma once

#include <oru/AudioPlayer.h>
#include <oru/Log.h>

#include <cstdint>
#include <string>
#include <vector>

namespace oruplay {

// What the command line asks oruplay to do.
struct Options {
  std::string output;  // empty: the sound card
  int rate = 48000;
  oru::AudioFormat format = oru::PCM_S16;
  unsigned startMs = 0;
  int64_t atNs = 0;  // when to start on the wall clock, ns since the epoch; 0: at once
  bool realtime = false;
  int logLevel = oru::LOG_FATAL;  // the engine's lines are for those who ask for them
  bool quiet = false;
  std::vector<std::string> inputs;
};

enum class Command { Play, Help, UsageError };

extern char const kUsage[];

// Reads the command line into `options`. `nowNs` is the wall clock's time, which a time of
// day given to --at is the next occurrence of. On UsageError, `error` says what is wrong. Not
// reentrant: getopt_long keeps its state in globals, which this resets on each call.
Command parseOptions(int argc, char** argv, Options* options, std::string* error, int64_t nowNs);

bool isCueSheet(std::string const& input);

}  // namespace oruplay
