#include <oru/host/WavFileOutput.h>

#include "Capabilities.h"
#include "WavHeader.h"

#include <oru/Decoder.h>

#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

namespace oru::host {
namespace {

constexpr off_t kHeaderBytes = WavHeader::kBytes;
// A WAV file grows to 4 GiB. On a 32-bit target, positions past 2 GiB need the 64-bit file
// interface (the build defines _FILE_OFFSET_BITS=64); a 32-bit position would make a header
// rewritten there send the next samples back to the start of the data.
static_assert(sizeof(off_t) == 8, "file positions must hold 4 GiB");

}  // namespace

WavFileOutput::WavFileOutput(std::string path, int rate, AudioFormat format, bool paced,
                             LocalClock& clock)
    : ReferenceOutput(rate, clock),
      mPath(std::move(path)),
      mFormat(format),
      mPaced(paced),
      mPacer(rate, Pacer::kDefaultLead, clock) {}

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
  uint64_t const largest = UINT32_MAX - WavHeader::kRiffBytesBeforeData;
  auto const header =
      WavHeader::make(mFormat == PCM_FLOAT ? WavHeader::kFloat : WavHeader::kPcm, mChannels, mRate,
                      bytesPerSample(mFormat), std::min(dataBytes, largest));
  off_t const end = ftello(mFile);
  fseeko(mFile, 0, SEEK_SET);
  std::fwrite(header.data(), 1, header.size(), mFile);
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
  restartCounting();
  mStartedAtNs = mClock.now();
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
  if (takeFirstTimedWrite()) {
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
