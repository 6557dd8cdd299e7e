#!/usr/bin/env bash
# Builds the .npy reader fuzzer with clang (libFuzzer, ASan, UBSan) in build-fuzz and runs it.
#   scripts/fuzz.sh [SECONDS]     (default 60)
# Starts from the seeds in tests/fuzz/corpus, which it only reads; new inputs go to a temporary directory
# that is removed afterwards. A crash leaves its input in build-fuzz/artifacts and fails the script.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

usage() {
  sed -n '2,3s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
}

case "${1:-}" in
  -h | --help)
    usage
    exit 0
    ;;
esac
seconds="${1:-60}"
if (($# > 1)) || [[ ! "$seconds" =~ ^[0-9]+$ ]] || ((10#$seconds == 0)); then
  echo "fuzz.sh: takes one argument, a positive number of seconds, not '$*'" >&2
  usage >&2
  exit 2
fi
seconds=$((10#$seconds))

"$root/scripts/bootstrap.sh"

build_dir="$root/build-fuzz"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_COMPILER=clang++ \
  -DKIV_SANITIZE=address \
  -DKIV_BUILD_FUZZERS=ON \
  -DKIV_BUILD_TESTS=OFF \
  -DKIV_BUILD_BENCHMARKS=OFF \
  -DKIV_BUILD_TOOLS=OFF
cmake --build "$build_dir" --target kivml_numpy_reader_fuzzer --parallel "$(nproc)"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
artifacts="$build_dir/artifacts"
mkdir -p "$artifacts"

export ASAN_OPTIONS="${ASAN_OPTIONS:-halt_on_error=1:abort_on_error=1:detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}"
# The first directory receives new inputs; the seeds are read from the second. -max_len leaves room for
# headers beyond the 16-bit length that version 1.0 images can state.
"$build_dir/tests/fuzz/kivml_numpy_reader_fuzzer" \
  -max_total_time="$seconds" \
  -timeout=10 \
  -max_len=70000 \
  -dict="$root/tests/fuzz/npy.dict" \
  -artifact_prefix="$artifacts/" \
  -print_final_stats=1 \
  "$work" "$root/tests/fuzz/corpus" </dev/null
echo "fuzz.sh: no crash in ${seconds}s; $(find "$work" -type f | wc -l) new corpus entries (discarded)"
