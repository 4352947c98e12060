#!/usr/bin/env bash
# Prints the size of the test suite against the size of the code it tests, in non-blank lines of
# C++ (.h and .cpp, support code included), and fails when the tests exceed a third of the code.
#
#   test-ratio.sh [MAX_PERCENT]    default 33
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
max=${1:-33}

count() {
  find "$@" -type f \( -name '*.h' -o -name '*.cpp' \) -print0 | xargs -0 cat | grep -cv '^[[:space:]]*$'
}

tests=$(count tests)
code=$(count src include host tools)
percent=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.1f", 100 * t / c }')
echo "test-ratio: tests ${tests} lines, code ${code} lines (src, include, host, tools): ${percent} %"
if awk -v t="$tests" -v c="$code" -v m="$max" 'BEGIN { exit !(100 * t > m * c) }'; then
  echo "test-ratio: the tests are above ${max} % of the code" >&2
  exit 1
fi
