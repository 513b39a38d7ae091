#!/usr/bin/env bash
# Checks that the tool for the target, without its media module, prints and writes the same as the one for
# this machine: for recordings of every layout, cut-off ones and damaged ones.
#   tool.sh ARM-BUILD NATIVE-BUILD EMULATOR...
# One line a check; exits 1 when one failed.
set -uo pipefail
export LC_ALL=C TZ=UTC
arm=$1 native=$2
media=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../media")
shift 2
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

verdict() { # verdict CODE NAME: of the check whose output is in $work/output
  local text=ok
  [[ $1 -eq 0 ]] || text=FAIL failures=$((failures + 1))
  printf '%-5s %s\n' $text "$2"
  [[ $1 -eq 0 ]] || head -20 "$work/output"
}

mkdir "$work/native"
cd "$work/native" || exit 1
record() { # record FILE ARGUMENT...
  "$native/tools/kestro-avi/kestro-avi" record --no-start-time --isft camera -o "$@" || [[ $? -eq 1 ]]
}
damage() { # damage FROM TO: overwrites parts of head, data and index
  local at
  cp "$1" "$2" || return
  for at in 300 20000 $(($(stat -c %s "$2") - 900)); do
    printf '\xff\x00LIST\xff\xff\xff\x7f' | dd of="$2" bs=1 seek="$at" conv=notrunc status=none || return
  done
}
make_files() {
  printf '{"pts_ms":0,"text":"one"}\n{"pts_ms":900,"text":"zwei \\u00e4"}\n' >text.jsonl
  printf '1\n00:00:00,500 --> 00:00:01,500\none\n\n' >text.srt
  record last.avi "$media"/{clip25.h264,stereo48k.wav} text.jsonl &&
    record in-place.avi --sync in-place "$media"/{clip25.h265,mono8k.wav} &&
    record front.avi --sync in-place --front-index-only "$media/clip2997.h264" &&
    record image.avi --sync image --fps 15 "$media"/{clip15.mjpeg,mono8k.wav} &&
    record callback.avi --sync callback --text-form srt "$media/clip-noaud.h264" text.srt &&
    head -c 150000 last.avi >cut.avi && head -c 50000 in-place.avi >cut-in-place.avi &&
    head -c 90 last.avi >head.avi && damage last.avi damaged.avi && damage in-place.avi damaged-in-place.avi
}
make_files >"$work/output" 2>&1
verdict $? "the recordings to compare"
files=(*.avi)
cp -r "$work/native" "$work/arm"

cp "$native/tools/kestro-avi/kestro-avi" "$work/kestro-avi" # a copy is without its module
run() { # run MACHINE ARGUMENT...: prints the output and the exit code
  local tool=("$work/kestro-avi") machine=$1
  [[ $machine == native ]] || tool=("${emulator[@]}" "$arm/tools/kestro-avi/kestro-avi")
  shift
  cd "$work/$machine" || return
  printf -- '-- %s\n' "$*"
  KESTRO_PLUGIN_PATH=${!machine}/plugin/avi "${tool[@]}" "$@" 2>"$work/$machine.err"
  echo "exit code $?"
  cat "$work/$machine.err"
}
# compare CODES ARGUMENT...: CODES are the exit codes that may occur; the first must. FILE stands for each file.
compare() {
  local codes=$1 file words machine
  shift
  for machine in native arm; do
    for file in "${files[@]}"; do
      words=("${@//FILE/"$file"}")
      (run $machine "${words[@]}")
      [[ $* == *FILE* ]] || break
    done >"$work/$machine.log"
  done
  diff "$work"/{native,arm}.log >"$work/output" &&
    ! grep '^exit code' "$work/arm.log" | grep -v "^exit code [$codes]$" >"$work/output" &&
    grep -q "^exit code ${codes:0:1}$" "$work/arm.log"
  verdict $? "here and there: $*"
}
compare 0134 info FILE
compare 0134 info --json --deep FILE
compare 0134 info --tree --plot FILE.svg FILE
compare 0134 verify FILE
compare 0134 verify --json --deep FILE
compare 0134 repair -o FILE.whole FILE
compare 01234 play FILE
compare 01234 play --json --mode back --from 2 FILE
compare 01234 play --seek 0.8 --every 5 FILE
compare 01234 extract -o FILE.tracks FILE
compare 01234 extract --from 1.1 --to 2 --track 0:FILE.h264 --track 1:FILE.wav FILE
compare 01234 clip --from 1 --to 2 -o FILE.clip FILE
compare 01234 join -o FILE.joined FILE FILE
compare 0134 repair --in-place FILE
compare 0134 info FILE
for page in man bash zsh fish; do compare 0 generate $page; done
compare 0 plugin
compare 3 record -o none.avi "$media/clip25.h264"
diff -r "$work"/{native,arm} >"$work/output"
verdict $? "the same files here and there: $(find "$work/arm" -type f | wc -l)"
[[ $failures -eq 0 ]]
