#include "Options.h"

#include <getopt.h>

#include <algorithm>
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
    "  -l, --log-level N    show engine log lines of level N and above (2 detail ... 6 fatal;\n"
    "                       default 5, errors)\n"
    "  -q, --quiet          no status line\n"
    "  -h, --help           this text\n"
    "\n"
    "Exit status: 0 when every input played, 1 when an input failed (the others are still\n"
    "played), 2 for a usage error or an output that cannot be used, 130 after Ctrl-C.\n";

namespace {

option const kLongOptions[] = {{"output", required_argument, nullptr, 'o'},
                               {"rate", required_argument, nullptr, 'r'},
                               {"format", required_argument, nullptr, 'f'},
                               {"start", required_argument, nullptr, 's'},
                               {"realtime", no_argument, nullptr, 't'},
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

// Applies option `letter` with its argument `text`; the reason when the argument is not valid.
std::string apply(int letter, char const* text, Options* options) {
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

Command parseOptions(int argc, char** argv, Options* options, std::string* error) {
  optind = 0;  // a full reset: GNU getopt then also forgets the state of an earlier parse
  opterr = 0;
  int letter = 0;
  while ((letter = getopt_long(argc, argv, ":o:r:f:s:tl:qh", kLongOptions, nullptr)) != -1) {
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
        *error = apply(letter, optarg, options);
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
