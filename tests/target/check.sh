#!/usr/bin/env bash
# Checks the sizes of what is built for the target, and compares its recordings with those of this
# machine.
#   check.sh ARM-BUILD NATIVE-BUILD
# One line a check; exits 1 when one failed.
set -uo pipefail
export LC_ALL=C
arm=$(realpath "$1") native=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# within WHAT FIGURE UNIT LIMIT: below it, in KiB.
within() {
  local verdict=ok
  local kib=$4
  [[ $3 != bytes ]] || kib=$(($4 * 1024))
  (($2 > 0 && $2 < kib)) || verdict=FAIL failures=$((failures + 1))
  printf '%-5s %s: %s, limit %d KiB\n' "$verdict" "$1" "$2 $3" "$4"
}
passes() { # passes NAME COMMAND...
  local verdict=ok name=$1
  shift
  "$@" >"$work/said" 2>&1 || verdict=FAIL failures=$((failures + 1))
  printf '%-5s %s\n' "$verdict" "$name"
  [[ $verdict == ok ]] || tail -5 "$work/said"
}
# The emulator keeps the program's 4 GiB there; other pages are its own.
base=100000000000
target() { qemu-arm -L /usr/arm-linux-gnueabihf -B 0x$base "$arm/tests/target/kestro-target" "$@"; }
# record MACHINE LAYOUT: into MACHINE/LAYOUT.avi; notes the KiB of resident memory.
record() {
  local run=$native/tests/target/kestro-target build=$native args=()
  [[ $1 == native ]] || run=target build=$arm args=($base)
  mkdir -p "$work/$1/$2.avi.spill"
  "$run" "$build/plugin/avi/libpluginavi.so" "$2" "$work/$1/$2.avi" "${args[@]}" \
    >"$work/$1/log" 2>&1 && sed -n 's/^resident: //p' "$work/$1/log" >"$work/$1/$2.kib"
}

for library in plugin/avi/libpluginavi.so=160 host/libkestro.so=200; do
  arm-linux-gnueabihf-strip -o "$work/stripped" "$arm/${library%=*}"
  within "$(basename "${library%=*}"), stripped" "$(stat -c %s "$work/stripped")" bytes "${library#*=}"
done

for layout in plain first spilled in-place image callback hour large; do
  passes "$layout: recorded here" record native $layout
  passes "$layout: recorded by the target" record arm $layout
  passes "$layout: same bytes" cmp "$work/native/$layout.avi" "$work/arm/$layout.avi"
  [[ $layout != callback ]] ||
    passes "$layout: same images" cmp "$work"/{native,arm}/$layout.avi.images
done
passes "large: every entry leads to its chunk" \
  "$native/tools/kestro-avi/kestro-avi" verify "$work/arm/large.avi"
size=$(stat -c %s "$work/arm/large.avi")
passes "large: $size bytes, more than 2 GiB" test "$size" -gt $((1 << 31))

# The index grows with the recording, by 24 bytes a packet.
within "resident memory of the target's process, without the emulator's own" \
  "$(<"$work/arm/plain.kib")" KiB 8192
for layout in plain hour; do
  echo "      $layout: $(<"$work/arm/$layout.kib") KiB;" \
    "here, of everything in the process: $(<"$work/native/$layout.kib") KiB"
done

[[ $failures -eq 0 ]] || { echo "$failures checks failed"; exit 1; }
echo "all checks passed"
