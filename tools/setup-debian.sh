#!/usr/bin/env bash
# Installs what building and testing Sorn needs on Debian 12, skipping what
# is already there: compiler, CMake, Ninja, GoogleTest, Google Benchmark,
# libpng (for the command-line tool), clang-format (for the layout check),
# and for the Python module sorn: numpy, pybind11, pytest and Dask (its tests
# run under CTest), with what `pip install --no-build-isolation .` needs.
set -euo pipefail
packages=(g++ cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev libpng-dev pkg-config clang-format
  python3-dev python3-numpy pybind11-dev python3-pybind11 python3-pytest python3-dask python3-distributed
  python3-pip python3-venv python3-setuptools python3-wheel)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
