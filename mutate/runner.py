"""Builds a copy of the tree that holds the mutants, and runs the tests on them."""

import hashlib
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from candidates import render

MOST = 1 << 16  # as in Mutant.h
TARGETS = ["kestro-tests", "kestro-tool-tests", "kestro-crash", "fuzz_play", "fuzz_record", "fuzz_repair",
           "fuzz_parse"]
CHEAP_S = 0.3  # tests that take less share a process
POWER_CUTS = "300"  # states of each mode


class Tree:
    """The copy of the tree, and its build."""

    def __init__(self, root, quick):
        self.targets = TARGETS[:1] if quick else TARGETS
        self.root, self.home = root, root / "build/mutate"
        self.tree, self.build = self.home / "tree", self.home / "build"

    def write(self, mutants, again=False):
        """Writes the copy. `again`: without some mutants that are not compiled anywhere, so that what has
        been compiled stays."""
        numbered = {}
        for number, mutant in mutants.items():
            numbered.setdefault(mutant.source.path, []).append((number, mutant))
        files = subprocess.check_output(["git", "ls-files", "-co", "--exclude-standard"], cwd=self.root, text=True)
        files = [name for name in files.split("\n") if (self.root / name).is_file()]
        for name in files:
            content = (self.root / name).read_bytes()
            if name in numbered:
                source = next(iter(numbered[name]))[1].source
                content = render(source, numbered[name]).encode()
            copy = self.tree / name
            if not copy.is_file() or copy.read_bytes() != content:
                copy.parent.mkdir(parents=True, exist_ok=True)
                times = copy.stat() if again else None
                copy.write_bytes(content)
                if times:
                    os.utime(copy, ns=(times.st_atime_ns, times.st_mtime_ns))
                shutil.copymode(self.root / name, copy)
        for path in list(self.tree.rglob("*")):
            if path.is_file() and str(path.relative_to(self.tree)) not in set(files):
                path.unlink()

    def compile(self):
        """Builds everything that can be built. Returns the lines, by file, that errors name."""
        flags = f"{os.environ.get('CXXFLAGS', '')} -w -include {self.tree}/mutate/Mutant.h"
        configured = subprocess.run(
            ["cmake", "-G", "Ninja", "-S", self.tree, "-B", self.build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
             "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1", f"-DCMAKE_CXX_FLAGS={flags}", "-DKESTRO_WERROR=OFF",
             "-DKESTRO_BENCH=OFF", "-DKESTRO_GSTREAMER=OFF", "-DKESTRO_EXAMPLES=OFF"],
            capture_output=True, text=True, env={**os.environ, "CXXFLAGS": ""})
        if configured.returncode != 0:
            raise SystemExit(configured.stdout + configured.stderr)
        built = subprocess.run(["nice", "ninja", "-C", self.build, "-k", "0", *self.targets], capture_output=True,
                               text=True, env={**os.environ, "CCACHE_BASEDIR": ""})  # __FILE__ is tested
        if built.returncode == 0:
            return {}
        found = {}
        for path, line in re.findall(r"((?:plugin|host|avi|recorder)/[\w./-]+\.(?:cpp|h)):(\d+):\d+: "
                                     r"(?:error|note: in expansion of macro .KESTRO_MUTANT)", built.stdout):
            found.setdefault(path, set()).add(int(line))
        if not found:
            raise SystemExit(built.stdout[-4000:])
        return found


class Test:
    """One test: a name, the command that runs it, and what it reached when it ran without a mutant."""

    def __init__(self, name, command, program=None):
        self.name, self.command, self.program = name, command, program
        self.seconds, self.reached, self.stamp, self.kills = 0.0, set(), "", 0

    def rank(self):
        return self.seconds / (1 + self.kills)


