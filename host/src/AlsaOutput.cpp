#include <oru/host/AlsaOutput.h>

#include "Capabilities.h"
#include "Units.h"

#include <oru/Decoder.h>

#include <alsa/asoundlib.h>

#include <algorithm>
#include <vector>

namespace oru::host {
namespace {

void ignoreAlsaError(char const*, int, char const*, int, char const*, ...) {}

snd_pcm_format_t toAlsa(AudioFormat format) {
  switch (format) {
    case PCM_S16:
      return SND_PCM_FORMAT_S16;
    case PCM_S32:
      return SND_PCM_FORMAT_S32;
    case PCM_FLOAT:
      return SND_PCM_FORMAT_FLOAT;
  }
  return SND_PCM_FORMAT_UNKNOWN;
}

}  // namespace

AlsaOutput::AlsaOutput(std::string device, int rate, int latencyMs, LocalClock& clock)
    : ReferenceOutput(rate, clock), mDevice(std::move(device)), mLatencyMs(latencyMs) {}

AlsaOutput::~AlsaOutput() { close(); }

bool AlsaOutput::probe(std::string const& device, std::string* error) {
  snd_pcm_t* pcm = nullptr;
  // ALSA prints its own lines about a missing card; the caller reports the reason instead.
  snd_lib_error_set_handler(&ignoreAlsaError);
  int const result = snd_pcm_open(&pcm, device.c_str(), SND_PCM_STREAM_PLAYBACK, 0);
  snd_lib_error_set_handler(nullptr);
  if (result < 0) {
    if (error != nullptr) {
      *error = snd_strerror(result);
    }
    return false;
  }
  snd_pcm_close(pcm);
  return true;
}

void AlsaOutput::close() {
  if (mPcm != nullptr) {
    snd_pcm_close(mPcm);
    mPcm = nullptr;
  }
}

int AlsaOutput::start(AudioFormat format, int channels) {
  restartCounting();
  mDrained = false;
  if (mPcm != nullptr && format == mFormat && channels == mChannels) {
    if (mPaused) {
      mPaused = false;
      if (snd_pcm_pause(mPcm, 0) == 0) {
        return 0;
      }
    }
    return snd_pcm_prepare(mPcm) < 0 ? -1 : 0;
  }
  close();
  mPaused = false;
  if (toAlsa(format) == SND_PCM_FORMAT_UNKNOWN || channels <= 0) {
    return -1;
  }
  int result = snd_pcm_open(&mPcm, mDevice.c_str(), SND_PCM_STREAM_PLAYBACK, 0);
  if (result < 0) {
    mPcm = nullptr;
    return result;
  }
  result = snd_pcm_set_params(mPcm, toAlsa(format), SND_PCM_ACCESS_RW_INTERLEAVED,
                              static_cast<unsigned>(channels), mRate, 1,
                              static_cast<unsigned>(mLatencyMs * kUsPerMs));
  if (result < 0) {
    close();
    return result;
  }
  mFormat = format;
  mChannels = channels;
  mFrameBytes = bytesPerSample(format) * channels;
  return 0;
}

void AlsaOutput::stop(StopBehavior behavior) {
  if (mPcm == nullptr) {
    return;
  }
  switch (behavior) {
    case STOP_DRAIN:
      snd_pcm_drain(mPcm);
      mDrained = true;
      break;
    case STOP_FLUSH:
      snd_pcm_drop(mPcm);
      break;
    case STOP_PAUSE:
      // A device that cannot pause drops what it holds instead.
      if (snd_pcm_pause(mPcm, 1) == 0) {
        mPaused = true;
      } else {
        snd_pcm_drop(mPcm);
      }
      break;
  }
}

int AlsaOutput::write(long long timestamp, void const* data, unsigned* frames) {
  if (mPcm == nullptr) {
    *frames = 0;
    return -1;
  }
  if (data == nullptr) {
    // The source is starving: wait until the device could take data, at most a period.
    snd_pcm_wait(mPcm, mLatencyMs / 4);
    return 0;
  }
  if (takeFirstTimedWrite()) {
    if (int const result = waitWithSilence(timestamp); result != 0) {
      *frames = 0;
      return result;
    }
  }
  int error = 0;
  auto const written =
      static_cast<unsigned>(writeAll(static_cast<uint8_t const*>(data), *frames, &error));
  mFramesSinceStart += written;
  *frames = written;
  return error;
}

int64_t AlsaOutput::writeAll(uint8_t const* data, int64_t frames, int* error) {
  int64_t written = 0;
  while (written < frames) {
    snd_pcm_sframes_t const result =
        snd_pcm_writei(mPcm, data + static_cast<size_t>(written) * mFrameBytes,
                       static_cast<snd_pcm_uframes_t>(frames - written));
    if (result == -EPIPE || result == -ESTRPIPE) {
      ++mUnderruns;
      if (snd_pcm_recover(mPcm, static_cast<int>(result), 1) < 0) {
        break;
      }
      continue;
    }
    if (result < 0) {
      *error = static_cast<int>(result);
      break;
    }
    written += result;
  }
  return written;
}

int AlsaOutput::waitWithSilence(int64_t timestamp) {
  snd_pcm_sframes_t held = 0;
  if (snd_pcm_delay(mPcm, &held) < 0) {
    held = 0;
  }
  int64_t const silenceFrames = framesUntil(mClock.now(), timestamp, mRate) - held;
  std::vector<uint8_t> const silence(static_cast<size_t>(mFrameBytes) * mRate / 10);
  int64_t const chunk = mRate / 10;
  int error = 0;
  for (int64_t left = silenceFrames; left > 0 && error == 0;) {
    int64_t const frames = std::min(left, chunk);
    if (writeAll(silence.data(), frames, &error) < frames && error == 0) {
      return -1;
    }
    left -= frames;
  }
  return error;
}

long long AlsaOutput::getPlayedFrames() {
  if (mPcm == nullptr) {
    return -1;
  }
  if (mDrained) {
    return mFramesSinceStart;
  }
  snd_pcm_sframes_t delay = 0;
  if (snd_pcm_delay(mPcm, &delay) < 0) {
    return -1;
  }
  return std::max<int64_t>(0, mFramesSinceStart - delay);
}

PlaybackCapabilities AlsaOutput::getPlaybackConfig() {
  return oneRateCapabilities(mRate, PCM_S16, kAllFormats, 3);
}

}  // namespace oru::host
