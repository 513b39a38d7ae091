#!/usr/bin/env bash
# Cuts the power of recorders: run.sh KIND BUILD TARGET-BUILD OUT [ROUNDS], where KIND is short or long;
# of the long kind the rounds count.
# A machine records to emulated cards whose writes are logged. What a cut could leave of a card is
# built from its log; its files are copied, by the host after the file system's own check and by a
# machine that mounts the card as it is, and judged.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
kind=$1 build=$(realpath "$2") target=$(realpath "$3") out=$(realpath -m "$4")
tool=$build/tools/kestro-avi/kestro-avi judge=$build/rig/kestro-rig
PATH=$PATH:/usr/sbin:/sbin
rounds=${5:-10} jobs=$(nproc)
modes=(in-place image callback)

die() { printf 'rig: %s\n' "$*" >&2 && exit 1; }
fault() { echo "$*" >>"$out/faults"; }
pool() { # pool COMMAND...: as many at a time as there are processors
  while (($(jobs -rp | wc -l) >= jobs)); do wait -n || true; done
  "$@" &
}

# The machine: Debian's kernel and busybox, and what was built for it.

fetch() {
  local apt="$out/apt" options package
  [[ ! -s $out/machine/vmlinuz || ! -s $out/machine/modules.gz ]] || return 0
  mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$out/machine"
  options=(-o APT::Architecture=armhf -o APT::Architectures=armhf -o Dir::State::lists="$apt/lists"
    -o Dir::Cache="$apt/cache" -o Dir::State::status=/dev/null -o APT::Sandbox::User=root)
  cd "$apt"
  options+=(-o Acquire::Retries=5)
  apt-get -qq "${options[@]}" update || echo "rig: apt-get update failed; trying what is known" >&2
  package=$(apt-cache "${options[@]}" depends linux-image-armmp | sed -n 's/ *Depends: //p;T;q')
  apt-get -qq "${options[@]}" download "$package" busybox-static
  for package in *.deb; do dpkg-deb -x "$package" root; done
  cp root/boot/vmlinuz-* "$out/machine/vmlinuz"
  modules root
}

modules() { # modules ROOT: of the file systems and of the emulator's devices, with busybox
  local version file pack="$out/apt/pack"
  version=$(ls "$1/lib/modules")
  depmod -b "$1" "$version"
  mkdir -p "$pack"/{bin,lib,proc,sys,dev,host}
  cp "$1/bin/busybox" "$pack/bin"
  for file in virtio_pci virtio_blk 9pnet_virtio 9p loop vfat nls_cp437 nls_ascii exfat ext4 f2fs \
    crc32c_generic crc32_generic; do
    modprobe -d "$PWD/$1" -S "$version" -D "$file"
  done | sed -n "s|^insmod $PWD/$1/\([^ ]*\).*|\1|p" | sort -u | cpio -pdm --quiet -D "$1" "$pack"
  cp "$1/lib/modules/$version"/modules.{order,builtin,builtin.modinfo} "$pack/lib/modules/$version"
  depmod -b "$pack" "$version"
  (cd "$pack" && find . | cpio -o -H newc --quiet) | gzip -1 >"$out/machine/modules.gz"
}

pack() { # the recorder with all that it is linked to
  local libraries=/usr/arm-linux-gnueabihf/lib pack=$out/pack
  mkdir -p "$pack"/{bin,lib}
  cp "$here/init" "$pack"
  cp "$target/rig/kestro-rig-record" "$pack/bin/record"
  cp "$target"/host/libkestro.so.? "$target/plugin/avi/libpluginavi.so" \
    $libraries/{ld-linux-armhf.so.3,libc.so.6,libm.so.6,libgcc_s.so.1,libstdc++.so.6} "$pack/lib"
  (cd "$pack" && find . | cpio -o -H newc --quiet) | gzip -1 | cat "$out/machine/modules.gz" - \
    >"$out/machine/initrd"
}

boot() { # boot GROUP: until the job in its folder, which the machine shares, is done
  local share=$out/$1 name n=0 disks=()
  for name in $(cat "$share/cards" 2>/dev/null); do
    n=$((n + 1))
    disks+=(-blockdev "driver=file,node-name=file$n,filename=$share/$name.card"
      -blockdev "driver=file,node-name=log$n,filename=$share/$name.log"
      -blockdev "driver=blklogwrites,node-name=logged$n,file=file$n,log=log$n,log-super-update-interval=64"
      -blockdev "driver=raw,node-name=card$n,file=logged$n"
      -device "virtio-blk-pci,drive=card$n,write-cache=on")
  done
  exec timeout -s KILL "${limit:-300}" qemu-system-arm -M virt,highmem=off -cpu cortex-a7 -m 128 -nic none \
    -nographic -no-reboot -kernel "$out/machine/vmlinuz" -initrd "$out/machine/initrd" \
    -append "console=ttyAMA0 loglevel=1 panic=-1" "${disks[@]}" \
    -virtfs "local,path=$share,mount_tag=share,security_model=none" </dev/null >"$share/console"
}

