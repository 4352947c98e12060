// A program outside the project that uses the installed headers and library.
#include <oru/AudioPlayer.h>

#include <cstdio>
#include <string>

struct LastLine : oru::LoggingDelegate {
  void log(oru::LogLevel, char const* tag, char const* message) override {
    line = std::string(tag) + ": " + message;
  }
  std::string line;
};

int main() {
  LastLine sink;
  oru::AudioPlayer::setLogger(&sink);
  oru::LogMessage(oru::LOG_INFO, "consumer") << oru::LogMessage::ipAddressFilter("http://1.2.3.4");
  oru::AudioPlayer::setLogger(nullptr);
  if (sink.line != "consumer: http://xxx") {
    std::fprintf(stderr, "consumer: got '%s'\n", sink.line.c_str());
    return 1;
  }
  std::printf("consumer: ok\n");
  return 0;
}
