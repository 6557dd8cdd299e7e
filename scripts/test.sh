#!/usr/bin/env bash
# Bootstraps, configures, builds and runs every test.
#   scripts/test.sh [--sanitize address|thread | --windows] [--build-dir DIR]
# Build directories: build (plain), build-asan, build-tsan, build-windows, unless --build-dir says otherwise.
# --windows cross-compiles for 64-bit Windows with MinGW and runs the tests under Wine, in a fresh Wine
# prefix inside the build directory, on an Xvfb display of its own.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

usage() {
  sed -n '2,6s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
}

sanitize=""
windows=0
build_dir=""
while (($# > 0)); do
  case "$1" in
    --sanitize)
      [[ $# -ge 2 ]] || { usage >&2; exit 2; }
      sanitize="$2"
      shift 2
      ;;
    --sanitize=*)
      sanitize="${1#*=}"
      shift
      ;;
    --windows)
      windows=1
      shift
      ;;
    --build-dir)
      [[ $# -ge 2 ]] || { usage >&2; exit 2; }
      build_dir="$2"
      shift 2
      ;;
    --build-dir=*)
      build_dir="${1#*=}"
      shift
      ;;
    -h | --help)
      usage
      exit 0
      ;;
    *)
      echo "test.sh: unknown argument '$1'" >&2
      usage >&2
      exit 2
      ;;
  esac
done

case "$sanitize" in
  "") default_dir=build ;;
  address)
    default_dir=build-asan
    export ASAN_OPTIONS="${ASAN_OPTIONS:-halt_on_error=1:abort_on_error=1:detect_leaks=1:strict_string_checks=1}"
    export UBSAN_OPTIONS="${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}"
    ;;
  thread)
    default_dir=build-tsan
    export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/tsan.supp}"
    ;;
  *)
    echo "test.sh: --sanitize takes 'address' or 'thread', not '$sanitize'" >&2
    exit 2
    ;;
esac
if ((windows)); then
  [[ -z "$sanitize" ]] || { echo "test.sh: --windows builds without sanitizers" >&2; exit 2; }
  default_dir=build-windows
fi
build_dir="${build_dir:-$root/$default_dir}"

"$root/scripts/bootstrap.sh"

if ((windows)); then
  exec "$root/scripts/test_windows.sh" "$build_dir"
fi

cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKIV_SANITIZE="$sanitize"
cmake --build "$build_dir" --parallel "$(nproc)"

runner=()
# GCC 12's ThreadSanitizer cannot map its shadow memory when the kernel randomises mmap with more than
# 28 bits; running without address randomisation avoids that.
if [[ "$sanitize" == thread && -r /proc/sys/vm/mmap_rnd_bits ]] &&
  (($(cat /proc/sys/vm/mmap_rnd_bits) > 28)) && command -v setarch >/dev/null 2>&1; then
  runner=(setarch "$(uname -m)" --addr-no-randomize)
fi
"${runner[@]}" ctest --test-dir "$build_dir" --output-on-failure -j2
