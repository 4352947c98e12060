#pragma once

#include <string>
#include <vector>

namespace oruplay {

// An album in one audio file, as a cue sheet describes it.
struct CueSheet {
  struct Track {
    int number = 0;
    std::string title;
    std::string performer;  // the album's performer when the track names none
    unsigned startMs = 0;   // INDEX 01
  };

  std::string audioFile;  // the FILE entry, resolved against the cue sheet's folder
  std::string title;
  std::string performer;
  std::vector<Track> tracks;  // in the order of the sheet

  // Reads the cue sheet at `path`; on failure returns false with the reason in `error`.
  // Sheets that spread an album over several FILE entries are not supported.
  static bool read(std::string const& path, CueSheet* sheet, std::string* error);
};

}  // namespace oruplay
