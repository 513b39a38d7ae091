#!/usr/bin/env bash
# Checks the documentation against the tool and the tree:
#   check.sh TOOL TREE
# Runs the commands in each page's fenced blocks ("$ ...") in a folder with the bundled clips and
# compares the exit code (0, or N in a comment "# exit code N" after the command) and the output:
# standard output followed by standard error, where "..." matches anything. Then checks that every
# linked file exists, that every source file named outside fenced blocks exists and contains the
# identifier given with it ("`Name`, path"), that the tests named in docs/compatibility.md exist, and
# that docs/tool.md describes every option.
set -uo pipefail
export LC_ALL=C
tool=$(realpath "$1") tree=$(realpath "$2")
export PATH=${tool%/*}:$PATH
export GST_PLUGIN_PATH=${tool%/tools/*}/gst
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

# Source files are named by their path from the root; NAME stands for a name to be chosen.
check_paths() {
  local text path name endings='\.(c|cmake|cpp|h|in|map|md|sh|txt)'
  text=$(sed -E '/^```/,/^```/d; s/\]\([^)]*\)//g; /^    /d' "$page")
  while read -r path; do
    [[ -e $path || $path == @(build/|*NAME)* ]] || fail "$page: there is no $path"
  done < <(grep -oE "[A-Za-z0-9_.-]+(/[A-Za-z0-9_.-]+)+$endings\\b" <<<"$text" | sort -u)
  while IFS='`,' read -r _ name path; do
    path=${path#*, }
    [[ ! -e $path ]] || grep -qw -- "${name##*::}" "$path" || fail "$page: $path does not have $name"
  done < <(grep -oE '`[A-Za-z_:]+`, '"[a-z][A-Za-z0-9_/.-]*$endings\\b" <<<"$text" | sort -u)
}

cd "$tree" || exit 1
for page in *.md docs/*.md; do
  [[ $page == *gstreamer* && ! -d $GST_PLUGIN_PATH ]] || run_page
  check_paths
  while read -r link; do
    [[ $link == *:* || -e ${page%"${page##*/}"}$link ]] || fail "$page: broken link to $link"
  done < <(grep -oE '\]\([^)#]+' "$page" | cut -c3-)
done
while IFS='`.' read -r _ suite name; do
  grep -rqE "^TEST(_[FP])?\($suite, $name\)" tests || fail "docs/compatibility.md: there is no test $suite.$name"
done < <(grep -oE '`[A-Z][A-Za-z]+\.[A-Z][A-Za-z]+' docs/compatibility.md | sort -u)
for verb in $("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
  grep -q "^## $verb\$" docs/tool.md || fail "docs/tool.md has no section for the verb $verb"
  while read -r option; do
    grep -qE -e "$option([^a-z-]|\$)" docs/tool.md || fail "docs/tool.md does not describe $verb $option"
  done < <("$tool" "$verb" --help | sed -nE 's/^  (-[a-z],)?(--[a-z-]+).*/\2/p' | grep -vx -e --help)
done
echo "$commands commands, $failures failures"
[[ $failures == 0 && $commands -gt 0 ]]
