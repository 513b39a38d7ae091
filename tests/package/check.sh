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
remove() { # remove: those that are installed
  local name installed=()
  for name in "${names[@]}"; do ! dpkg -s "$name" >/dev/null 2>&1 || installed+=("$name"); done
  dpkg --purge "${installed[@]}" >"$work/log" 2>&1
}
trap 'remove || true; rm -rf "$work"' EXIT
install() { # install FILE...
  apt-get install -y --no-install-recommends "$@" >"$work/log" 2>&1 </dev/null ||
    { cat "$work/log" >&2 && die "installing $*"; }
}
file_of() { # file_of NAME: of a package
  local i
  for i in "${!names[@]}"; do [[ ${names[i]} != "$1" ]] || echo "${packages[i]}"; done
}

here() { find /usr /etc -xdev -name '*kestro*' -not -path "$source/*" 2>/dev/null || true; }
here | sort >"$work/before"
install "${packages[@]}"
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
library=$(printf '%s\n' "${names[@]}" | grep '^libkestro[0-9]')
core=("$(file_of "$library")" "$(file_of kestro-avi-core)")
for file in "${core[@]}"; do
  ! dpkg-deb -f "$file" Pre-Depends Depends Recommends | grep -E 'lib(av|sw)' || die "$file needs libavformat"
done
install "${core[@]}"
head -c 50000 tool.avi >cut.avi
kestro-avi verify tool.avi
kestro-avi repair cut.avi -o whole.avi >log 2>&1 || [[ $? == 1 ]] || { cat log >&2 && die "repair"; }
for arguments in "info whole.avi" "play whole.avi" "extract -o tracks whole.avi"; do
  # shellcheck disable=SC2086
  kestro-avi $arguments >log 2>&1 || { cat log >&2 && die "kestro-avi $arguments"; }
done
! kestro-avi record -o none.avi "$clip" 2>log || die "kestro-avi-core records"
grep -qF "Debian package kestro-avi" log || die "record does not name the missing package"
echo "ok    kestro-avi-core alone"

remove
dpkg-deb -R "$(file_of kestro-avi-core)" old
dpkg-deb -x "$(file_of kestro-avi)" old
version=$(dpkg-deb -f "$(file_of kestro-avi)" Version)
sed -i '/^\(Breaks\|Replaces\|Suggests\):/d; s/^Package:.*/Package: kestro-avi/; s/^Version:.*/Version: '"$version"'~old/;
  s/^Depends:.*/Depends: '"$library"'/' old/DEBIAN/control
dpkg-deb -b old old.deb >log
install "$(file_of "$library")" ./old.deb
install "${core[@]}" "$(file_of kestro-avi)"
[[ $(dpkg -S /usr/bin/kestro-avi) == kestro-avi-core:* ]] || die "kestro-avi still has the program"
kestro-avi record -o upgraded.avi "$clip" >log 2>&1 || { cat log >&2 && die "kestro-avi record"; }
echo "ok    upgraded from the one package of earlier versions"

remove || { cat log >&2 && die "removing"; }
while read -r file; do [[ ! -e $file ]] || die "left: $file"; done <files
here | sort >after
diff before after || die "something is left"
echo "ok    removed, nothing is left"
