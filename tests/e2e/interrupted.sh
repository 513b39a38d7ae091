#!/usr/bin/env bash
# Recordings that a signal ends are complete up to there. Recordings that go on can be played.
#   interrupted.sh TOOL MEDIA-FOLDER
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
av=("$media/clip25.h264" "$media/stereo48k.wav")

# complete NAME AVI: the pictures are the first ones of the input, and the index has all of them.
complete() {
  local pictures count
  pictures=$(picture_hashes "$2")
  count=$(wc -l <<<"$pictures")
  check "$1: pictures" "$(picture_hashes "${av[0]}" | head -n "$count")" "$pictures"
  check "$1: index" "last $count" "$(info "$2" '"\(.index) \(.tracks[0].chunks)"')"
}
for signal in INT TERM HUP; do # and nobody reads the messages
  env --default-signal "$tool" record --json --realtime -o $signal.avi "${av[@]}" \
    >$signal.json 2> >(head -c 1 >/dev/null) &
  pid=$!
  for _ in $(seq 200); do
    grep -q opened $signal.json && break
    sleep 0.05
  done
  kill -$signal $pid
  wait $pid
  check "SIG$signal" 130 $?
  check "SIG$signal: last event" '["end",130,1]' "$(tail -1 $signal.json | jq -c '[.event, .code, .files]')"
  complete "SIG$signal" $signal.avi
done
for pipe in never.h264 never.jsonl; do # nobody writes to the pipe
  mkfifo $pipe
  env --default-signal "$tool" record -o never.avi $pipe 2>never.txt &
  pid=$!
  for _ in $(seq 200); do # until it catches signals
    (($(awk '/SigCgt/ { print "0x" $2 }' /proc/$pid/status) & 2)) && break
    sleep 0.05
  done
  kill -INT $pid
  wait $pid
  check "$pipe without a writer" "130 kestro-avi: $pipe: interrupted" "$? $(<never.txt)"
done
modes=(in-place image callback)
for mode in "${modes[@]}"; do
  record --realtime --sync $mode --sync-interval 0.5 -o $mode.avi "${av[@]}" 2>$mode.txt &
done
for mode in "${modes[@]}"; do
  for _ in $(seq 200); do
    [[ -s $mode.avi ]] && break
    sleep 0.05
  done
  "$tool" play --follow $mode.avi >$mode-followed.txt 2>$mode-notes.txt &
  "$tool" play --follow --from 2 $mode.avi >$mode-late.txt 2>/dev/null &
done
# Image mode stores nothing before the last second of this recording.
for mode in in-place callback; do
  until (($(wc -l <$mode-followed.txt) > 30)) || grep -q packets $mode.txt; do sleep 0.05; done
  check "followed while it is recorded, $mode" "" "$(grep packets $mode.txt)"
done
wait
for mode in "${modes[@]}"; do
  check "followed to the end, $mode" "$("$tool" play $mode.avi 2>/dev/null | sort)" \
    "$(sort $mode-followed.txt)"
  check "followed from 2 s, $mode" "$("$tool" play --from 2 $mode.avi 2>/dev/null | sort)" \
    "$(sort $mode-late.txt)"
done
finish
