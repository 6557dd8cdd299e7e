# Sourced by the fetch scripts: downloads one npm package tarball and checks it against a pinned integrity.
#   npm_fetch LOG_TAG WORK_DIR PACKAGE VERSION INTEGRITY  ->  prints the tarball's path
# Needs npm, sha512sum, base64 and od; npm_fetch_check_tools reports the first one missing.

npm_fetch_check_tools() {
  local tag="$1" tool
  for tool in npm tar sha512sum base64 od; do
    if ! command -v "$tool" >/dev/null 2>&1; then
      echo "$tag: '$tool' is missing; run scripts/bootstrap.sh" >&2
      return 1
    fi
  done
}

npm_fetch() {
  local tag="$1" work="$2" package="$3" version="$4" integrity="$5"
  local dir="$work/${package//\//_}"
  mkdir -p "$dir"
  echo "$tag: downloading $package@$version" >&2
  (cd "$dir" && npm pack --ignore-scripts --no-update-notifier --loglevel=error "$package@$version" >/dev/null)
  local tarballs=("$dir"/*.tgz)
  if [[ ${#tarballs[@]} -ne 1 || ! -f "${tarballs[0]}" ]]; then
    echo "$tag: npm pack of $package@$version produced no single tarball" >&2
    return 1
  fi
  # npm integrity strings are base64 digests; compare them as hex with what sha512sum computes.
  local expected actual
  expected="$(printf '%s' "${integrity#sha512-}" | base64 -d | od -An -v -tx1 | tr -d ' \n')"
  actual="$(sha512sum "${tarballs[0]}" | cut -d' ' -f1)"
  if [[ "$expected" != "$actual" ]]; then
    echo "$tag: INTEGRITY MISMATCH for $package@$version" >&2
    echo "  expected sha512 $expected" >&2
    echo "  got      sha512 $actual" >&2
    return 1
  fi
  printf '%s\n' "${tarballs[0]}"
}
