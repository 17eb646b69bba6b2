#!/usr/bin/env bash
# test.sh: installs what is missing, builds the library with its tests and runs them.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build
cmake --preset release ${CI:+-DVORNCORE_WERROR=ON} >/dev/null
cmake --build --preset release
ctest --preset release --parallel "$(nproc)"
