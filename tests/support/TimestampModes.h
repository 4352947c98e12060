#pragma once

#include <oru/AudioPlayer.h>

#include <gtest/gtest.h>

#include <string>

namespace oru::test {

// The three timestamp modes, for INSTANTIATE_TEST_SUITE_P, with readable test names.
inline auto allTimestampModes() {
  return ::testing::Values(AudioPlayer::TIMESTAMP_STREAM, AudioPlayer::TIMESTAMP_LOCAL,
                           AudioPlayer::TIMESTAMP_COMMON);
}

inline std::string timestampModeName(
    ::testing::TestParamInfo<AudioPlayer::TimestampMode> const& info) {
  return info.param == AudioPlayer::TIMESTAMP_STREAM  ? "Stream"
         : info.param == AudioPlayer::TIMESTAMP_LOCAL ? "Local"
                                                      : "Common";
}

}  // namespace oru::test
