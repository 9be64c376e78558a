#!/usr/bin/env bash
# Checks that the library's sources are laid out as .clang-format says; with
# --fix, lays them out so. The folders are the library's (the public header
# include/sorn.h is laid out by hand and stays outside), and the Python
# module's C++.
set -euo pipefail
cd "$(dirname "$0")/.."
folders=(core arith data stats resize filter matrix region geometry ku tools python/src)
mapfile -t files < <(git ls-files -co --exclude-standard -- "${folders[@]}" | grep -E '\.(c|cpp|h)$' || true)
[ ${#files[@]} -eq 0 ] && exit 0
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
else
  clang-format --dry-run --Werror "${files[@]}"
fi
