// A radio that runs for days: an endless live MP3 stream with ICY titles, from a server on
// 127.0.0.1 in this process that drops the connection every ten minutes of audio (every other
// time with a reset), played by a real AudioPlayer into a device that takes audio as fast as it
// comes, for --hours of audio (default 24). Prints, at ten minutes and at every hour of audio
// played, the resident memory, the heap in use, threads, open file descriptors, frames written,
// the server's connections and the titles sent and reported, and checks at the end that memory,
// threads and descriptors stay flat, that the audio is continuous across every drop and that every
// title change is reported. Exits with 1 when a check fails.
//
// The stream: a loop of 7840 MP3 frames (204.8 s, 128 kbit/s, 44.1 kHz stereo) made once by
// `lame` from a generated signal, served again and again. Each new connection continues at the
// live point, the byte where the previous one stopped, so the bytes the player receives are one
// unbroken stream.
//
// Continuity: 7840 frames of 1152 samples at 44.1 kHz are exactly 9830400 frames at 48 kHz, so
// once the decoder and the rate converter have seen the loop once, what reaches the device repeats
// exactly with the loop. The device hashes every block of 1280 frames; the blocks of the second
// pass are the reference, and from the third pass on every block must equal the block at the same
// place of the reference. A stretch of the stream played twice or skipped, by even one byte, moves
// everything after it off the blocks; bytes that do not belong to the audio (an ICY block left in
// it) change the blocks they reach.
#include "CheckingDevice.h"
#include "InputToken.h"
#include "LogTally.h"
#include "Mp3Loop.h"
#include "ProcessSample.h"
#include "Progress.h"
#include "RadioListener.h"
#include "RadioServer.h"
#include "Report.h"
#include "Stream.h"
#include "Units.h"

#include <oru/AudioPlayer.h>

#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace bench::radio;
using oru::AudioPlayer;

int usage() {
  std::fprintf(stderr,
               "usage: radio_benchmark [--hours H] [--log LEVEL]\n"
               "  --hours H     hours of audio to play (default 24; at least 0.25)\n"
               "  --log LEVEL   engine log lines at or above LEVEL to stderr (2-6; default 6:\n"
               "                warnings and errors are only counted)\n");
  return 2;
}

// Seconds of wall time since `start`.
double since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Plays the stream from `server` into `device` up to the last of `marks`, or until the track
// ended or stalled, sampling the process at each mark and printing a row for each. Waits on the
// main thread; the player's events and the device's writes come on the player's threads.
void play(RadioServer& server, Mp3Loop const& loop, CheckingDevice& device, RadioListener& listener,
          Progress& progress, std::vector<int64_t> const& marks,
          std::chrono::steady_clock::time_point startedAt, Outcome& run) {
  AudioPlayer player(&listener, &device, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
  listener.player = &player;
  AudioPlayer::Resource resource;
  resource.uri = server.url();
  player.prepare(AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, oru::tools::InputToken(0), 1);

  std::printf(
      "| audio played | wall s | resident KiB | heap in use, bytes | threads | fds | frames "
      "written | audio served | connections | titles sent | title changes reported | blocks "
      "differing |\n|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  for (int64_t const mark : marks) {
    run.how = progress.waitFor(mark, device);
    if (!run.how.empty()) {
      break;
    }
    Sample const taken = sample(device.framesTaken(), since(startedAt), &server);
    run.samples.push_back(taken);
    std::printf("| %s | %.0f | %ld | %zu | %d | %d | %lld | %s | %d | %d | %d | %lld |%s\n",
                hms(mark).c_str(), taken.wallS, taken.residentKiB, taken.heapBytes, taken.threads,
                taken.fds, static_cast<long long>(taken.frames),
                hms(loop.outputFrameOfByte(server.livePoint)).c_str(), server.connections.load(),
                server.titlesSent.load(), listener.changes.load(),
                static_cast<long long>(device.check.mismatched.load()),
                taken.settled ? "" : " (the server did not settle)");
    std::fflush(stdout);
  }
  // Stopping goes through the player's queue after every report posted so far: once it is
  // reported, every title the decoder met has reached the listener. A track that has ended or
  // stalled is not waited for; the player's destruction ends it.
  run.framesAtStop = device.framesTaken();
  run.endedByPlayerAtStop = server.endedByPlayer;
  run.titlesSentAtStop = server.titlesSent;
  if (run.how.empty()) {
    player.stop(false);
    run.how = listener.stopped.wait();
  }
}

}  // namespace

