// oruplay: plays files, HTTP(S) streams or standard input through liboruplay, one after the
// other, or an album in one file described by a cue sheet, to the sound card, a WAV file or
// nowhere, with a live status line.
#include "AlbumSession.h"
#include "CueSheet.h"
#include "FailureReasons.h"
#include "Options.h"
#include "Session.h"
#include "Units.h"

#include <oru/AudioPlayer.h>
#include <oru/GaplessPlayer.h>
#include <oru/host/AlsaOutput.h>
#include <oru/host/DisciplinedClock.h>
#include <oru/host/NullOutput.h>
#include <oru/host/StderrLogger.h>
#include <oru/host/WavFileOutput.h>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using oruplay::isCueSheet;
using oruplay::Options;
using oruplay::Wake;

constexpr int kExitOk = 0;
constexpr int kExitInputFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

// How often the status line is redrawn, or checked for a reconnection, which no event announces.
constexpr int kRefreshMs = 1000;

// Takes Ctrl-C (SIGINT) and SIGTERM on a thread of its own, which marks the run interrupted and
// wakes the session that the main thread waits on, so that nothing polls for them. Made on the
// main thread before any other thread starts: the signals are blocked in the thread that makes
// it, and every thread started later inherits that mask, so none of them takes a signal.
class Interrupts {
 public:
  Interrupts() {
    sigemptyset(&mSignals);
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int const number : {SIGINT, SIGTERM}) {
      sigaddset(&mSignals, number);
      // A shell starts a background job with SIGINT ignored, which would discard it.
      sigaction(number, &byDefault, nullptr);
    }
    pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
    mThread = std::thread([this] { run(); });
  }
  ~Interrupts() {
    {
      std::lock_guard<std::mutex> lock(mMutex);
      mEnding = true;
    }
    pthread_kill(mThread.native_handle(), SIGTERM);
    mThread.join();
  }
  Interrupts(Interrupts const&) = delete;
  Interrupts& operator=(Interrupts const&) = delete;

  // Interrupts `session` at the next signal, or at once if one came already; null for none.
  // It must stay alive until replaced.
  void wake(oruplay::StatusSource* session) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSession = session;
    if (mSession != nullptr && mInterrupted) {
      mSession->interrupt();
    }
  }

 private:
  void run() {
    for (;;) {
      int number = 0;
      sigwait(&mSignals, &number);
      std::lock_guard<std::mutex> lock(mMutex);
      if (mEnding) {
        return;
      }
      mInterrupted = true;
      if (mSession != nullptr) {
        mSession->interrupt();
      }
    }
  }

  sigset_t mSignals;
  std::mutex mMutex;  // guards the three below
  bool mInterrupted = false;
  bool mEnding = false;
  oruplay::StatusSource* mSession = nullptr;
  std::thread mThread;
};

// The output device the options name, or null (with the reason printed). With --at, it
// presents the first frame at the time the player gives it.
std::unique_ptr<oru::PlaybackDelegate> makeOutput(Options const& options) {
  std::string const& output = options.output;
  bool const keepTime = options.atNs != 0;
  if (output.rfind("wav:", 0) == 0 && output.size() > 4) {
    auto file = std::make_unique<oru::host::WavFileOutput>(output.substr(4), options.rate,
                                                           options.format, options.realtime);
    file->keepTime(keepTime);
    return file;
  }
  if (output == "null") {
    auto discard = std::make_unique<oru::host::NullOutput>(
        options.realtime ? oru::host::NullOutput::kRealTime : oru::host::NullOutput::kUnpaced,
        options.rate);
    discard->keepTime(keepTime);
    return discard;
  }
  if (output.empty() || output == "alsa" || output.rfind("alsa:", 0) == 0) {
    std::string const device = output.size() > 5 ? output.substr(5) : "default";
    std::string reason;
    if (!oru::host::AlsaOutput::probe(device, &reason)) {
      if (output.empty()) {
        std::fprintf(stderr,
                     "oruplay: no sound card to play on (ALSA device '%s': %s).\n"
                     "Write the audio to a file instead:  oruplay -o wav:out.wav INPUT...\n",
                     device.c_str(), reason.c_str());
      } else {
        std::fprintf(stderr, "oruplay: cannot open ALSA device '%s': %s\n", device.c_str(),
                     reason.c_str());
      }
      return nullptr;
    }
    auto card = std::make_unique<oru::host::AlsaOutput>(device, options.rate);
    card->keepTime(keepTime);
    return card;
  }
  std::fprintf(stderr, "oruplay: unknown output '%s' (alsa[:DEVICE], wav:PATH or null)\n",
               output.c_str());
  return nullptr;
}

