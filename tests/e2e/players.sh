#!/usr/bin/env bash
# Prints what other readers make of recordings of every kind, finished and cut off.
#   players.sh TOOL
# A table; exits 1 when a row is not as it should be, 77 where a reader is missing.
set -uo pipefail
export LC_ALL=C
tool=$(realpath "$1")
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/readers.sh"
require ffmpeg ffprobe gst-launch-1.0 mediainfo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
mkfifo pipe.h264

# 8 s; every picture differs; a key frame every 0.4 s. 150 pictures reach a recorder that is cut off.
ffmpeg -nostdin -v error -f lavfi -i testsrc2=d=8:size=320x180:r=25,noise=alls=20:allf=t -c:v libx264 \
  -preset ultrafast -tune zerolatency -threads 1 -g 10 -pix_fmt yuv420p -b:v 6M in.h264 &&
  ffmpeg -nostdin -v error -f lavfi -i anoisesrc=d=8:r=48000 -ac 2 in.wav &&
  ffmpeg -nostdin -v error -i in.h264 -c copy -frames:v 150 part.h264 || exit 1
record() { # record OUT MODE VIDEO [RESERVE]
  local options=(--sync "$2")
  [[ $2 == off ]] || options+=(--sync-interval 1)
  [[ $2 != i* ]] || options+=("${4:---reserve-time=10}")
  exec "$tool" record "${options[@]}" -o "$1" "$3" in.wav >/dev/null 2>&1 </dev/null
}
# The input stalls, and then the recorder is killed.
cut() { # cut OUT MODE
  local pid size=0
  (record "$1" "$2" pipe.h264) &
  pid=$!
  exec 7>pipe.h264
  cat part.h264 >&7
  for _ in $(seq 100); do
    sleep 0.7
    [[ -s $1 && $(stat -c %s "$1") -eq $size ]] && break
    size=$(stat -c %s "$1" 2>/dev/null || echo 0)
  done
  kill -KILL $pid
  wait $pid 2>/dev/null
  exec 7>&-
}

# The number of the picture from which ffmpeg reads to seek to 5 s, and of the one it then shows.
seek_begins() {
  ffmpeg -nostdin -v error -noaccurate_seek -ss 5 -i "$1" -map 0:v -copyts -c copy -frames:v 1 \
    -f framemd5 - 2>/dev/null | awk -F', *' '!/^#/ { print $2 }'
}
seek_shows() {
  ffmpeg -nostdin -v error -ss 5 -i "$1" -map 0:v -frames:v 1 -f framemd5 - 2>/dev/null |
    last_fields | grep -nxf - hashes | awk -F: 'NR == 1 { print $1 - 1 }'
}
failures=0
line() { printf '| %-23s | %8s | %6s | %13s | %9s | %9s |\n' "$@"; }
# row NAME FILE KIND: "whole" has all pictures, "plain" an index where every player looks for it,
# "known" a length, "headless" neither lengths nor index.
row() {
  local seconds pictures begins shows gstreamer frames good
  seconds=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$2" 2>/dev/null)
  pictures=$(picture_hashes "$2" 2>/dev/null | wc -l)
  begins=$(seek_begins "$2") shows=$(seek_shows "$2")
  gstreamer=$(gstreamer_packets "$2") frames=$(mediainfo --Inform='Video;%FrameCount%' "$2")
  line "$1" "$seconds" "$pictures" "$begins, $shows" "$gstreamer" "${frames:--}"
  [[ $pictures -ge 125 && $shows == 125 && $gstreamer == "$pictures" ]]
  good=$?
  case $3 in
    *whole*) [[ $pictures == 200 ]] || good=1 ;;&
    *plain*) [[ $begins == 120 && $frames == "$pictures" ]] || good=1 ;;&
    *plain* | *whole*) [[ $(awk "BEGIN { print ($seconds * 25 == $pictures) }") == 1 ]] || good=1 ;;
    known) [[ $(awk "BEGIN { print ($seconds > 4 && $seconds * 25 <= $pictures) }") == 1 ]] || good=1 ;;
    headless) [[ $seconds == N/A && -z $frames ]] || good=1 ;;
  esac
  [[ $good -eq 0 ]] || { echo "  FAIL, not $3"; failures=$((failures + 1)); }
}

line "" ffprobe ffmpeg "seek to 5 s" gst-launch mediainfo
for mode in off callback in-place image; do
  cut_off=known
  [[ $mode != i* ]] && cut_off=headless
  (record "$mode.avi" $mode in.h264)
  [[ -s hashes ]] || picture_hashes off.avi >hashes
  row "$mode" "$mode.avi" whole-plain
  if [[ $mode == i* ]]; then # with a third of the room that it takes
    (record "$mode-full.avi" $mode in.h264 --reserve=3200)
    row "$mode, index full" "$mode-full.avi" whole-plain
  fi
  "$tool" repair "$mode.avi" -o "$mode-plain.avi" >/dev/null 2>&1
  row "$mode, repaired" "$mode-plain.avi" whole-plain
  cut "$mode-cut.avi" $mode
  row "$mode, cut off" "$mode-cut.avi" $cut_off
  "$tool" repair "$mode-cut.avi" -o "$mode-cut-plain.avi" >/dev/null 2>&1
  row "$mode, cut, repaired" "$mode-cut-plain.avi" plain
done
[[ $failures -eq 0 ]] || { echo "$failures rows are wrong"; exit 1; }
