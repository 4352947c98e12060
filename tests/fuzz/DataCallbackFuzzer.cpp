// libFuzzer target: arbitrary bytes through a host data callback into a real player on a
// scripted device. The callback ends the data as the first byte says: with kEndOfData, with 0
// bytes or with an error. Every input must end its track with exactly one terminal event, and the
// player must then be destroyed within a second; a crash, a sanitizer report or a hang fails.
#include "PlayerHarness.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void check(bool holds, char const* invariant) {
  if (!holds) {
    std::fprintf(stderr, "invariant broken: %s\n", invariant);
    std::abort();
  }
}

struct Source {
  uint8_t const* next;
  size_t left;
  int end;  // what the callback returns once the bytes are given
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  int const ends[] = {oru::AudioPlayer::Resource::kEndOfData, 0, -5 /* EIO */};
  Source source{data + 1, size > 0 ? size - 1 : 0, size > 0 ? ends[data[0] % 3] : 0};
  oru::AudioPlayer::Resource resource;
  resource.callbackOpaque = &source;
  resource.newDataCallback = [](void* opaque, uint8_t* buffer, int wanted) {
    auto& bytes = *static_cast<Source*>(opaque);
    size_t const count = std::min(bytes.left, static_cast<size_t>(wanted));
    std::memcpy(buffer, bytes.next, count);
    bytes.next += count;
    bytes.left -= count;
    return count > 0 ? static_cast<int>(count) : bytes.end;
  };
  auto harness = std::make_unique<oru::test::PlayerHarness>();
  harness->prepare(resource, "a");
  harness->play("a");
  // Nothing stops the track: it finishes or fails.
  check(harness->listener.waitFor("playbackF"), "the track ends within the deadline");
  check(harness->listener.startingWith("playbackF").size() == 1, "exactly one terminal event");
  auto const start = std::chrono::steady_clock::now();
  harness.reset();
  check(std::chrono::steady_clock::now() - start < std::chrono::seconds(1), "destroyed in 1 s");
  return 0;
}
