#!/usr/bin/env bash
# Puts the pinned ONNX Runtime into third_party/cache/onnxruntime-<version>/:
#   include/            C and C++ API headers
#   lib/linux-x64/      libonnxruntime.so.1 (+ libonnxruntime.so link for the linker)
#   bin/win-x64/        onnxruntime.dll and the DLLs shipped beside it
#   VERSION_NUMBER      the runtime version, read by cmake/KivOnnxRuntime.cmake
# The binaries come from the Node.js binding package, the headers from a package that ships the matching
# C API headers. Both tarballs are checked against the sha512 pinned below; a second run is a no-op.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

ort_version=1.30.0

runtime_package=onnxruntime-node
runtime_package_version=1.30.0
runtime_integrity='sha512-twhs1C2C/BFkz1yc5OY0KIU2GUq6DURO7hD4bx5Q2Qy3nAMJwRXW8xU3NVczE29VA9lolLOYepoD8fjTGOfIqw=='

# API 29 headers; the 1.30 library serves every API version up to its own, and we ask for 16.
headers_package=com.github.asus4.onnxruntime
headers_package_version=0.4.9
headers_integrity='sha512-BkzxduSZ9IkeDP6Q8lz2TFU2ie7hSSvS7ZIfzMooExoq0CNzJnuuGaUJ7IsojBgqO4ouD1jXah8OYyJbCN29Fg=='

cache_root="${KIV_THIRD_PARTY_CACHE:-$root/third_party/cache}"
dest="$cache_root/onnxruntime-$ort_version"
stamp="$dest/.fetched"
stamp_text="$runtime_package@$runtime_package_version $runtime_integrity
$headers_package@$headers_package_version $headers_integrity
layout 1"

if [[ -f "$stamp" && "$(cat "$stamp")" == "$stamp_text" ]]; then
  exit 0
fi

# shellcheck source=scripts/npm_fetch.sh
source "$root/scripts/npm_fetch.sh"
npm_fetch_check_tools fetch_onnxruntime

mkdir -p "$cache_root"
work="$(mktemp -d "$cache_root/.onnxruntime-fetch.XXXXXX")"
trap 'rm -rf "$work"' EXIT

runtime_tgz="$(npm_fetch fetch_onnxruntime "$work" "$runtime_package" "$runtime_package_version" "$runtime_integrity")"
headers_tgz="$(npm_fetch fetch_onnxruntime "$work" "$headers_package" "$headers_package_version" "$headers_integrity")"

stage="$work/stage"
mkdir -p "$stage/include" "$stage/lib/linux-x64" "$stage/bin/win-x64"

# Only the named members are extracted; tar fails if one is not in the archive.
tar -xzf "$runtime_tgz" -C "$stage/lib/linux-x64" --strip-components=5 \
  package/bin/napi-v6/linux/x64/libonnxruntime.so.1
tar -xzf "$runtime_tgz" -C "$stage/bin/win-x64" --strip-components=5 --wildcards \
  'package/bin/napi-v6/win32/x64/*.dll'
tar -xzf "$headers_tgz" -C "$stage/include" --strip-components=7 --wildcards \
  'package/Plugins/iOS~/onnxruntime.xcframework/ios-arm64/onnxruntime.framework/Headers/*.h'

ln -s libonnxruntime.so.1 "$stage/lib/linux-x64/libonnxruntime.so"
printf '%s\n' "$ort_version" >"$stage/VERSION_NUMBER"
chmod -R u+rwX,go+rX "$stage"

for required in include/onnxruntime_c_api.h include/onnxruntime_cxx_api.h \
  lib/linux-x64/libonnxruntime.so.1 bin/win-x64/onnxruntime.dll; do
  if [[ ! -s "$stage/$required" ]]; then
    echo "fetch_onnxruntime: $required is missing from the packages" >&2
    exit 1
  fi
done

printf '%s\n' "$stamp_text" >"$stage/.fetched"
rm -rf "$dest"
mv "$stage" "$dest"
echo "fetch_onnxruntime: ONNX Runtime $ort_version is in $dest" >&2
