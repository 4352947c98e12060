// Checks the FFmpeg that the engine is linked and run against: the project's patched, trimmed
// build, loaded from its own prefix, with the player protocol option on both context classes
// and every input format and decoder the engine promises to play.
#include "decode/AVWrapper.h"
#include "decode/FFmpeg.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <set>
#include <string>

namespace oru {
namespace {

TEST(FFmpegBuildTest, BothContextClasses_DeclareOruVersionOneToOne) {
  AVWrapper const av;
  for (AVClass const* avClass : {avformat_get_class(), avcodec_get_class()}) {
    int min = 0;
    int max = 0;
    av.findORUVersion(avClass, &min, &max);
    EXPECT_EQ(min, 1) << avClass->class_name;
    EXPECT_EQ(max, 1) << avClass->class_name;
  }
  int min = 0;
  int max = 0;
  av.getORUVersions(&min, &max);
  EXPECT_EQ(min, 1);
  EXPECT_EQ(max, 1);
}

TEST(FFmpegBuildTest, OruVersion_CanBeSetOnBothContexts) {
  AVFormatContext* format = avformat_alloc_context();
  AVCodecContext* codec = avcodec_alloc_context3(nullptr);
  EXPECT_EQ(av_opt_set_int(format, "oru_version", 1, 0), 0);
  EXPECT_EQ(av_opt_set_int(codec, "oru_version", 1, 0), 0);
  EXPECT_LT(av_opt_set_int(format, "oru_version", 2, 0), 0) << "2 is outside the declared range";
  int64_t value = 0;
  EXPECT_EQ(av_opt_get_int(codec, "oru_version", 0, &value), 0);
  EXPECT_EQ(value, 1);
  avcodec_free_context(&codec);
  avformat_free_context(format);
}

TEST(FFmpegBuildTest, LibrariesAreLoadedFromTheProjectsPrefix) {
  for (void const* symbol : {reinterpret_cast<void const*>(&avformat_get_class),
                             reinterpret_cast<void const*>(&avcodec_get_class),
                             reinterpret_cast<void const*>(&av_opt_next)}) {
    Dl_info info{};
    ASSERT_NE(dladdr(symbol, &info), 0);
    std::string const path = info.dli_fname;
    EXPECT_EQ(path.rfind(ORUPLAY_FFMPEG_LIBDIR, 0), 0u) << path;
  }
  EXPECT_NE(std::string(avformat_configuration()).find("--build-suffix=_oru"), std::string::npos);
}

TEST(FFmpegBuildTest, CarriesTheInputFormatsAndDecodersTheEngineNeeds) {
  for (char const* name : {"mp3", "aac", "mov", "flac", "ogg", "wav", "matroska", "s16be"}) {
    EXPECT_NE(av_find_input_format(name), nullptr) << "demuxer " << name;
  }
  for (char const* name : {"mp3float", "aac", "flac", "alac", "vorbis", "opus", "pcm_s16le",
                           "pcm_s16be", "pcm_s24le", "pcm_f32le"}) {
    EXPECT_NE(avcodec_find_decoder_by_name(name), nullptr) << "decoder " << name;
  }
  std::set<std::string> protocols;
  void* iterator = nullptr;
  while (char const* protocol = avio_enum_protocols(&iterator, 0)) {
    protocols.insert(protocol);
  }
  for (char const* name : {"file", "http", "https", "tcp", "pipe"}) {
    EXPECT_EQ(protocols.count(name), 1u) << "protocol " << name;
  }
}

}  // namespace
}  // namespace oru
