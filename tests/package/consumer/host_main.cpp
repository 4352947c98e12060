// An outside program that uses the installed reference host components with the library.
#include <oru/AudioPlayer.h>
#include <oru/host/NullOutput.h>

#include <cstdio>

int main() {
  oru::host::NullOutput output(oru::host::NullOutput::kUnpaced, 44100);
  oru::PlaybackCapabilities const caps = output.getPlaybackConfig();
  if (caps.supportedRateCount != 1 || caps.supportedRates[0] != 44100) {
    std::fprintf(stderr, "host_consumer: unexpected capabilities\n");
    return 1;
  }
  std::printf("host_consumer: ok\n");
  return 0;
}
