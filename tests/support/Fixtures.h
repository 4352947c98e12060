#pragma once

#include <string>

namespace oru::test {

// Where the build made the test media (tests/fixtures/make-fixtures.sh); only targets made with
// oru_add_media_test know the folder.
inline std::string fixture(std::string const& name) { return ORUPLAY_FIXTURE_DIR "/" + name; }

}  // namespace oru::test