# Cards. A group of them is recorded to in one boot: its folder is shared with the machine.

format() { # format FS FILE MIB: and a MiB more that no file system uses
  truncate -s $(($3 + 1))M "$2"
  case $1 in
    vfat) mkfs.vfat -F 32 -s $(($3 < 260 ? 1 : 8)) "$2" $(($3 * 1024)) ;;
    ext4) mkfs.ext4 -q "$2" "${3}M" ;;
    exfat) truncate -s "${3}M" "$2" && mkfs.exfat "$2" && truncate -s $(($3 + 1))M "$2" ;;
    f2fs) mkfs.f2fs "$2" $(($3 * 2048)) ;;
  esac >"$2.format" 2>&1 || die "$1: $(cat "$2.format")"
}
size() { [[ $1 == vfat ]] && echo 300 || echo 128; }

card() { # card GROUP FS MODE[.VARIANT] OPTION...
  local share=$out/$1 fs=$2 name=$3 mib=${mib:-$(size "$2")}
  job "$1" "card $fs $name mode=${name%%.*} promises-at=$((mib * 2048)) ${*:4}"
  format "$fs" "$share/$name.card" "$mib"
  cp --sparse=always "$share/$name.card" "$share/$name.base"
  : >"$share/$name.log"
  echo "$name" >>"$share/cards"
}
job() { mkdir -p "$out/$1" && printf '%s\n' "${@:2}" >>"$out/$1/job"; }

record() { # record GROUP
  job "$1" finish
  (boot "$1") || fault "$1: the machine did not stop"
}

# Verdicts: "FILE-SYSTEM CARD WAY good states kept promises", and what the first fault is.

judge() { # judge GROUP FS NAME WAY OPTION...: the states of a card
  local share=$out/$1 fs=$2 name=$3 way=$4 unit=512 work=$out/$1/$3.$4 said
  [[ $fs != f2fs ]] || unit=4096
  mkdir -p "$work"
  said=$("$judge" "log=$share/$name.log" "base=$share/$name.base" "mode=${name%%.*}" unit=$unit \
    "tool=$tool" "work=$work" "${@:5}") || fault "$fs $name: not judged"
  [[ -z $said ]] || echo "$fs $name $way $said" >>"$out/verdicts"
}
checked() { # checked GROUP FS NAME OPTION...: after the file system's own check, without mounting
  local copy
  case $2 in
    vfat) copy='fsck.fat -a "$image"; mcopy -s -n -i "$image" "::*" "$folder/"' ;;
    ext4) copy='e2fsck -fy "$image"; debugfs -R "rdump / $folder" "$image"' ;;
  esac
  judge "$1" "$2" "$3" checked "copy=($copy) >\$image.copied 2>&1" "${@:4}"
}
mounted() { # mounted GROUP FS OPTION...: all cards of the group, mounted by the machine as they are
  local group=$1 fs=$2 name share=$out/$1.mounted
  for name in $(<"$out/$group/cards"); do
    mkdir -p "$share/$name"
    judge "$group" "$fs" "$name" mounted "make=$share/$name" "${@:3}"
    job "$group.mounted" "copy $fs $name"
  done
  (limit=1500 boot "$group.mounted") || fault "$group: the machine did not stop"
  for name in $(<"$out/$group/cards"); do
    judge "$group" "$fs" "$name" mounted "judge=$share/$name" "${@:3}"
  done
  rm -r "$share"
}

# What is recorded and judged.

# An image comes with every 512 KiB at the most.
scale() { [[ $mode == image ]] && echo "$1" || echo 1; }
usual() { # usual GROUP FS INTERVAL SCALE-OF-IMAGE: a card of each mode, busy
  local mode
  job "$1" busy
  for mode in "${modes[@]}"; do
    card "$1" "$2" "$mode" "interval=$3" "scale=$(scale "$4")"
  done
}
plants() {
  job plants busy
  card plants vfat in-place.no-barrier plant=no-barrier
  card plants vfat callback.no-barrier plant=no-barrier
}
segments() {
  card segments vfat in-place.segments per-file=2 queue=1
  card segments vfat callback.segments per-file=2
}
pulled() {
  local mode
  for mode in "${modes[@]}"; do card pulled vfat "$mode.pulled" "scale=$(scale 3)"; done
  card pulled vfat in-place.read-only per-file=2
  job pulled 'sleep 6' 'for mode in in-place image callback; do pull $mode.pulled; done' \
    'echo u >/proc/sysrq-trigger'
}
full() {
  local mode
  for mode in "${modes[@]}" off; do
    mib=64 card full vfat "$mode.full" pace=0 seconds=90 scale=5 \
      "$([[ $mode != off ]] || echo spill=/mnt/off.full)"
  done
}

