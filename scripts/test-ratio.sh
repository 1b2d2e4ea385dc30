#!/usr/bin/env bash
# Non-blank lines of test code (tests/, the fake CUDA driver included) against the code it tests (Src/,
# Host/, include/, tools/), counting sources, headers, kernels, CMake and scripts.
set -euo pipefail
cd "$(dirname "$0")/.."
count() {
  find "$@" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.cl' -o -name '*.cmake' -o -name 'CMakeLists.txt' \
    -o -name '*.py' -o -name '*.sh' \) -print0 | xargs -0 cat | grep -cv '^[[:space:]]*$'
}
tests=$(count tests)
code=$(count Src Host include tools)
echo "tests ${tests} / code ${code} = $((100 * tests / code))%"