// An album's tracks are never prepared twice, so the stored tokens need no update.
class NoTokenUpdates : public oru::GaplessPlayer::TrackTokenDelegate {
 public:
  void updateTrackToken(oru::AudioPlayer::Token*, oru::AudioPlayer::Token const&) override {}
};

// "M:SS": minutes and seconds, as often as the status line is redrawn.
std::string formatTime(unsigned ms) {
  constexpr unsigned kMsPerSecond = oru::host::kMsPerSecond;
  constexpr unsigned kMsPerMinute = 60 * kMsPerSecond;
  char text[32];
  std::snprintf(text, sizeof text, "%u:%02u", ms / kMsPerMinute, ms / kMsPerSecond % 60);
  return text;
}

// "[2/5] NAME  0:01  ARTIST - TITLE", with "reconnecting..." after the time, without the time
// when `withTime` is false.
std::string describe(oruplay::StatusSource const& session, oruplay::Status const& status,
                     bool withTime) {
  std::string line = "[" + std::to_string(status.input + 1) + "/" +
                     std::to_string(session.inputCount()) + "] " + session.inputName(status.input);
  if (withTime) {
    line += "  " + formatTime(status.positionMs) + (status.reconnecting ? "  reconnecting..." : "");
  }
  if (!status.title.empty() || !status.artist.empty()) {
    line += "  " + status.artist + (status.artist.empty() ? "" : " - ") + status.title;
  }
  return line;
}

// Shows what plays. On a terminal one line is redrawn in place, once a second and at each change;
// otherwise a line is printed for each change of input, track or title, however quickly they
// follow each other, and one on standard error each time the current input starts reconnecting.
class StatusLine {
 public:
  explicit StatusLine(bool enabled) : mEnabled(enabled), mTerminal(isatty(STDOUT_FILENO) != 0) {}

  // How long show() may wait while nothing changes; negative: for ever.
  int refreshMs() const { return mEnabled ? kRefreshMs : -1; }
  // Whether show() wants to run at each change.
  bool showsChanges() const { return mEnabled; }

  void show(oruplay::StatusSource& session) {
    if (!mEnabled) {
      return;
    }
    if (!mTerminal) {
      for (oruplay::Status const& change : session.takeChanges()) {
        if (!change.sameInputAndTitle(mPrinted)) {
          std::printf("%s\n", describe(session, change, false).c_str());
          std::fflush(stdout);
        }
        if (change.reconnecting && !mPrinted.reconnecting) {
          std::fprintf(stderr, "oruplay: %s: reconnecting\n",
                       session.inputName(change.input).c_str());
        }
        mPrinted = change;
      }
      return;
    }
    session.takeChanges();  // only the latest is drawn; taking them ends a wait for them
    oruplay::Status const status = session.status();
    if (status.input >= 0) {
      std::printf("\r\033[K%s", describe(session, status, true).c_str());
      std::fflush(stdout);
      mDrawn = true;
    }
  }

  void finish() {
    if (mDrawn) {
      std::printf("\n");
      std::fflush(stdout);
      mDrawn = false;
    }
  }

 private:
  bool const mEnabled;
  bool const mTerminal;
  bool mDrawn = false;
  oruplay::Status mPrinted;  // the last change printed, when not on a terminal
};

// Shows the status until the session is done; when interrupted first, clears the player's
// queue. True when interrupted.
bool showUntilDone(StatusLine& status, oruplay::StatusSource& session, Interrupts& interrupts,
                   oru::AudioPlayer& player) {
  interrupts.wake(&session);
  Wake wake = Wake::kTimedOut;
  while ((wake = session.wait(status.refreshMs(), status.showsChanges())) != Wake::kDone &&
         wake != Wake::kInterrupted) {
    status.show(session);
  }
  interrupts.wake(nullptr);
  if (wake == Wake::kInterrupted) {
    player.clearQueue(oru::AudioPlayer::CLEAR_ALL);
  }
  status.show(session);
  status.finish();
  return wake == Wake::kInterrupted;
}