# What the recorder printed about a card that failed.
reported() { # reported GROUP NAME TEXT
  grep -qE "^(error|note): .*$3" "$out/$1/$2.said" || fault "$2: no \"$3\" was reported"
}
# A file that filled its card is complete, and plays what was recorded.
full_card() { # full_card NAME
  local file=$out/full/$1.files/a.avi pushed played
  mkdir -p "${file%/*}"
  mcopy -n -i "$out/full/$1.card" ::a.avi "$file"
  reported full "$1" 'No space left'
  "$tool" verify "$file" >"$file.verified" || fault "$1: $(sed -n 2p "$file.verified")"
  played=$("$tool" play --json "$file" 2>/dev/null | grep -c '"seq"')
  pushed=$(sed -n 's/^ended: \([0-9]*\) packets/\1/p' "$out/full/$1.said")
  ((played * 10 > pushed * 9)) || fault "$1: $played packets of $pushed are played"
  checked full vfat "$1" states=end "least=$played"
}

recorded() { # recorded GROUP...: all at once
  for group; do pool record "$group"; done
  wait
}

short() {
  local fs group mode
  for fs in vfat ext4 exfat f2fs; do usual $fs $fs 1000 3; done
  plants
  segments
  pulled
  full
  recorded vfat exfat f2fs ext4 full plants segments pulled
  pool mounted vfat vfat states=100
  for fs in exfat f2fs; do pool mounted $fs $fs states=10; done
  for fs in vfat ext4; do
    for mode in "${modes[@]}"; do pool checked $fs $fs "$mode" states=100; done
  done
  for group in plants segments pulled; do
    for mode in $(<"$out/$group/cards"); do pool checked $group vfat "$mode" states=50 switches=1; done
  done
  for mode in $(<"$out/full/cards"); do pool full_card "$mode"; done
  # vfat mounts itself read-only when its tables cannot be written.
  for mode in "${modes[@]}"; do
    reported pulled "$mode.pulled" '(Input/output error|Read-only file system)'
  done
  reported pulled in-place.read-only 'Read-only file system'
  wait
}

# Short recordings with many syncs, again and again; of exfat and f2fs, which are slow to judge, fewer.
long() {
  local fs mode round few=$(((rounds + 4) / 5)) groups=()
  for ((round = 1; round <= rounds; ++round)); do
    for fs in vfat ext4 exfat f2fs; do
      [[ $round -le $few || $fs == vfat || $fs == ext4 ]] || continue
      usual "$fs.$round" $fs 230 9
      groups+=("$fs.$round")
    done
    card "vfat.$round" vfat in-place.data-only plant=data-only interval=250
  done
  recorded "${groups[@]}"
  for ((round = 1; round <= rounds; ++round)); do
    for fs in vfat ext4; do
      for mode in $(<"$out/$fs.$round/cards"); do
        pool checked "$fs.$round" $fs "$mode" states=100 "seed=$round"
      done
    done
    pool mounted "vfat.$round" vfat states=10 "seed=$round"
    ((round <= few)) || continue
    for fs in exfat f2fs; do pool mounted "$fs.$round" $fs states=50 "seed=$round"; done
  done
  wait
}

# One line for each recording; what was planted must be found.
report() {
  local code=0
  [[ ! -s $out/verdicts ]] || sort "$out/verdicts" | awk '
    { key = $1 " " $2; way[$3]; states[key, $3] += $5; good[key, $3] += $4
      kept[key, $3] += $6; promises[key, $3] += $7
      if (!(key in seen)) order[++n] = key
      seen[key]
      if ($4 < $5 && !(key in first)) { first[key] = $3 ":"; for (i = 8; i <= NF; ++i) first[key] = first[key] " " $i } }
    function share(key, way) {
      return (key, way) in states ? sprintf("%d/%d  %d/%d", good[key, way], states[key, way],
        kept[key, way], promises[key, way]) : "-" }
    END {
      printf "%-6s %-24s %-22s %s\n", "", "states, promises kept", "checked", "mounted as it is"
      for (i = 1; i <= n; ++i) {
        split(order[i], part, " ")
        planted = part[2] ~ /no-barrier|data-only/
        printf "%-6s %-24s %-22s %-22s%s\n", part[1], part[2], share(order[i], "checked"),
          share(order[i], "mounted"), planted ? (order[i] in first ? " found" : " NOT FOUND") : ""
        if (planted != (order[i] in first)) bad = 1
        if (!planted && order[i] in first) print "  FAULT " first[order[i]]
      }
      exit bad }' || code=1
  if [[ -s $out/faults ]]; then
    sed 's/^/FAULT /' "$out/faults"
    code=1
  fi
  return $code
}

[[ ! -d $out ]] || # but what was fetched
  find "$out" -mindepth 1 -maxdepth 1 ! -name apt ! -name machine -exec rm -r {} +
mkdir -p "$out"
for pause in 20 60 0; do # a mirror may be in the middle of its update
  fetch & # which ends at its first error, as it would not inside a condition
  if wait $!; then break; fi
  ((pause > 0)) || die "the machine cannot be fetched"
  sleep "$pause"
done
pack
"$kind"
report
