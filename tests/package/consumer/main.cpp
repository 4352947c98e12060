// A program outside the project that uses the installed headers and library.
#include <oru/AudioPlayer.h>

#include <cstdio>
#include <sstream>
#include <string>

namespace {

class LastLine : public oru::LoggingDelegate {
 public:
  void log(oru::LogLevel, char const* tag, char const* message) override {
    line = std::string(tag) + ": " + message;
  }
  std::string line;
};

class Token : public oru::AudioPlayer::Token {
 public:
  std::string toString() const override { return "t1"; }
  int compare(oru::AudioPlayer::Token const& other) const override {
    return other.toString() == "t1" ? 0 : 1;
  }
  oru::AudioPlayer::Token* clone() const override { return new Token; }
};

}  // namespace

int main() {
  LastLine sink;
  oru::AudioPlayer::setLogger(&sink);
  Token const token;
  oru::LogMessage(oru::LOG_INFO, "consumer")
      << token << " " << oru::LogMessage::ipAddressFilter("http://10.1.2.3/a");
  oru::AudioPlayer::setLogger(nullptr);

  std::string const expected = "consumer: t1 http://xxx/a";
  if (sink.line != expected) {
    std::fprintf(stderr, "consumer: got '%s', expected '%s'\n", sink.line.c_str(),
                 expected.c_str());
    return 1;
  }
  std::printf("consumer: ok\n");
  return 0;
}
