#!/usr/bin/env bash
# Cuts the power of recorders: run.sh KIND BUILD TARGET-BUILD OUT, where KIND is short, long or cost.
# A machine records to emulated cards whose writes are logged; what a cut could leave of the cards
# is built from the logs, and the files on it are judged, copied by the host after the file system's
# own check, and copied by a machine that mounts the card as it is.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
kind=$1 build=$(realpath "$2") target=$(realpath "$3") out=$(realpath -m "$4")
tool=$build/tools/kestro-avi/kestro-avi judge=$build/rig/kestro-rig
PATH=$PATH:/usr/sbin:/sbin
jobs=$(nproc)
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
  cp "$target/host/libkestro.so.1" "$target/plugin/avi/libpluginavi.so" \
    $libraries/{ld-linux-armhf.so.3,libc.so.6,libm.so.6,libgcc_s.so.1,libstdc++.so.6} "$pack/lib"
  (cd "$pack" && find . | cpio -o -H newc --quiet) | gzip -1 | cat "$out/machine/modules.gz" - \
    >"$out/machine/initrd"
}

boot() { # boot SHARE [NAME...]: with the folder and the cards of these names, until the job is done
  local share=$1 name disks=()
  shift
  for name in "$@"; do
    disks+=(-blockdev "driver=file,node-name=f-$name,filename=$share/$name.card"
      -blockdev "driver=file,node-name=l-$name,filename=$share/$name.log"
      -blockdev "driver=blklogwrites,node-name=w-$name,file=f-$name,log=l-$name,log-super-update-interval=64"
      -blockdev "driver=raw,node-name=c-$name,file=w-$name"
      -device "virtio-blk-pci,drive=c-$name,write-cache=on")
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
    vfat) mkfs.vfat -F 32 -s 8 "$2" $(($3 * 1024)) ;;
    ext4) mkfs.ext4 -q "$2" "${3}M" ;;
    exfat) truncate -s "${3}M" "$2" && mkfs.exfat "$2" && truncate -s $(($3 + 1))M "$2" ;;
    f2fs) mkfs.f2fs "$2" $(($3 * 2048)) ;;
  esac >"$2.format" 2>&1 || die "$1: $(cat "$2.format")"
}
size() { case $1 in vfat) echo 300 ;; *) echo 64 ;; esac; }

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
  (boot "$out/$1" $(<"$out/$1/cards")) || fault "$1: the machine did not stop"
}

# Verdicts: "FILE-SYSTEM CARD WAY good states kept promises", and what the first fault is.

judge() { # judge GROUP FS NAME WAY OPTION...: the states of a card
  local share=$out/$1 fs=$2 name=$3 way=$4 unit=512 work=$out/$1/$3.$4 said
  [[ $fs != f2fs ]] || unit=4096
  mkdir -p "$work"
  said=$("$judge" "log=$share/$name.log" "base=$share/$name.base" "mode=${name%%.*}" unit=$unit \
    "tool=$tool" "work=$work" "${@:5}") || [[ -n $said || $5 == make=* ]] || fault "$fs $name: not judged"
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
  (limit=1500 boot "$share") || fault "$group: the machine did not stop"
  for name in $(<"$out/$group/cards"); do
    judge "$group" "$fs" "$name" mounted "judge=$share/$name" "${@:3}"
  done
  rm -r "$share"
}

# What is recorded, and what is asked of it.

usual() { # usual GROUP FS INTERVAL SCALE-OF-IMAGE: a card of each mode, busy
  local mode
  job "$1" busy
  for mode in "${modes[@]}"; do
    card "$1" "$2" "$mode" "interval=$3" "scale=$([[ $mode == image ]] && echo "$4" || echo 1)"
  done
}
plants() {
  job plants busy
  card plants vfat in-place.no-barrier plant=no-barrier
  card plants vfat callback.rename plant=rename
  card plants vfat in-place.front-first plant=front-first
}
troubles() { # segments, and cards that are taken away
  card segments vfat in-place.segments per-file=2 queue=1
  card segments vfat callback.segments per-file=2
  card segments vfat in-place.pulled
  card segments vfat callback.read-only
  job segments 'sleep 5' 'pull in-place.pulled' 'sleep 1' 'echo u >/proc/sysrq-trigger'
}
full() {
  local mode
  for mode in in-place callback off; do
    mib=64 card full vfat $mode.full pace=0 seconds=90 scale=5 "$([[ $mode != off ]] || echo spill=/mnt/off.full)"
  done
}

full_card() { :; }

short() {
  local fs group mode
  for fs in vfat ext4 exfat f2fs; do usual $fs $fs 1000 3; done
  plants
  troubles
  full
  for group in vfat segments full plants exfat f2fs ext4; do pool record $group; done
  wait
  for fs in vfat exfat f2fs; do pool mounted $fs $fs states=$([[ $fs == vfat ]] && echo 100 || echo 10); done
  for mode in "${modes[@]}"; do
    for fs in vfat ext4; do pool checked $fs $fs $mode states=100; done
  done
  for group in plants segments; do
    for mode in $(<"$out/$group/cards"); do
      case $mode in
        *.segments) pool checked $group vfat "$mode" states=50 switches=1 ;;
        *.full) pool full_card "$mode" ;;
        *) pool checked $group vfat "$mode" states=50 ;;
      esac
    done
  done
  wait
}

main() {
  [[ ! -d $out ]] || find "$out" -mindepth 1 -maxdepth 1 ! -name apt ! -name machine -exec rm -r {} + # but what was fetched
  mkdir -p "$out"
  (fetch) || die "the machine cannot be fetched"
  pack
  "$kind"
}
main
cat "$out/verdicts" "$out/faults"
