#!/usr/bin/env bash
# Builds Pixmora and runs every test: unit and end-to-end tests, then the unit
# tests again built with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

jobs=$(nproc)
# Debug information is a third of the compile time and no test reads it; the
# sanitizers' reports need line tables only.
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPIXMORA_WERROR=ON -DPIXMORA_BENCHMARKS=OFF \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG"
cmake --build build/release -j"$jobs"
(cd build/release && ctest --output-on-failure --timeout 600 -j"$jobs")

cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug -DPIXMORA_WERROR=ON \
    -DPIXMORA_SANITIZE=ON -DPIXMORA_UNIT_TESTS_ONLY=ON -DCMAKE_CXX_FLAGS_DEBUG=-g1
cmake --build build/sanitize -j"$jobs"
(cd build/sanitize && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --output-on-failure -L unit -j"$jobs")
