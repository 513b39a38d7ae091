#!/usr/bin/env bash
# Kills recorders at random moments and checks the files.
#   kill.sh TOOL N [SEED]
# A recording in real time, with a sync a second, is killed N times, in place, with images and by
# callback in turn, several at a time. Each file (by callback: its repaired copy) must have everything
# that the index names: the length in ffprobe, all packets and exact seeks in play; the repaired file
# must seek exactly in ffmpeg. Prints figures for each mode; exits 1 when a file fails, 77 where a
# reader is missing.
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
  quiet "$tool" extract --track 0:whole.h264 whole.avi &&
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

# Seeks in play to a frame: play must begin with the key frame before it.
play_seeks() { # play_seeks FILE FRAME FRAMES
  local key
  key=$(head -n $(($2 + 1)) whole.0 | grep -n true | tail -1)
  cmp -s <(sed -n "${key%%:*},$3p" whole.0) <(packets 0 "$1" --from "$(at "$2")")
}
at() { awk "BEGIN { printf \"%.3f\", $1 / $fps }"; }

# Prints: mode, verdict ("early" before the first sync), seconds lost, seeks in play, exact ones,
# seeks in ffmpeg, exact ones, frames after the last sync.
try() { # try MODE NAME SECONDS RANDOM...
  local mode=$1 name=$2 seconds=$3 pid started file side frames audios lost verdict=good
  local frame exact=0 exact_ffmpeg=0 found played status
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
  frames=$(entries 00dc "$side") audios=$(entries 01wb "$side")
  lost=$(awk "BEGIN { printf \"%.2f\", $lost - $frames / $fps }")
  "$tool" repair --json "$name.avi" -o "$name-whole.avi" >"$name.json" 2>"$name.log"
  status=$?
  found=$(jq '.tracks[0].kept.packets // 0' "$name.json")
  if [[ $frames -eq 0 ]]; then
    # Nothing is promised; repair finds packets, or exits with 4.
    [[ $status -le 1 && $found -gt 0 || $status -eq 4 ]] && verdict=early || verdict=unrepaired
    echo "$mode $verdict 0 0 0 0 0 0"
    return
  fi
  [[ $(ffprobe -v error -show_entries format=duration -of csv=p=0 "$file" 2>/dev/null |
    awk "{ print (\$1 * $fps + 0.01 >= $frames) }") == 1 ]] || verdict=short
  played=$frames
  if [[ $mode == callback ]]; then # what was repaired has what came after the last sync, too
    played=$found
    [[ $(jq '.tracks[1].kept.packets' "$name.json") -ge $audios ]] || verdict=lost
    audios=$(jq '.tracks[1].kept.packets' "$name.json")
  fi
  [[ $found -ge $frames ]] || verdict=lost
  cmp -s <(head -n "$played" whole.0) <(packets 0 "$file") &&
    cmp -s <(head -n "$audios" whole.1) <(packets 1 "$file") || verdict=play
  # Exit code 1: the index does not name what came after the last sync, which is extracted too.
  quiet "$tool" extract --track "0:$name.h264" "$file"
  [[ $? -le 1 ]] &&
    cmp -s -n "$(stat -c %s "$name.h264")" "$name.h264" whole.h264 || verdict=bytes
  for frame; do
    frame=$((frame % frames))
    play_seeks "$file" $frame "$played" && exact=$((exact + 1))
    [[ $(ffmpeg -nostdin -v error -ss "$(at $frame)" -i "$name-whole.avi" -frames:v 1 -map 0:v \
      -f framemd5 - 2>&1 | last_fields) == $(sed -n $((frame + 1))p whole.hashes) ]] &&
      exact_ffmpeg=$((exact_ffmpeg + 1))
  done
  [[ $exact -eq $# && $exact_ffmpeg -eq $# ]] || verdict=seek
  # A sync comes with the first packet more than a second after the last one.
  [[ $((found - frames)) -le $((fps + 2)) ]] || verdict=late
  echo "$mode $verdict $lost $# $exact $# $exact_ffmpeg $((found - frames))"
  [[ $verdict != good ]] || rm -f "$name"[.-]*
}

RANDOM=$seed
for ((i = 0; i < count; i++)); do
  while [[ $(jobs -rp | wc -l) -ge $at_once ]]; do wait -n; done
  try "${modes[i % 3]}" "kill$i" "$((RANDOM % 5)).$((100 + RANDOM % 900))" \
    $RANDOM $RANDOM $RANDOM >"result$i" &
done
wait

failed=0
cat result* >results
for mode in "${modes[@]}"; do
  sort -k3n results | awk -v mode="$mode" '
    $1 != mode { next }
    { files++; verdicts[$2]++
      if ($2 != "early") lost[++synced] = $3
      seeks += $4; exact += $5; seeks_ffmpeg += $6; exact_ffmpeg += $7
      if ($8 > after) after = $8 }
    END {
      if (!files) exit
      printf "%-8s %d killed, %d before the first sync; %d open, last at least up to the last sync and play it; ",
        mode, files, verdicts["early"] + 0, verdicts["good"] + 0
      printf "seeks exact: %d of %d in play, %d of %d in ffmpeg\n", exact, seeks, exact_ffmpeg, seeks_ffmpeg
      printf "         seconds not synced: least %.2f, half up to %.2f, most %.2f; frames after the last sync: up to %d\n",
        lost[1], lost[int((synced + 1) / 2)], lost[synced], after
      for (verdict in verdicts)
        if (verdict != "good" && verdict != "early") { printf "  FAIL   %s: %d\n", verdict, verdicts[verdict]; bad = 1 }
      exit bad
    }' || failed=1
done
echo "seed $seed"
[[ $failed -eq 0 && $(wc -l <results) -eq $count ]] || { echo "FAILED"; exit 1; }
