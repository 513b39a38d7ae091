#!/usr/bin/env bash
# Kills recorders at random moments and checks the files.
#   kill.sh TOOL N [SEED]
# A recording in real time, with a sync a second, is killed N times, in place, with images and by
# callback in turn, several at a time. Each file (by callback: its repaired copy) must have everything
# that the index names: the length in ffprobe, and in play all packets and exact seeks. The repaired
# file must seek exactly in ffmpeg. Prints figures for each mode; exits 1 when a file fails, 77 where
# a reader is missing.
set -uo pipefail
export LC_ALL=C
tool=$(realpath "$1") count=$2 seed=${3:-$RANDOM}
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/../tests/e2e/readers.sh"
require ffmpeg ffprobe jq
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
modes=(in-place image callback) at_once=8 fps=25
quiet() { "$@" >/dev/null 2>&1 </dev/null; }

# The packets of a track of a file, one a line: time, size, key.
packets() { # packets TRACK FILE [OPTION...]
  local track=$1
  shift
  "$tool" play --json "$@" 2>/dev/null | jq -r "select(.track == $track) | [.pts_ms, .size, .key] | @csv"
}

# Every picture differs from the others; there is a key frame every 0.4 s, and 1 MB/s in all, which
# is enough for an image every second.
ffmpeg -nostdin -v error -f lavfi -i "testsrc2=d=8:size=320x180:r=$fps,noise=alls=20:allf=t" -c:v libx264 \
  -preset ultrafast -tune zerolatency -g 10 -pix_fmt yuv420p -b:v 6M in.h264 &&
  ffmpeg -nostdin -v error -f lavfi -i anoisesrc=d=8:r=48000 -ac 2 in.wav &&
  quiet "$tool" record -o whole.avi in.h264 in.wav &&
  picture_hashes whole.avi >whole.hashes || { echo "no input to record"; exit 1; }
for track in 0 1; do packets $track whole.avi >"whole.$track"; done

# The newest image in a side file: of its two slots, that with the higher number and a right
# checksum.
image() { # image FILE
  local size at generation length sum from='' newest=0 bytes=0
  size=$(od -A n -t u4 -j 12 -N 4 "$1" 2>/dev/null) || return
  for at in 4096 $((4096 + size)); do
    read -r generation length sum < <(od -A n -t u4 -j "$at" -N 12 "$1")
    [[ $generation -gt $newest && $sum -eq $({ slice "$at" 8 "$1"; slice $((at + 16)) "$length" "$1"; } |
      gzip -1 | tail -c 8 | od -A n -t u4 -N 4) ]] || continue
    newest=$generation from=$((at + 16)) bytes=$length
  done
  [[ -z $from ]] || slice $from "$bytes" "$1"
}
slice() { tail -c +$(($1 + 1)) "$3" | head -c "$2"; }

# How many chunks of an id the index before the data, or in a side file, names.
entries() { # entries ID FILE
  local front
  if [[ $2 == *.sync ]]; then
    image "$2" | grep -ao "$1" | wc -l
  else
    front=$(head -c 1M "$2" | grep -abo movi | head -1)
    head -c "${front%%:*}" "$2" | grep -ao "$1" | wc -l
  fi
}

# Seeks to a frame: play begins with the key frame before it, ffmpeg shows the frame itself.
seeks() { # seeks FILE REPAIRED FRAME FRAMES
  local key at
  at=$(awk "BEGIN { printf \"%.3f\", $3 / $fps }")
  key=$(head -n $(($3 + 1)) whole.0 | grep -n true | tail -1)
  cmp -s <(sed -n "${key%%:*},$4p" whole.0) <(packets 0 "$1" --from "$at") &&
    [[ $(ffmpeg -nostdin -v error -ss "$at" -i "$2" -frames:v 1 -map 0:v -f framemd5 - 2>&1 |
      last_fields) == $(sed -n $(($3 + 1))p whole.hashes) ]]
}

