#include "Options.h"

#include "Units.h"

#include <getopt.h>

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace oruplay {

char const kUsage[] =
    "Usage: oruplay [OPTIONS] INPUT...\n"
    "Plays each INPUT in turn: a file, an http:// or https:// URL, or - for standard input.\n"
    "A cue sheet (ALBUM.cue, given alone) plays the album file it names, track by track.\n"
    "\n"
    "  -o, --output OUT     alsa[:DEVICE] (the sound card; default), wav:PATH or null\n"
    "  -r, --rate HZ        output rate (default 48000); every input is converted to it\n"
    "  -f, --format FMT     output sample format: s16 (default), s32 or float\n"
    "  -s, --start MS       start the first input's time line at MS milliseconds\n"
    "  -t, --realtime       pace wav and null output at the real rate\n"
    "  -a, --at TIME        start the first input at TIME on the system's clock, which NTP or\n"
    "                       PTP keep in step across machines: the next HH:MM[:SS[.FFF]] (local\n"
    "                       time; UTC with a final Z), or seconds since the epoch\n"
    "  -l, --log-level N    show engine log lines of level N and above (2 detail ... 6 fatal;\n"
    "                       default 6: only what precedes an abort)\n"
    "  -q, --quiet          no status line\n"
    "  -h, --help           this text\n"
    "\n"
    "Exit status: 0 when every input played, 1 when an input failed or its stream ended\n"
    "early (the others are still played), 2 for a usage error or an output that cannot be\n"
    "used, 130 after Ctrl-C.\n";

namespace {

option const kLongOptions[] = {{"output", required_argument, nullptr, 'o'},
                               {"rate", required_argument, nullptr, 'r'},
                               {"format", required_argument, nullptr, 'f'},
                               {"start", required_argument, nullptr, 's'},
                               {"realtime", no_argument, nullptr, 't'},
                               {"at", required_argument, nullptr, 'a'},
                               {"log-level", required_argument, nullptr, 'l'},
                               {"quiet", no_argument, nullptr, 'q'},
                               {"help", no_argument, nullptr, 'h'},
                               {nullptr, 0, nullptr, 0}};

// Reads `text` into `value` when it is a whole number from `minimum` to `maximum`; else `reason`.
template <typename Number>
std::string readNumber(char const* text, long minimum, long maximum, Number* value,
                       char const* reason) {
  char* end = nullptr;
  long const parsed = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || parsed < minimum || parsed > maximum) {
    return reason;
  }
  *value = static_cast<Number>(parsed);
  return "";
}

using oru::host::kNsPerSecond;

constexpr int64_t kSecondsPerDay = 86400;
// The last second since the epoch whose ns still fit in 64 bits (in the year 2262).
constexpr long long kLastEpochSecond = INT64_MAX / kNsPerSecond - 1;

// Reads a --at time into ns since the epoch: seconds ("1795000000.25") or the next time of day
// after `nowNs` ("18:30", "18:30:05.5", UTC with a final "Z"). False when it is neither.
bool readTime(std::string const& text, int64_t nowNs, int64_t* atNs) {
  char* end = nullptr;
  if (text.find(':') == std::string::npos) {
    // Whole seconds apart from their fraction: a double holds ns since the epoch only to 256.
    long long const whole = std::strtoll(text.c_str(), &end, 10);
    double fraction = 0;
    if (end != text.c_str() && *end == '.') {
      fraction = std::strtod(end, &end);  // ".25"; a lone "." converts nothing and stays
    }
    if (end == text.c_str() || *end != '\0' || whole <= 0 || whole > kLastEpochSecond) {
      return false;
    }
    *atNs = whole * kNsPerSecond + std::llround(fraction * kNsPerSecond);
    return true;
  }
  int hours = -1, minutes = -1, used = 0;
  double seconds = 0;
  if (std::sscanf(text.c_str(), "%2d:%2d%n", &hours, &minutes, &used) != 2) {
    return false;
  }
  std::string rest = text.substr(static_cast<size_t>(used));
  bool const utc = !rest.empty() && rest.back() == 'Z';
  if (utc) {
    rest.pop_back();
  }
  if (!rest.empty()) {
    seconds = rest[0] == ':' ? std::strtod(rest.c_str() + 1, &end) : -1;
    if (seconds < 0 || seconds >= 60 || end == rest.c_str() + 1 || *end != '\0') {
      return false;
    }
  }
  if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) {
    return false;
  }
  // Midnight of today, in UTC or in the local time zone.
  time_t const now = static_cast<time_t>(nowNs / kNsPerSecond);
  tm day{};
  if (utc) {
    gmtime_r(&now, &day);
  } else {
    localtime_r(&now, &day);
  }
  day.tm_hour = hours;
  day.tm_min = minutes;
  day.tm_sec = 0;
  day.tm_isdst = -1;
  time_t const minute = utc ? timegm(&day) : mktime(&day);
  *atNs = static_cast<int64_t>(minute) * kNsPerSecond + std::llround(seconds * kNsPerSecond);
  if (*atNs <= nowNs) {
    *atNs += kSecondsPerDay * kNsPerSecond;  // tomorrow's
  }
  return true;
}

