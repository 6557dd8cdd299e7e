#!/usr/bin/env bash
# The main job: installs what is missing, builds the kivml tool and benchmarks the text-orientation
# classifier with it, batched and unbatched, with one lane and the machine's fit, with ONNX Runtime's
# shared pools spinning and not, against raw and hand-written ONNX Runtime, then prints the report.
#   scripts/bench_classifier.sh [--build-dir DIR] [kivml bench options...]
# Options after the build directory go to `kivml bench` in place of the run's size and configurations
# (--requests 1536 --concurrency 1,2,8,32 --lanes 1,auto --spinning both); see `kivml bench --help`.
# The report's JSON and PNG land in <build>/bench/.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

build_dir="$root/build"
if [[ "${1:-}" == --build-dir ]]; then
  [[ $# -ge 2 ]] || { echo "bench_classifier.sh: --build-dir needs a directory" >&2; exit 2; }
  build_dir="$2"
  shift 2
fi

"$root/scripts/bootstrap.sh"

cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build_dir" --parallel "$(nproc)" --target kivml

model="${KIV_THIRD_PARTY_CACHE:-$root/third_party/cache}/models/ch_ppocr_mobile_v2.0_cls_infer.onnx"
report_dir="$build_dir/bench"
mkdir -p "$report_dir"

# 1536 requests per load and concurrency give stable medians on two cores and keep the job under four
# minutes: 8 kivml configurations and 8 references at 4 levels. Concurrency 8 and 32 fill the batches of
# 8 that the library runs without a GPU; 1 and 2 are where a host waits on single requests.
size=(--requests 1536 --concurrency 1,2,8,32 --lanes 1,auto --spinning both)
if (($# > 0)); then
  size=("$@")
fi
"$build_dir/tools/kivml/kivml" bench "$model" --both --dim x:2=48 --dim x:3=192 \
  --json "$report_dir/classifier.json" --plot "$report_dir/classifier.png" "${size[@]}"
