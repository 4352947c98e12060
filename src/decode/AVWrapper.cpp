#include "decode/AVWrapper.h"

#include "decode/FFmpeg.h"

#include <cstring>

namespace oru {

void AVWrapper::findORUVersion(AVClass const* avClass, int* minVersion, int* maxVersion) const {
  *minVersion = -1;
  *maxVersion = -1;
  // av_opt_next walks the options of an object whose first member points to its class.
  void const* object = &avClass;
  for (AVOption const* option = av_opt_next(object, nullptr); option != nullptr;
       option = av_opt_next(object, option)) {
    if (option->type == AV_OPT_TYPE_INT && std::strcmp(option->name, "oru_version") == 0) {
      *minVersion = static_cast<int>(option->min);
      *maxVersion = static_cast<int>(option->max);
      return;
    }
  }
}

void AVWrapper::getORUVersions(AVClass const* formatClass, AVClass const* codecClass,
                               int* minVersion, int* maxVersion) const {
  *minVersion = -1;
  *maxVersion = -1;
  int formatMin = -1;
  int formatMax = -1;
  findORUVersion(formatClass, &formatMin, &formatMax);
  if (formatMax < 0) {
    return;
  }
  int codecMin = -1;
  int codecMax = -1;
  findORUVersion(codecClass, &codecMin, &codecMax);
  if (codecMax < 0) {
    return;
  }
  if (formatMin == codecMin && codecMax == formatMax && formatMin <= codecMax) {
    *minVersion = formatMin;
    *maxVersion = codecMax;
  }
}

void AVWrapper::getORUVersions(int* minVersion, int* maxVersion) const {
  getORUVersions(avformat_get_class(), avcodec_get_class(), minVersion, maxVersion);
}

}  // namespace oru
