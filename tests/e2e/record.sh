#!/usr/bin/env bash
# Records real media with the tool and looks at the files with other people's readers.
#   record.sh TOOL MEDIA-FOLDER
# One line a check; exits 1 when one failed, 77 where a reader is missing.
set -uo pipefail
export LC_ALL=C
tool=$(realpath "$1") media=media
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/readers.sh"
for reader in ffmpeg ffprobe gst-launch-1.0 mediainfo jq; do
  command -v "$reader" >/dev/null || { echo "skipped: no $reader"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
clips=$(realpath "$2")
cd "$work" && ln -s "$clips" $media || exit 1
failures=0

# check NAME EXPECTED ACTUAL
check() {
  if [[ $2 == "$3" ]]; then
    echo "ok    $1"
  else
    printf 'FAIL  %s\n      expected: %.300s\n      got:      %.300s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
  fi
}
# passes NAME COMMAND...: the command succeeds and has nothing to complain about.
passes() {
  local name=$1 said status
  shift
  said=$("$@" 2>&1 >/dev/null)
  status=$?
  check "$name" "0 " "$status $said"
}
# exits NAME STATUS COMMAND...: the tool ends with that status, and says why when it is an error.
exits() {
  local name=$1 expected=$2 status why=silent
  shift 2
  "$@" >stdout.txt 2>stderr.txt </dev/null
  status=$?
  [[ $expected -eq 0 || -s stderr.txt ]] && why=explained
  check "$name" "$expected explained" "$status $why"
  [[ $status -eq $expected ]] || sed 's/^/      | /' stderr.txt
}
record() { "$tool" record "$@"; }
info() { "$tool" info --json "$1" | jq -rc ".files[0] | $2"; }

# same_media NAME AVI VIDEO SOUND...: decodes to what the inputs decode to; "-" for no video.
same_media() {
  local name=$1 avi=$2 video=$3 n=0 sound
  shift 3
  [[ $video == - ]] ||
    check "$name: pictures" "$(picture_hashes "$media/$video")" "$(picture_hashes "$avi")"
  for sound in "$@"; do
    check "$name: sound $n" "$(sound_hashes "$media/$sound")" "$(sound_hashes "$avi" $n)"
    n=$((n + 1))
  done
}

# recording NAME "INPUT..." FRAMES KEYS WIDTH HEIGHT RATE: records all tracks of the inputs, the
# video in the first, and has every reader look.
recording() {
  local name=$1 inputs=$2 frames=$3 keys=$4 width=$5 height=$6 rate=$7
  local avi=$name.avi input paths=() video=${2%% *} sounds=()
  for input in $inputs; do paths+=("$media/$input"); done
  read -ra sounds <<<"${inputs#"$video"}"
  [[ $video == *.mp4 ]] && sounds=("$video")

  exits "$name: recorded" 0 record -o "$avi" "${paths[@]}"
  local seconds
  seconds=$(awk "BEGIN{printf \"%.6f\", $frames / $rate}")
  check "$name: ffprobe" "h264,$width,$height,$rate/1,$seconds,$frames" "$(video_facts "$avi")"
  check "$name: mediainfo" "AVC,$width,$height,$rate.000,$frames" \
    "$(mediainfo_facts "$avi")"
  passes "$name: gstreamer" gstreamer_decode "$avi"
  passes "$name: ffmpeg" ffmpeg -nostdin -v error -i "$avi" -map 0 -fps_mode passthrough -f null -
  same_media "$name" "$avi" "$video" "${sounds[@]}"
  local bytes
  bytes=$(ffprobe -v error -select_streams v:0 -show_entries packet=size -of csv=p=0 "$avi" |
    awk '{n += $1} END {print n}')
  check "$name: info" "[\"last\",\"video\",$frames,$keys,$bytes,$width,$height]" \
    "$(info "$avi" '[.index, (.tracks[0] | .type, .chunks, .key_chunks, .bytes, .width, .height)]')"
}

recording video clip25.h264 100 4 320 180 25
check "video: standard output is left alone" "" "$(<stdout.txt)"
recording sound "clip25.h264 stereo48k.wav" 100 4 320 180 25
recording ntsc "clip2997.h264 mono8k.wav" 90 3 352 288 29
recording reordered clip-noaud.h264 48 2 192 108 24
recording converted clip25.mp4 100 4 320 180 25
recording several "clip25.h264 stereo48k.wav mono8k.wav" 100 4 320 180 25

check "sound: seeks by the index" "$(picture_hashes "$media/clip25.h264" | sed -n 51p)" \
  "$(ffmpeg -nostdin -v error -ss 2 -i sound.avi -frames:v 1 -map 0:v -f framemd5 - | last_fields)"
check "sound: format" "pcm_s16le,48000,2" "$(sound_facts sound.avi | cut -d, -f1-3)"
check "several: format" "pcm_s16le,8000,1" "$(sound_facts several.avi 1 | cut -d, -f1-3)"
check "sound: info" "[2,48000,16,3000]" \
  "$(info sound.avi '.tracks[1] | [.channels, .rate, .bits, .duration_ms]')"

# Other kinds of video, and text. The pictures and the chunks are those of the input.
# kind NAME AVI FACTS INPUT [OPTION...]
kind() {
  local name=$1 avi=$1.avi facts=$2 input=$3
  shift 3
  exits "$name: recorded" 0 record -o "$avi" "$@" "$input"
  check "$name: ffprobe" "$facts" "$(video_facts "$avi")"
  check "$name: pictures" "$(picture_hashes "$input")" "$(picture_hashes "$avi")"
  check "$name: gstreamer" "${facts##*,}" "$(gst-launch-1.0 -v filesrc location="$avi" ! avidemux \
    name=d d.video_0 ! identity silent=false ! fakesink 2>&1 | grep -c ' chain ')"
}
quiet() { ffmpeg -nostdin -v error "$@"; }
kind hevc hevc,320,180,25/1,2.000000,50 $media/clip25.h265
quiet -i $media/clip25.h265 -c copy hevc.mp4
quiet -i hevc.mp4 -c copy hevc.mkv
for container in mp4 mkv; do
  exits "hevc in $container" 0 record -o hevc-$container.avi hevc.$container
  check "hevc in $container: pictures" "$(picture_hashes hevc.avi)" \
    "$(picture_hashes hevc-$container.avi)"
done
kind mjpeg mjpeg,98,54,15/1,1.000000,15 $media/clip15.mjpeg --fps 15
check "mjpeg: mediainfo" "JPEG,98,54,15.000,15" "$(mediainfo_facts mjpeg.avi)"
quiet -i mjpeg.avi -c copy -f mjpeg out.mjpeg
passes "mjpeg: every byte" cmp $media/clip15.mjpeg out.mjpeg
quiet -framerate 15 -i $media/clip15.mjpeg -c copy shot-%04d.jpg
exits "series: recorded" 0 record -o series.avi --fps 15 shot-%04d.jpg
passes "series: same file" cmp mjpeg.avi series.avi
quiet -framerate 15 -i $media/clip15.mjpeg -c copy motion.mp4
exits "series: from an MP4" 0 record -o motion.avi motion.mp4
passes "series: same file from an MP4" cmp mjpeg.avi motion.avi

printf '1\n00:00:00,500 --> 00:00:01,000\n<b>one</b>\nline\n\n2\n00:00:01,210 --> 00:00:02,000\ntwo\n' >t.srt
for form in ass vtt; do quiet -i t.srt t.$form; done
quiet -i $media/clip25.mp4 -i t.srt -map 0:v -map 1 -c:v copy -c:s mov_text both.mp4
exits "text: all kinds" 0 record -o text.avi t.srt t.ass both.mp4 t.vtt hevc.mp4 \
  $media/stereo48k.wav $media/mono8k.wav $media/clip15.mjpeg --fps 25
check "text: tracks" "video,h264 video,hevc audio,pcm_s16le audio,pcm_s16le subtitle subtitle \
subtitle subtitle video,mjpeg" "$(ffprobe -v error -show_entries stream=codec_type,codec_name \
  -of json text.avi | jq -r '.streams[] | [.codec_type, (.codec_name // empty | select(. != "unknown"))] | join(",")' | xargs)"
# Each lies in front of its frame, here by the number of the first track's frames before it.
for n in 4 5 6 7; do
  check "text: places of track $n" "13 30" "$(grep -aoE "00dc|0${n}tx.{4}(one|two)" text.avi |
    awk '/dc/ { n++ } /tx/ { print n }' | xargs)"
