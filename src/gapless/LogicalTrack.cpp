#include <oru/GaplessPlayer.h>

#include <algorithm>
#include <cstring>
#include <typeinfo>

namespace oru {

PhysicalToken::PhysicalToken(std::string const& streamUrl) : mStreamUrl(streamUrl) {}

std::string PhysicalToken::toString() const { return mStreamUrl; }

int PhysicalToken::compare(Token const& other) const {
  // Throws std::bad_cast for a token of another class: such tokens are never the same stream.
  auto const& physical = dynamic_cast<PhysicalToken const&>(other);
  size_t const shorter = std::min(mStreamUrl.size(), physical.mStreamUrl.size());
  int const bytes = std::memcmp(mStreamUrl.data(), physical.mStreamUrl.data(), shorter);
  if (bytes != 0) {
    return bytes;
  }
  return static_cast<int>(mStreamUrl.size()) - static_cast<int>(physical.mStreamUrl.size());
}

AudioPlayer::Token* PhysicalToken::clone() const { return new PhysicalToken(mStreamUrl); }

GaplessLogicalTrack::GaplessLogicalTrack(std::unique_ptr<AudioPlayer::Token> logical,
                                         std::string id, std::string url,
                                         std::unique_ptr<AudioPlayer::Token> physical)
    : logicalToken(std::move(logical)),
      trackId(std::move(id)),
      streamUrl(std::move(url)),
      physicalToken(std::move(physical)) {}

GaplessLogicalTrack::~GaplessLogicalTrack() = default;
GaplessLogicalTrack::GaplessLogicalTrack(GaplessLogicalTrack&&) noexcept = default;
GaplessLogicalTrack& GaplessLogicalTrack::operator=(GaplessLogicalTrack&&) noexcept = default;

std::unique_ptr<GaplessLogicalTrack> GaplessLogicalTrack::clone() const {
  auto copy = std::make_unique<GaplessLogicalTrack>(
      std::unique_ptr<AudioPlayer::Token>(logicalToken->clone()), trackId, streamUrl,
      std::unique_ptr<AudioPlayer::Token>(physicalToken->clone()));
  copy->startOffsetMs = startOffsetMs;
  copy->endOffsetMs = endOffsetMs;
  copy->started = started;
  return copy;
}

}  // namespace oru
