#!/usr/bin/env bash
# The library built with kernels for the wider vector units: every function
# of a kernel unit is there three times, as NAME.plain, NAME.v3 (x86-64-v3)
# and NAME.v4 (x86-64-v4), and NAME is the indirect function that chooses
# between them at load. And no floating-point expression was contracted into
# a fused multiply-add in the wider copies: the only fused instructions are
# the compiler's own exact conversion of unsigned 32-bit integers to float
# (the high half converted, times 65536, plus the low half converted: the
# product is exact, so the one rounding is that of the conversion).
#
# Then the choice at load: which_copy prints where the indirect function of
# one kernel points, and that is the copy for this processor, or the copy
# below it when the C library's tunables turn its features off (as CI does
# to run the suite on every copy).
#   tests/clones/check_clones.sh <libSorn.so.1> <which_copy>
set -euo pipefail
lib=$1
which_copy=$2
symbols=$(nm "$lib")
copy() {
  awk -v s=".$1" '$2 ~ /^[tT]$/ && substr($3, length($3) - length(s) + 1) == s {
    print substr($3, 1, length($3) - length(s)) }' <<<"$symbols" | sort
}
plain=$(copy plain)
ifuncs=$(awk '$2 ~ /^[iI]$/ { print $3 }' <<<"$symbols" | sort)
count=$(grep -c . <<<"$plain" || true)
if [[ $count -eq 0 ]]; then
  echo "no kernel has a plain copy: the library was built without clones"
  exit 1
fi
for level in v3 v4; do
  if [[ "$plain" != "$(copy $level)" ]]; then
    echo "the plain and $level copies differ in their functions:"
    diff <(echo "$plain") <(copy $level) | head -20
    exit 1
  fi
done
missing=$(comm -23 <(echo "$plain") <(echo "$ifuncs"))
if [[ -n "$missing" ]]; then
  echo "functions with copies but no indirect function:"
  echo "$missing" | head -20
  exit 1
fi
echo "$count functions of the kernel units, each in a plain, an x86-64-v3 and an x86-64-v4 copy"

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

# The resolvers ask the C library through a GOT entry: it must be relocated
# before the first relocation against a kernel's indirect function calls a
# resolver.
order=$(readelf -rW "$lib" | awk -v names="$ifuncs" '
  BEGIN { n = split(names, list, "\n"); for (i = 1; i <= n; i++) ifunc[list[i]] = 1 }
  /^Relocation section/ { section = $3 }
  section == "'"'"'.rela.dyn'"'"'" && NF >= 5 {
    row++
    name = $5; sub(/@.*/, "", name)
    if (name == "__x86_get_cpuid_feature_leaf" && !ask) ask = row
    if ((name in ifunc) && !first) first = row
  }
  END { print (ask ? ask : 0), (first ? first : 0) }')
read -r ask first <<<"$order"
echo "relocations: the feature query at $ask, the first kernel pointer at $first"
if [[ $ask -eq 0 || ( $first -ne 0 && $first -lt $ask ) ]]; then
  echo "the C library's feature query is not relocated before the first kernel pointer ($ask, $first)"
  exit 1
fi

# The copy chosen at load, with each level's features turned off in turn.
address() {
  awk -v s="sorna__add_c1_u8u8u8.$1" '$3 == s { sub(/^0+/, "", $1); print $1 }' <<<"$symbols"
}
flags=$(grep -m1 '^flags' /proc/cpuinfo)
has() { [[ " $flags " == *" $1 "* ]]; }
expect=plain
if has avx2 && has fma && has bmi2 && has movbe; then expect=v3; fi
if [[ $expect == v3 ]] && has avx512f && has avx512bw && has avx512vl && has avx512dq && has avx512cd; then
  expect=v4
fi
check_choice() {
  local tunables=$1 want=$2 got
  got=$(GLIBC_TUNABLES=$tunables "$which_copy")
  if [[ "$got" != "$(address "$want")" ]]; then
    echo "with GLIBC_TUNABLES='$tunables' the load chose 0x$got, not the $want copy at 0x$(address "$want")"
    exit 1
  fi
}
check_choice "" "$expect"
if [[ $expect == v4 ]]; then check_choice glibc.cpu.hwcaps=-AVX512F v3; fi
if [[ $expect != plain ]]; then check_choice glibc.cpu.hwcaps=-AVX512F,-AVX2 plain; fi
echo "the load chose the $expect copy here, and the lower ones with the features turned off"
