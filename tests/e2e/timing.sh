#!/usr/bin/env bash
# Where audio and pictures of inputs with lost frames and other rates are in a recording. The picture
# is white, and the audio loud, at the beginning of each second.
#   timing.sh TOOL MEDIA-FOLDER
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

# source_of NAME RATE SECONDS [OPTION...]: NAME.mkv
source_of() {
  local name=$1 rate=$2 seconds=$3
  shift 3
  quiet -y -f lavfi \
    -i "color=black:s=64x48:r=$rate:d=$seconds,drawbox=enable='lt(mod(t+0.001,1),1/($rate))':color=white:t=fill" \
    -f lavfi -i "aevalsrc='if(lt(mod(t,1),0.02),sin(2*PI*1000*t),0)':s=8000:d=$seconds" \
    -c:v libx264 -preset ultrafast -g 10 -c:a pcm_s16le "$@" "$name.mkv"
}
# offsets FILE...: by how many ms each loud moment follows its white picture
offsets() {
  local file
  for file in "$@"; do
    paste <(quiet -i "$file" -an -vf "signalstats,metadata=print:key=lavfi.signalstats.YAVG:file=-" \
      -fps_mode passthrough -enc_time_base 1/90000 -f null - | starts 100) \
      <(quiet -i "$file" -vn -af "asetnsamples=80,astats=metadata=1:reset=1,ametadata=print:key=\
lavfi.astats.Overall.Peak_level:file=-" -f null - | starts -20) | awk '{ print $2 - $1 }'
  done
}
starts() { # the times in ms at which a value begins to exceed this one
  awk -v least="$1" '/pts_time:/ { sub(/.*pts_time:/, ""); time = $1 }
    /=/ { sub(/.*=/, ""); on = $1 != "-inf" && $1 > least; if (on && !was) print time * 1000; was = on }'
}
# in_step NAME TOLERANCE-MS INPUT FILE...: the offsets are those of the input
in_step() {
  local name=$1 tolerance=$2 input=$3
  shift 3
  check "$name: in step" "$(offsets "$input" | wc -l) 0" "$(paste <(offsets "$input") <(offsets "$@") |
    awk -v most="$tolerance" '{ n += NF == 2; off = $2 - $1; bad += off > most || off < -most }
      END { print n, bad + 0 }')"
}
# says NAME TEXT: the last command's messages
says() { check "$1: says so" "$2" "$(grep -oF "$2" stderr.txt | head -1)"; }

source_of steady 25 6
source_of ntsc 30000/1001 60
quiet -i steady.mkv -c copy -bsf:v "noise=drop='between(n,80,89)'" \
  -bsf:a "noise=drop='between(n,26,27)'" both.mkv
quiet -i steady.mkv -c copy -bsf:v "noise=drop='eq(n,62)'" one.mkv
quiet -i steady.mkv -c copy -bsf:a "noise=drop='between(n,12,13)'" audio.mkv
quiet -i ntsc.mkv -c copy -bsf:v "setts=ts=PTS*0.9995" fast.mov
source_of reordered 25 12 -bf 2 -g 25 -ar 48000 -c:a mp2
quiet -i reordered.mkv -c copy -bsf:v h264_mp4toannexb untimed.mpg # few frames have times
source_of once 1 12 -bf 2 -c:a pcm_s16le

exits "ntsc" 0 record -o ntsc.avi ntsc.mkv
says "ntsc" "30000/1001 fps is stored as 30 fps; audio is stretched to match"
in_step "ntsc" 20 ntsc.mkv ntsc.avi
exits "ntsc in files" 0 record --segment-time 20.5 -o n%d.avi ntsc.mkv
in_step "ntsc in files" 20 ntsc.mkv n1.avi n2.avi n3.avi
exits "lost stretch" 1 record --json -o both.avi both.mkv
check "lost stretch: event" '[0,3200,400,"cut"] [1,400,280]' "$(jq -c \
  'if .event == "gap" then [.track, .at_ms, .length_ms, .action] elif .event == "end" then [.gaps, .lost_ms, .packets] else empty end' \
  stdout.txt | xargs -d '\n')"
says "lost stretch" "0.400 s of missing video at 3.200 s; taken out of all tracks"
in_step "lost stretch" 20 steady.mkv both.avi
exits "lost frame" 1 record -o one.avi one.mkv
in_step "lost frame" 20 steady.mkv one.avi
exits "lost audio" 1 record -o audio.avi audio.mkv
says "lost audio" "of missing audio at"
exits "fast camera" 0 record -o fast.avi fast.mov
in_step "fast camera" 10 fast.mov fast.avi
exits "reordered, one a second" 0 record -o once.avi once.mkv
exits "frames without times" 0 record -o untimed.avi untimed.mpg
exits "new file at a gap" 1 record --json --on-gap segment -o g%d.avi both.mkv
jq -r .event stdout.txt >events.txt # those of inputs and files come from several threads
check "new file at a gap: events" "begin closed closed gap opened opened end" \
  "$({ head -1 events.txt; sed '1d;$d' events.txt | sort; tail -1 events.txt; } | xargs)"
in_step "new file at a gap" 20 steady.mkv g1.avi g2.avi

# Other muxers use a multiple of the rate and fill up with empty chunks.
quiet -i $media/clip25.mp4 -an -c copy filled.avi
check "filled up: rate" 50/1 "$(ffprobe -v error -select_streams v -show_entries stream=avg_frame_rate -of csv=p=0 filled.avi)"
exits "filled up: repaired, without the delimiters" 1 "$tool" repair filled.avi -o mended.avi
check "filled up: rate of the repaired file" h264,320,180,25/1,4.000000,100 "$(video_facts mended.avi)"
finish
