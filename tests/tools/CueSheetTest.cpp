#include "CueSheet.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace oruplay {
namespace {

class CueSheetTest : public ::testing::Test {
 protected:
  ~CueSheetTest() override { std::remove(path.c_str()); }

  bool read(std::string const& text) {
    std::ofstream(path) << text;
    return CueSheet::read(path, &sheet, &error);
  }

  std::string const folder = ::testing::TempDir();
  std::string const path = folder + "oruplay-cue-test.cue";
  CueSheet sheet;
  std::string error;
};

TEST_F(CueSheetTest, ReadsTracksWithTheirTitlesPerformersAndStartTimes) {
  ASSERT_TRUE(
      read("REM GENRE Test\r\n"
           "PERFORMER \"Album Artist\"\r\n"
           "TITLE \"Album\"\r\n"
           "FILE \"sub dir/album.flac\" WAVE\r\n"
           "  TRACK 01 AUDIO\r\n"
           "    TITLE \"One\"\r\n"
           "    INDEX 00 00:00:00\r\n"
           "    INDEX 01 00:00:32\r\n"
           "  TRACK 02 AUDIO\r\n"
           "    TITLE \"Two, with a comma\"\r\n"
           "    PERFORMER Soloist\r\n"
           "    INDEX 01 61:01:74\r\n"))
      << error;
  EXPECT_EQ(sheet.audioFile, folder + "sub dir/album.flac");
  EXPECT_EQ(sheet.title, "Album");
  ASSERT_EQ(sheet.tracks.size(), 2u);
  EXPECT_EQ(sheet.tracks[0].number, 1);
  EXPECT_EQ(sheet.tracks[0].title, "One");
  EXPECT_EQ(sheet.tracks[0].performer, "Album Artist") << "inherited from the album";
  EXPECT_EQ(sheet.tracks[0].startMs, 426u) << "32 frames of 1/75 s, from INDEX 01";
  EXPECT_EQ(sheet.tracks[1].title, "Two, with a comma");
  EXPECT_EQ(sheet.tracks[1].performer, "Soloist");
  EXPECT_EQ(sheet.tracks[1].startMs, (61u * 60u + 1u) * 1000u + 986u);
}

TEST_F(CueSheetTest, AbsoluteFilePaths_AreKept) {
  ASSERT_TRUE(read("FILE \"/music/album.flac\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n"));
  EXPECT_EQ(sheet.audioFile, "/music/album.flac");
}

TEST_F(CueSheetTest, SheetsItCannotPlay_AreRefusedWithTheReason) {
  EXPECT_FALSE(read("FILE \"a.flac\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:75\n"));
  EXPECT_EQ(error, "bad INDEX time on line 3");
  EXPECT_FALSE(read("FILE \"a.flac\" WAVE\nTRACK 01 AUDIO\nFILE \"b.flac\" WAVE\n"));
  EXPECT_EQ(error, "cue sheets with several FILE entries are not supported");
  EXPECT_FALSE(read("TITLE \"nothing to play\"\n"));
  EXPECT_EQ(error, "the cue sheet names no FILE or no TRACK");
  EXPECT_FALSE(CueSheet::read(folder + "no-such.cue", &sheet, &error));
  EXPECT_EQ(error, "cannot read the cue sheet");
}

}  // namespace
}  // namespace oruplay
