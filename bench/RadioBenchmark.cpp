// A radio that runs for days: an endless live MP3 stream with ICY titles, from a server on
// 127.0.0.1 in this process that drops the connection every ten minutes of audio (every other
// time with a reset), played by a real AudioPlayer into a device that takes audio as fast as it
// comes, for --hours of audio (default 24). Prints, at ten minutes and at every hour of audio
// played, the resident memory, the heap in use, threads, open file descriptors, frames written,
// the server's connections and the titles sent and reported, and checks at the end that memory,
// threads and descriptors stay flat, that the audio is continuous across every drop and that every
// title change is reported. Exits with 1 when a check fails.
//
// The stream: a loop of 7840 MP3 frames (204.8 s, 128 kbit/s, 44.1 kHz stereo) made once by
// `lame` from a generated signal, served again and again. Each new connection continues at the
// live point, the byte where the previous one stopped, so the bytes the player receives are one
// unbroken stream.
//
// Continuity: 7840 frames of 1152 samples at 44.1 kHz are exactly 9830400 frames at 48 kHz, so
// once the decoder and the rate converter have seen the loop once, what reaches the device repeats
// exactly with the loop. The device hashes every block of 1280 frames; the blocks of the second
// pass are the reference, and from the third pass on every block must equal the block at the same
// place of the reference. A stretch of the stream played twice or skipped, by even one byte, moves
// everything after it off the blocks; bytes that do not belong to the audio (an ICY block left in
// it) change the blocks they reach.
#include "BenchDevice.h"
#include "Session.h"

#include <oru/AudioPlayer.h>
#include <oru/host/StderrLogger.h>

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using oru::AudioPlayer;

// The stream.
constexpr int kSourceRate = 44100;
constexpr int kOutputRate = bench::BenchDevice::kRate;
constexpr int kSamplesPerMp3Frame = 1152;
constexpr int kBitrate = 128000;
constexpr int64_t kBytesPerSecond = kBitrate / 8;
// 49 MP3 frames at 44.1 kHz last exactly 1.28 s, 61440 frames at 48 kHz: the rate converter
// is back at the same phase after each such unit.
constexpr int kMp3FramesPerUnit = 49;
constexpr int64_t kOutputFramesPerUnit = 61440;
static_assert(int64_t{kMp3FramesPerUnit} * kSamplesPerMp3Frame * kOutputRate ==
                  kOutputFramesPerUnit * kSourceRate,
              "a unit of MP3 frames is a whole number of output frames");
constexpr int kLoopUnits = 160;
constexpr int kLoopMp3Frames = kLoopUnits * kMp3FramesPerUnit;
constexpr int64_t kLoopOutputFrames = kLoopUnits * kOutputFramesPerUnit;
constexpr int kBlockFrames = 1280;
constexpr int64_t kLoopBlocks = kLoopOutputFrames / kBlockFrames;
static_assert(kLoopBlocks * kBlockFrames == kLoopOutputFrames, "the loop is whole blocks");

// The server: a drop every ten minutes of audio, a new title every 170 s of audio (so that drops
// fall at seventeen distances from a title change, one of them on it), an ICY block every 8192
// bytes of audio. Of three drops in turn, the first falls between two blocks, the second where a
// block is due, the third inside a block; and of two, the first is a clean close, the second a
// reset: the six combinations come round every six drops.
constexpr int64_t kDropBytes = 600 * kBytesPerSecond;
constexpr int64_t kTitleBytes = 170 * kBytesPerSecond;
constexpr int kMetaInt = 8192;
static_assert(kDropBytes % kMetaInt != 0, "the ten-minute mark falls between two blocks");
enum DropPlace { kBetweenBlocks, kAtBlock, kInBlock, kDropPlaces };

constexpr int64_t kMinute = int64_t{60} * kOutputRate;  // output frames
constexpr int64_t kHour = 60 * kMinute;
// A connection the server cannot hand its bytes to for this long counts as ended by the player.
constexpr int kSocketTimeoutS = 30;
// The sampler gives up waiting for the server to settle, or for the device to move, after this.
constexpr auto kSettleWait = std::chrono::seconds(30);
constexpr auto kStallWait = std::chrono::seconds(60);

std::string hms(int64_t outputFrames) {
  int64_t const seconds = outputFrames / kOutputRate;
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
  return text;
}

// ---------------------------------------------------------------------------------------------
// The loop of MP3 frames, and where each frame lies in the endless stream made of it.

class Mp3Loop {
 public:
  // Writes the signal to a temporary file, encodes it with lame and keeps the first
  // kLoopMp3Frames frames. Empty `error` on success.
  void make(std::string& error);

  std::vector<uint8_t> const& bytes() const { return mBytes; }

