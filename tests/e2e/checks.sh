# shellcheck shell=bash
# For scripts that record with the tool and check the files with other readers. They are called with
# the tool and the folder of clips, source this file, and end with "finish". One line a check.
set -uo pipefail
export LC_ALL=C
tool=$(realpath "$1") media=media clips=$(realpath "$2")
# shellcheck source-path=SCRIPTDIR
. "$(dirname "${BASH_SOURCE[0]}")/readers.sh"
require ffmpeg ffprobe gst-launch-1.0 mediainfo jq
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
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
# passes NAME COMMAND...: the command succeeds without a message.
passes() {
  local name=$1 output status
  shift
  output=$("$@" 2>&1 >/dev/null)
  status=$?
  check "$name" "0 " "$status $output"
}
# exits NAME STATUS COMMAND...: the command ends with that status, and with a reason when it fails.
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
quiet() { ffmpeg -nostdin -v error "$@"; }

# same_media NAME AVI VIDEO AUDIO...: decodes to what the inputs decode to; "-" for no video.
same_media() {
  local name=$1 avi=$2 video=$3 n=0 audio
  shift 3
  [[ $video == - ]] ||
    check "$name: pictures" "$(picture_hashes "$media/$video")" "$(picture_hashes "$avi")"
  for audio; do
    check "$name: audio $n" "$(audio_hashes "$media/$audio")" "$(audio_hashes "$avi" $n)"
    n=$((n + 1))
  done
}
# The hash of every 1024 decoded samples of audio track N (0 by default), one a line.
audio_hashes() {
  quiet -i "$1" -map "0:a:${2:-0}" -af asetnsamples=n=1024:p=0 -c:a pcm_s16le -f framemd5 - |
    last_fields
}
mediainfo_facts() { # format,width,height,rate,frames of the first video track
  mediainfo --Inform='Video;%Format%,%Width%,%Height%,%FrameRate%,%FrameCount%' "$1"
}

finish() {
  [[ $failures -eq 0 ]] || { echo "$failures checks failed"; exit 1; }
  echo "all checks passed"
}
