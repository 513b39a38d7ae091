# A table of the branches that were taken, by file of the host and the plug-in, from what
# "llvm-cov export -summary-only" tells.
def pad($width): . + " " * ([$width - length, 1] | max);
def row($name; $files):
  ($files | map(.summary.branches) | {all: map(.count) | add, taken: map(.covered) | add})
  | ($name | pad(52)) + ("\(.taken) of \(.all)" | pad(16))
    + (if .all > 0 then "\(.taken * 1000 / .all | floor / 10) %" else "-" end);

# What takes part in reading a file, and the file may say anything.
def reading: test("AviDemux|IList|IStream|Stream[A-Z]|Chunks|StartCode|VideoHeader|IOCacheReader");

[.data[0].files[] | select(.filename | test("(^|/)(host|plugin)/") and (test("tests/") | not))
  | .filename |= sub(".*/(?=(host|plugin)/)"; "")]
| (.[] | row(.filename; [.])),
  row("host"; map(select(.filename | startswith("host")))),
  row("plug-in"; map(select(.filename | startswith("plugin")))),
  row("all"; .),
  row("reading code"; map(select(.filename | reading)))
