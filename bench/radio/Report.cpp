#include "Report.h"

#include <algorithm>
#include <cstdio>

namespace bench::radio {

void checkResources(Outcome const& run, int64_t referenceFrames,
                    std::vector<std::string>& failures) {
  Sample const* reference = nullptr;
  Sample const* first = run.samples.empty() ? nullptr : &run.samples.front();
  long highest = 0;
  bool countsSteady = true;
  for (Sample const& taken : run.samples) {
    if (reference == nullptr && taken.frames >= referenceFrames) {
      reference = &taken;
    }
    if (reference != nullptr) {
      highest = std::max(highest, taken.residentKiB);
    }
    countsSteady =
        countsSteady && taken.settled && taken.threads == first->threads && taken.fds == first->fds;
  }
  if (reference == nullptr || reference == &run.samples.back()) {
    failures.push_back("too few samples to see memory growth");
  } else {
    long const growth = highest - reference->residentKiB;
    std::printf(
        "Resident memory: %+ld KiB from %s (%ld KiB) to the highest sample after it; peak "
        "(VmHWM) %ld KiB then, %ld KiB at the end. Heap in use: %zu bytes then, %zu at the "
        "end.\n",
        growth, hms(referenceFrames).c_str(), reference->residentKiB, reference->peakKiB,
        run.samples.back().peakKiB, reference->heapBytes, run.samples.back().heapBytes);
    if (growth >= 64) {
      failures.push_back("resident memory grew by " + std::to_string(growth) + " KiB after " +
                         hms(referenceFrames) + " (the goal is under 64 KiB)");
    }
  }
  if (first != nullptr) {
    std::printf(
        "Threads and descriptors: %d and %d at 0:10:00 and at every sample after it: %s. Before "
        "the server and the player: %d and %d; after them: %d and %d.\n",
        first->threads, first->fds, countsSteady ? "the same" : "NOT the same", run.before.threads,
        run.before.fds, run.after.threads, run.after.fds);
    if (!countsSteady) {
      failures.push_back("the threads or descriptors changed between samples");
    }
  }
  if (run.after.threads != run.before.threads || run.after.fds != run.before.fds) {
    failures.push_back("threads or descriptors left behind after the player and the server ended");
  }
}

void checkConnections(RadioServer const& server, Outcome const& run,
                      std::vector<std::string>& failures) {
  std::printf(
      "Connections: %d (drops: %d, %d of them resets, %d between title blocks, %d where a block "
      "was due, %d inside a block; connections the player ended before the stop: %d; resets "
      "before every byte had left: %d).\n",
      server.connections.load(), server.drops.load(), server.resets.load(),
      server.dropsAt[kBetweenBlocks].load(), server.dropsAt[kAtBlock].load(),
      server.dropsAt[kInBlock].load(), run.endedByPlayerAtStop, server.resetsEarly.load());
  if (run.endedByPlayerAtStop != 0) {
    failures.push_back("the player ended " + std::to_string(run.endedByPlayerAtStop) +
                       " connections itself, which the server did not drop");
  }
  if (server.resetsEarly != 0) {
    failures.push_back(
        "the server reset a connection before every byte had left (a fault of the benchmark)");
  }
}

void checkContinuity(Mp3Loop const& loop, LoopCheck const& check, Outcome const& run,
                     std::vector<std::string>& failures) {
  int64_t const firstCheckedFrame = 2 * kLoopOutputFrames;
  int64_t dropsChecked = 0;
  for (int64_t drop = kDropBytes; loop.outputFrameOfByte(drop) < run.framesAtStop;
       drop += kDropBytes) {
    dropsChecked += loop.outputFrameOfByte(drop) > firstCheckedFrame ? 1 : 0;
  }
  std::printf(
      "Continuity: %lld blocks of %d frames compared with the loop's second pass, from %s on, "
      "across %lld drops; %lld differ.\n",
      static_cast<long long>(check.compared.load()), kBlockFrames, hms(firstCheckedFrame).c_str(),
      static_cast<long long>(dropsChecked), static_cast<long long>(check.mismatched.load()));
  for (size_t i = 0;
       i < std::min<size_t>(static_cast<size_t>(check.stretchCount), LoopCheck::kStretchesKept);
       ++i) {
    LoopCheck::Stretch const& stretch = check.stretches[i];
    int64_t const at = stretch.firstBlock * kBlockFrames;
    int64_t const drop =
        std::max<int64_t>(1, (loop.bytesBefore(at) + kDropBytes / 2) / kDropBytes) * kDropBytes;
    int64_t const dropAt = loop.outputFrameOfByte(drop);
    std::printf(
        "  differing from %s (output frame %lld) for %lld blocks; the nearest drop, #%lld, plays "
        "at %s (frame %lld, %+.3f s away)\n",
        hms(at).c_str(), static_cast<long long>(at), static_cast<long long>(stretch.blocks),
        static_cast<long long>(drop / kDropBytes), hms(dropAt).c_str(),
        static_cast<long long>(dropAt), static_cast<double>(at - dropAt) / kOutputRate);
  }
  if (check.compared == 0) {
    failures.push_back("no audio was compared: the run is shorter than three passes of the loop");
  }
  if (check.mismatched != 0) {
    failures.push_back(std::to_string(check.stretchCount) + " stretches of audio (" +
                       std::to_string(check.mismatched.load()) +
                       " blocks) differ from the stream: audio was repeated, skipped or corrupted");
  }
}

// Title N is in the stream by the second ICY block after its start (the first may be cut by a
// drop); the audio played past that point, less a second, must have brought it.
void checkTitles(Mp3Loop const& loop, RadioListener const& listener, RadioServer const& server,
                 Outcome const& run, std::vector<std::string>& failures) {
  int64_t const playedBytes = loop.bytesBefore(run.framesAtStop) - kBytesPerSecond - 2 * kMetaInt;
  int const due = playedBytes < 0 ? 0 : static_cast<int>(playedBytes / kTitleBytes) + 1;
  std::printf(
      "Titles: %d sent, %d changes reported (up to \"Title %d\"), %d due by the audio played; "
      "%d reports in all, %d repeating the last title, %d without a title%s; stutters: %d.\n",
      run.titlesSentAtStop, listener.changes.load(), listener.lastTitle.load(), due,
      listener.reports.load(), listener.repeated.load(), listener.untitled.load(),
      listener.firstUntitled.empty() ? ""
                                     : (" (the first: " + listener.firstUntitled + ")").c_str(),
      listener.stutters.load());
  if (listener.wrongExpected != 0) {
    failures.push_back("\"Title " + std::to_string(listener.wrongGot) +
                       "\" was reported where \"Title " + std::to_string(listener.wrongExpected) +
                       "\" was due");
  }
  if (listener.lastTitle < due) {
    failures.push_back("titles up to \"Title " + std::to_string(due) +
                       "\" were played, but only up to \"Title " +
                       std::to_string(listener.lastTitle) + "\" reported");
  }
  if (listener.lastTitle > server.titlesSent) {
    failures.push_back("a title was reported that was never sent");
  }
}

}  // namespace bench::radio
