#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace oru::test {

// Where the build made the test media (tests/fixtures/make-fixtures.sh); only targets made with
// oru_add_media_test know the folder.
inline std::string fixture(std::string const& name) { return ORUPLAY_FIXTURE_DIR "/" + name; }

// The whole content of a file; empty when it cannot be read.
inline std::string readText(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace oru::test