// Applies option `letter` with its argument `text`; the reason when the argument is not valid.
std::string apply(int letter, char const* text, int64_t nowNs, Options* options) {
  std::string const value = text;
  switch (letter) {
    case 'o':
      options->output = value;
      return "";
    case 'r':
      return readNumber(text, 8000, 384000, &options->rate,
                        "--rate needs a rate from 8000 to 384000");
    case 's':
      return readNumber(text, 0, 0x7FFFFFFF, &options->startMs,
                        "--start needs a number of milliseconds");
    case 'a':
      return readTime(value, nowNs, &options->atNs)
                 ? ""
                 : "--at needs a time: HH:MM[:SS[.FFF]][Z] or seconds since the epoch";
    case 'l':
      return readNumber(text, 0, 6, &options->logLevel, "--log-level needs a level from 0 to 6");
    default:  // 'f'
      if (value != "s16" && value != "s32" && value != "float") {
        return "unknown format '" + value + "' (s16, s32 or float)";
      }
      options->format = value == "s16"   ? oru::PCM_S16
                        : value == "s32" ? oru::PCM_S32
                                         : oru::PCM_FLOAT;
      return "";
  }
}

}  // namespace

bool isCueSheet(std::string const& input) {
  return input.size() > 4 && (input.compare(input.size() - 4, 4, ".cue") == 0 ||
                              input.compare(input.size() - 4, 4, ".CUE") == 0);
}

Command parseOptions(int argc, char** argv, Options* options, std::string* error, int64_t nowNs) {
  optind = 0;  // a full reset: GNU getopt then also forgets the state of an earlier parse
  opterr = 0;
  int letter = 0;
  while ((letter = getopt_long(argc, argv, ":o:r:f:s:ta:l:qh", kLongOptions, nullptr)) != -1) {
    switch (letter) {
      case 'h':
        return Command::Help;
      case 'q':
        options->quiet = true;
        break;
      case 't':
        options->realtime = true;
        break;
      case ':':
        *error = std::string(argv[optind - 1]) + " needs a value";
        return Command::UsageError;
      case '?':
        *error = "unknown option '" +
                 (optopt != 0 ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1]) +
                 "'";
        return Command::UsageError;
      default:
        *error = apply(letter, optarg, nowNs, options);
        if (!error->empty()) {
          return Command::UsageError;
        }
    }
  }
  options->inputs.assign(argv + optind, argv + argc);
  if (options->inputs.empty()) {
    *error = "no input given";
    return Command::UsageError;
  }
  if (options->inputs.size() > 1 &&
      std::any_of(options->inputs.begin(), options->inputs.end(), isCueSheet)) {
    *error = "a cue sheet plays on its own";
    return Command::UsageError;
  }
  return Command::Play;
}

}  // namespace oruplay
