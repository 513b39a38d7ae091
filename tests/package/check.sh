#!/usr/bin/env bash
# Installs the Debian packages, uses them and removes them. As root.
#   check.sh FOLDER-OF-PACKAGES
set -euo pipefail
source=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
packages=("$(realpath "$1")"/*.deb)
clip="$source/tests/media/clip25.h264"
work=$(mktemp -d)
unset KESTRO_PLUGIN_PATH

die() {
  printf 'FAIL  %s\n' "$*" >&2
  exit 1
}
[[ $(id -u) -eq 0 ]] || die "packages are installed as root"
for package in "${packages[@]}"; do names+=("$(dpkg-deb -f "$package" Package)"); done
for name in "${names[@]}"; do
  ! dpkg -s "$name" >/dev/null 2>&1 || die "$name is installed already"
done
remove() { dpkg --purge "${names[@]}" >"$work/log" 2>&1; }
trap 'remove || true; rm -rf "$work"' EXIT

here() { find /usr /etc -xdev -name '*kestro*' -not -path "$source/*" 2>/dev/null || true; }
here | sort >"$work/before"
apt-get install -y --no-install-recommends "${packages[@]}" >"$work/log" 2>&1 </dev/null ||
  { cat "$work/log" >&2 && die "installing"; }
dpkg -L "${names[@]}" | sort -u | while read -r file; do [[ -d $file ]] || echo "$file"; done >"$work/files"
echo "ok    installed: ${names[*]}, $(wc -l <"$work/files") files"

cd "$work"
kestro-avi record -o tool.avi "$clip" >log 2>&1 || { cat log >&2 && die "kestro-avi record"; }
kestro-avi info tool.avi
man -w kestro-avi >/dev/null 2>&1 || [[ ! -x $(command -v man) ]] || die "no manual page"
read -ra flags < <(pkg-config --cflags --libs kestro)
g++ -std=c++17 "$source/examples/record.cpp" "${flags[@]}" -o record
./record "$(pkg-config --variable=plugindir kestro)/libpluginavi.so" "$clip" record.avi 320 180 25 >log
tail -1 log
cmake -S "$source/tests/package/consumer" -B consumer -DEXAMPLE="$source/examples/record.cpp" \
  -DCLIP="$clip" >log
cmake --build consumer >>log
cmp record.avi consumer/record.avi
if [[ " ${names[*]} " == *" gstreamer1.0-kestro "* && -x $(command -v gst-launch-1.0) ]]; then
  GST_REGISTRY="$work/registry" gst-launch-1.0 filesrc location="$clip" ! h264parse ! kestroavisink \
    location=gst.avi >log 2>&1 || { cat log >&2 && die "gst-launch-1.0"; }
  kestro-avi verify gst.avi
fi
echo "ok    the tool, pkg-config, find_package, GStreamer"

remove || { cat log >&2 && die "removing"; }
while read -r file; do [[ ! -e $file ]] || die "left: $file"; done <files
here | sort >after
diff before after || die "something is left"
echo "ok    removed, nothing is left"
