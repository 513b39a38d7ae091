#!/usr/bin/env bash
# Checks the example of a systemd unit, and runs its commands on a recording that was cut off and on
# a clip:
#   unit.sh TOOL UNIT CLIP
set -euo pipefail
tool=$(realpath "$1") unit=$(realpath "$2") clip=$(realpath "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir -p card kestro/front

die() {
  printf 'FAIL  %s\n' "$*" >&2
  exit 1
}
sed "s|/usr/bin/kestro-avi|$tool|; s|/media/card|$work/card|; s/^User=.*//" "$unit" >kestro-camera@.service
cp kestro-camera@.service kestro-camera@front.service
if command -v systemd-analyze >/dev/null; then
  faults=$(systemd-analyze verify "$work/kestro-camera@front.service" 2>&1) || die "$faults"
  [[ -z $faults ]] || die "$faults"
fi

# The command of a line such as ExecStart=, as systemd runs it.
command_of() {
  sed ':more; /\\$/ { N; s/\\\n *//; b more }' kestro-camera@.service |
    sed -n "s|%t|$work|g; s/%i/front/g; s/%%/%/g; s/^$1=-\?//p"
}
"$tool" record --sync in-place --segment-time 1 -o card/front-20261122-145637-%05N.avi "$clip" 2>/dev/null
truncate -s -3000 card/front-20261122-145637-00004.avi
eval "$(command_of ExecStartPre)" >/dev/null 2>&1 || true
"$tool" verify card/front-*.avi >verified || die "the repair before the start: $(<verified)"
export OPTIONS='--duration 2' ADDRESS=$clip
eval "$(command_of ExecStart)" 2>errors || die "ExecStart: $(<errors)"
recorded=$(grep -c '00005.avi: 50 packets, 2.000 s' errors) || die "recorded: $(<errors)"
grep -q '"state": "stopped"' kestro/front/status.json || die "no status"
echo "ok    $recorded file"
