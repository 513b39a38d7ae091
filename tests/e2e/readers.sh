# shellcheck shell=bash
# What independent readers see in a media file; sourced by scripts.

# Ends the script with 77, a skipped test, where a program is missing.
require() {
  local reader
  for reader; do command -v "$reader" >/dev/null || { echo "skipped: no $reader"; exit 77; }; done
}

# The first video track: codec,width,height,rate,seconds,packets
video_facts() {
  ffprobe -v error -select_streams v:0 -count_packets -of csv=p=0 \
    -show_entries stream=codec_name,width,height,avg_frame_rate,duration,nb_read_packets "$1"
}

# The packets of the first video track that GStreamer's demuxer delivers.
gstreamer_packets() {
  timeout 30 gst-launch-1.0 -v filesrc location="$1" ! avidemux name=d d.video_0 \
    ! identity silent=false ! fakesink 2>/dev/null | grep -c ' chain '
}

# The hash of every decoded picture, one a line. Times are left out: containers round them.
picture_hashes() {
  ffmpeg -nostdin -v error -i "$1" -map 0:v:0 -fps_mode passthrough -f framemd5 - | last_fields
}

last_fields() { sed -n '/^#/!s/.*, *//p'; }