  // Byte of the endless stream at which MP3 frame `frame` (counted from its start) begins.
  int64_t byteOfFrame(int64_t frame) const {
    return frame / kLoopMp3Frames * static_cast<int64_t>(mBytes.size()) +
           mStarts[static_cast<size_t>(frame % kLoopMp3Frames)];
  }
  // MP3 frame of the endless stream that holds byte `byte`.
  int64_t frameOfByte(int64_t byte) const {
    int64_t const size = static_cast<int64_t>(mBytes.size());
    auto const next = std::upper_bound(mStarts.begin(), mStarts.end() - 1, byte % size);
    return byte / size * kLoopMp3Frames + (next - mStarts.begin()) - 1;
  }
  // Output frame at which the audio of stream byte `byte` plays, to within an MP3 frame.
  int64_t outputFrameOfByte(int64_t byte) const {
    return frameOfByte(byte) * kSamplesPerMp3Frame * kOutputRate / kSourceRate;
  }
  // Stream bytes whose audio lies before output frame `frame`, to within an MP3 frame.
  int64_t bytesBefore(int64_t frame) const {
    return byteOfFrame(frame * kSourceRate / kOutputRate / kSamplesPerMp3Frame);
  }

 private:
  std::vector<uint8_t> mBytes;
  std::vector<int64_t> mStarts;  // kLoopMp3Frames + 1 entries, the last one the loop's size
};

// Writes a WAV file of `samples` frames, 16-bit stereo at kSourceRate: music-like, and never
// the same twice within the loop, three voices on notes that change every quarter second,
// different on each side, over a little noise.
void writeSignal(FILE* file, int64_t samples) {
  auto littleEndian = [file](uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      std::fputc(static_cast<int>((value >> (8 * i)) & 0xff), file);
    }
  };
  uint32_t const dataBytes = static_cast<uint32_t>(samples * 4);
  std::fputs("RIFF", file);
  littleEndian(36 + dataBytes, 4);
  std::fputs("WAVEfmt ", file);
  littleEndian(16, 4);
  littleEndian(1, 2);  // PCM
  littleEndian(2, 2);
  littleEndian(kSourceRate, 4);
  littleEndian(kSourceRate * 4, 4);
  littleEndian(4, 2);
  littleEndian(16, 2);
  std::fputs("data", file);
  littleEndian(dataBytes, 4);

  uint32_t seed = 20261124;
  auto random = [&seed] {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
  };
  constexpr double kTwoPi = 6.283185307179586;
  double phase[2][3] = {};
  double step[2][3] = {};
  std::vector<int16_t> chunk;
  chunk.reserve(2 * 4096);
  for (int64_t i = 0; i < samples; ++i) {
    if (i % (kSourceRate / 4) == 0) {
      for (auto& side : step) {
        for (double& voice : side) {
          voice = kTwoPi * 110.0 * std::pow(2.0, static_cast<double>(random() % 36) / 12.0) /
                  kSourceRate;
        }
      }
    }
    for (int channel = 0; channel < 2; ++channel) {
      double value = 0.05 * (static_cast<double>(random() % 65536) / 32768.0 - 1.0);
      for (int voice = 0; voice < 3; ++voice) {
        phase[channel][voice] = std::fmod(phase[channel][voice] + step[channel][voice], kTwoPi);
        value += 0.2 / (voice + 1) * std::sin(phase[channel][voice]);
      }
      chunk.push_back(static_cast<int16_t>(std::lround(value * 32767.0)));
    }
    if (chunk.size() == chunk.capacity() || i + 1 == samples) {
      std::fwrite(chunk.data(), sizeof(int16_t), chunk.size(), file);
      chunk.clear();
    }
  }
}

void Mp3Loop::make(std::string& error) {
  char path[] = "/tmp/oru-radio-XXXXXX.wav";
  int const fd = mkstemps(path, 4);
  FILE* file = fd < 0 ? nullptr : fdopen(fd, "wb");
  if (file == nullptr) {
    error = "cannot make a temporary file for the signal";
    return;
  }
  // Some frames more than the loop: the encoder's delay and its last frames are not used.
  writeSignal(file, int64_t{kLoopMp3Frames + 4} * kSamplesPerMp3Frame);
  bool const written = std::fflush(file) == 0 && std::ferror(file) == 0;
  std::fclose(file);
  // CBR without the information frame that lame puts first by default (-t): concatenated frames
  // are a valid stream, and the loop holds nothing but audio frames.
  std::string const command =
      "lame --quiet -m j -b 128 --cbr -t --resample 44.1 " + std::string(path) + " -";
  FILE* encoder = written ? popen(command.c_str(), "r") : nullptr;
  if (encoder != nullptr) {
    uint8_t buffer[65536];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, encoder)) > 0;) {
      mBytes.insert(mBytes.end(), buffer, buffer + got);
    }
  }
  int const status = encoder != nullptr ? pclose(encoder) : -1;
  unlink(path);
  if (status != 0) {
    error = "`" + command + "` failed (is lame installed? scripts/install-deps.sh)";
    return;
  }
  // MPEG-1 Layer III, 128 kbit/s, 44.1 kHz: 417 bytes, 418 with padding.
  size_t at = 0;
  while (mStarts.size() < static_cast<size_t>(kLoopMp3Frames) && at + 4 <= mBytes.size()) {
    if (mBytes[at] != 0xff || (mBytes[at + 1] & 0xfe) != 0xfa || (mBytes[at + 2] & 0xfc) != 0x90) {
      error = "lame's output is not 128 kbit/s 44.1 kHz MP3 frames at byte " + std::to_string(at);
      return;
    }
    mStarts.push_back(static_cast<int64_t>(at));
    at += 417 + ((mBytes[at + 2] >> 1) & 1);
  }
  if (mStarts.size() < static_cast<size_t>(kLoopMp3Frames) || at > mBytes.size()) {
    error = "lame made " + std::to_string(mStarts.size()) + " frames, fewer than the loop's " +
            std::to_string(kLoopMp3Frames);
    return;
  }
  mBytes.resize(at);
  mStarts.push_back(static_cast<int64_t>(at));
}

