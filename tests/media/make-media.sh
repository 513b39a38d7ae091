#!/usr/bin/env bash
# Makes the bundled media again from synthetic sources (needs ffmpeg with libx264, libx265 and aac). One
# thread and bit-exact flags: the same ffmpeg makes the same bytes.
#
#   clip25.h264     320x180, 25 fps, 4 s, key frame every 25, delimiters, four-byte start codes
#   clip2997.h264   352x288, 30000/1001 fps, 3 s, delimiters, four slices a frame; inside an access
#                   unit the start codes have three bytes
#   clip-noaud.h264 192x108, 24 fps, 2 s, no delimiters, B-frames
#   clip25.mp4      clip25.h264 length-prefixed, with 48 kHz stereo AAC
#   clip25.h265     320x180, 25 fps, 2 s, delimiters, B-frames, an open group of pictures at 1 s
#   clip15.mjpeg    98x54, 1 s of JPEG pictures for 15 fps, of even and odd sizes
#   stereo48k.wav   48 kHz stereo, 16 bits, 3 s: a tone each side
#   mono8k.wav      8 kHz mono, 16 bits, 4 s
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

make() { ffmpeg -nostdin -v error -y -threads 1 "$@"; }
exact=(-fflags +bitexact -flags:v +bitexact -flags:a +bitexact -map_metadata -1)

# video OUT SOURCE SECONDS BITSTREAM-FILTER-OPTIONS X264-OPTIONS
video() {
  make -f lavfi -i "$2" -t "$3" -an -c:v libx264 -preset slow -crf 30 -pix_fmt yuv420p -threads 1 \
    -x264-params "threads=1:lookahead-threads=1:sliced-threads=0:scenecut=0:$5" \
    -bsf:v "$4" "${exact[@]}" -f h264 "$1"
}

# Writes an elementary stream with every start code four bytes long.
four_byte_start_codes() {
  # As hexadecimal text, one byte a field: widen each 00 00 01 that has no 00 before it. Payload
  # cannot hold that pattern: the encoder escapes it.
  xxd -p -c 1 "$1" | awk '
    { if ($1 == "01" && zeros == 2) print "00"; zeros = $1 == "00" ? zeros + 1 : 0; print }' |
    xxd -r -p >"$1.tmp"
  mv "$1.tmp" "$1"
}

video clip25.h264 testsrc2=size=320x180:rate=25 4 h264_metadata=aud=insert \
  keyint=25:min-keyint=25:bframes=0
four_byte_start_codes clip25.h264
video clip2997.h264 testsrc2=size=352x288:rate=30000/1001 3 h264_metadata=aud=insert \
  keyint=30:min-keyint=30:bframes=0:slices=4
video clip-noaud.h264 testsrc2=size=192x108:rate=24 2 null \
  keyint=24:min-keyint=24:bframes=2:b-adapt=0

make -f lavfi -i testsrc2=size=320x180:rate=25 -t 2 -an -c:v libx265 -preset slow -crf 32 \
  -pix_fmt yuv420p -x265-params \
  "pools=none:frame-threads=1:info=0:log-level=none:aud=1:keyint=25:min-keyint=25:scenecut=0" \
  "${exact[@]}" -f hevc clip25.h265
make -f lavfi -i testsrc2=size=98x54:rate=15 -t 1 -c:v mjpeg -pix_fmt yuvj420p -q:v 12 \
  "${exact[@]}" -f mjpeg clip15.mjpeg

make -f lavfi -i "sine=frequency=440:sample_rate=48000" \
  -f lavfi -i "sine=frequency=660:beep_factor=4:sample_rate=48000" \
  -filter_complex '[0][1]join=inputs=2:channel_layout=stereo' -t 3 -c:a pcm_s16le "${exact[@]}" \
  stereo48k.wav
make -f lavfi -i "sine=frequency=330:beep_factor=3:sample_rate=8000" -t 4 -c:a pcm_s16le \
  "${exact[@]}" mono8k.wav
make -r 25 -i clip25.h264 -i stereo48k.wav -map 0:v -map 1:a -c:v copy -c:a aac -b:a 64k \
  "${exact[@]}" -movflags +faststart clip25.mp4
