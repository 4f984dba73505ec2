#!/bin/bash
# usage: scripts/test.sh [ctest's arguments]
# Builds the library with warnings as errors, and everything with the sanitizers in build/test; runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/packages.sh run upstream scan test

# In place of what run.sh may have configured there: the same, and warnings are errors.
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DNETSIFT_WERROR=ON >/dev/null
ninja -C build --quiet
cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DNETSIFT_WERROR=ON -DNETSIFT_SANITIZE=ON -DNETSIFT_TESTS=ON \
  -DNETSIFT_RELEASE_LIBRARY="$PWD/build/libnetsift.so" >/dev/null
ninja -C build/test --quiet

ctest --test-dir build/test --output-on-failure --no-tests=error -j "$(($(nproc) + 2))" "$@" </dev/null