// ---------------------------------------------------------------------------------------------
// The radio station.

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
  void start(std::string& error) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mListener < 0 || bind(mListener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(mListener, 4) != 0 ||
        getsockname(mListener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      error = std::string("cannot listen on 127.0.0.1: ") + std::strerror(errno);
      return;
    }
    mPort = ntohs(address.sin_port);
    mThread = std::thread([this] { run(); });
  }

  void stop() {
    {
      std::lock_guard<std::mutex> lock(mConnectionMutex);
      mStopping = true;
      if (mListener >= 0) {
        shutdown(mListener, SHUT_RDWR);  // ends accept()
      }
      if (mConnection >= 0) {
        shutdown(mConnection, SHUT_RDWR);  // ends a send or the wait before a reset
      }
    }
    if (mThread.joinable()) {
      mThread.join();
    }
    if (mListener >= 0) {
      close(mListener);
      mListener = -1;
    }
  }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(mPort) + "/radio.mp3"; }

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
  void run() {
    std::unique_lock<std::timed_mutex> between(mBetween);
    for (;;) {
      int const connection = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
      if (connection < 0) {
        return;
      }
      {
        std::lock_guard<std::mutex> lock(mConnectionMutex);
        if (mStopping) {
          close(connection);
          return;
        }
        mConnection = connection;
      }
      timeval const timeout{kSocketTimeoutS, 0};
      setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
      setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
      // The headers a radio station sends, as many stations send them.
      static char const kAnswer[] =
          "HTTP/1.0 200 OK\r\n"
          "Content-Type: audio/mpeg\r\n"
          "icy-br: 128\r\n"
          "icy-description: A day of generated music, dropped every ten minutes\r\n"
          "icy-genre: Test\r\n"
          "icy-name: oruplay radio benchmark\r\n"
          "icy-pub: 0\r\n"
          "icy-url: http://127.0.0.1/\r\n"
          "icy-metaint: 8192\r\n"
          "\r\n";
      static_assert(kMetaInt == 8192, "the answer announces kMetaInt");
      bool const answered =
          readRequest(connection) && sendAll(connection, kAnswer, sizeof kAnswer - 1);
      if (answered) {
        ++connections;
        between.unlock();
      }
      bool const dropped = answered && stream(connection);
      if (answered) {
        between.lock();
      }
      if (dropped) {
        ++dropsAt[static_cast<size_t>((drops + 1) % kDropPlaces)];
        ++drops;
        if (drops % 2 == 0) {
          reset(connection);
        }
      }
      std::lock_guard<std::mutex> lock(mConnectionMutex);
      endedByPlayer += !dropped && !mStopping ? 1 : 0;
      close(connection);
      mConnection = -1;
    }
  }

  static bool readRequest(int connection) {
    char request[4096];
    size_t size = 0;
    while (size + 1 < sizeof request) {
      ssize_t const got = recv(connection, request + size, sizeof request - 1 - size, 0);
      if (got <= 0) {
        return false;
      }
      size += static_cast<size_t>(got);
      request[size] = '\0';
      if (std::strstr(request, "\r\n\r\n") != nullptr) {
        return true;
      }
    }
    return false;
  }

  static bool sendAll(int connection, void const* data, size_t size) {
    auto const* bytes = static_cast<char const*>(data);
    while (size > 0) {
      ssize_t const sent = send(connection, bytes, size, MSG_NOSIGNAL);
      if (sent <= 0) {
        return false;
      }
      bytes += sent;
      size -= static_cast<size_t>(sent);
    }
    return true;
  }

  // Serves from the live point to the next drop point: true when it got there, false when the
  // player went away first. A drop at or in a block comes at the last block of the connection
  // before the ten-minute mark: where its length byte is due, or after half of it.
  bool stream(int connection) {
    std::vector<uint8_t> const& loop = mLoop.bytes();
    int64_t const loopSize = static_cast<int64_t>(loop.size());
    int64_t live = livePoint;
    int64_t const mark = ((live + kMetaInt) / kDropBytes + 1) * kDropBytes;
    auto const place = static_cast<DropPlace>((drops + 1) % kDropPlaces);
    int64_t const dropAt =
        place == kBetweenBlocks ? mark : live + (mark - live) / kMetaInt * kMetaInt;
    int64_t sinceBlock = 0;
    int lastTitle = 0;
    while (live < dropAt) {
      // Audio up to the next ICY block or the drop point, then the block when it is due.
      int64_t const audio = std::min<int64_t>(kMetaInt - sinceBlock, dropAt - live);
      size_t size = 0;
      for (int64_t at = live; at < live + audio;) {
        int64_t const offset = at % loopSize;
        int64_t const count = std::min(live + audio - at, loopSize - offset);
        std::memcpy(mBuffer.data() + size, loop.data() + offset, static_cast<size_t>(count));
        size += static_cast<size_t>(count);
        at += count;
      }
      sinceBlock += audio;
      int title = 0;
      bool const last = live + audio == dropAt;
      if (sinceBlock == kMetaInt) {
        sinceBlock = 0;
        int const current = static_cast<int>((live + audio) / kTitleBytes) + 1;
        if (last && place == kAtBlock) {
          // the drop comes where the block's length byte is due
        } else if (last && place == kInBlock) {
          size += icyBlock(mBuffer.data() + size, current) / 2;
        } else if (current != lastTitle) {
          title = current;
          size += icyBlock(mBuffer.data() + size, current);
        } else {
          mBuffer[size++] = 0;
        }
      }
      if (!sendAll(connection, mBuffer.data(), size)) {
        return false;
      }
      live += audio;
      livePoint = live;
      if (title != 0) {
        lastTitle = title;
        titlesSent = std::max(titlesSent.load(), title);
      }
    }
    return true;
  }

  // "StreamTitle='Title N';" after its length in 16-byte units, padded with zeros.
  static size_t icyBlock(uint8_t* out, int title) {
    char text[64] = {};
    int const length = std::snprintf(text, sizeof text, "StreamTitle='Title %d';", title);
    size_t const units = (static_cast<size_t>(length) + 15) / 16;
    out[0] = static_cast<uint8_t>(units);
    std::memcpy(out + 1, text, units * 16);
    return 1 + units * 16;
  }

  // Makes the coming close a reset (SO_LINGER 0), once the kernel has sent every byte: a reset
  // throws away what is still unsent, while what the player's side has received stays readable
  // there before the reset is reported. TCP_NOTSENT_LOWAT makes the socket writable only when
  // nothing is left unsent.
  void reset(int connection) {
    int const one = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &one, sizeof one);
    pollfd entry{connection, POLLOUT, 0};
    if (poll(&entry, 1, kSocketTimeoutS * 1000) != 1 || (entry.revents & POLLOUT) == 0) {
      ++resetsEarly;
    }
    linger const abrupt{1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
    ++resets;
  }

  Mp3Loop const& mLoop;
  int mListener = -1;
  int mPort = 0;
  std::array<uint8_t, kMetaInt + 1 + 255 * 16> mBuffer{};  // the server thread's
  std::timed_mutex mBetween;
  std::mutex mConnectionMutex;  // guards mStopping and mConnection against stop()
  bool mStopping = false;
  int mConnection = -1;
  std::thread mThread;
};

