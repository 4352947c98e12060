#include "CueSheet.h"

#include "Units.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace oruplay {
namespace {

// The rest of a cue line after its keyword: a quoted string, or the next word.
std::string argument(std::istringstream& words) {
  words >> std::ws;
  std::string value;
  if (words.peek() == '"') {
    words.get();
    std::getline(words, value, '"');
  } else {
    words >> value;
  }
  return value;
}

// A cue sheet's times count a compact disc's frames.
constexpr unsigned kFramesPerSecond = 75;

// mm:ss:ff in milliseconds; false when malformed.
bool parseIndexTime(std::string const& text, unsigned* ms) {
  unsigned minutes = 0;
  unsigned seconds = 0;
  unsigned frames = 0;
  char end = 0;
  if (std::sscanf(text.c_str(), "%u:%u:%u%c", &minutes, &seconds, &frames, &end) != 3 ||
      seconds >= 60 || frames >= kFramesPerSecond) {
    return false;
  }
  *ms = static_cast<unsigned>((minutes * 60 + seconds) * oru::host::kMsPerSecond +
                              frames * oru::host::kMsPerSecond / kFramesPerSecond);
  return true;
}

}  // namespace

bool CueSheet::read(std::string const& path, CueSheet* sheet, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = "cannot read the cue sheet";
    return false;
  }
  std::string const folder =
      path.find('/') == std::string::npos ? "" : path.substr(0, path.rfind('/') + 1);
  *sheet = CueSheet();
  std::string line;
  int lineNumber = 0;
  while (std::getline(in, line)) {
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    std::istringstream words(line);
    std::string keyword;
    words >> keyword;
    Track* track = sheet->tracks.empty() ? nullptr : &sheet->tracks.back();
    if (keyword == "FILE") {
      if (!sheet->audioFile.empty()) {
        *error = "cue sheets with several FILE entries are not supported";
        return false;
      }
      std::string const file = argument(words);
      sheet->audioFile = !file.empty() && file[0] == '/' ? file : folder + file;
    } else if (keyword == "TRACK") {
      Track next;
      words >> next.number;
      sheet->tracks.push_back(next);
    } else if (keyword == "TITLE") {
      (track != nullptr ? track->title : sheet->title) = argument(words);
    } else if (keyword == "PERFORMER") {
      (track != nullptr ? track->performer : sheet->performer) = argument(words);
    } else if (keyword == "INDEX" && track != nullptr) {
      int index = -1;
      words >> index;
      if (index == 1 && !parseIndexTime(argument(words), &track->startMs)) {
        *error = "bad INDEX time on line " + std::to_string(lineNumber);
        return false;
      }
    }
  }
  if (sheet->audioFile.empty() || sheet->tracks.empty()) {
    *error = "the cue sheet names no FILE or no TRACK";
    return false;
  }
  for (Track& track : sheet->tracks) {
    if (track.performer.empty()) {
      track.performer = sheet->performer;
    }
  }
  return true;
}

}  // namespace oruplay
