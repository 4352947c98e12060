// libFuzzer target: arbitrary bytes through a host data callback into a real player writing to
// the unpaced null output. The callback ends the data as the first byte says: with kEndOfData,
// with 0 bytes or with an error. Every input must end its track with exactly one terminal event
// (a stream that plays for too long, such as hours at a rate of a few hertz, is stopped), and
// the player must then be destroyed within a second. A crash or a sanitizer report fails too.
#include "NamedToken.h"
#include "RecordingPlayerListener.h"

#include <oru/host/NullOutput.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

using namespace oru;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  struct Source {
    uint8_t const* next;
    size_t left;
    int end;  // what the callback returns once the bytes are given
  };
  int const ends[] = {AudioPlayer::Resource::kEndOfData, 0, -5 /* EIO */};
  Source source{data + 1, size > 0 ? size - 1 : 0, size > 0 ? ends[data[0] % 3] : 0};
  AudioPlayer::Resource resource;
  resource.callbackOpaque = &source;
  resource.newDataCallback = [](void* opaque, uint8_t* buffer, int wanted) {
    auto& bytes = *static_cast<Source*>(opaque);
    size_t const count = std::min(bytes.left, static_cast<size_t>(wanted));
    std::memcpy(buffer, bytes.next, count);
    bytes.next += count;
    bytes.left -= count;
    return count > 0 ? static_cast<int>(count) : bytes.end;
  };
  test::RecordingPlayerListener listener;
  host::NullOutput output(host::NullOutput::kUnpaced);
  auto player = std::make_unique<AudioPlayer>(&listener, &output, nullptr,
                                              AudioPlayer::TIMESTAMP_STREAM, nullptr);
  player->prepare(AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, test::NamedToken("a"), 1);
  player->play(test::NamedToken("a"), 0);
  auto const terminalEvents = [](std::vector<std::string> const& all) {
    return std::count_if(all.begin(), all.end(), [](std::string const& event) {
      return event.rfind("playbackF", 0) == 0 || event.rfind("playbackStopped", 0) == 0;
    });
  };
  auto const ended = [&](auto const& all) { return terminalEvents(all) > 0; };
  if (!listener.waitUntil(ended, std::chrono::seconds(5))) {
    player->stop(false);
  }
  if (!listener.waitUntil(ended) || terminalEvents(listener.entries()) != 1) {
    std::abort();  // the track did not end with exactly one terminal event
  }
  auto const start = std::chrono::steady_clock::now();
  player.reset();
  if (std::chrono::steady_clock::now() - start > std::chrono::seconds(1)) {
    std::abort();  // destruction took more than a second
  }
  return 0;
}
