#!/usr/bin/env bash
# Records the bundled H.264 clips, with and without audio.
#   clips.sh TOOL MEDIA-FOLDER
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

# Decodes a whole file with GStreamer; a fault is a message.
gstreamer_decode() {
  gst-launch-1.0 -q playbin "uri=file://$(realpath "$1")" \
    video-sink='fakesink sync=false' audio-sink='fakesink sync=false'
}

# recording NAME "INPUT..." FRAMES KEYS WIDTH HEIGHT RATE: records all tracks of the inputs, the
# video in the first, and checks the file with every reader.
recording() {
  local name=$1 inputs=$2 frames=$3 keys=$4 width=$5 height=$6 rate=$7
  local avi=$name.avi input paths=() video=${2%% *} audio=() seconds bytes
  for input in $inputs; do paths+=("$media/$input"); done
  read -ra audio <<<"${inputs#"$video"}"
  [[ $video == *.mp4 ]] && audio=("$video")

  exits "$name: recorded" 0 record -o "$avi" "${paths[@]}"
  seconds=$(awk "BEGIN{printf \"%.6f\", $frames / $rate}")
  check "$name: ffprobe" "h264,$width,$height,$rate/1,$seconds,$frames" "$(video_facts "$avi")"
  check "$name: mediainfo" "AVC,$width,$height,$rate.000,$frames" "$(mediainfo_facts "$avi")"
  passes "$name: gstreamer" gstreamer_decode "$avi"
  passes "$name: ffmpeg" quiet -i "$avi" -map 0 -fps_mode passthrough -f null -
  same_media "$name" "$avi" "$video" "${audio[@]}"
  bytes=$(ffprobe -v error -select_streams v:0 -show_entries packet=size -of csv=p=0 "$avi" |
    awk '{n += $1} END {print n}')
  check "$name: info" "[\"last\",\"video\",$frames,$keys,$bytes,$width,$height]" \
    "$(info "$avi" '[.index, (.tracks[0] | .type, .chunks, .key_chunks, .bytes, .width, .height)]')"
}
audio_format() { # codec,rate,channels of an audio track
  ffprobe -v error -select_streams "a:$2" -of csv=p=0 \
    -show_entries stream=codec_name,sample_rate,channels "$1"
}

recording video clip25.h264 100 4 320 180 25
check "video: nothing on standard output" "" "$(<stdout.txt)"
recording audio "clip25.h264 stereo48k.wav" 100 4 320 180 25
recording ntsc clip2997.h264 90 3 352 288 30
recording reordered clip-noaud.h264 48 2 192 108 24
recording converted clip25.mp4 100 4 320 180 25
recording several "clip25.h264 stereo48k.wav mono8k.wav" 100 4 320 180 25

check "audio: seeks by the index" "$(picture_hashes "$media/clip25.h264" | sed -n 51p)" \
  "$(quiet -ss 2 -i audio.avi -frames:v 1 -map 0:v -f framemd5 - | last_fields)"
check "audio: format" "pcm_s16le,48000,2" "$(audio_format audio.avi 0)"
check "several: format" "pcm_s16le,8000,1" "$(audio_format several.avi 1)"
finish
