#!/usr/bin/env bash
# Runs pipelines with gst-launch-1.0 and checks the files that kestroavisink writes.
#   pipelines.sh TOOL MEDIA-FOLDER
# shellcheck source-path=SCRIPTDIR/../e2e
. "$(dirname "${BASH_SOURCE[0]}")/../e2e/checks.sh"
h264="filesrc location=$media/clip25.h264 ! h264parse" mp4="filesrc location=$media/clip25.mp4 ! qtdemux name=d"
mjpeg='videotestsrc num-buffers=%s ! video/x-raw,width=%s,height=48,framerate=25/1 ! jpegenc'
printf '1\n00:00:00,500 --> 00:00:01,000\nhello\n\n2\n00:00:01,500 --> 00:00:02,000\nworld\n' >texts.srt
# shellcheck disable=SC2059
jpegs() { printf "$mjpeg" "$@"; }

shopt -s nullglob

# launch PIPELINE...: runs it and prints its first error and the first object that is left.
launch() {
  # shellcheck disable=SC2086
  GST_TRACERS=leaks GST_DEBUG=GST_TRACER:7 GST_DEBUG_NO_COLOR=1 \
    timeout 20 gst-launch-1.0 $* >launch.txt 2>&1 || echo "exit $? "
  grep -aoEm1 '^ERROR: from .*' launch.txt | sed 's/.*: /error: /'
  grep -aoEm1 'CRITICAL.*|object-alive, type-name=.string.[^%].*' launch.txt
}
# files: the chunks of the tracks of each AVI file, and what verify finds. Removes them.
files() {
  local avi found
  for avi in *.avi; do
    found=$("$tool" verify --json "$avi" | jq -rc '[.files[0].findings[]? | select(.severity != "note") | .code] | join(",")')
    printf '%s%s ' "$(info "$avi" '[.tracks[].chunks] | join("+")')" "${found:+ ($found)}"
  done
  rm -f -- *.avi
}

while IFS='|' read -r name expected pipeline; do
  check "$name" "$expected" "$(launch "$pipeline" | tr -d '\n')$(files)"
done <<TABLE
H.264|100 |$h264 ! kestroavisink location=a.avi
HEVC|50 |filesrc location=$media/clip25.h265 ! h265parse ! kestroavisink location=a.avi
motion JPEG|15 |filesrc location=$media/clip15.mjpeg ! jpegparse ! kestroavisink frame-rate=15 location=a.avi
audio of another format|150 |filesrc location=$media/stereo48k.wav ! wavparse ! audioconvert ! audio/x-raw,format=F32LE ! audioconvert ! kestroavisink location=a.avi
two tracks of one thread, without queues|100+150 |$mp4 d.video_0 ! h264parse ! kestroavisink name=s location=a.avi d.audio_0 ! decodebin ! audioconvert ! s.audio_0
four tracks|60+150+60+2 |$(jpegs 60 64) ! kestroavisink name=s location=a.avi filesrc location=$media/clip25.h264 ! h264parse ! identity eos-after=61 ! s.video_1 filesrc location=$media/stereo48k.wav ! wavparse ! s.audio_0 filesrc location=texts.srt ! subparse ! text/x-raw,format=utf8 ! s.text_0
split by time|25 25 25 25 |$h264 ! kestroavisink location=a%02d.avi max-size-time=1000000000
split by size|25 25 25 25 |$h264 ! kestroavisink location=a%02d.avi max-size-bytes=50000 reserve-time=3000000000
other caps in mid-stream|10 20 |$(jpegs 10 64) ! concat name=c ! kestroavisink location=a%02d.avi $(jpegs 20 32) ! c.
live, a track ends early|10+50 |videotestsrc is-live=true num-buffers=50 ! video/x-raw,framerate=25/1 ! jpegenc ! kestroavisink name=s location=a.avi sync-mode=callback audiotestsrc is-live=true num-buffers=10 samplesperbuffer=320 ! audio/x-raw,rate=8000 ! audioconvert ! s.audio_0
two elements|100 50 |$h264 ! kestroavisink location=a.avi filesrc location=$media/clip25.h265 ! h265parse ! kestroavisink location=b.avi
no location|exit 255 error: The property location is not set.|$h264 ! kestroavisink
TABLE

echo "of another program" >b01.avi
launch "$h264 ! kestroavisink location=a%02d.avi max-size-time=1000000000 max-files=2"
check "at most two files" "a03.avi a04.avi b01.avi" "$(echo *.avi)"
rm -f -- *.avi

# Pipelines that are stopped at random: by NULL without EOS, with EOS, and without a chance to close.
camera='videotestsrc is-live=true ! video/x-raw,width=64,height=48,framerate=50/1 ! jpegenc ! kestroavisink name=s
  location=a.avi sync-interval=100000000 audiotestsrc is-live=true ! audio/x-raw,rate=8000 ! audioconvert ! s.audio_0'
for how in INT '-e INT' KILL INT '-e INT' KILL; do
  # shellcheck disable=SC2046,SC2086
  env --default-signal gst-launch-1.0 $([[ $how != -e* ]] || echo -e) $camera >launch.txt 2>&1 &
  until [[ -s a.avi ]]; do sleep 0.05; done
  sleep "0.$((RANDOM % 5 + 5))"
  kill "-${how#* }" $!
  wait $! 2>/dev/null
  found=$("$tool" play a.avi 2>/dev/null | grep -c '^ ')
  [[ $found -lt 5 ]] || found=some
  # Closed files have an index after the data, too.
  [[ $how == KILL ]] && last=movi || last=idx1
  check "$how" "some, last $last" "$found, last $("$tool" info a.avi 2>info.txt | sed -n 's/^  layout: .* //p')"
  [[ $how != KILL ]] || check repair ok \
    "$("$tool" repair --in-place a.avi >repair.txt && "$tool" verify a.avi >verify.txt && echo ok)"
  rm -f -- *.avi
done
finish
