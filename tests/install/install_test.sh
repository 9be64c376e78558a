#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, builds a consumer against it
# with find_package(Sorn) and with pkg-config, and runs both from there.
set -euo pipefail
build_dir=$1
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
quiet() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; echo "failed: $*"; exit 1; }; }

quiet cmake --install "$build_dir" --prefix "$work/prefix"
libdir=$(ls -d "$work"/prefix/lib*)
export PKG_CONFIG_PATH="$libdir/pkgconfig"
quiet cmake -S "$source_dir/tests/install/consumer" -B "$work/build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release
quiet cmake --build "$work/build"
# The installed library finds its base library next to itself.
readelf -d "$libdir/libSorn.so.1" | grep -q 'RUNPATH.*\$ORIGIN' || { echo "no \$ORIGIN RUNPATH"; exit 1; }
env -u LD_LIBRARY_PATH "$work/build/consumer_cmake"
env -u LD_LIBRARY_PATH "$work/build/consumer_pkgconfig"
# The installed command-line tool runs from its own RUNPATH as well.
if [ -x "$work/prefix/bin/sorn" ]; then
  env -u LD_LIBRARY_PATH "$work/prefix/bin/sorn" stats >/dev/null
fi
echo "install test passed"