# Prints: mode, verdict ("early" before the first sync), seconds lost, frames after the last sync.
try() { # try MODE NAME SECONDS FRAME...
  local mode=$1 name=$2 seconds=$3 pid started file side frames blocks lost verdict=good found status frame
  shift 3
  "$tool" record --realtime --sync "$mode" --sync-interval 1 \
    $([[ $mode == callback ]] || echo --reserve-time 10) -o "$name.avi" in.h264 in.wav \
    >/dev/null 2>&1 </dev/null &
  pid=$!
  until [[ -s $name.avi ]] || ! kill -0 $pid; do sleep 0.02; done
  started=$EPOCHREALTIME
  sleep "$seconds"
  kill -KILL $pid
  wait $pid 2>/dev/null
  lost=$(awk "BEGIN { print $EPOCHREALTIME - $started }")

  file=$name.avi side=$name.avi
  [[ $mode == callback ]] && side=$name.avi.sync file=$name-whole.avi
  frames=$(entries 00dc "$side") blocks=$(entries 01wb "$side")
  lost=$(awk "BEGIN { printf \"%.2f\", $lost - $frames / $fps }")
  "$tool" repair --json "$name.avi" -o "$name-whole.avi" >"$name.json" 2>"$name.log"
  status=$?
  found=$(jq '.tracks[0].kept.packets // 0' "$name.json")
  if [[ $frames -eq 0 ]]; then
    # Nothing is promised; repair finds packets, or exits with 4.
    [[ $status -le 1 && $found -gt 0 || $status -eq 4 ]] && verdict=early || verdict=unrepaired
    echo "$mode $verdict 0 0"
    return
  fi
  [[ $(ffprobe -v error -show_entries format=duration -of csv=p=0 "$file" 2>/dev/null |
    awk "{ print (\$1 * $fps + 0.01 >= $frames) }") == 1 ]] || verdict=short
  # A sync comes with the first packet more than a second after the last one.
  [[ $found -ge $frames && $((found - frames)) -le $((fps + 2)) ]] || verdict=lost
  local after=$((found - frames))
  if [[ $mode == callback ]]; then # the repaired file also has what came after the last sync
    [[ $(jq '.tracks[1].kept.packets' "$name.json") -ge $blocks ]] || verdict=lost
    frames=$found blocks=$(jq '.tracks[1].kept.packets' "$name.json")
  fi
  cmp -s <(head -n "$frames" whole.0) <(packets 0 "$file") &&
    cmp -s <(head -n "$blocks" whole.1) <(packets 1 "$file") || verdict=play
  for frame; do seeks "$file" "$name-whole.avi" $((frame % frames)) "$frames" || verdict=seek; done
  echo "$mode $verdict $lost $after"
  [[ $verdict != good ]] || rm -f "$name"[.-]*
}

RANDOM=$seed
for ((i = 0; i < count; i++)); do
  while [[ $(jobs -rp | wc -l) -ge $at_once ]]; do wait -n; done
  try "${modes[i % 3]}" "kill$i" "$((RANDOM % 5)).$((100 + RANDOM % 900))" \
    $RANDOM $RANDOM $RANDOM >"result$i" &
done
wait
sort -k1,1 -k3n result* | tee results | awk '
  { files[$1]++; verdicts[$1, $2]++; if ($3 > most[$1]) most[$1] = $3; if ($4 > after[$1]) after[$1] = $4 }
  $2 != "good" && $2 != "early" { print "  FAIL  ", $0; bad = 1 }
  END {
    for (mode in files)
      printf "%-8s %d killed, %d before the first sync; %d good; most seconds lost %.2f, frames after the last sync %d\n",
        mode, files[mode], verdicts[mode, "early"], verdicts[mode, "good"], most[mode], after[mode]
    exit bad }' && [[ $(wc -l <results) -eq $count ]]
failed=$?
echo "seed $seed"
[[ $failed -eq 0 ]] || { echo "FAILED"; exit 1; }
