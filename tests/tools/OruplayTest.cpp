// oruplay run as a user runs it: a separate process, its exit status, what it prints and the
// file it writes.
#include "Fixtures.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using oru::test::fixture;

std::string readText(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Frames of a 16-bit stereo WAV file written by oruplay, from its header; -1 without one.
long wavFrames(std::string const& path) {
  std::string const bytes = readText(path);
  if (bytes.size() < 44 || bytes.compare(0, 4, "RIFF") != 0) {
    return -1;
  }
  auto const dataBytes =
      static_cast<uint32_t>(static_cast<uint8_t>(bytes[40]) | static_cast<uint8_t>(bytes[41]) << 8 |
                            static_cast<uint8_t>(bytes[42]) << 16 |
                            static_cast<uint32_t>(static_cast<uint8_t>(bytes[43])) << 24);
  EXPECT_EQ(bytes.size(), 44u + dataBytes) << "the header describes the data that follows";
  return static_cast<long>(dataBytes / 4);
}

// One run of oruplay with its output captured in files.
class OruplayRun {
 public:
  OruplayRun(std::vector<std::string> const& args, std::string const& stdinPath = "",
             std::vector<std::string> extraEnvironment = {}) {
    static int counter = 0;
    std::string const base = ::testing::TempDir() + "oruplay-run-" + std::to_string(getpid()) +
                             "-" + std::to_string(counter++);
    mOut = base + ".out";
    mErr = base + ".err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(
        &actions, STDIN_FILENO, stdinPath.empty() ? "/dev/null" : stdinPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, mOut.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, mErr.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<std::string> argv{ORUPLAY_BINARY};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> argvPointers;
    for (std::string& arg : argv) {
      argvPointers.push_back(arg.data());
    }
    argvPointers.push_back(nullptr);
    std::vector<std::string> environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
      environment.emplace_back(*variable);
    }
    environment.insert(environment.end(), extraEnvironment.begin(), extraEnvironment.end());
    std::vector<char*> environmentPointers;
    for (std::string& variable : environment) {
      environmentPointers.push_back(variable.data());
    }
    environmentPointers.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&mPid, argv[0].c_str(), &actions, nullptr, argvPointers.data(),
                          environmentPointers.data()),
              0);
    posix_spawn_file_actions_destroy(&actions);
  }

  ~OruplayRun() {
    if (mStatus < 0) {
      kill(mPid, SIGKILL);
      wait();
    }
    std::remove(mOut.c_str());
    std::remove(mErr.c_str());
  }

  // The exit status, or -1 when the process did not end within the deadline.
  int wait() {
    if (mStatus >= 0) {
      return mStatus;
    }
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    int status = 0;
    while (waitpid(mPid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return mStatus;
  }

  // Waits until standard output holds `text`; false at the deadline.
  bool waitForOutput(std::string const& text) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (out().find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
  }

  void interrupt() { kill(mPid, SIGINT); }
  std::string out() const { return readText(mOut); }
  std::string err() const { return readText(mErr); }

 private:
  pid_t mPid = -1;
  int mStatus = -1;
  std::string mOut;
  std::string mErr;
};

class OruplayTest : public ::testing::Test {
 protected:
  ~OruplayTest() override { std::remove(wav.c_str()); }
  std::string const wav =
      ::testing::TempDir() + "oruplay-test-" + std::to_string(getpid()) + ".wav";
};

TEST_F(OruplayTest, FailingInputAmongGoodOnes_IsReportedAndTheOthersPlay) {
  std::string const broken = fixture("not-audio.txt");
  OruplayRun run({"-o", "wav:" + wav, fixture("tone.flac"), broken, fixture("tone.mp3")});

  EXPECT_EQ(run.wait(), 1);
  EXPECT_NEAR(wavFrames(wav), 2 * 72000, 2 * 40);
  EXPECT_NE(run.err().find("oruplay: " + broken + ": Failed to create demuxer (error 2)"),
            std::string::npos)
      << run.err();
  EXPECT_NE(run.out().find("[3/3] " + fixture("tone.mp3")), std::string::npos) << run.out();
}

TEST_F(OruplayTest, StandardInput_PlaysThroughTheDataCallback) {
  OruplayRun run({"-q", "-o", "wav:" + wav, "-"}, fixture("tone.flac"));
  EXPECT_EQ(run.wait(), 0) << run.err();
  EXPECT_NEAR(wavFrames(wav), 72000, 40);
  EXPECT_EQ(run.out(), "") << "quiet: no status line";
}

TEST_F(OruplayTest, StatusLine_NamesTheSongOfEachChainedLinkAsItPlays) {
  OruplayRun run({"--realtime", "-o", "wav:" + wav, fixture("chained.ogg")});
  EXPECT_EQ(run.wait(), 0) << run.err();
  std::string const out = run.out();
  size_t const first = out.find("Alpha - First Song");
  size_t const second = out.find("Beta - Second Song");
  EXPECT_NE(first, std::string::npos) << out;
  EXPECT_NE(second, std::string::npos) << out;
  EXPECT_LT(first, second) << out;
  EXPECT_NE(out.find("[1/1] " + fixture("chained.ogg") + "  0:01"), std::string::npos) << out;
}

TEST_F(OruplayTest, CtrlC_StopsCleanlyWithACompleteFile) {
  OruplayRun run({"--realtime", "-o", "wav:" + wav, fixture("tone.flac"), fixture("tone.flac")});
  ASSERT_TRUE(run.waitForOutput("[1/2]")) << run.out() << run.err();
  run.interrupt();

  EXPECT_EQ(run.wait(), 130);
  EXPECT_NE(run.err().find("oruplay: interrupted"), std::string::npos) << run.err();
  long const frames = wavFrames(wav);
  EXPECT_GT(frames, 0);
  EXPECT_LT(frames, 2 * 72000);
}

TEST_F(OruplayTest, NoSoundCardAndNoOutput_SaysHowToWriteAFileInstead) {
  // An empty ALSA configuration knows no device at all, like a machine without a card.
  std::string const emptyConfig = ::testing::TempDir() + "oruplay-empty-asound.conf";
  std::ofstream(emptyConfig).close();
  OruplayRun run({fixture("tone.flac")}, "", {"ALSA_CONFIG_PATH=" + emptyConfig});

  EXPECT_EQ(run.wait(), 2);
  EXPECT_NE(run.err().find("oruplay: no sound card to play on"), std::string::npos) << run.err();
  EXPECT_NE(run.err().find("oruplay -o wav:out.wav INPUT..."), std::string::npos) << run.err();
  std::remove(emptyConfig.c_str());
}

TEST_F(OruplayTest, CueSheetAlbum_PlaysLikeItsFileWithTheStatusLineFollowingTheTracks) {
  OruplayRun album({"--realtime", "-o", "wav:" + wav, fixture("album.cue")});
  ASSERT_EQ(album.wait(), 0) << album.err();
  std::string const out = album.out();
  size_t const first =
      out.find("[1/3] " + fixture("album.cue") + "  0:00.0  The Test Band - Opening");
  size_t const second = out.find("[2/3] " + fixture("album.cue") + "  0:00.");
  size_t const third = out.find("[3/3] " + fixture("album.cue") + "  0:00.");
  ASSERT_NE(first, std::string::npos) << out;
  ASSERT_NE(second, std::string::npos) << out;
  ASSERT_NE(third, std::string::npos) << out;
  EXPECT_LT(first, second);
  EXPECT_LT(second, third);
  EXPECT_NE(out.find("Guest Singer - Middle"), std::string::npos) << out;
  EXPECT_NE(out.find("The Test Band - Closing"), std::string::npos) << out;

  std::string const single = wav + ".single.wav";
  OruplayRun file({"-q", "-o", "wav:" + single, fixture("album.flac")});
  ASSERT_EQ(file.wait(), 0) << file.err();
  std::string const albumBytes = readText(wav);
  EXPECT_GT(albumBytes.size(), 44u + 3u * 48000u * 4u - 200u);
  EXPECT_TRUE(albumBytes == readText(single)) << "the album plays exactly as its file does";
  std::remove(single.c_str());
}

TEST_F(OruplayTest, CueSheetsItCannotPlay_AreReported) {
  std::string const cue = ::testing::TempDir() + "oruplay-missing-file.cue";
  std::ofstream(cue) << "FILE \"missing.flac\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n";
  OruplayRun missing({"-o", "null", cue});
  EXPECT_EQ(missing.wait(), 1);
  EXPECT_NE(missing.err().find("Failed to create demuxer (error 2)"), std::string::npos)
      << missing.err();

  OruplayRun mixed({"-o", "null", cue, fixture("tone.flac")});
  EXPECT_EQ(mixed.wait(), 2);
  EXPECT_NE(mixed.err().find("a cue sheet plays on its own"), std::string::npos);
  std::remove(cue.c_str());
}

TEST_F(OruplayTest, HelpAndUsageErrors_HaveTheirExitStatus) {
  OruplayRun help({"--help"});
  EXPECT_EQ(help.wait(), 0);
  EXPECT_EQ(help.out().rfind("Usage: oruplay", 0), 0u) << help.out();

  OruplayRun unknown({"--volume", "11", fixture("tone.flac")});
  EXPECT_EQ(unknown.wait(), 2);
  EXPECT_NE(unknown.err().find("unknown option '--volume'"), std::string::npos);

  OruplayRun noInput({"-o", "null"});
  EXPECT_EQ(noInput.wait(), 2);
  EXPECT_NE(noInput.err().find("no input given"), std::string::npos);
}

}  // namespace
