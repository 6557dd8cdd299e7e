#!/usr/bin/env bash
# Installs what building and testing the project needs: Debian packages that are missing, then the pinned
# ONNX Runtime (scripts/fetch_onnxruntime.sh) and the benchmark model (scripts/fetch_models.sh). Safe to
# run again; with everything present it only checks.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

# Debian packages, one per line. Add new ones here.
packages=(
  cmake
  ninja-build
  g++
  pkg-config
  libboost-dev
  libgtest-dev
  libgmock-dev
  libbenchmark-dev
  python3-onnx
  python3-numpy
  libonnx-testdata
  nodejs
  npm
  clang-format
  clang
  libcli11-dev
  nlohmann-json3-dev
  gnuplot-nox
)

# A package also counts as present when this command is on PATH: a Node.js installed from elsewhere ships
# its own npm and conflicts with Debian's npm package.
declare -A satisfied_by_command=(
  [nodejs]=node
  [npm]=npm
)

is_installed() {
  local status
  status="$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" || return 1
  [[ "$status" == *" ok installed" ]]
}

missing=()
for package in "${packages[@]}"; do
  if is_installed "$package"; then
    continue
  fi
  command_name="${satisfied_by_command[$package]:-}"
  if [[ -n "$command_name" ]] && command -v "$command_name" >/dev/null 2>&1; then
    continue
  fi
  missing+=("$package")
done

if ((${#missing[@]} > 0)); then
  echo "bootstrap: installing ${missing[*]}"
  sudo_cmd=()
  if [[ "$(id -u)" -ne 0 ]]; then
    if ! command -v sudo >/dev/null 2>&1; then
      echo "bootstrap: need root (or sudo) to install: ${missing[*]}" >&2
      exit 1
    fi
    sudo_cmd=(sudo)
  fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update
  "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
fi

"$root/scripts/fetch_onnxruntime.sh"
"$root/scripts/fetch_models.sh"
