#pragma once

#include <oru/AudioPlayer.h>

#include <string>

namespace oru::test {

// A host token that is its name: equal names are the same track.
struct NamedToken : AudioPlayer::Token {
  explicit NamedToken(std::string name) : mName(std::move(name)) {}
  std::string toString() const override { return mName; }
  int compare(Token const& other) const override { return toString().compare(other.toString()); }
  Token* clone() const override { return new NamedToken(mName); }
  std::string const mName;
};

}  // namespace oru::test
