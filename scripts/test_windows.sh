#!/usr/bin/env bash
# The Windows build and its tests: cross-compiles with MinGW into BUILD_DIR, then runs the suite under Wine
# in a fresh prefix there, on an Xvfb display of its own (DXGI needs one). Called by scripts/test.sh
# --windows, after the bootstrap.
#   scripts/test_windows.sh BUILD_DIR
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Second stage, inside the Xvfb session: make the prefix, keep one Wine server up for the whole run
# (starting one per test program costs seconds each), run the suite, stop the server.
if [[ "${1:-}" == --run-suite ]]; then
  build_dir="$2"
  "$root/scripts/wine_run.sh" cmd.exe /c exit
  wineserver --wait
  wineserver --persistent
  "$root/scripts/wine_run.sh" cmd.exe /c exit  # starts Wine's own services before the first test
  status=0
  # A failed test runs once more: now and then Wine fails to start a program at all (no output, no code
  # of ours run). A test that fails twice fails the run.
  ctest --test-dir "$build_dir" --output-on-failure -j2 --repeat until-pass:2 || status=$?
  wineserver --kill || true
  exit "$status"
fi

build_dir="${1:?usage: test_windows.sh BUILD_DIR}"

cmake -S "$root" -B "$build_dir" -G Ninja \
  --toolchain "$root/cmake/toolchains/x86_64-w64-mingw32.cmake" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKIV_BUILD_BENCHMARKS=OFF
cmake --build "$build_dir" --parallel "$(nproc)"

export KIV_WINEPREFIX="$build_dir/wineprefix"
export WINEPREFIX="$KIV_WINEPREFIX"
rm -rf "$KIV_WINEPREFIX" "$KIV_WINEPREFIX.lock"
xvfb-run --auto-servernum --server-args="-screen 0 1280x1024x24 -nolisten tcp" \
  "${BASH_SOURCE[0]}" --run-suite "$build_dir"