class Runner:
    def __init__(self, tree, jobs, slowest_s):
        self.tree, self.jobs, self.slowest_s = tree, jobs, slowest_s
        self.tests = self.find()

    def find(self):
        build, tests = self.tree.build, []
        programs = [build / "tests/kestro-tests", build / "tests/tools/kestro-tool-tests"]
        for program in programs[:len(self.tree.targets)]:
            suite = ""
            for line in subprocess.check_output([program, "--gtest_list_tests"], text=True).split("\n"):
                line = line.split("#")[0].rstrip()
                if line.startswith("  "):
                    tests.append(Test(suite + line.strip(), [program, "--gtest_filter=" + suite + line.strip()],
                                      program))
                elif line.endswith("."):
                    suite = line
        if self.tree.targets != TARGETS:
            return tests
        for name in ("play", "record", "repair", "parse"):
            inputs = [path for kind in ("corpus", "findings")
                      if (path := self.tree.tree / "fuzz" / kind / name).is_dir()]
            tests.append(Test("fuzz." + name, [build / f"fuzz/fuzz_{name}", "-runs=0", *inputs]))
        tests.append(Test("docs.properties", [
            "bash", "-c", 'diff <("$0" plugin --markdown 2>/dev/null) "$1"',
            build / "tools/kestro-avi/kestro-avi", self.tree.tree / "docs/properties.md"]))
        tests.append(Test("crash.states", [build / "crash/kestro-crash", POWER_CUTS]))
        return tests

    def run(self, command, limit_s, **more):
        """Returns the exit code, None after a time-out, and the output."""
        memory = Path("/dev/shm")
        folder = tempfile.mkdtemp(prefix="kestro-mutate-", dir=memory if memory.is_dir() else None)
        env = {**os.environ, "TMPDIR": folder, "TEST_TMPDIR": folder, **more}

        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
            resource.setrlimit(resource.RLIMIT_FSIZE, (8 << 30, 8 << 30))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        with open(folder + ".log", "w+b") as log:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT,
                                       env=env, cwd=self.tree.home, preexec_fn=limit, start_new_session=True)
            try:
                code = process.wait(limit_s)
            except subprocess.TimeoutExpired:
                code = None
            try:
                os.killpg(process.pid, signal.SIGKILL)  # and what it has started
            except ProcessLookupError:
                pass
            process.wait()
            log.seek(max(0, os.fstat(log.fileno()).st_size - 1000000))
            output = log.read().decode(errors="replace")
        shutil.rmtree(folder, ignore_errors=True)
        os.unlink(folder + ".log")
        return code, output

    def measure(self, numbers):
        """Runs each test without a mutant and finds the mutants that it reaches. Tests whose sources and
        mutants are the same as in an earlier run are not run again."""
        sources = [path.read_text() for path in sorted((self.tree.tree / "tests").rglob("*Test.cpp"))]
        cache_file = self.tree.home / "reached.json"
        cache = json.loads(cache_file.read_text()) if cache_file.is_file() else {}

        def one(test):
            suite, _, case = re.sub(r"^\w+/|/\w+$", "", test.name).partition(".")
            case = case.split("/")[0]
            text = [source for source in sources if re.search(rf"\(\s*{suite},\s*{case}\s*\)", source)]
            key = hashlib.sha1(json.dumps([text, numbers]).encode()).hexdigest()
            held = cache.get(test.name)
            if held is None or held[0] != key:
                with tempfile.NamedTemporaryFile() as file:
                    file.truncate(MOST)
                    for _ in range(3):  # some tests depend on time
                        begin = time.time()
                        code, output = self.run(test.command, 300, KESTRO_REACHED=file.name)
                        seconds = time.time() - begin
                        if code == 0:
                            break
                    else:
                        raise SystemExit(f"{test.name} fails without a mutant:\n{output[-2000:]}")
                    reached = [n for n, byte in enumerate(file.read()) if byte]
                held = [key, seconds, reached]
            cache[test.name] = held
            test.seconds, test.reached = held[1], set(held[2])

        with ThreadPoolExecutor(self.jobs) as pool:
            try:
                list(pool.map(one, self.tests))
            finally:
                cache_file.write_text(json.dumps(cache))

    def failing(self, number):
        """The name of a test that fails with this mutant, or None."""
        tests = [test for test in self.tests if number in test.reached and test.seconds <= self.slowest_s]
        cheap = {}
        for test in tests:
            if test.program is not None and test.seconds < CHEAP_S:
                cheap.setdefault(test.program, []).append(test)
        groups = [[test] for test in tests if test.program is None or test.seconds >= CHEAP_S]
        for group in cheap.values():
            groups.append(sorted(group, key=Test.rank))
        for group in sorted(groups, key=lambda group: sum(test.rank() for test in group)):
            while group:
                name, ended = self.first_failure(group, number)
                if name is None:
                    break
                found = [test for test in group if test.name == name] or group[:1]
                # Some tests depend on time, and the machine may be busy.
                if self.first_failure(found, number)[0] is not None:
                    found[0].kills += 1
                    return found[0].name + ("" if ended else " (no end)")
                group = [test for test in group if test is not found[0]]
        return None

    def first_failure(self, group, number):
        """The name of the test that fails, or None, and whether it came to an end."""
        seconds = sum(test.seconds for test in group)
        command = group[0].command
        if len(group) > 1:
            command = [group[0].program, "--gtest_filter=" + ":".join(test.name for test in group)]
        if group[0].program is not None:
            command = [*command, "--gtest_fail_fast"]
        code, output = self.run(command, 6 * seconds + 10, KESTRO_MUTANT=str(number))
        if code == 0:
            return None, True
        names = re.findall(r"\[  FAILED  \] ([\w./]+)", output) or re.findall(r"\[ RUN      \] ([\w./]+)", output)
        return names[-1] if names else group[0].name, code is not None