// What a run of the player left to tell.
struct Outcome {
  bool interrupted = false;
  std::vector<std::string> failures;
};

// Plays the album the cue sheet `path` describes through a GaplessPlayer; false (with the
// reason printed) when the sheet cannot be read.
bool playAlbum(std::string const& path, Options const& options, oru::PlaybackDelegate& output,
               oru::AudioPlayer::CommonTimeDelegate* common, oru::AudioPlayer::TimestampMode mode,
               oruplay::FailureReasons& reasons, StatusLine& status, Interrupts& interrupts,
               Outcome& outcome) {
  oruplay::CueSheet sheet;
  std::string error;
  if (!oruplay::CueSheet::read(path, &sheet, &error)) {
    std::fprintf(stderr, "oruplay: %s: %s\n", path.c_str(), error.c_str());
    return false;
  }
  auto* album = new oruplay::AlbumSession(sheet, path, reasons);  // the player owns it
  oru::GaplessPlayer player(album, &output, common, new NoTokenUpdates, mode, nullptr);
  album->playFirstAt(options.atNs);
  album->start(player);
  outcome.interrupted = showUntilDone(status, *album, interrupts, player);
  outcome.failures = album->failures();
  return true;
}

// Plays the inputs one after the other through an AudioPlayer.
void playInputs(Options const& options, oru::PlaybackDelegate& output,
                oru::AudioPlayer::CommonTimeDelegate* common, oru::AudioPlayer::TimestampMode mode,
                oruplay::FailureReasons& reasons, StatusLine& status, Interrupts& interrupts,
                Outcome& outcome) {
  oruplay::Session session(options.inputs, options.startMs, reasons);
  oru::AudioPlayer player(&session, &output, common, mode, nullptr);
  session.playFirstAt(options.atNs);
  session.start(player);
  outcome.interrupted = showUntilDone(status, session, interrupts, player);
  outcome.failures = session.failures();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string error;
  switch (oruplay::parseOptions(argc, argv, &options, &error,
                                oru::host::DisciplinedClock::realtimeNow())) {
    case oruplay::Command::Help:
      std::fputs(oruplay::kUsage, stdout);
      return kExitOk;
    case oruplay::Command::UsageError:
      std::fprintf(stderr, "oruplay: %s\nTry 'oruplay --help'.\n", error.c_str());
      return kExitUsage;
    case oruplay::Command::Play:
      break;
  }
  Interrupts interrupts;  // before any other thread starts

  oru::host::StderrLogger stderrLogger(static_cast<oru::LogLevel>(options.logLevel));
  oruplay::FailureReasons logger(stderrLogger);
  oru::AudioPlayer::setLogger(&logger);
  std::unique_ptr<oru::PlaybackDelegate> output = makeOutput(options);
  if (!output) {
    return kExitUsage;
  }
  StatusLine status(!options.quiet);

  // With --at, the player runs on the wall clock, with the output's drift fitted from it.
  oru::host::DisciplinedClock clock(*output, options.rate);
  bool const timed = options.atNs != 0;
  auto const mode = timed ? oru::AudioPlayer::TIMESTAMP_COMMON : oru::AudioPlayer::TIMESTAMP_STREAM;
  oru::AudioPlayer::CommonTimeDelegate* const common = timed ? &clock : nullptr;
  Outcome outcome;
  std::string const& first = options.inputs.front();
  if (isCueSheet(first)) {
    if (!playAlbum(first, options, *output, common, mode, logger, status, interrupts, outcome)) {
      return kExitInputFailed;
    }
  } else {
    playInputs(options, *output, common, mode, logger, status, interrupts, outcome);
  }
  output.reset();  // completes a WAV file
  oru::AudioPlayer::setLogger(nullptr);

  for (std::string const& failure : outcome.failures) {
    std::fprintf(stderr, "oruplay: %s\n", failure.c_str());
  }
  if (outcome.interrupted) {
    std::fprintf(stderr, "oruplay: interrupted\n");
    return kExitInterrupted;
  }
  return outcome.failures.empty() ? kExitOk : kExitInputFailed;
}