// ---------------------------------------------------------------------------------------------
// The player's side.

// Wakes the sampler when the device has written up to a mark, or when the track has ended.
// noteFrames on the render thread, end on the player's thread, wait on the sampler's.
class Progress {
 public:
  void noteFrames(int64_t frames) {
    if (frames >= mWakeAt.load(std::memory_order_relaxed)) {
      std::lock_guard<std::mutex> lock(mMutex);
      mWakeAt = INT64_MAX;
      mChanged.notify_all();
    }
  }
  void end(std::string const& how) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mHow.empty()) {
      mHow = how;
    }
    mChanged.notify_all();
  }
  // Waits until `frames` reaches `mark` or the track has ended. Returns how it ended, empty
  // while it plays; "stalled" when the frames did not move for kStallWait.
  std::string waitFor(int64_t mark, std::atomic<int64_t> const& frames) {
    std::unique_lock<std::mutex> lock(mMutex);
    mWakeAt = mark;
    int64_t seen = frames;
    auto movedAt = std::chrono::steady_clock::now();
    while (frames < mark && mHow.empty()) {
      mChanged.wait_for(lock, std::chrono::seconds(1));
      if (frames != seen) {
        seen = frames;
        movedAt = std::chrono::steady_clock::now();
      } else if (std::chrono::steady_clock::now() - movedAt > kStallWait) {
        return "stalled";
      }
    }
    mWakeAt = INT64_MAX;
    return mHow;
  }

 private:
  std::mutex mMutex;  // guards mHow and the waits
  std::condition_variable mChanged;
  std::atomic<int64_t> mWakeAt{INT64_MAX};
  std::string mHow;
};

// Hashes every block of kBlockFrames frames (16-bit stereo) and compares each pass of the loop
// from the third on with the second. Render thread; the atomic counts are read by any thread,
// the rest once the render thread has ended.
class LoopCheck {
 public:
  LoopCheck() : mReference(static_cast<size_t>(kLoopBlocks)) {}

  void add(uint8_t const* data, unsigned frames) {
    for (unsigned i = 0; i < frames; ++i) {
      uint32_t frame;
      std::memcpy(&frame, data + size_t{4} * i, sizeof frame);
      mHash = (mHash ^ frame) * kFnvPrime;
      if (++mInBlock == kBlockFrames) {
        endBlock();
      }
    }
  }

