#!/usr/bin/env bash
# Installs a build into a folder, uses it from there, and removes it; or builds the sources as part
# of another project.
#   install.sh prefix|subdirectory BUILD TOOL-IS-BUILT MEDIA-MODULE-IS-BUILT EMULATOR CMAKE-ARGUMENT...
set -euo pipefail
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")") what=$1 build=$2 with_tool=$3 with_media=$4
source=${here%/tests/package}
IFS=';' read -ra emulator <<<"$5"
shift 5
settings=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset KESTRO_PLUGIN_PATH DESTDIR

die() {
  printf 'FAIL  %s\n' "$*" >&2
  exit 1
}
quietly() { # quietly COMMAND...: shows its output only when it fails
  "$@" >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    die "$*"
  }
}
setting() { printf '%s\n' "${settings[@]}" | sed -n "s/^-D$1=//p"; }

consume() { # consume CMAKE-ARGUMENT...: builds the example and runs it
  quietly cmake -S "$here/consumer" -B "$work/consumer" "${settings[@]}" "$@"
  quietly cmake --build "$work/consumer" --parallel 2
  mv "$work/consumer/record.avi" "$work/record.avi"
}

if [[ $what == subdirectory ]]; then
  consume -DKESTRO="$source"
  [[ -s $work/record.avi ]] || die "nothing was recorded"
  quietly cmake --install "$work/consumer" --prefix "$work/prefix"
  [[ ! -e $work/prefix ]] || die "something is installed with the other project"
  echo "ok    add_subdirectory"
  exit
fi

# Keeps the lists of what this build has really installed.
mkdir "$work/kept"
find "$build" -maxdepth 1 -name 'install_*.txt' -exec mv -t "$work/kept" {} +
trap 'rm -f "$build"/install_*.txt; mv -t "$build" "$work"/kept/* 2>/dev/null || true; rm -rf "$work"' EXIT

prefix="$work/opt/kestro"
mkdir -p "$prefix/include" # uninstall must not remove it
quietly cmake --install "$build" --prefix "$prefix"
config=$(dirname "$(find "$prefix" -name kestro-config.cmake)")
lib=$(realpath "$config/../..")
plugin="$lib/kestro/libpluginavi.so"
modules=libpluginavi.so
[[ $with_media == 0 ]] || modules="libkestromedia.so $modules"
[[ -f $plugin && ! -L $plugin && $(ls "$lib/kestro" | xargs) == "$modules" ]] || die "the plug-in's folder"
soname=libkestro.so.$(sed -n 's/^project(kestro VERSION \([0-9]*\).*/\1/p' "$source/CMakeLists.txt")
readelf -d "$lib/libkestro.so" | grep -F "soname: [$soname]" >/dev/null || die "no soname"
[[ $(readlink "$lib/libkestro.so") == "$soname" ]] || die "no libkestro.so"

headers=0
while read -r header; do
  headers=$((headers + 1))
  echo "#include \"$header\"" >"$work/$headers.cpp"
done < <(cd "$prefix/include/kestro" && find . -name '*.h')
[[ -f $prefix/include/kestro/recorder/kestro_recorder.h && $headers -gt 30 ]] || die "headers are missing"
printf '%s\n' "$work"/*.cpp | xargs -P 2 -n 4 "$(setting CMAKE_CXX_COMPILER)" -std=c++17 -Wall -Wextra -Werror \
  -fsyntax-only -I "$prefix/include/kestro" || die "a header does not compile alone"
echo "ok    $headers headers, each alone"

consume -Dkestro_DIR="$config"
mv "$work/record.avi" "$work/found.avi"
echo "ok    find_package"

export PKG_CONFIG_PATH="$lib/pkgconfig"
read -ra flags < <(pkg-config --cflags --libs kestro)
[[ $(pkg-config --variable=plugindir kestro) -ef "$lib/kestro" ]] || die "plugindir"
quietly "$(setting CMAKE_CXX_COMPILER)" -std=c++17 "$(setting EXAMPLE)" "${flags[@]}" -o "$work/record"
LD_LIBRARY_PATH="$lib" quietly "${emulator[@]}" "$work/record" "$plugin" "$(setting CLIP)" \
  "$work/record.avi" 320 180 25
cmp "$work/found.avi" "$work/record.avi" || die "the example records something else"
read -ra flags < <(pkg-config --cflags --libs kestro-recorder)
quietly "$(setting CMAKE_C_COMPILER)" -std=c99 -pedantic -Werror "$source/examples/recorder.c" "${flags[@]}" \
  -Wl,-rpath-link,"$lib" -o "$work/recorder"
LD_LIBRARY_PATH="$lib" quietly "${emulator[@]}" "$work/recorder" "$(setting CLIP)" "${source}/tests/media/mono8k.wav" \
  "$work/recorder.avi" 320 180 25 # which finds the plug-in by itself
[[ -s $work/recorder.avi ]] || die "the recorder in C has recorded nothing"
echo "ok    pkg-config"

if [[ $with_tool == 1 ]]; then
  mkdir "$work/moved"
  cp -a "$prefix" "$work/moved" # the tool must find its modules anywhere
  mv "$prefix" "$prefix.away"
  tool="$work/moved/kestro/bin/kestro-avi"
  quietly "${emulator[@]}" "$tool" play "$work/recorder.avi"
  [[ $with_media == 0 ]] || # with the installed modules
    quietly "$tool" record -o "$work/tool.avi" "$(setting CLIP)"
  mv "$prefix.away" "$prefix"
  pages=(doc/kestro-avi/examples/kestro-camera@.service)
  if [[ ${#emulator[@]} -eq 0 ]]; then # the tool that is built writes the others
    pages+=(man/man1/kestro-avi.1 bash-completion/completions/kestro-avi fish/vendor_completions.d/kestro-avi.fish)
    [[ -s $(find "$prefix/share/zsh" -name _kestro-avi) ]] || die "no completion for zsh"
  fi
  for page in "${pages[@]}"; do [[ -s $prefix/share/$page ]] || die "no $page"; done
  echo "ok    the tool finds its modules"
fi

echo mine >"$lib/kestro/other"
quietly cmake --build "$build" --target uninstall
left=$(cd "$work/opt" && find . | sort | xargs)
[[ $left == ". ./kestro ./kestro/include ./kestro/${lib#"$prefix/"}"*"/kestro/other" ]] || die "left: $left"
[[ $(find "$prefix" -type f | wc -l) == 1 ]] || die "left: $left"
quietly cmake --install "$build" --prefix "$prefix"
rm "$lib/kestro/other"
quietly cmake --build "$build" --target uninstall
echo "ok    uninstalled"