done
check "text: a line is a line" 4 "$(grep -ac '^line' text.avi)"

# Pictures.
exits "plot: drawn" 0 "$tool" info --plot sound.svg sound.avi
command -v rsvg-convert >/dev/null && passes "plot: rendered" rsvg-convert -o sound.png sound.svg

# Options.
av=("$media/clip25.h264" "$media/stereo48k.wav")
exits "no-audio" 0 record --no-audio -o silent.avi "${av[@]}"
passes "no-audio: is the video alone" cmp video.avi silent.avi
exits "no-video" 0 record --no-video -o blind.avi "${av[@]}"
same_media "no-video" blind.avi - stereo48k.wav
# An address may name a kind of device.
exits "device" 0 record --duration 1 -o device.avi lavfi:sine=r=16000
exits "fps" 0 record --fps 30 -o fps.avi "$media/clip2997.h264"
check "fps: stored" "30/1" "$(video_facts fps.avi | cut -d, -f4)"
printf 'lens data' >strd.bin
exits "tags" 0 record --strd strd.bin --strn camera --isft recorder --junk 1001 -o tags.avi "${av[@]}"
same_media "tags" tags.avi clip25.h264 stereo48k.wav
check "tags: ffprobe" "camera recorder" "$(ffprobe -v error -show_entries \
  stream_tags=title:format_tags=software -of default=nw=1:nk=1 tags.avi | xargs)"
