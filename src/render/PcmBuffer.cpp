#include <oru/Decoder.h>

namespace oru {

int bytesPerSample(AudioFormat format) {
  switch (format) {
    case PCM_S16:
      return 2;
    case PCM_S32:
    case PCM_FLOAT:
      return 4;
  }
  return 0;
}

}  // namespace oru
