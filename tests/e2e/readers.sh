# shellcheck shell=bash
# What independent readers see in a media file; sourced by scripts.

# The packets of the first video track: codec,width,height,rate,seconds,packets
video_facts() {
  ffprobe -v error -select_streams v:0 -count_packets -of csv=p=0 \
    -show_entries stream=codec_name,width,height,avg_frame_rate,duration,nb_read_packets "$1"
}

# The sound of audio track N (0 by default): codec,rate,channels,seconds
sound_facts() {
  ffprobe -v error -select_streams "a:${2:-0}" -of csv=p=0 \
    -show_entries stream=codec_name,sample_rate,channels,duration "$1"
}

# The first video track as MediaInfo sees it: format,width,height,rate,frames
mediainfo_facts() {
  mediainfo --Inform='Video;%Format%,%Width%,%Height%,%FrameRate%,%FrameCount%' "$1"
}

# Decodes all of a file with GStreamer; fails, or prints something, when it finds a fault.
gstreamer_decode() {
  local path
  path=$(realpath "$1")
  gst-launch-1.0 -q playbin "uri=file://${path//%/%25}" \
    video-sink='fakesink sync=false' audio-sink='fakesink sync=false'
}

# The hash of every decoded picture, one a line. Times are left out: containers round them.
picture_hashes() {
  ffmpeg -nostdin -v error -i "$1" -map 0:v:0 -fps_mode passthrough -f framemd5 - | last_fields
}

# The hash of every 1024 decoded samples of audio track N (0 by default), one a line.
sound_hashes() {
  ffmpeg -nostdin -v error -i "$1" -map "0:a:${2:-0}" -af asetnsamples=n=1024:p=0 -c:a pcm_s16le \
    -f framemd5 - | last_fields
}

last_fields() { sed -n '/^#/!s/.*, *//p'; }
