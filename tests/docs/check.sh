#!/usr/bin/env bash
# Holds the documentation against the tool:
#   check.sh TOOL TREE
# Runs the commands of each page's fenced blocks ("$ ..."), in a folder with the bundled clips, and
# compares exit code (0, or the one in "# exit code N" after the command) and output, that on standard
# error after that on standard output: "..." stands for anything. Then looks for the files that
# links name, and for every option of the tool in docs/tool.md.
set -uo pipefail
export LC_ALL=C
tool=$(realpath "$1") tree=$(realpath "$2")
export PATH=${tool%/*}:$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0 commands=0

fail() {
  printf 'not ok - %s\n' "$1" && head -20 <<<"${2-}"
  failures=$((failures + 1))
}

# Runs $command of $page and compares its output with $expected.
finish() {
  [[ -n $command ]] || return 0
  local run=$command code=0 actual got pattern=$expected
  command=
  command -v "${run%% *}" >/dev/null || { echo "skipped: no ${run%% *}" && return; }
  [[ $run =~ '# exit code '([0-9]+)$ ]] && code=${BASH_REMATCH[1]}
  actual=$(bash -c "$run" 2>"$work/stderr")
  got=$?
  actual+=$'\n'$(<"$work/stderr")
  commands=$((commands + 1))
  [[ $got == "$code" ]] || fail "$page: $run: exit code $got, not $code" "$actual"
  [[ -n $pattern ]] || return 0
  pattern=$(sed 's/[][\\*?]/\\&/g; s/\.\.\./*/g' <<<"$pattern")
  # shellcheck disable=SC2053
  [[ $(sed '/^$/d' <<<"$actual") == $(sed '/^$/d' <<<"$pattern") ]] ||
    fail "$page: $run: other output than shown:" "$actual"
}

run_page() {
  local line fenced='' command='' expected=''
  mkdir -p "$work/run/build" && cd "$work/run" || exit 1
  ln -s "$tree/tests" "$tree"/tests/media/{clip*,*.wav} .
  ln -s "${tool%/tools/*}" build/release
  while IFS= read -r line; do
    case $fenced$line in
      '```'*) fenced=x ;;
      'x```'*) fenced='' && finish ;;
      'x$ '*) finish && command=${line#??} expected='' ;;
      x*) if [[ $command == *\\ ]]; then command=${command%\\}$line; else expected+=$line$'\n'; fi ;;
    esac
  done <"$tree/$page"
  cd "$tree" && rm -rf "$work/run"
}

cd "$tree" || exit 1
for page in *.md docs/*.md; do
  run_page
  while read -r link; do
    [[ $link == *:* || -e ${page%"${page##*/}"}$link ]] || fail "$page: there is no $link"
  done < <(grep -oE '\]\([^)#]+' "$page" | cut -c3-)
done
for verb in $("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
  grep -q "^## $verb\$" docs/tool.md || fail "docs/tool.md: there is a verb $verb"
  while read -r option; do
    grep -qE -e "$option([^a-z-]|\$)" docs/tool.md || fail "docs/tool.md: $verb has $option"
  done < <("$tool" "$verb" --help | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p' | grep -vx -e --help)
done
echo "$commands commands, $failures failures"
[[ $failures == 0 && $commands -gt 0 ]]
