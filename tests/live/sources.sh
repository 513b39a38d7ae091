#!/usr/bin/env bash
# Recordings of live sources that die, stall, come back and change.
#   sources.sh TOOL MEDIA-FOLDER CAMERA
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/../e2e/checks.sh"
camera=$(realpath "$3")
gst-inspect-1.0 openh264enc >/dev/null 2>&1 || { echo "skipped: no openh264enc"; exit 77; }
trap 'kill -KILL "${cameras[@]}" "${recorders[@]}" 2>/dev/null; rm -rf "$work"' EXIT

# camera NAME ARGUMENT...: starts a camera that takes commands from the pipe NAME; its port is in
# $port.
camera() {
  local name=$1
  shift
  [[ -p $name ]] || mkfifo "$name"
  "$camera" "$@" <>"$name" >"$name.port" 2>"$name.log" &
  cameras[$name]=$!
  disown $!
  for _ in $(seq 200); do
    [[ -s $name.port ]] && break
    sleep 0.05
  done
  port=$(<"$name.port")
}
declare -A cameras

# start NAME ARGUMENT...: records into NAME-01.avi and so on, events in NAME.json. A camera on a busy
# machine may need several tries to get ready.
start() {
  local name=$1
  shift
  for _ in $(seq 5); do
    env --default-signal "$tool" record --json --stall-timeout 2 -o "$name-%02d.avi" "$@" \
      >"$name.json" 2>"$name.txt" &
    recorders[$name]=$!
    until [[ -n $(events "$name" opened) ]]; do
      kill -0 $! 2>/dev/null || continue 2
      sleep 0.05
    done
    return
  done
  check "$name: starts" "" "$(cat "$name.txt")"
  finish
}
declare -A recorders

# await NAME EVENT COUNT: until that event has come so often; 30 s at most.
await() {
  for _ in $(seq 600); do
    (($(events "$1" "$2" | wc -l) >= $3)) && return
    sleep 0.05
  done
  check "$1: $2 comes" "$3 times" "$(cat "$1.json")"
}
events() { grep "\"event\":\"$2\"" "$1.json"; }

# stop NAME CODE TRACKS...: ends the recording with SIGINT; its files are clean, start with a key
# frame and have these tracks.
stop() {
  local name=$1 tracks n=0
  kill -INT "${recorders[$name]}"
  wait "${recorders[$name]}"
  check "$name: exit code" 130 $?
  shift
  for tracks; do
    n=$((n + 1))
    local file
    file=$(printf '%s-%02d.avi' "$name" $n)
    check "$file" "$tracks clean key" "$(info "$file" '[.tracks[] | .codec + if .width then "-\(.width)" else "" end] | join(" ")') \
$("$tool" verify "$file" 2>&1 | sed 's/.*: //') $("$tool" play --json "$file" 2>/dev/null | jq -r 'select(.track == 0) | if .key then "key" else "delta" end' | head -1)"
  done
  check "$name: files" $n "$(find . -name "$name-*.avi" | wc -l)"
}

# together NAME MS: each file begins where the one before ended, up to that many milliseconds.
together() {
  check "$1: times go on" "" "$(jq -s "[.[] | select(.event == \"opened\").time_ms] as \$at |
    [.[] | select(.event == \"closed\").duration_ms] as \$length | range(1; \$at | length) |
    \$at[.] - \$at[. - 1] - \$length[. - 1] | select(fabs > $2)" "$1.json")"
}

camera a && a=rtsp://127.0.0.1:$port a_port=$port
camera b && b=rtsp://127.0.0.1:$port
camera c && c=rtsp://127.0.0.1:$port
printf '{"pts_ms": %d, "text": "."}\n' {0..60000..500} >marks.jsonl
start dies "$a/both" marks.jsonl
start alone "$a/video" "$b/audio"
start stalls "$c/both"
start changes "$b/video"
start ends --reconnect 1 "$a/video"
sleep 1
kill -KILL "${cameras[a]}"
kill -STOP "${cameras[c]}"
echo size 640 480 25 >b
await alone opened 2
await ends end 1
wait "${recorders[ends]}"
check "gives up" "3 lost" "$? $(events ends lost | jq -r .event)"
camera a "$a_port" jpeg # it was replaced
await changes opened 2
echo size 640 480 10 >b
await stalls lost 1
kill -CONT "${cameras[c]}"
for name in dies alone stalls; do await $name back 1; done
await dies opened 2
await alone opened 3
await stalls opened 2
await changes opened 3
sleep 1
stop dies "h264-320 pcm text" "pcm mjpeg-320 text"
stop alone "h264-320 pcm" "pcm" "pcm mjpeg-320"
stop stalls "h264-320 pcm" "h264-320 pcm"
stop changes "h264-320" "h264-640" "h264-640"
together alone 250
together changes 150
check "changes: rates" "25 25 10" "$(for n in 1 2 3; do info changes-0$n.avi .tracks[0].frame_rate; done | paste -sd' ')"
check "dies: lost texts" no_video "$(events dies loss | jq -r 'select(.input == "marks.jsonl").reason')"
check "stalls: reason" "delivered nothing for 2.000 s" "$(events stalls lost | jq -r .reason)"
check "dies: tracks" 2 "$(events dies tracks | wc -l)"
check "alone: tracks" "h264,pcm pcm pcm,mjpeg" "$(events alone begin | jq -r '[.tracks[].codec] | join(",")') \
$(events alone tracks | jq -r '[.tracks[].codec] | join(",")' | paste -sd' ')"
[[ $failures -eq 0 ]] || cat ./*.txt
finish
