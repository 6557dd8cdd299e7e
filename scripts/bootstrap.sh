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
  libvulkan-dev
  libvkd3d-dev
  vulkan-tools
  # The Windows build (scripts/test.sh --windows): MinGW, and Wine on an Xvfb display to run its tests.
  g++-mingw-w64-x86-64-posix
  wine
  wine64
  xvfb
  # What Wine only recommends but DXGI (OpenGL on X) and Direct3D 12 (Vulkan) need under it.
  libgl1
  libgl1-mesa-dri
  libvulkan1
  libxcomposite1
  libxcursor1
  libxfixes3
  libxi6
  libxinerama1
  libxrandr2
  libxrender1
  libxxf86vm1
)

# Packages whose bookworm version is too old: Dawn (ONNX Runtime's WebGPU provider) needs lavapipe from
# Mesa 25, which bookworm has only in its backports suite.
declare -A backports_minimum=(
  [mesa-vulkan-drivers]=25
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

sudo_cmd=()
need_root() {
  if [[ "$(id -u)" -ne 0 ]]; then
    if ! command -v sudo >/dev/null 2>&1; then
      echo "bootstrap: need root (or sudo) to install: $*" >&2
      exit 1
    fi
    sudo_cmd=(sudo)
  fi
}

# Adds bookworm-backports by copying the machine's own entry for bookworm (its mirror, components and
# signing key), so no registry host is named here.
add_backports_suite() {
  if grep -rqsE '(^|[[:space:]])bookworm-backports([[:space:]]|$)' /etc/apt/sources.list /etc/apt/sources.list.d/; then
    return
  fi
  local entry=""
  local file
  for file in /etc/apt/sources.list.d/*.sources; do
    [[ -f "$file" ]] || continue
    entry="$(awk -v RS= '/(^|\n)Suites:([^\n]* )?bookworm( |\n|$)/ { print; exit }' "$file")"
    [[ -n "$entry" ]] && break
  done
  if [[ -n "$entry" ]]; then
    printf '%s\n' "$entry" | grep -v '^#' | sed -E 's/^Suites:.*/Suites: bookworm-backports/' |
      "${sudo_cmd[@]}" tee /etc/apt/sources.list.d/kivml-bookworm-backports.sources >/dev/null
    return
  fi
  entry="$(grep -h -E '^deb (\[[^]]*\] )?[^ ]+ bookworm ' /etc/apt/sources.list /etc/apt/sources.list.d/*.list \
    2>/dev/null | head -n 1 || true)"
  if [[ -z "$entry" ]]; then
    echo "bootstrap: no apt source entry for bookworm to derive bookworm-backports from" >&2
    exit 1
  fi
  printf '%s\n' "$entry" | sed -E 's/ bookworm / bookworm-backports /' |
    "${sudo_cmd[@]}" tee /etc/apt/sources.list.d/kivml-bookworm-backports.list >/dev/null
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

missing_backports=()
for package in "${!backports_minimum[@]}"; do
  version="$(dpkg-query -W -f='${Version}' "$package" 2>/dev/null || true)"
  if is_installed "$package" && dpkg --compare-versions "$version" ge "${backports_minimum[$package]}"; then
    continue
  fi
  missing_backports+=("$package")
done

if ((${#missing[@]} + ${#missing_backports[@]} > 0)); then
  echo "bootstrap: installing ${missing[*]} ${missing_backports[*]}"
  need_root "${missing[@]}" "${missing_backports[@]}"
  if ((${#missing_backports[@]} > 0)); then
    add_backports_suite
  fi
  "${sudo_cmd[@]}" apt-get update
  if ((${#missing[@]} > 0)); then
    "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y --no-install-recommends "${missing[@]}"
  fi
  if ((${#missing_backports[@]} > 0)); then
    "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y --no-install-recommends -t bookworm-backports "${missing_backports[@]}"
  fi
fi

"$root/scripts/fetch_onnxruntime.sh"
"$root/scripts/fetch_models.sh"
