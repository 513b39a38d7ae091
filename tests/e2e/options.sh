#!/usr/bin/env bash
# Options of recording, as other readers see them.
#   options.sh TOOL MEDIA-FOLDER
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
av=("$media/clip25.h264" "$media/stereo48k.wav")

exits "no-audio" 0 record --no-audio -o silent.avi "${av[@]}"
exits "video alone" 0 record -o video.avi "${av[0]}"
passes "no-audio: is the video alone" cmp video.avi silent.avi
exits "no-video" 0 record --no-video -o blind.avi "${av[@]}"
same_media "no-video" blind.avi - stereo48k.wav
exits "a kind of device in an address" 0 record --duration 1 -o device.avi lavfi:sine=r=16000
exits "fps" 0 record --fps 30 -o fps.avi "$media/clip2997.h264"
check "fps: stored" "30/1" "$(video_facts fps.avi | cut -d, -f4)"
printf 'lens data' >strd.bin
exits "tags" 0 record --strd strd.bin --strn camera --isft recorder --junk 1001 -o tags.avi "${av[@]}"
same_media "tags" tags.avi clip25.h264 stereo48k.wav
check "tags: ffprobe" "camera recorder" "$(ffprobe -v error -show_entries \
  stream_tags=title:format_tags=software -of default=nw=1:nk=1 tags.avi | xargs)"
check "tags: order of the head's chunks" "strd strn INFO JUNK movi" \
  "$(head -c 8192 tags.avi | grep -aoE 'strd|strn|INFO|JUNK|movi' | xargs)"
exits "plot: drawn" 0 "$tool" info --plot tags.svg tags.avi
command -v rsvg-convert >/dev/null && passes "plot: rendered" rsvg-convert -o tags.png tags.svg

# An index too long for memory: thousands of chunks, spilled in turns.
for _ in $(seq 50); do cat $media/clip25.h264; done >long.h264
quiet -f lavfi -i sine=duration=200:sample_rate=8000 long.wav
exits "long" 0 record -o long.avi long.h264 long.wav
mkdir spill
exits "spill" 0 record --index-spill 1 --spill-dir spill -o spilled.avi long.h264 long.wav
passes "spill: same file as without" cmp long.avi spilled.avi
check "spill: nothing is left" "" "$(ls -A spill)"
exits "no spill folder" 1 record --index-spill 1 --spill-dir no/such -o nospill.avi long.h264 long.wav
passes "no spill folder: same file" cmp long.avi nospill.avi
finish
