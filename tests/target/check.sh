#!/usr/bin/env bash
# Checks the sizes of what is built for the target, the memory of a recording there, and that it and what
# the tool writes (tool.sh) are the same as on this machine. The tests, which the target runs too, check
# every layout byte by byte.
#   check.sh ARM-BUILD NATIVE-BUILD
# One line a check; exits 1 when one failed.
set -uo pipefail
export LC_ALL=C
arm=$(realpath "$1") native=$(realpath "$2")
emulator=(qemu-arm -L /usr/arm-linux-gnueabihf)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

check() { # check NAME COMMAND...
  local verdict=ok name=$1
  shift
  "$@" >"$work/output" 2>&1 || verdict=FAIL failures=$((failures + 1))
  printf '%-5s %s\n' "$verdict" "$name"
  [[ $verdict == ok ]] || tail -5 "$work/output"
}
# The emulator keeps the program's 4 GiB there; other pages are its own.
base=100000000000
record() { # record MACHINE FRAMES: into MACHINE-FRAMES.avi; notes the KiB of resident memory
  local run=("$native/tests/target/kestro-target" "$native") guest=()
  [[ $1 == native ]] || guest=("$base") \
    run=("${emulator[@]}" -B "0x$base" "$arm/tests/target/kestro-target" "$arm")
  "${run[@]:0:${#run[@]}-1}" "${run[-1]}/plugin/avi/libpluginavi.so" "$2" "$work/$1-$2.avi" "${guest[@]}" \
    >"$work/log" 2>&1 && sed -n 's/^resident: //p' "$work/log" >"$work/$1-$2.kib"
}

for file in plugin/avi/libpluginavi.so=160 host/libkestro.so=200 recorder/libkestrorec.so=300 \
  tools/kestro-avi/kestro-avi=600; do
  arm-linux-gnueabihf-strip -o "$work/stripped" "$arm/${file%=*}"
  bytes=$(stat -c %s "$work/stripped")
  check "${file%=*}, stripped: $bytes bytes, limit ${file#*=} KiB" \
    test "$bytes" -gt 0 -a "$bytes" -lt $((${file#*=} * 1024))
done
for frames in 500 90000; do # 90,000 are an hour; the index takes 24 bytes a packet
  for machine in native arm; do check "$frames frames: recorded, $machine" record $machine $frames; done
  check "$frames frames: same bytes" cmp "$work"/{native,arm}-$frames.avi
  echo "      resident: $(<"$work/arm-$frames.kib") KiB; here $(<"$work/native-$frames.kib") KiB"
done
kib=$(<"$work/arm-500.kib")
check "resident memory of the process on the target: limit 8192 KiB" test "$kib" -gt 0 -a "$kib" -lt 8192

bash "${BASH_SOURCE[0]%/*}/tool.sh" "$arm" "$native" "${emulator[@]}" || failures=$((failures + 1))

[[ $failures -eq 0 ]] || { echo "$failures checks failed"; exit 1; }
echo "all checks passed"
