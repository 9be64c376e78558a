#!/usr/bin/env bash
# Installs the peer libraries that bench/compare measures Sorn against and
# that its oracle tests check results with: OpenCV 4 and VLFeat, from
# Debian's packages, skipping what is already there.
#
#   bench/compare/setup-peers.sh           OpenCV and VLFeat (what CI needs)
#   bench/compare/setup-peers.sh --photo   also python3-skimage, whose data
#                                          folder holds the photograph that
#                                          the region benchmarks scale to 1
#                                          and 4 megapixels
#   bench/compare/setup-peers.sh --python  also python3-opencv, the peer of
#                                          the Python module's benchmark
#                                          (bench/python)
set -euo pipefail
packages=(libopencv-dev libvlfeat-dev)
for option in "$@"; do
  case "$option" in
    --photo) packages+=(python3-skimage) ;;
    --python) packages+=(python3-opencv) ;;
    *) echo "setup-peers.sh: unknown option $option" >&2; exit 2 ;;
  esac
done
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
