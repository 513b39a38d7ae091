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
printf 'lens data' >strd.bin
exits "tags" 0 record --strd strd.bin --strn camera --isft recorder --junk 1001 -o tags.avi "${av[@]}"
check "tags: ffprobe" "camera recorder" "$(ffprobe -v error -show_entries \
  stream_tags=title:format_tags=software -of default=nw=1:nk=1 tags.avi | xargs)"

finish
