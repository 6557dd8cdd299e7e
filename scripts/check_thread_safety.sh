#!/usr/bin/env bash
# Builds kivcore and the kivml library objects with clang's thread-safety analysis in build-tsa, warnings
# as errors, so that every access to a member annotated KIV_GUARDED_BY holds its lock
# (kivcore/include/kivcore/threads/ThreadSafetyAnnotations.h). Compiles only: no tests, tools or
# benchmarks, and nothing runs. First it checks that the analysis sees the annotations at all.
#   scripts/check_thread_safety.sh
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

case "${1:-}" in
  "") ;;
  -h | --help)
    sed -n '2,6s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
    exit 0
    ;;
  *)
    echo "check_thread_safety.sh: takes no arguments, not '$*'" >&2
    exit 2
    ;;
esac

"$root/scripts/bootstrap.sh"

# Debug: nothing runs, and the analysis does not depend on optimisation.
build_dir="$root/build-tsa"
cmake -S "$root" -B "$build_dir" -G Ninja \
  -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_COMPILER=clang++ \
  -DKIV_THREAD_SAFETY_ANALYSIS=ON \
  -DKIV_BUILD_TESTS=OFF \
  -DKIV_BUILD_BENCHMARKS=OFF \
  -DKIV_BUILD_TOOLS=OFF

# A clean build proves nothing if the macros came out empty or the lock types lost their annotations: the
# analysis must flag exactly the lines marked "flagged" below, and accept the usual locking patterns.
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
probe="$work/probe.cpp"
cat >"$probe" <<'CPP'
#include "kivcore/threads/ScopedLock.h"

using kivcore::threads::RecursiveMutex;
using kivcore::threads::ScopedLock;

class Account {
 public:
  void Deposit(int amount) {
    ScopedLock lock(GetMutex(), "Deposit");
    AddLocked(amount);
  }
  void DepositAndUnlockEarly(int amount) {
    ScopedLock lock(mMutex, "DepositAndUnlockEarly");
    mBalance += amount;
    lock.Unlock();
  }
  bool TryDeposit(int amount) {
    if (!mMutex.TryLock("TryDeposit")) {
      return false;
    }
    mBalance += amount;
    mMutex.Unlock();
    return true;
  }
  int ReadUnlocked() const {
    return mBalance;  // flagged
  }
  void AddUnlocked(int amount) {
    AddLocked(amount);  // flagged
  }
  void WriteAfterUnlock(int amount) {
    ScopedLock lock(mMutex, "WriteAfterUnlock");
    lock.Unlock();
    mBalance += amount;  // flagged
  }
  void UnlockTwice() {
    ScopedLock lock(mMutex, "UnlockTwice");
    lock.Unlock();
    lock.Unlock();  // flagged
  }
  void LockInOneScopeTwice() {
    ScopedLock outer(mMutex, "outer");
    ScopedLock inner(mMutex, "inner");  // flagged
  }

 private:
  const RecursiveMutex& GetMutex() const KIV_RETURN_CAPABILITY(mMutex) { return mMutex; }
  void AddLocked(int amount) KIV_REQUIRES(mMutex) { mBalance += amount; }

  RecursiveMutex mMutex{"Account"};
  int mBalance KIV_GUARDED_BY(mMutex) = 0;
};
CPP
expected="$(grep -n '// flagged' "$probe" | cut -d: -f1 | sort -n | tr '\n' ' ')"
found="$(clang++ -std=c++20 -fsyntax-only -Wthread-safety -Wthread-safety-beta \
  -I"$root/kivcore/include" -I"$build_dir/kivcore/include" "$probe" 2>&1 |
  sed -n 's/^[^:]*probe\.cpp:\([0-9]*\):[0-9]*: warning: .*/\1/p' | sort -n -u | tr '\n' ' ')"
if [[ "$found" != "$expected" ]]; then
  echo "check_thread_safety.sh: the analysis flagged probe lines '$found', expected '$expected':" >&2
  clang++ -std=c++20 -fsyntax-only -Wthread-safety -Wthread-safety-beta \
    -I"$root/kivcore/include" -I"$build_dir/kivcore/include" "$probe" >&2 || true
  exit 1
fi

cmake --build "$build_dir" --target kivcore kivml_objects --parallel "$(nproc)"
echo "check_thread_safety.sh: kivcore and kivml build clean under -Wthread-safety"