check "tags: order of the head's chunks" "strd strn INFO JUNK movi" \
  "$(head -c 8192 tags.avi | grep -aoE 'strd|strn|INFO|JUNK|movi' | xargs)"
exits "junk alone" 0 record --junk 500 -o junk.avi "${av[@]}"
same_media "junk alone" junk.avi clip25.h264 stereo48k.wav
# An index too long for memory: thousands of chunks, which take their turn in temporary files.
for _ in $(seq 50); do cat $media/clip25.h264; done >long.h264
ffmpeg -nostdin -v error -f lavfi -i sine=duration=200:sample_rate=8000 long.wav
av_long=(long.h264 long.wav)
exits "long" 0 record -o long.avi "${av_long[@]}"
mkdir spill
exits "spill" 0 record --index-spill 1 --spill-dir spill -o spilled.avi "${av_long[@]}"
passes "spill: same file as without" cmp long.avi spilled.avi
check "spill: nothing left behind" "" "$(ls -A spill)"
exits "plugin" 0 "$tool" plugin --json
check "plugin: lists the muxer" "true" "$(jq 'tostring | contains("AviMuxer-avi-muxer")' stdout.txt)"

# Faults. What was recorded before one stays good.
# good_part NAME AVI: the index covers what the file holds, which is the beginning of the input.
good_part() {
  local pictures count
  pictures=$(picture_hashes "$2")
  count=$(wc -l <<<"$pictures")
  check "$1: pictures" "$(picture_hashes "$media/clip25.h264" | head -n "$count")" "$pictures"
  check "$1: index" "last $count" "$(info "$2" '"\(.index) \(.tracks[0].chunks)"')"
}

exits "spill folder missing" 1 record --index-spill 1 --spill-dir no/such -o nospill.avi "${av_long[@]}"
passes "spill folder missing: same file" cmp long.avi nospill.avi
for limit in 40 300 600; do # KiB; the whole file has 640
  full() (
    trap '' XFSZ
    ulimit -f "$limit"
    record -o "full$limit.avi" "${av[@]}"
  )
  exits "disk full at $limit KiB" 3 full
  good_part "disk full at $limit KiB" full$limit.avi
done
for signal in INT TERM HUP; do # and nobody reads the messages
  env --default-signal "$tool" record --realtime -o $signal.avi "${av[@]}" 2> >(head -c 1 >/dev/null) &
  pid=$!
  for _ in $(seq 200); do
    [[ -s $signal.avi ]] && break
    sleep 0.05
  done
  kill -$signal $pid
  wait $pid
  check "SIG$signal" 130 $?
  good_part "SIG$signal" $signal.avi
done

# Several files: every picture once.
exits "segments: recorded" 0 record --segment-time 1 -o part%d.avi "${av[@]}"
check "segments: pictures" "$(picture_hashes "$media/clip25.h264")" \
  "$(for n in 1 2 3 4; do picture_hashes part$n.avi; done)"

[[ $failures -eq 0 ]] || { echo "$failures checks failed"; exit 1; }
echo "all checks passed"
