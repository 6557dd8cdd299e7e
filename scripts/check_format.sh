#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format makes of it (.clang-format at the root).
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h')
clang-format --dry-run --Werror "${files[@]}"
echo "clang-format: ${#files[@]} files follow .clang-format"
