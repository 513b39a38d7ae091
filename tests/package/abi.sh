#!/usr/bin/env bash
# Compares the interfaces of the two libraries with those of the commit that set the version: symbols,
# and the layout of what the installed headers define.
#   abi.sh BUILD OTHER-BUILD
set -euo pipefail
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
build=$(realpath "$1") other=$(realpath -m "$2")
cd "$root"
then=$(git log -1 --format=%H -G'^project\(kestro VERSION' -- CMakeLists.txt) ||
  { echo "abi: no history here; nothing to compare with" >&2 && exit 0; }
if [[ -n $(git diff HEAD -G'^project\(kestro VERSION' --name-only -- CMakeLists.txt) ]]; then
  echo "ok    the version has just been changed"
  exit
fi
source="$other/source"
rm -rf "$source"
git worktree prune
git worktree add -q --detach "$source" "$then"
trap 'git worktree remove --force "$source"' EXIT
quietly() { "$@" >"$other/log" 2>&1 || { cat "$other/log" >&2 && exit 1; }; }
settings=()
for part in TOOL TESTS BENCH EXAMPLES; do settings+=(-DKESTRO_$part=OFF); done
quietly cmake -S "$source" -B "$other/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug "${settings[@]}"
quietly cmake --build "$other/build" --target kestro kestrorec

printf '%s\n' '[suppress_function]' 'symbol_name_regexp = ^_ZN?K?S' '[suppress_variable]' \
  'symbol_name_regexp = ^_ZT[ISV]N?K?S' >"$other/suppressions" # instances of the standard library
headers=()
for side in 1:$other/build 2:$build; do # only installed headers count
  quietly cmake --install "${side#*:}" --component development --prefix "$other/installed-${side%%:*}"
  headers+=("--headers-dir${side%%:*}" "$other/installed-${side%%:*}/include/kestro")
done
code=0
for library in host/libkestro.so recorder/libkestrorec.so; do
  if abidiff --suppressions "$other/suppressions" "${headers[@]}" "$other/build/$library" \
    "$build/$library"; then
    echo "ok    $library: as in $(git show "$then:CMakeLists.txt" | sed -n 's/^project(kestro VERSION \([^ ]*\).*/\1/p')"
  else
    echo "FAIL  $library: its interface has changed, the version in CMakeLists.txt has not" >&2
    code=1
  fi
done
exit $code
