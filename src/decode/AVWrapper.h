#pragma once

struct AVClass;

namespace oru {

// The engine's facade over FFmpeg: every FFmpeg call of the decoding pipeline goes through
// it. Stateless; its operations are non-virtual so that a test double can be linked in its
// place. Any thread.
class AVWrapper {
 public:
  // The range of player protocol versions that the linked FFmpeg implements: the declared
  // minimum and maximum of the integer option "oru_version" on the format-context class and the
  // codec-context class. (-1, -1) when either class lacks the option or the two disagree.
  void getORUVersions(int* minVersion, int* maxVersion) const;

  // The declared range of the first integer option named "oru_version" of `avClass`;
  // (-1, -1) when there is none.
  void findORUVersion(AVClass const* avClass, int* minVersion, int* maxVersion) const;

  // getORUVersions over the given classes instead of FFmpeg's own.
  void getORUVersions(AVClass const* formatClass, AVClass const* codecClass, int* minVersion,
                      int* maxVersion) const;
};

}  // namespace oru
