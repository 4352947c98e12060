#pragma once

#include <oru/AudioPlayer.h>

#include <string>

namespace oru::test {

// A host token that is its name: equal names are the same track. Like PhysicalToken, it throws
// std::bad_cast when compared with a token of another class.
struct NamedToken : AudioPlayer::Token {
  explicit NamedToken(std::string name) : mName(std::move(name)) {}
  std::string toString() const override { return mName; }
  int compare(Token const& other) const override {
    return mName.compare(dynamic_cast<NamedToken const&>(other).mName);
  }
  Token* clone() const override { return new NamedToken(mName); }
  std::string const mName;
};

}  // namespace oru::test
