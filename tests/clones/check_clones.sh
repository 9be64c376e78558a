#!/usr/bin/env bash
# The library built with kernels for x86-64-v3: every function of a kernel
# unit is there twice, as NAME.plain and NAME.v3, and NAME is the indirect
# function that chooses between them at load. And no floating-point
# expression was contracted into a fused multiply-add in the wider copy:
# the only fused instructions are the compiler's own exact conversion of
# unsigned 32-bit integers to float (the high half converted, times 65536,
# plus the low half converted: the product is exact, so the one rounding is
# that of the conversion).
#   tests/clones/check_clones.sh <libSorn.so.1>
set -euo pipefail
lib=$1
symbols=$(nm "$lib")
plain=$(awk '$2 ~ /^[tT]$/ && $3 ~ /\.plain$/ { sub(/\.plain$/, "", $3); print $3 }' <<<"$symbols" | sort)
v3=$(awk '$2 ~ /^[tT]$/ && $3 ~ /\.v3$/ { sub(/\.v3$/, "", $3); print $3 }' <<<"$symbols" | sort)
ifuncs=$(awk '$2 ~ /^[iI]$/ { print $3 }' <<<"$symbols" | sort)
count=$(grep -c . <<<"$plain" || true)
if [[ $count -eq 0 ]]; then
  echo "no kernel has a plain copy: the library was built without clones"
  exit 1
fi
if [[ "$plain" != "$v3" ]]; then
  echo "the plain and x86-64-v3 copies differ in their functions:"
  diff <(echo "$plain") <(echo "$v3") | head -20
  exit 1
fi
missing=$(comm -23 <(echo "$plain") <(echo "$ifuncs"))
if [[ -n "$missing" ]]; then
  echo "functions with two copies but no indirect function:"
  echo "$missing" | head -20
  exit 1
fi
echo "$count functions of the kernel units, each in a plain and an x86-64-v3 copy"

# Every fused multiply-add, with the instructions before it in its function.
contracted=$(objdump -d --no-show-raw-insn "$lib" | awk '
  /^[0-9a-f]+ </ { fn = $2; n = 0; next }
  {
    line[n % 6] = $0; n++
    if ($0 ~ /vfn?m(add|sub)[0-9]+[ps][sd]/) {
      conv = 0; high = 0
      for (i = 1; i < 6 && i < n; i++) {
        prev = line[(n - 1 - i) % 6]
        if (prev ~ /vcvtdq2ps/) conv++
        if (prev ~ /vpsrld +\$0x10/) high = 1
      }
      if (conv < 2 || !high) print fn ": " $0
    }
  }')
if [[ -n "$contracted" ]]; then
  echo "fused multiply-adds that are not the exact conversion of unsigned integers:"
  echo "$contracted" | head -20
  exit 1
fi
echo "no contracted floating-point expression"
