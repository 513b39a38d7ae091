#!/usr/bin/env bash
# The manual page and the completions have all options of the help, and the shells load them.
#   pages.sh TOOL
set -euo pipefail
export LC_ALL=C
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

die() {
  printf 'FAIL  %s\n' "$*" >&2
  exit 1
}
for kind in bash zsh fish man; do "$tool" generate "$kind" >"$kind"; done
bash -n bash
for shell in zsh fish; do
  if command -v $shell >/dev/null; then $shell -n $shell; fi
done
sed 's/\\-/-/g; s/\\f[BRI]//g' man >text
if command -v groff >/dev/null; then
  [[ -z $(groff -man -ww -Tutf8 man 2>&1 >/dev/null) ]] || die "groff complains"
fi
# shellcheck disable=SC1091
. ./bash
complete_() { # complete_ WORD...: what bash offers for the last word
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
  _kestro_avi 2>/dev/null
  echo "${COMPREPLY[*]}"
}

verbs=$("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[[ $(complete_ kestro-avi '') == "$(xargs <<<"$verbs") -h --help --version" ]] || die "verbs in bash"
options=0
for verb in $verbs; do
  grep -q "^kestro-avi $verb \[" text || die "$verb in the manual page"
  offered=" $(complete_ kestro-avi "$verb" -) "
  section=$(sed -n "/^kestro-avi $verb \[/,/^\.SS/p" text)
  zsh=$(sed -n "/^    $verb)/,/;;/p" zsh)
  for option in $("$tool" "$verb" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | tr ',' ' '); do
    [[ $offered == *" $option "* ]] || die "$verb $option in bash"
    grep -qE -- "(^|[ ,])$option( |,|$)" <<<"$section" || die "$verb $option in the manual page"
    grep -qE -- "[)*']${option}[=+]?\[" <<<"$zsh" || die "$verb $option in zsh"
    dashes=${option//[a-z]*/} name=${option##--}
    [[ $dashes == -- ]] && name="-l $name" || name="-s ${option#-}"
    grep -qE -- "from $verb'.* $name " fish || die "$verb $option in fish"
    options=$((options + 1))
  done
done
[[ $options -gt 50 ]] || die "only $options options in the help"
echo "ok    $options options in each"

mkdir folder
touch file
check() { # check EXPECTED WORD...
  local expected=$1
  shift
  [[ $(complete_ "$@") == "$expected" ]] || die "bash, $*: $(complete_ "$@")"
}
check "play plugin" kestro-avi pl
check "in-place image" kestro-avi record --sync i
check "in-place image callback off" kestro-avi record --sync =
check "callback" kestro-avi record in.mp4 --sync = c
check "folder" kestro-avi extract -o f
check "" kestro-avi record --fps f # no files for a rate
check "" kestro-avi info f         # bash's own: files
check "--segment-size --segment-time" kestro-avi record in.mp4 --seg
[[ $(complete -p kestro-avi) == *"-o default"* ]] || die "no files in bash"
echo "ok    bash completes"

if command -v fish >/dev/null; then
  offers() { HOME=$work fish -N -c "source fish; complete -C '$1'" | cut -f 1 | sort | xargs; }
  [[ $(offers 'kestro-avi play --mode ') == "audio back fast normal video" ]] || die "fish: a choice"
  [[ $(offers 'kestro-avi ver') == verify ]] || die "fish: a verb"
  echo "ok    fish completes"
fi
