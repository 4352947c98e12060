// The parts of oruplay that need no player: its command line and the cue sheets it reads.
#include "CueSheet.h"
#include "Options.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>

using namespace oruplay;

namespace {

constexpr int64_t kSecond = 1000000000, kNow = 1800000000 * kSecond;  // 2027-01-15 08:00 UTC

Command parse(std::vector<std::string> args, Options* options, std::string* error) {
  args.insert(args.begin(), "oruplay");
  std::vector<char*> argv;
  for (std::string& arg : args) {
    argv.push_back(arg.data());
  }
  argv.push_back(nullptr);
  return parseOptions(static_cast<int>(args.size()), argv.data(), options, error, kNow);
}

TEST(OptionsTest, EveryOptionInShortOrLongForm_IsRead) {
  Options options;
  std::string error;
  ASSERT_EQ(parse({"a.flac", "-o", "wav:out.wav", "--rate=44100", "-f", "float", "--start", "1500",
                   "-tq", "--log-level", "3", "--at", "1800000600.25", "-", "b.ogg"},
                  &options, &error),
            Command::Play)
      << error;
  EXPECT_EQ(std::make_tuple(options.output, options.rate, options.format, options.startMs,
                            options.realtime, options.quiet, options.logLevel),
            std::make_tuple("wav:out.wav", 44100, oru::PCM_FLOAT, 1500u, true, true, 3));
  EXPECT_EQ(options.inputs, (std::vector<std::string>{"a.flac", "-", "b.ogg"}));
  EXPECT_EQ(options.atNs, kNow + 600 * kSecond + kSecond / 4);
  // A time of day is its next occurrence: today's, or tomorrow's once it has passed.
  ASSERT_EQ(parse({"--at", "09:30Z", "a.flac"}, &options, &error), Command::Play) << error;
  EXPECT_EQ(options.atNs, kNow + 5400 * kSecond);
  ASSERT_EQ(parse({"-a", "07:59:30.5Z", "a.flac"}, &options, &error), Command::Play) << error;
  EXPECT_EQ(options.atNs, kNow + (86400 - 30) * kSecond + kSecond / 2);
  EXPECT_EQ(parse({"a.flac", "--help"}, &options, &error), Command::Help);
}

TEST(OptionsTest, UsageErrors_SayWhatIsWrong) {
  std::string const kAtError = "--at needs a time: HH:MM[:SS[.FFF]][Z] or seconds since the epoch";
  std::vector<std::pair<std::vector<std::string>, std::string>> const cases{
      {{"--volume", "11", "a.flac"}, "unknown option '--volume'"},
      {{"-x", "a.flac"}, "unknown option '-x'"},
      {{"a.flac", "-o"}, "-o needs a value"},
      {{"-r", "7999", "a.flac"}, "--rate needs a rate from 8000 to 384000"},
      {{"--start=-1", "a.flac"}, "--start needs a number of milliseconds"},
      {{"-l", "7", "a.flac"}, "--log-level needs a level from 0 to 6"},
      {{"-f", "s24", "a.flac"}, "unknown format 's24' (s16, s32 or float)"},
      {{"--at", "24:00", "a.flac"}, kAtError},
      {{"--at", "8:00:60", "a.flac"}, kAtError},
      {{"--at", "soon", "a.flac"}, kAtError},
      {{"-o", "null"}, "no input given"},
      {{"album.cue", "a.flac"}, "a cue sheet plays on its own"}};
  for (auto const& [args, message] : cases) {
    Options options;
    std::string error;
    EXPECT_EQ(parse(args, &options, &error), Command::UsageError) << message;
    EXPECT_EQ(error, message);
  }
}

class CueSheetTest : public ::testing::Test {
 protected:
  ~CueSheetTest() override { std::remove(path.c_str()); }
  bool read(std::string const& text) {
    std::ofstream(path) << text;
    return CueSheet::read(path, &sheet, &error);
  }

  std::string const path = ::testing::TempDir() + "oruplay-" + std::to_string(getpid()) + ".cue";
  CueSheet sheet;
  std::string error;
};

// The album's sheet, played by the oruplay tests, covers titles and performers.
TEST_F(CueSheetTest, TrackStartsAreReadToTheMillisecond_AndSheetsItCannotPlayAreRefused) {
  ASSERT_TRUE(
      read("FILE \"/music/album.flac\" WAVE\r\nTRACK 01 AUDIO\r\nINDEX 01 00:00:32\r\n"
           "TRACK 02 AUDIO\r\nINDEX 00 00:00:00\r\nINDEX 01 61:01:74\r\n"))
      << error;
  EXPECT_EQ(sheet.audioFile, "/music/album.flac");
  ASSERT_EQ(sheet.tracks.size(), 2u);
  EXPECT_EQ(sheet.tracks[0].startMs, 426u) << "32 frames of 1/75 s";
  EXPECT_EQ(sheet.tracks[1].startMs, (61u * 60u + 1u) * 1000u + 986u) << "from INDEX 01";
  std::pair<char const*, char const*> const cases[] = {
      {"FILE \"a.flac\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:75\n", "bad INDEX time on line 3"},
      {"FILE \"a.flac\" WAVE\nTRACK 01 AUDIO\nFILE \"b.flac\" WAVE\n",
       "cue sheets with several FILE entries are not supported"},
      {"TITLE \"nothing to play\"\n", "the cue sheet names no FILE or no TRACK"}};
  for (auto const& [text, reason] : cases) {
    EXPECT_FALSE(read(text));
    EXPECT_EQ(error, reason);
  }
  EXPECT_FALSE(CueSheet::read(path + ".missing", &sheet, &error));
  EXPECT_EQ(error, "cannot read the cue sheet");
}

}  // namespace