  struct Stretch {
    int64_t firstBlock = 0;
    int64_t blocks = 0;
  };
  static constexpr size_t kStretchesKept = 8;

  std::atomic<int64_t> compared{0};
  std::atomic<int64_t> mismatched{0};
  std::array<Stretch, kStretchesKept> stretches{};  // the first mismatched stretches
  int64_t stretchCount = 0;

 private:
  static constexpr uint64_t kFnvOffset = 14695981039346656037ull;
  static constexpr uint64_t kFnvPrime = 1099511628211ull;

  void endBlock() {
    int64_t const pass = mBlock / kLoopBlocks;
    size_t const slot = static_cast<size_t>(mBlock % kLoopBlocks);
    if (pass == 1) {
      mReference[slot] = mHash;
    } else if (pass >= 2) {
      ++compared;
      bool const same = mReference[slot] == mHash;
      if (!same) {
        ++mismatched;
        stretchCount += mInStretch ? 0 : 1;
        size_t const kept = static_cast<size_t>(stretchCount - 1);
        if (kept < kStretchesKept) {
          stretches[kept].firstBlock = mInStretch ? stretches[kept].firstBlock : mBlock;
          ++stretches[kept].blocks;
        }
      }
      mInStretch = !same;
    }
    ++mBlock;
    mInBlock = 0;
    mHash = kFnvOffset;
  }

  std::vector<uint64_t> mReference;
  int64_t mBlock = 0;
  int mInBlock = 0;
  uint64_t mHash = kFnvOffset;
  bool mInStretch = false;
};

// The benchmarks' device, taking audio as fast as it comes, that also checks it and wakes the
// sampler. Render thread.
class CheckingDevice : public bench::BenchDevice {
 public:
  CheckingDevice(bench::Signal& ending, Progress& progress)
      : BenchDevice(0, ending), mProgress(progress) {}

  int write(long long timestamp, void const* data, unsigned* frames) override {
    if (data != nullptr) {
      check.add(static_cast<uint8_t const*>(data), *frames);
    }
    int const result = BenchDevice::write(timestamp, data, frames);
    mProgress.noteFrames(mFrames);
    return result;
  }

  LoopCheck check;

 private:
  Progress& mProgress;
};

// Plays the track when it is ready, and follows its titles: each report whose StreamTitle is
// "Title N" must name the title after the last one reported, or the same one again. The
// player's thread; the counts are read by any.
class RadioListener : public bench::TrackListener {
 public:
  RadioListener(bench::Signal& ending, Progress& progress)
      : TrackListener(ending), mProgress(progress) {}

  void playbackFinished(Token const& token, unsigned positionMs) override {
    TrackListener::playbackFinished(token, positionMs);
    mProgress.end("finished");
  }
  void playbackFailed(Token const& token, AudioPlayer::MediaError error, std::string const& message,
                      Token const& current, AudioPlayer::State state,
                      unsigned positionMs) override {
    TrackListener::playbackFailed(token, error, message, current, state, positionMs);
    mProgress.end("failed: " + message);
  }
  void playbackStopped(Token const&, unsigned) override { stopped.raise("stopped"); }
  void playbackStutterStarted(Token const&, unsigned) override { ++stutters; }
  void streamMetadataExtracted(Token const&, std::string const& text) override {
    ++reports;
    static char const kKey[] = "\"StreamTitle\":\"Title ";
    size_t const at = text.find(kKey);
    if (at == std::string::npos) {
      if (untitled++ == 0) {
        firstUntitled = text;
      }
      return;
    }
    int const title = std::atoi(text.c_str() + at + sizeof kKey - 1);
    int const last = lastTitle;
    if (title == last) {
      ++repeated;
      return;
    }
    if (title != last + 1 && wrongExpected == 0) {
      wrongExpected = last + 1;
      wrongGot = title;
    }
    ++changes;
    lastTitle = title;
  }

  bench::Signal stopped;
  std::atomic<int> reports{0};
  std::atomic<int> untitled{0};  // reports without a StreamTitle
  std::string firstUntitled;     // read once the player has ended
  std::atomic<int> repeated{0};  // reports of the title reported last
  std::atomic<int> changes{0};
  std::atomic<int> lastTitle{0};
  std::atomic<int> stutters{0};
  std::atomic<int> wrongExpected{0};  // the first title out of order: what was due...
  std::atomic<int> wrongGot{0};       // ...and what came

 private:
  Progress& mProgress;
};

// Counts the engine's warnings and errors and keeps the first of each, passing every line at or
// above `shown` on to the standard error. Any thread.
class LogTally : public oru::LoggingDelegate {
 public:
  explicit LogTally(oru::LogLevel shown) : mShown(shown), mStderr(shown) {}

  void log(oru::LogLevel level, char const* tag, char const* message) override {
    if (level >= oru::LOG_WARNING) {
      Kind& kind = level == oru::LOG_WARNING ? mWarnings : mErrors;
      std::lock_guard<std::mutex> lock(mMutex);
      if (kind.count++ == 0) {
        std::snprintf(kind.first, sizeof kind.first, "%s: %s", tag, message);
      }
    }
    if (level >= mShown) {
      mStderr.log(level, tag, message);
    }
  }

