#include <oru/host/WavFileOutput.h>

#include "Capabilities.h"

#include <oru/Decoder.h>
#include <oru/host/SystemClock.h>

#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

namespace oru::host {
namespace {

constexpr uint16_t kWaveFormatPcm = 1;
constexpr uint16_t kWaveFormatFloat = 3;
constexpr off_t kHeaderBytes = 44;
// A WAV file grows to 4 GiB. On a 32-bit target, positions past 2 GiB need the 64-bit file
// interface (the build defines _FILE_OFFSET_BITS=64); a 32-bit position would make a header
// rewritten there send the next samples back to the start of the data.
static_assert(sizeof(off_t) == 8, "file positions must hold 4 GiB");

void put16(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

void put32(uint8_t* at, uint32_t value) {
  put16(at, value);
  put16(at + 2, value >> 16);
}

}  // namespace

WavFileOutput::WavFileOutput(std::string path, int rate, AudioFormat format, bool paced)
    : mPath(std::move(path)),
      mRate(static_cast<uint32_t>(rate)),
      mFormat(format),
      mPaced(paced),
      mPacer(rate) {}

WavFileOutput::~WavFileOutput() { close(); }

void WavFileOutput::close() {
  if (mFile != nullptr) {
    writeHeader();
    std::fclose(mFile);
    mFile = nullptr;
  }
}

void WavFileOutput::writeHeader() {
  auto const dataBytes = static_cast<uint64_t>(mFramesWritten) * static_cast<uint64_t>(mFrameBytes);
  // Sizes past 4 GiB cannot be expressed; such a file keeps the largest ones.
  auto const clamped = static_cast<uint32_t>(std::min<uint64_t>(dataBytes, 0xFFFFFFFFu - 36));
  uint8_t header[kHeaderBytes];
  std::memcpy(header, "RIFF", 4);
  put32(header + 4, 36 + clamped);
  std::memcpy(header + 8, "WAVEfmt ", 8);
  put32(header + 16, 16);
  put16(header + 20, mFormat == PCM_FLOAT ? kWaveFormatFloat : kWaveFormatPcm);
  put16(header + 22, static_cast<uint32_t>(mChannels));
  put32(header + 24, mRate);
  put32(header + 28, mRate * static_cast<uint32_t>(mFrameBytes));
  put16(header + 32, static_cast<uint32_t>(mFrameBytes));
  put16(header + 34, static_cast<uint32_t>(bytesPerSample(mFormat) * 8));
  std::memcpy(header + 36, "data", 4);
  put32(header + 40, clamped);
  off_t const end = ftello(mFile);
  fseeko(mFile, 0, SEEK_SET);
  std::fwrite(header, 1, sizeof header, mFile);
  fseeko(mFile, std::max(end, kHeaderBytes), SEEK_SET);
  std::fflush(mFile);
}

int WavFileOutput::start(AudioFormat format, int channels) {
  if (format != mFormat || channels <= 0) {
    return -1;
  }
  if (mFile == nullptr) {
    mFile = std::fopen(mPath.c_str(), "wb");
    if (mFile == nullptr) {
      mFailed = true;
      return -1;
    }
    mChannels = channels;
    mFrameBytes = bytesPerSample(format) * channels;
    writeHeader();
  } else if (channels != mChannels) {
    return -1;
  }
  mPacer.restart();
  mAwaitingFirstWrite = mKeepTime;
  mStartedAtNs = SystemClock::localNow();
  mFramesSinceStart = 0;
  return 0;
}

void WavFileOutput::stop(StopBehavior) {
  if (mFile != nullptr) {
    writeHeader();
  }
}

int WavFileOutput::write(long long timestamp, void const* data, unsigned* frames) {
  if (data == nullptr) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // starving: do not spin
    return 0;
  }
  if (mFile == nullptr) {
    *frames = 0;
    return -1;
  }
  if (mAwaitingFirstWrite) {
    mAwaitingFirstWrite = false;
    if (mPaced) {
      mPacer.restartAt(timestamp);
    } else {
      writeSilence(framesUntil(mStartedAtNs, timestamp, mRate));
    }
  }
  size_t const written = std::fwrite(data, static_cast<size_t>(mFrameBytes), *frames, mFile);
  if (mPaced) {
    mPacer.wait(static_cast<int64_t>(written));
  }
  mFramesSinceStart += static_cast<int64_t>(written);
  mFramesWritten += static_cast<int64_t>(written);
  bool const complete = written == *frames;
  *frames = static_cast<unsigned>(written);
  return complete ? 0 : -1;
}

void WavFileOutput::writeSilence(int64_t frames) {
  std::vector<uint8_t> const silence(static_cast<size_t>(mFrameBytes) * 1024);
  for (int64_t left = frames; left > 0;) {
    auto const chunk = static_cast<size_t>(std::min<int64_t>(left, 1024));
    size_t const written =
        std::fwrite(silence.data(), static_cast<size_t>(mFrameBytes), chunk, mFile);
    mFramesWritten += static_cast<int64_t>(written);
    left = written == chunk ? left - static_cast<int64_t>(chunk) : 0;
  }
}

long long WavFileOutput::getPlayedFrames() {
  return mPaced ? mPacer.playedFrames() : mFramesSinceStart;
}

PlaybackCapabilities WavFileOutput::getPlaybackConfig() {
  return oneRateCapabilities(mRate, mFormat, &mFormat, 1);
}

}  // namespace oru::host
