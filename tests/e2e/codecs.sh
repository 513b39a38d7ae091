#!/usr/bin/env bash
# Records HEVC, motion JPEG and text, from elementary streams and containers.
#   codecs.sh TOOL MEDIA-FOLDER
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

# codec NAME FACTS INPUT [OPTION...]: the pictures and the chunks are those of the input.
codec() {
  local name=$1 avi=$1.avi facts=$2 input=$3
  shift 3
  exits "$name: recorded" 0 record -o "$avi" "$@" "$input"
  check "$name: ffprobe" "$facts" "$(video_facts "$avi")"
  check "$name: pictures" "$(picture_hashes "$input")" "$(picture_hashes "$avi")"
  check "$name: gstreamer" "${facts##*,}" "$(gstreamer_packets "$avi")"
}
codec hevc hevc,320,180,25/1,2.000000,50 $media/clip25.h265
quiet -i $media/clip25.h265 -c copy hevc.mp4
quiet -i hevc.mp4 -c copy hevc.mkv
for container in mp4 mkv; do
  exits "hevc in $container" 0 record -o hevc-$container.avi hevc.$container
  check "hevc in $container: pictures" "$(picture_hashes hevc.avi)" \
    "$(picture_hashes hevc-$container.avi)"
done

# An AVI file of another muxer, with lengths instead of start codes. Delimiters are not recorded, which
# repair reports.
quiet -i hevc.mp4 -c copy -tag:v hvc1 hvc1.avi
exits "hvc1: extracted" 0 "$tool" extract --track 0:hvc1.h265 --track 0:hvc1.mkv hvc1.avi
exits "hvc1: repaired" 1 "$tool" repair hvc1.avi -o hvc1-repaired.avi
for copy in hvc1.avi hvc1.h265 hvc1.mkv hvc1-repaired.avi; do
  check "$copy: pictures" "$(picture_hashes "$media/clip25.h265")" "$(picture_hashes "$copy")"
done

codec mjpeg mjpeg,98,54,15/1,1.000000,15 $media/clip15.mjpeg --fps 15
check "mjpeg: mediainfo" "JPEG,98,54,15.000,15" "$(mediainfo_facts mjpeg.avi)"
quiet -i mjpeg.avi -c copy -f mjpeg out.mjpeg
passes "mjpeg: every byte" cmp $media/clip15.mjpeg out.mjpeg
quiet -framerate 15 -i $media/clip15.mjpeg -c copy shot-%04d.jpg
quiet -framerate 15 -i $media/clip15.mjpeg -c copy motion.mp4
exits "series of pictures" 0 record -o series.avi --fps 15 shot-%04d.jpg
passes "series of pictures: same file" cmp mjpeg.avi series.avi
exits "mjpeg in mp4" 0 record -o motion.avi motion.mp4
passes "mjpeg in mp4: same file" cmp mjpeg.avi motion.avi

printf '1\n00:00:00,500 --> 00:00:01,000\n<b>one</b>\nline\n\n2\n00:00:01,210 --> 00:00:02,000\ntwo\n' >t.srt
for form in ass vtt; do quiet -i t.srt t.$form; done
quiet -i $media/clip25.mp4 -i t.srt -map 0:v -map 1 -c:v copy -c:s mov_text both.mp4
exits "text: all kinds" 0 record -o text.avi t.srt t.ass both.mp4 t.vtt hevc.mp4 \
  $media/stereo48k.wav $media/mono8k.wav $media/clip15.mjpeg --fps 25
check "text: tracks" "video,h264 video,hevc audio,pcm_s16le audio,pcm_s16le subtitle subtitle \
subtitle subtitle video,mjpeg" "$(ffprobe -v error -show_entries stream=codec_type,codec_name \
  -of json text.avi | jq -r '.streams[] | [.codec_type, (.codec_name // empty | select(. != "unknown"))] | join(",")' | xargs)"
for n in 4 5 6 7; do # by the number of the first track's frames before each text
  check "text: places of track $n" "13 30" "$(grep -aoE "00dc|0${n}tx.{4}(one|two)" text.avi |
    awk '/dc/ { n++ } /tx/ { print n }' | xargs)"
done
exits "text: as SRT" 0 record -o srt.avi --text-form srt $media/clip25.mp4 t.srt
check "text: as SRT, subtitles" "0.500000,0.500000 1.210000,0.790000 subrip" "$(ffprobe -v error \
  -select_streams s -show_entries stream=codec_name:packet=pts_time,duration_time -of csv=p=0 srt.avi | xargs)"
text_caps="video/x-raw(ANY);audio/x-raw(ANY);application/x-subtitle-avi"
for form in text srt; do
  passes "text: gstreamer, $form.avi" timeout 30 gst-launch-1.0 -q filesrc location=$form.avi \
    ! decodebin caps="$text_caps" name=d d. ! queue ! fakesink
done
passes "text: gstreamer, srt.avi, decodebin3" timeout 30 gst-launch-1.0 -q filesrc location=srt.avi \
  ! decodebin3 name=d d. ! queue ! videoconvert ! fakesink d. ! queue ! audioconvert ! fakesink
check "text: a line is a line" 4 "$(grep -ac '^line' text.avi)"
finish
