#!/usr/bin/env bash
# Compares the test digests of two builds of the library (SORN_TEST_DIGEST_DIR,
# see tests/common/testkit.h): every test that ran in both must have left
# the very same bytes in its buffers. Used by CI on the runs of the wider
# copies of the kernels (x86-64-v4, x86-64-v3) and the build without them.
#   tools/compare-digests.sh <folder of one build> <folder of the other>
set -euo pipefail
a=$1
b=$2
common=0
differ=0
only=0
for f in "$a"/*; do
  name=$(basename "$f")
  if [[ ! -f "$b/$name" ]]; then
    only=$((only + 1))
    continue
  fi
  common=$((common + 1))
  if ! cmp -s "$f" "$b/$name"; then
    echo "differs: $name ($(cat "$f") against $(cat "$b/$name"))"
    differ=$((differ + 1))
  fi
done
for f in "$b"/*; do
  [[ -f "$a/$(basename "$f")" ]] || only=$((only + 1))
done
echo "test digests: $common tests in both builds, $differ differ, $only in one build only"
if [[ $common -eq 0 ]]; then
  echo "no test ran in both builds"
  exit 1
fi
[[ $differ -eq 0 ]]