  // "N warnings (the first: TAG: TEXT), M errors (...)".
  std::string summary() {
    std::lock_guard<std::mutex> lock(mMutex);
    return describe(mWarnings, "warnings") + ", " + describe(mErrors, "errors and worse");
  }

 private:
  struct Kind {
    long count = 0;
    char first[256] = {};
  };
  static std::string describe(Kind const& kind, char const* name) {
    return std::to_string(kind.count) + " " + name +
           (kind.count > 0 ? " (the first: \"" + std::string(kind.first) + "\")" : "");
  }

  oru::LogLevel const mShown;
  oru::host::StderrLogger mStderr;
  std::mutex mMutex;  // guards the two below
  Kind mWarnings;
  Kind mErrors;
};

// ---------------------------------------------------------------------------------------------
// What the process holds.

// The value in kB of a "Name:  N kB" line of /proc/self/status; -1 when missing.
long statusKiB(char const* name) {
  char text[4096] = {};
  int const fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    ssize_t const got = read(fd, text, sizeof text - 1);
    text[got > 0 ? got : 0] = '\0';
    close(fd);
  }
  char const* line = std::strstr(text, name);
  return line != nullptr ? std::atol(line + std::strlen(name)) : -1;
}

// Entries of a /proc directory, less the directory's own descriptor for /proc/self/fd.
int entries(char const* path) {
  DIR* directory = opendir(path);
  if (directory == nullptr) {
    return -1;
  }
  int count = 0;
  for (dirent* entry; (entry = readdir(directory)) != nullptr;) {
    count += entry->d_name[0] != '.' ? 1 : 0;
  }
  closedir(directory);
  return count - (std::strcmp(path, "/proc/self/fd") == 0 ? 1 : 0);
}

struct Sample {
  int64_t frames = 0;
  double wallS = 0;
  long residentKiB = 0;
  long peakKiB = 0;
  size_t heapBytes = 0;  // allocated and not freed, in every arena
  int threads = 0;
  int fds = 0;
  bool settled = true;  // taken between two drops, with one connection open on each side
};

Sample sample(int64_t frames, double wallS, RadioServer* server) {
  std::unique_lock<std::timed_mutex> between;
  if (server != nullptr) {
    between = std::unique_lock<std::timed_mutex>(server->betweenConnections(), kSettleWait);
  }
  Sample taken;
  taken.frames = frames;
  taken.wallS = wallS;
  taken.residentKiB = statusKiB("VmRSS:");
  taken.peakKiB = statusKiB("VmHWM:");
  struct mallinfo2 const heap = mallinfo2();
  taken.heapBytes = heap.uordblks + heap.hblkhd;
  taken.threads = entries("/proc/self/task");
  taken.fds = entries("/proc/self/fd");
  taken.settled = server == nullptr || between.owns_lock();
  return taken;
}

