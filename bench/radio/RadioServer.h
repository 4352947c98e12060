#pragma once

#include "LoopbackListener.h"
#include "Mp3Loop.h"
#include "Stream.h"
#include "Units.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace bench::radio {

// Serves the loop as one endless live stream to one listener at a time: HTTP/1.0 200 without a
// length, an ICY block every kMetaInt bytes of audio with the title at that point of the stream
// when it is new on the connection (the first block of each connection repeats the current one),
// and a drop at every kDropBytes of the stream, or at the block before it: a clean close, or,
// every other time, a reset once every byte has been handed over. Each connection starts at the
// live point, the byte of audio after the last one the previous connection handed over, with a
// title interval of its own. Its own thread serves the connections one after another; the counts
// are read by any thread.
class RadioServer {
 public:
  explicit RadioServer(Mp3Loop const& loop) : mLoop(loop) {}
  ~RadioServer() { stop(); }

  // Empty `error` on success.
  void start(std::string& error);
  // Ends the connection being served and closes the listening socket.
  void stop();

  std::string url() const { return mListener->url("/radio.mp3"); }

  // Held by the server from each drop until the next connection has its answer, so that whoever
  // holds it sees one connection open on each side.
  std::timed_mutex& betweenConnections() { return mBetween; }

  std::atomic<int> connections{0};  // connections answered
  std::atomic<int> drops{0};        // connections the server ended at a drop point
  std::atomic<int> resets{0};       // of which with a reset
  std::array<std::atomic<int>, kDropPlaces> dropsAt{};  // of which at each DropPlace
  std::atomic<int> endedByPlayer{0};
  std::atomic<int> resetsEarly{0};  // resets made before every byte had left: bytes lost
  std::atomic<int> titlesSent{0};   // the highest title number sent
  std::atomic<int64_t> livePoint{0};

 private:
  void run();
  static bool readRequest(int connection);
  static bool sendAll(int connection, void const* data, size_t size);
  // Serves from the live point to the next drop point: true when it got there, false when the
  // player went away first. A drop at or in a block comes at the last block of the connection
  // before the ten-minute mark: where its length byte is due, or after half of it.
  bool stream(int connection);
  // "StreamTitle='Title N';" after its length in 16-byte units, padded with zeros.
  static size_t icyBlock(uint8_t* out, int title);
  // Makes the coming close a reset (SO_LINGER 0), once the kernel has sent every byte: a reset
  // throws away what is still unsent, while what the player's side has received stays readable
  // there before the reset is reported. TCP_NOTSENT_LOWAT makes the socket writable only when
  // nothing is left unsent.
  void reset(int connection);

  Mp3Loop const& mLoop;
  std::optional<oru::tools::LoopbackListener> mListener;   // from start() to stop()
  std::array<uint8_t, kMetaInt + 1 + 255 * 16> mBuffer{};  // the server thread's
  std::timed_mutex mBetween;
  std::mutex mConnectionMutex;  // guards mStopping and mConnection against stop()
  bool mStopping = false;
  int mConnection = -1;
  std::thread mThread;
};

}  // namespace bench::radio
