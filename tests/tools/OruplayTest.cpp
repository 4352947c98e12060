// oruplay run as a user runs it, through the shell: its exit status, what it prints and the
// file it writes.
#include "FaultServer.h"
#include "Fixtures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>

using namespace oru;
using test::fixture;
using ::testing::HasSubstr;

namespace {

class OruplayTest : public ::testing::Test {
 protected:
  ~OruplayTest() override {
    for (char const* suffix : {".out", ".err", ".wav", ".single.wav", ".cue"}) {
      std::remove((base + suffix).c_str());
    }
  }
  // Runs `command` ("oruplay" in it, for a minute at most): its status, with `out` and `err`.
  int run(std::string command) {
    command.replace(command.find("oruplay"), 7, "timeout 60 " ORUPLAY_COMMAND);
    int const status = std::system(
        ("exec </dev/null >'" + base + ".out' 2>'" + base + ".err'; " + command).c_str());
    out = test::readText(base + ".out");
    err = test::readText(base + ".err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // Frames of the 16-bit stereo WAV file written, from its header; -1 without one.
  long wavFrames() {
    std::string const bytes = test::readText(wav);
    if (bytes.size() < 44) {
      return -1;
    }
    uint32_t dataBytes = 0;
    bytes.copy(reinterpret_cast<char*>(&dataBytes), 4, 40);  // little-endian, as is the host
    EXPECT_EQ(bytes.size(), 44u + dataBytes) << "the header describes the data that follows";
    return bytes.rfind("RIFF", 0) == 0 ? static_cast<long>(dataBytes / 4) : -1;
  }

  std::string const base = ::testing::TempDir() + "oruplay-test-" + std::to_string(getpid());
  std::string const wav = base + ".wav";
  std::string const toWav = "-o 'wav:" + wav + "' ";
  std::string out, err;
};

TEST_F(OruplayTest, FailingInputsAmongGoodOnes_AreReportedInALineEachAndTheOthersPlay) {
  test::FaultServer server("", test::FaultServer::kNotFound);
  std::string const broken = fixture("not-audio.txt"), chained = fixture("chained.ogg");
  std::string const inputs = broken + " " + server.url() + " no-such.mp3 " + chained;
  EXPECT_EQ(run("oruplay " + toWav + fixture("tone.flac") + " " + inputs), 1);
  EXPECT_NEAR(wavFrames(), 72000 + 96000, 256);  // each Vorbis link trims its own delay
  EXPECT_EQ(err, "oruplay: " + broken + ": not an audio file\noruplay: " + server.url() +
                     ": not found (HTTP 404)\noruplay: no-such.mp3: cannot open: No such file "
                     "or directory\n")
      << "no line of the engine's log without -l";
  // Faster than real time, each link of the chain still has its line (and only one).
  std::string const last = "[5/5] " + chained + "  ";
  EXPECT_THAT(out, HasSubstr(last + "Alpha - First Song\n" + last + "Beta - Second Song\n"));
}

TEST_F(OruplayTest, RadioThatGoesAway_ReconnectsThenEndsEarlyWithItsReason) {
  test::FaultServer radio(test::readText(fixture("long.mp3")), test::FaultServer::kLiveCloses);
  EXPECT_EQ(run("oruplay -o null " + radio.url()), 1);
  std::string const name = "oruplay: " + radio.url() + ": ";
  EXPECT_THAT(err, ::testing::StartsWith(name + "reconnecting\n"));
  EXPECT_THAT(err,
              ::testing::EndsWith(name + "stream ended early: Server returned 404 Not Found\n"));
}

TEST_F(OruplayTest, StandardInput_PlaysThroughTheDataCallback) {
  EXPECT_EQ(run("oruplay -q " + toWav + "- <" + fixture("tone.flac")), 0) << err;
  EXPECT_NEAR(wavFrames(), 72000, 40);
  EXPECT_EQ(out, "") << "quiet: no status line";
}

// Quiet, only the signal wakes the main thread before the inputs have played out.
TEST_F(OruplayTest, CtrlCOrTerm_WhileTheFirstInputPlays_StopsCleanlyWithACompleteFile) {
  std::string const tone = fixture("tone.flac");
  std::pair<std::string, std::string> const cases[] = {
      {"", "INT"}, {"-q ", "INT"}, {"-q ", "TERM"}};
  for (auto const& [options, signal] : cases) {
    SCOPED_TRACE(options + "SIG" + signal);
    std::remove(wav.c_str());
    EXPECT_EQ(run("oruplay --realtime " + options + toWav + tone + " " + tone + " & for i in " +
                  "$(seq 2000); do [ $(stat -c %s '" + wav + "' 2>/dev/null || echo 0) -gt 44 ] " +
                  "&& break; sleep 0.01; done; kill -" + signal + " $!; wait $!"),
              130);
    EXPECT_THAT(err, HasSubstr("oruplay: interrupted"));
    EXPECT_GT(wavFrames(), 0);
    EXPECT_LT(wavFrames(), 2 * 72000);
  }
}

TEST_F(OruplayTest, OnATerminal_TheLineIsRedrawnInPlaceWithMinutesAndSeconds) {
  std::string const tone = fixture("tone.flac");
  ASSERT_EQ(run("script -qec \"oruplay -o null " + tone + "\" /dev/null"), 0) << err;
  EXPECT_THAT(out, ::testing::EndsWith("\r\033[K[1/1] " + tone + "  0:01\r\n"));
}

TEST_F(OruplayTest, At_PlaysTheFirstInputAtThatTimeOnTheWallClock) {
  // Unpaced, the file holds the silence from the output's start to that time, 3 to 4 s ahead.
  std::string const at = std::to_string(std::time(nullptr) + 4);
  ASSERT_EQ(run("oruplay -q " + toWav + "--at " + at + " " + fixture("tone.flac")), 0) << err;
  EXPECT_GT(wavFrames(), 72000 + 24000) << "the start-up takes far less than 2.5 s";
  EXPECT_LT(wavFrames(), 72000 + 4 * 48000);
}

TEST_F(OruplayTest, CueSheetAlbum_PlaysLikeItsFileWithALinePerTrack) {
  ASSERT_EQ(run("oruplay " + toWav + fixture("album.cue")), 0) << err;
  std::string const cue = "/3] " + fixture("album.cue") + "  ";
  EXPECT_EQ(out, "[1" + cue + "The Test Band - Opening\n[2" + cue + "Guest Singer - Middle\n[3" +
                     cue + "The Test Band - Closing\n");
  std::string const album = test::readText(wav);
  ASSERT_EQ(run("oruplay -q -o 'wav:" + base + ".single.wav' " + fixture("album.flac")), 0);
  EXPECT_GT(album.size(), 44u + 3u * 48000u * 4u - 200u);
  EXPECT_TRUE(album == test::readText(base + ".single.wav")) << "exactly as its file";
}

// The file's end takes the tracks past it away, and none of them reports: quiet, nothing else
// would end the wait.
TEST_F(OruplayTest, CueSheetLongerThanItsFile_EndsWithTheFile) {
  std::ofstream(base + ".cue") << "FILE \"" << fixture("album.flac") << "\" WAVE\nTRACK 01 AUDIO\n"
                               << "INDEX 01 00:00:00\nTRACK 02 AUDIO\nINDEX 01 00:05:00\n";
  ASSERT_EQ(run("oruplay -q " + toWav + base + ".cue"), 0) << err;
  EXPECT_NEAR(wavFrames(), 3 * 48000, 40);
}

}  // namespace