int usage() {
  std::fprintf(stderr,
               "usage: radio_benchmark [--hours H] [--log LEVEL]\n"
               "  --hours H     hours of audio to play (default 24; at least 0.25)\n"
               "  --log LEVEL   engine log lines at or above LEVEL to stderr (2-6; default 6:\n"
               "                warnings and errors are only counted)\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  double hours = 24;
  int logLevel = oru::LOG_FATAL;
  for (int i = 1; i < argc; ++i) {
    std::string const argument = argv[i];
    if (argument == "--hours" && i + 1 < argc) {
      hours = std::atof(argv[++i]);
    } else if (argument == "--log" && i + 1 < argc) {
      logLevel = std::atoi(argv[++i]);
    } else {
      return usage();
    }
  }
  if (!(hours >= 0.25) || logLevel < oru::LOG_DETAIL || logLevel > oru::LOG_FATAL) {
    return usage();
  }
  int64_t const totalFrames = std::llround(hours * static_cast<double>(kHour));
  // The memory reference: the end of the first hour, or of the first ten minutes in a run
  // shorter than two hours.
  int64_t const referenceFrames = totalFrames >= 2 * kHour ? kHour : 10 * kMinute;

  LogTally logger(static_cast<oru::LogLevel>(logLevel));
  AudioPlayer::setLogger(&logger);

  Mp3Loop loop;
  std::string error;
  loop.make(error);
  if (!error.empty()) {
    std::fprintf(stderr, "radio_benchmark: %s\n", error.c_str());
    return 1;
  }
  std::printf(
      "Stream: MP3, 128 kbit/s, 44.1 kHz stereo, a loop of %d frames (%.1f s, %zu bytes) made by "
      "lame; ICY block every %d bytes, a new title every %lld s of audio; a drop every %lld s of "
      "audio, every other one a reset. Device: 48 kHz 16-bit, as fast as it comes. Audio: %s.\n\n",
      kLoopMp3Frames, static_cast<double>(kLoopOutputFrames) / kOutputRate, loop.bytes().size(),
      kMetaInt, static_cast<long long>(kTitleBytes / kBytesPerSecond),
      static_cast<long long>(kDropBytes / kBytesPerSecond), hms(totalFrames).c_str());
  std::fflush(stdout);

  Sample const before = sample(0, 0, nullptr);
  auto const startedAt = std::chrono::steady_clock::now();
  auto wall = [startedAt] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt).count();
  };

  RadioServer server(loop);
  server.start(error);
  if (!error.empty()) {
    std::fprintf(stderr, "radio_benchmark: %s\n", error.c_str());
    return 1;
  }

  std::vector<int64_t> marks{10 * kMinute};
  for (int64_t mark = kHour; mark < totalFrames; mark += kHour) {
    marks.push_back(mark);
  }
  marks.push_back(totalFrames);
  std::vector<Sample> samples;
  samples.reserve(marks.size());

  bench::Signal ending;
  Progress progress;
  CheckingDevice device(ending, progress);
  RadioListener listener(ending, progress);
  std::string how;
  int64_t framesAtStop = 0;
  int endedByPlayerAtStop = 0;
  int titlesSentAtStop = 0;
  {
    AudioPlayer player(&listener, &device, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    listener.player = &player;
    AudioPlayer::Resource resource;
    resource.uri = server.url();
    player.prepare(AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, oruplay::InputToken(0), 1);

    std::printf(
        "| audio played | wall s | resident KiB | heap in use, bytes | threads | fds | frames "
        "written | audio served | connections | titles sent | title changes reported | blocks "
        "differing |\n|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    for (int64_t const mark : marks) {
      how = progress.waitFor(mark, device.mFrames);
      if (!how.empty()) {
        break;
      }
      Sample const taken = sample(device.mFrames, wall(), &server);
      samples.push_back(taken);
      std::printf("| %s | %.0f | %ld | %zu | %d | %d | %lld | %s | %d | %d | %d | %lld |%s\n",
                  hms(mark).c_str(), taken.wallS, taken.residentKiB, taken.heapBytes, taken.threads,
                  taken.fds, static_cast<long long>(taken.frames),
                  hms(loop.outputFrameOfByte(server.livePoint)).c_str(), server.connections.load(),
                  server.titlesSent.load(), listener.changes.load(),
                  static_cast<long long>(device.check.mismatched.load()),
                  taken.settled ? "" : " (the server did not settle)");
      std::fflush(stdout);
    }
    // Stopping goes through the player's queue after every report posted so far: once it is
    // reported, every title the decoder met has reached the listener. A track that has ended or
    // stalled is not waited for; the player's destruction ends it.
    framesAtStop = device.mFrames;
    endedByPlayerAtStop = server.endedByPlayer;
    titlesSentAtStop = server.titlesSent;
    if (how.empty()) {
      player.stop(false);
      how = listener.stopped.wait();
    }
  }
  server.stop();
  double const wallS = wall();
  Sample const after = sample(0, wallS, nullptr);

  // The checks.
  std::vector<std::string> failures;
  auto fail = [&failures](std::string const& what) { failures.push_back(what); };
  if (how != "stopped") {
    fail("the stream did not play for " + hms(totalFrames) + ": it " + how + " after " +
         hms(framesAtStop));
  }

  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  double const cpuS = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                      static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  std::printf(
      "\nPlayed %s of audio in %.0f s of wall time (%.0f times real time), %.0f s of CPU time "
      "(the whole process: player, server and checks; the encoder excluded).\n",
      hms(framesAtStop).c_str(), wallS, static_cast<double>(framesAtStop) / kOutputRate / wallS,
      cpuS);

  // Memory, threads and descriptors.
  Sample const* reference = nullptr;
  Sample const* first = samples.empty() ? nullptr : &samples.front();
  long highest = 0;
  bool countsSteady = true;
  for (Sample const& taken : samples) {
    if (reference == nullptr && taken.frames >= referenceFrames) {
      reference = &taken;
    }
    if (reference != nullptr) {
      highest = std::max(highest, taken.residentKiB);
    }
    countsSteady =
        countsSteady && taken.settled && taken.threads == first->threads && taken.fds == first->fds;
  }
  if (reference == nullptr || reference == &samples.back()) {
    fail("too few samples to see memory growth");
  } else {
    long const growth = highest - reference->residentKiB;
    std::printf(
        "Resident memory: %+ld KiB from %s (%ld KiB) to the highest sample after it; peak "
        "(VmHWM) %ld KiB then, %ld KiB at the end. Heap in use: %zu bytes then, %zu at the "
        "end.\n",
        growth, hms(referenceFrames).c_str(), reference->residentKiB, reference->peakKiB,
        samples.back().peakKiB, reference->heapBytes, samples.back().heapBytes);
    if (growth >= 64) {
      fail("resident memory grew by " + std::to_string(growth) + " KiB after " +
           hms(referenceFrames) + " (the goal is under 64 KiB)");
    }
  }
  if (first != nullptr) {
    std::printf(
        "Threads and descriptors: %d and %d at 0:10:00 and at every sample after it: %s. Before "
        "the server and the player: %d and %d; after them: %d and %d.\n",
        first->threads, first->fds, countsSteady ? "the same" : "NOT the same", before.threads,
        before.fds, after.threads, after.fds);
    if (!countsSteady) {
      fail("the threads or descriptors changed between samples");
    }
  }
  if (after.threads != before.threads || after.fds != before.fds) {
    fail("threads or descriptors left behind after the player and the server ended");
  }

  // Reconnections.
  std::printf(
      "Connections: %d (drops: %d, %d of them resets, %d between title blocks, %d where a block "
      "was due, %d inside a block; connections the player ended before the stop: %d; resets "
      "before every byte had left: %d).\n",
      server.connections.load(), server.drops.load(), server.resets.load(),
      server.dropsAt[kBetweenBlocks].load(), server.dropsAt[kAtBlock].load(),
      server.dropsAt[kInBlock].load(), endedByPlayerAtStop, server.resetsEarly.load());
  if (endedByPlayerAtStop != 0) {
    fail("the player ended " + std::to_string(endedByPlayerAtStop) +
         " connections itself, which the server did not drop");
  }
  if (server.resetsEarly != 0) {
    fail("the server reset a connection before every byte had left (a fault of the benchmark)");
  }

  // Continuity.
  LoopCheck const& check = device.check;
  int64_t const firstCheckedFrame = 2 * kLoopOutputFrames;
  int64_t dropsChecked = 0;
  for (int64_t drop = kDropBytes; loop.outputFrameOfByte(drop) < framesAtStop; drop += kDropBytes) {
    dropsChecked += loop.outputFrameOfByte(drop) > firstCheckedFrame ? 1 : 0;
  }
  std::printf(
      "Continuity: %lld blocks of %d frames compared with the loop's second pass, from %s on, "
      "across %lld drops; %lld differ.\n",
      static_cast<long long>(check.compared.load()), kBlockFrames, hms(firstCheckedFrame).c_str(),
      static_cast<long long>(dropsChecked), static_cast<long long>(check.mismatched.load()));
  for (size_t i = 0;
       i < std::min<size_t>(static_cast<size_t>(check.stretchCount), LoopCheck::kStretchesKept);
       ++i) {
    LoopCheck::Stretch const& stretch = check.stretches[i];
    int64_t const at = stretch.firstBlock * kBlockFrames;
    int64_t const drop =
        std::max<int64_t>(1, (loop.bytesBefore(at) + kDropBytes / 2) / kDropBytes) * kDropBytes;
    int64_t const dropAt = loop.outputFrameOfByte(drop);
    std::printf(
        "  differing from %s (output frame %lld) for %lld blocks; the nearest drop, #%lld, plays "
        "at %s (frame %lld, %+.3f s away)\n",
        hms(at).c_str(), static_cast<long long>(at), static_cast<long long>(stretch.blocks),
        static_cast<long long>(drop / kDropBytes), hms(dropAt).c_str(),
        static_cast<long long>(dropAt), static_cast<double>(at - dropAt) / kOutputRate);
  }
  if (check.compared == 0) {
    fail("no audio was compared: the run is shorter than three passes of the loop");
  }
  if (check.mismatched != 0) {
    fail(std::to_string(check.stretchCount) + " stretches of audio (" +
         std::to_string(check.mismatched.load()) +
         " blocks) differ from the stream: audio was repeated, skipped or corrupted");
  }

  // Titles. Title N is in the stream by the second ICY block after its start (the first may be
  // cut by a drop); the audio played past that point, less a second, must have brought it.
  int64_t const playedBytes = loop.bytesBefore(framesAtStop) - kBytesPerSecond - 2 * kMetaInt;
  int const due = playedBytes < 0 ? 0 : static_cast<int>(playedBytes / kTitleBytes) + 1;
  std::printf(
      "Titles: %d sent, %d changes reported (up to \"Title %d\"), %d due by the audio played; "
      "%d reports in all, %d repeating the last title, %d without a title%s; stutters: %d.\n",
      titlesSentAtStop, listener.changes.load(), listener.lastTitle.load(), due,
      listener.reports.load(), listener.repeated.load(), listener.untitled.load(),
      listener.firstUntitled.empty() ? ""
                                     : (" (the first: " + listener.firstUntitled + ")").c_str(),
      listener.stutters.load());
  if (listener.wrongExpected != 0) {
    fail("\"Title " + std::to_string(listener.wrongGot) + "\" was reported where \"Title " +
         std::to_string(listener.wrongExpected) + "\" was due");
  }
  if (listener.lastTitle < due) {
    fail("titles up to \"Title " + std::to_string(due) + "\" were played, but only up to \"Title " +
         std::to_string(listener.lastTitle) + "\" reported");
  }
  if (listener.lastTitle > server.titlesSent) {
    fail("a title was reported that was never sent");
  }

  std::printf("Engine log: %s.\n", logger.summary().c_str());

  if (failures.empty()) {
    std::printf("\nEvery check passed.\n");
    return 0;
  }
  std::printf("\n");
  for (std::string const& failure : failures) {
    std::printf("FAILED: %s\n", failure.c_str());
  }
  return 1;
}
