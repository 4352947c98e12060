// The smallest useful host of liboruplay: plays one file into a WAV file and waits until it
// has played.
//
//   minimal_host INPUT OUTPUT.wav
//
// A host implements AudioPlayer::EventListener (every call arrives on the player's own
// thread; deriving from the reference EventListenerBase, it overrides only the events it acts
// on), hands the player an output device (here the reference WavFileOutput), prepares a track,
// plays it once the player says it is ready, and waits for it to finish.
#include <oru/AudioPlayer.h>
#include <oru/host/EventListenerBase.h>
#include <oru/host/StderrLogger.h>
#include <oru/host/WavFileOutput.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

// Names a track; the player keeps its own copies.
class FileToken : public oru::AudioPlayer::Token {
 public:
  explicit FileToken(std::string name) : mName(std::move(name)) {}
  std::string toString() const override { return mName; }
  int compare(Token const& other) const override { return mName.compare(other.toString()); }
  Token* clone() const override { return new FileToken(mName); }

 private:
  std::string mName;
};

class Host : public oru::host::EventListenerBase {
 public:
  void setPlayer(oru::AudioPlayer* player) { mPlayer = player; }

  // Waits until the track finished or failed; true when it finished.
  bool waitUntilEnded() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return mEnded; });
    return mFinished;
  }

  void trackReady(Token const& token, bool) override {
    mPlayer->play(token, 0);  // posts: safe on the player's thread
  }
  void playbackStarted(Token const& token, unsigned) override {
    std::printf("playing %s\n", token.toString().c_str());
  }
  void playbackFinished(Token const&, unsigned positionMs) override {
    std::printf("finished at %u ms\n", positionMs);
    end(true);
  }
  void playbackFailed(Token const&, oru::AudioPlayer::MediaError error, std::string const& message,
                      Token const&, oru::AudioPlayer::State, unsigned) override {
    std::fprintf(stderr, "failed (%d): %s\n", static_cast<int>(error), message.c_str());
    end(false);
  }
  void streamMetadataExtracted(Token const&, std::string const& metadata) override {
    std::printf("tags %s\n", metadata.c_str());
  }

 private:
  void end(bool finished) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEnded = true;
    mFinished = finished;
    mChanged.notify_all();
  }

  oru::AudioPlayer* mPlayer = nullptr;
  std::mutex mMutex;
  std::condition_variable mChanged;
  bool mEnded = false;
  bool mFinished = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: minimal_host INPUT OUTPUT.wav\n");
    return 2;
  }
  oru::host::StderrLogger logger(oru::LOG_ERROR);
  oru::AudioPlayer::setLogger(&logger);  // before any player exists

  Host host;
  oru::host::WavFileOutput output(argv[2]);  // 48 kHz, 16-bit: every input is converted
  bool finished = false;
  {
    // The listener and the output must outlive the player.
    oru::AudioPlayer player(&host, &output, nullptr, oru::AudioPlayer::TIMESTAMP_STREAM, nullptr);
    host.setPlayer(&player);
    int minVersion = 0;
    int maxVersion = 0;
    player.getSupportedVersions(&minVersion, &maxVersion);

    oru::AudioPlayer::Resource resource;
    resource.uri = argv[1];
    player.prepare(oru::AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, FileToken(argv[1]),
                   maxVersion);
    finished = host.waitUntilEnded();
  }
  oru::AudioPlayer::setLogger(nullptr);
  return finished ? 0 : 1;
}
