#pragma once

#include <oru/AudioPlayer.h>

#include <string>

namespace oru::tools {

// Names an input (or a track of an album) by its place: "input-3". Immutable; any thread.
class InputToken : public AudioPlayer::Token {
 public:
  explicit InputToken(int index) : mIndex(index) {}
  std::string toString() const override { return "input-" + std::to_string(mIndex); }
  int compare(Token const& other) const override { return toString().compare(other.toString()); }
  Token* clone() const override { return new InputToken(mIndex); }

  // The place that an InputToken's text names.
  static int indexOf(Token const& token) {
    std::string const text = token.toString();
    return std::stoi(text.substr(text.find('-') + 1));
  }

 private:
  int mIndex;
};

}  // namespace oru::tools
