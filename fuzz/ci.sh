#!/usr/bin/env bash
# CI: every fuzz target (fuzz/fuzz_*.cpp) for a minute. Installs clang and
# libFuzzer with apt-get when they are missing. Fails (non-zero status) when
# a target does not build, does not run, or makes a finding; SORN_FUZZ_BUILD
# names the build folder, as for fuzz/run.
set -euo pipefail
cd "$(dirname "$0")/.."
missing=()
for p in clang libclang-rt-14-dev; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
fuzz/run 60