int main(int argc, char** argv) {
  double hours = 24;
  int logLevel = oru::LOG_FATAL;
  for (int i = 1; i < argc; ++i) {
    std::string const argument = argv[i];
    if (argument == "--hours" && i + 1 < argc) {
      hours = std::atof(argv[++i]);
    } else if (argument == "--log" && i + 1 < argc) {
      logLevel = std::atoi(argv[++i]);
    } else {
      return usage();
    }
  }
  if (!(hours >= 0.25) || logLevel < oru::LOG_DETAIL || logLevel > oru::LOG_FATAL) {
    return usage();
  }
  int64_t const totalFrames = std::llround(hours * static_cast<double>(kHour));
  // The memory reference: the end of the first hour, or of the first ten minutes in a run
  // shorter than two hours.
  int64_t const referenceFrames = totalFrames >= 2 * kHour ? kHour : 10 * kMinute;

  LogTally logger(static_cast<oru::LogLevel>(logLevel));
  AudioPlayer::setLogger(&logger);

  Mp3Loop loop;
  std::string error;
  loop.make(error);
  if (!error.empty()) {
    std::fprintf(stderr, "radio_benchmark: %s\n", error.c_str());
    return 1;
  }
  std::printf(
      "Stream: MP3, 128 kbit/s, 44.1 kHz stereo, a loop of %d frames (%.1f s, %zu bytes) made by "
      "lame; ICY block every %d bytes, a new title every %lld s of audio; a drop every %lld s of "
      "audio, every other one a reset. Device: 48 kHz 16-bit, as fast as it comes. Audio: %s.\n\n",
      kLoopMp3Frames, static_cast<double>(kLoopOutputFrames) / kOutputRate, loop.bytes().size(),
      kMetaInt, static_cast<long long>(kTitleBytes / kBytesPerSecond),
      static_cast<long long>(kDropBytes / kBytesPerSecond), hms(totalFrames).c_str());
  std::fflush(stdout);

  Outcome run;
  run.before = sample(0, 0, nullptr);
  auto const startedAt = std::chrono::steady_clock::now();

  RadioServer server(loop);
  server.start(error);
  if (!error.empty()) {
    std::fprintf(stderr, "radio_benchmark: %s\n", error.c_str());
    return 1;
  }

  std::vector<int64_t> marks{10 * kMinute};
  for (int64_t mark = kHour; mark < totalFrames; mark += kHour) {
    marks.push_back(mark);
  }
  marks.push_back(totalFrames);
  run.samples.reserve(marks.size());

  bench::Signal ending;
  Progress progress;
  CheckingDevice device(ending, progress);
  RadioListener listener(ending, progress);
  play(server, loop, device, listener, progress, marks, startedAt, run);
  server.stop();
  run.wallS = since(startedAt);
  run.after = sample(0, run.wallS, nullptr);

  std::vector<std::string> failures;
  if (run.how != "stopped") {
    failures.push_back("the stream did not play for " + hms(totalFrames) + ": it " + run.how +
                       " after " + hms(run.framesAtStop));
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  double const cpuS = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                      static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) /
                          oru::host::kUsPerSecond;
  std::printf(
      "\nPlayed %s of audio in %.0f s of wall time (%.0f times real time), %.0f s of CPU time "
      "(the whole process: player, server and checks; the encoder excluded).\n",
      hms(run.framesAtStop).c_str(), run.wallS,
      static_cast<double>(run.framesAtStop) / kOutputRate / run.wallS, cpuS);
  checkResources(run, referenceFrames, failures);
  checkConnections(server, run, failures);
  checkContinuity(loop, device.check, run, failures);
  checkTitles(loop, listener, server, run, failures);
  std::printf("Engine log: %s.\n", logger.summary().c_str());

  if (failures.empty()) {
    std::printf("\nEvery check passed.\n");
    return 0;
  }
  std::printf("\n");
  for (std::string const& failure : failures) {
    std::printf("FAILED: %s\n", failure.c_str());
  }
  return 1;
}
