#!/usr/bin/env python3
"""Measures how many small faults the tests find: see README.md."""

import argparse
import hashlib
import json
import re
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from candidates import Source
from runner import Runner, Tree

ROOT = Path(__file__).resolve().parent.parent
FOLDERS = ["plugin", "host", "avi", "recorder"]
AIM = 95  # per cent


def candidates(match):
    """All mutants of the tree, by key."""
    found = {}
    for name in subprocess.check_output(["git", "ls-files", *FOLDERS], cwd=ROOT, text=True).split():
        if name.endswith((".cpp", ".h")) and (ROOT / name).is_file():
            for mutant in Source(name, (ROOT / name).read_text()).mutants():
                if match is None or re.search(match, str(mutant)) or re.search(match, mutant.key):
                    found[mutant.key] = mutant
    return found


def equivalents():
    """Reasons by key. The file alternates: a mutant's key, then its reason, indented."""
    reasons, key = {}, None
    for line in (ROOT / "mutate/equivalent.txt").read_text().split("\n"):
        if line.startswith("  ") and key is not None:
            reasons[key] = (reasons.get(key, "") + " " + line.strip()).strip()
        elif line and not line.startswith("#"):
            key = line
    return reasons


def choose(found, count, seed):
    """A random sample that hardly changes when the sources do: each mutant has a rank of its own."""
    def rank(key):
        return hashlib.sha1(f"{seed} {key}".encode()).hexdigest()
    return sorted(found, key=rank)[:count] if count else sorted(found)


def build(tree, found, keys):
    """Builds the sample without the mutants that do not compile. Returns them by number."""
    dropped_file = tree.home / "uncompilable.json"
    dropped = set(json.loads(dropped_file.read_text())) if dropped_file.is_file() else set()
    for turn in range(12):
        mutants = {n: found[key] for n, key in enumerate(keys, 1) if key not in dropped}
        tree.write(mutants, turn > 0)
        errors = tree.compile()
        if not errors:
            return mutants
        bad = {mutant.key for mutant in mutants.values()
               if any(mutant.line <= line <= mutant.last_line for line in errors.get(mutant.source.path, ()))}
        if not bad:
            raise SystemExit(f"the build fails, but not because of a mutant: {errors}")
        print(f"{len(bad)} mutants do not compile", flush=True)
        dropped |= bad
        dropped_file.write_text(json.dumps(sorted(dropped)))
    raise SystemExit("too many mutants do not compile")


def report(results, reasons, known):
    lines = [f"{'':10}{'mutants':>9}{'killed':>9}{'survived':>10}{'equivalent':>12}{'score':>9}"]
    score = 0
    for folder in FOLDERS + ["all"]:
        part = [(key, found["test"]) for key, found in results.items() if folder in ("all", key.split("/")[0])]
        killed = sum(test is not None for _, test in part)
        equivalent = sum(test is None and key in reasons for key, test in part)
        score = 100 * killed / max(1, len(part) - equivalent)
        lines.append(f"{folder:10}{len(part):9}{killed:9}{len(part) - killed - equivalent:10}{equivalent:12}{score:8.1f}%")
    for title, wanted in (("equivalent", True), ("survived", False)):
        listed = [found for key, found in results.items() if found["test"] is None and (key in reasons) == wanted]
        lines += ["", f"{title}:"] + sorted(found["text"] + ("" if found["reached"] else " [no test reaches it]")
                                            for found in listed)
    stale = [key for key in reasons if key not in known]
    if stale:
        lines += ["", "equivalent.txt lists mutants that are no more:"] + stale
    wrong = [key for key in reasons if results.get(key, {}).get("test")]
    if wrong:
        lines += ["", "equivalent.txt lists mutants that tests find:"] + wrong
    return "\n".join(lines), score


def main():
    parser = argparse.ArgumentParser(prog="./dev mutate")
    parser.add_argument("--sample", type=int, metavar="N", default=420, help="0: all mutants (default: 420)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", metavar="REGEX", help="mutants whose file, change or line match, all of them")
    parser.add_argument("--survivors", action="store_true",
                        help="run again what survived the last run of this sample, and what a removed test found")
    parser.add_argument("--quick", action="store_true", help="run kestro-tests only, not the tests of the tool")
    parser.add_argument("--slowest", type=float, metavar="S", default=5,
                        help="leave out tests that take more than S seconds (default: 5)")
    parser.add_argument("--list", action="store_true", help="print the mutants and stop")
    parser.add_argument("--jobs", type=int, default=1)
    args = parser.parse_args()

    known = candidates(None)
    found = candidates(args.only) if args.only else known
    keys = choose(found, 0 if args.only else args.sample, args.seed)
    if args.list:
        print("\n".join(str(found[key]) for key in keys))
        return 0
    tree = Tree(ROOT, args.quick)
    tree.home.mkdir(parents=True, exist_ok=True)
    print(f"building with {len(keys)} of {len(known)} mutants", flush=True)
    mutants = build(tree, found, keys)
    runner = Runner(tree, args.jobs, args.slowest)
    print(f"measuring {len(runner.tests)} tests", flush=True)
    runner.measure([[n, mutant.key] for n, mutant in sorted(mutants.items())])
    slow = [test.name for test in runner.tests if test.seconds > args.slowest]
    print(f"left out: {', '.join(slow) or 'none'}", flush=True)

    reasons = equivalents()
    last_file = tree.home / ("only.json" if args.only else f"results-{args.seed}.json")
    last = json.loads(last_file.read_text()) if args.survivors and last_file.is_file() else {}
    names = {test.name for test in runner.tests}
    results, begin = {}, time.time()

    def one(number, mutant):
        before = last.get(mutant.key)
        if before and (before["test"] or "").split(" ")[0] in names:
            test = before["test"]
        elif args.survivors and mutant.key in reasons:
            test = None
        else:
            test = runner.failing(number)
            print(f"{len(results) + 1:4} {time.time() - begin:6.0f} s  {'killed  ' if test else 'SURVIVED'} "
                  f"{mutant}{'  by ' + test if test else ''}", flush=True)
        reached = any(number in test.reached for test in runner.tests)
        results[mutant.key] = {"test": test, "text": str(mutant), "reached": reached}
        if args.survivors or len(results) % 10 == 0:
            last_file.write_text(json.dumps({**last, **results}, indent=1))

    with ThreadPoolExecutor(args.jobs) as pool:
        for outcome in [pool.submit(one, number, mutant) for number, mutant in sorted(mutants.items())]:
            outcome.result()
    last_file.write_text(json.dumps(results, indent=1))
    text, score = report(results, reasons, known)
    (tree.home / "report.txt").write_text(text + "\n")
    print(text)
    print(f"\nwrote {tree.home.relative_to(ROOT)}/report.txt")
    return 0 if score >= AIM else 1


if __name__ == "__main__":
    sys.exit(main())
