#!/usr/bin/env python3
"""Plants single changes in the sources, one at a time, and reports those that no test notices.

  scripts/mutate.py http/strictChunk.cpp:40-80                    every change known for those lines
  scripts/mutate.py -R '^(connection|http):' connection/ --sample 60
  scripts/mutate.py --table tests/mutants.txt --json              the curated changes of a table

A place is FILE, FILE:LINE, FILE:FROM-TO, or a folder. Changes: a condition negated, a comparison at its edge (< and
<=, > and >=), == and !=, && and ||, + and -, a constant one more and one less, true and false, a character changed, a
statement dropped. A table holds one change a line, "PLACE: TEXT ==> OTHER TEXT", where TEXT stands once in the file or
below the folder that PLACE names, OTHER TEXT may be empty and "#" begins a comment.

All of it happens in a copy of the tree, build/mutate/tree, as it stands uncommitted or not: the tree itself is only
read. The tests are those whose names -R matches, by default those of the changed files' folders; what these need is
built with the sanitizers. Tests run in a process namespace of their own where the system allows one, so that a change
next to a kill() meets no other process; what outlives its time is ended with its process group.

Exit status: 0 when every change was noticed, 1 when some survived, 2 when nothing could be tried."""
import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from collections import Counter, namedtuple
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
TREE = TOP / "build/mutate/tree"
BUILD = TREE / "build/test"

Mutant = namedtuple("Mutant", "file start end text what")  # what stands from start to end becomes text

# Only where the formatter puts blanks around an operator is it one: "std::vector<int>" has none.
SWAPS = {" < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ", " && ": " || ",
         " || ": " && ", " + ": " - ", " - ": " + ", " += ": " -= ", " -= ": " += "}
OPERATOR = re.compile(r" (?:[<>=!]=|[+-]=|&&|\|\||[<>+-]) ")
NUMBER = re.compile(r"(?<![\w.'])\d+(?![\w.'])")
WORD = re.compile(r"\b(?:true|false)\b")
CHARACTER = re.compile(r"'(\\?[^'\\]|\\\\)'")
CONDITION = re.compile(r"\b(?:if|while) \(")
# A call, an assignment, a step or a jump, whole on its line; "return" with a value and declarations are not.
STATEMENT = re.compile(r"(?:[\w:.>\[\]*()-]+\(.*\)|[\w.>\[\]*()-]+ (?:[-+|&]?=) .*|[\w.>-]+(?:\+\+|--)"
                       r"|return|break|continue);")
ESCAPES = {"\\n": "\\r", "\\r": "\\n", "\\0": " ", "\\t": " ", "\\\\": "/", "\\'": '"'}


def blanked(source):
    """The source with comments and texts replaced by blanks, and the same with characters kept."""
    pattern = re.compile(r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+'|^\#[^\n]*""", re.S | re.M)

    def blank(found, keep):
        text = found[0]
        return text if text.startswith(keep) else re.sub(r"[^\n]", " ", text)

    return pattern.sub(lambda m: blank(m, ()), source), pattern.sub(lambda m: blank(m, ("'",)), source)


def closing(code, opening):
    depth = 0
    for i in range(opening, len(code)):
        depth += (code[i] == "(") - (code[i] == ")")
        if depth == 0:
            return i
    return None


def conditions(code):
    for found in CONDITION.finditer(code):
        end = closing(code, found.end() - 1)
        if end is None:
            continue
        inside = code[found.end():end]
        declares = re.search(r";|[^=!<>]=[^=]", inside)
        turned = re.findall(r"==|!=|&&|\|\|", inside) in (["=="], ["!="])  # the operator's change says the same
        if not declares and not turned:
            yield found.end(), end, "negate"


def statements(code):
    begin = 0
    for line in code.splitlines(keepends=True):
        text = line.strip()
        before = code[:begin].rstrip()[-1:]
        if STATEMENT.fullmatch(text) and before in tuple(";{}):") and text.count("(") == text.count(")"):
            start = begin + line.index(text)
            yield start, start + len(text), "drop"
        begin += len(line)


def changes(source):
    """Every change of a source: where, what stands there instead, and how to call it."""
    code, with_characters = blanked(source)
    for start, end, what in conditions(code):
        yield start, end, f"!({source[start:end]})", what
    for found in OPERATOR.finditer(code):
        yield found.start(), found.end(), SWAPS[found[0]], "operator"
    for found in NUMBER.finditer(code):
        value = int(found[0], 8 if re.fullmatch(r"0\d+", found[0]) else 10)
        yield found.start(), found.end(), str(value + 1), "one more"
        if value > 0:
            yield found.start(), found.end(), str(value - 1), "one less"
    for found in WORD.finditer(code):
        yield found.start(), found.end(), "false" if found[0] == "true" else "true", "constant"
    for found in CHARACTER.finditer(with_characters):
        inside = found[1]
        other = ESCAPES.get(inside) or ("#" if len(inside) > 1 or inside == "&" else chr(ord(inside) + 1))
        yield found.start(), found.end(), f"'{other}'", "character"
    for start, end, what in statements(code):
        yield start, end, ";", what


def mutants_of(place):
    """The changes of FILE[:FROM[-TO]] or of a folder's sources."""
    name, lines = re.fullmatch(r"(.*?)(?::(\d+(?:-\d+)?))?", place).groups()
    path = TREE / name
    files = sorted(path.rglob("*.cpp")) if path.is_dir() else [path]
    if not files or not all(file.is_file() for file in files):
        sys.exit(f"{name}: no such source")
    first, last = (int(part) for part in (lines.split("-") * 2)[:2]) if lines else (1, sys.maxsize)
    for file in files:
        source = file.read_text()
        for start, end, text, what in sorted(changes(source)):
            if first <= source.count("\n", 0, start) + 1 <= last:
                yield Mutant(str(file.relative_to(TREE)), start, end, text, what)


def mutants_of_table(path):
    for number, line in enumerate(Path(path).read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        found = re.fullmatch(r"(\S+): (.+?) ==>(?: (.*))?", line)
        if not found:
            sys.exit(f"{path}:{number}: expected FILE: TEXT ==> OTHER TEXT")
        place, text, other = found.groups()
        files = [TREE / place] if (TREE / place).is_file() else [f for f in sorted((TREE / place).rglob("*.cpp"))]
        where = [file for file in files for _ in range(file.read_text().count(text))]
        if len(where) != 1:
            print(f"{path}:{number}: stands {len(where)} times in {place}, skipped: {text}", file=sys.stderr)
            continue
        start = where[0].read_text().index(text)
        yield Mutant(str(where[0].relative_to(TREE)), start, start + len(text), other or "", "table")


def copy_tree():
    """Brings the copy up to the tree; what is the same keeps its time, so that little is built anew."""
    listed = subprocess.check_output(["git", "ls-files", "-zco", "--exclude-standard"], cwd=TOP, text=True)
    names = {name for name in listed.split("\0") if name and (TOP / name).is_file()}
    for name in names:
        target = TREE / name
        if not target.exists() or target.read_bytes() != (TOP / name).read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(TOP / name, target)
    for file in TREE.rglob("*"):
        name = str(file.relative_to(TREE))
        if file.is_file() and not name.startswith("build/") and name not in names:
            file.unlink()


def run(argv, seconds, log, environment=None):
    """The status, with the output in `log`; None when the time was over and the process group was ended."""
    with open(log, "wb") as output:
        process = subprocess.Popen(argv, cwd=TREE, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                   start_new_session=True, env=os.environ | (environment or {}))
    try:
        return process.wait(seconds)
    except subprocess.TimeoutExpired:
        return None
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()


def own_namespace():
    """What to put before a command so that it sees no process but its own; nothing where that is not allowed."""
    for prefix in (["unshare"], ["unshare", "--map-current-user"]):
        prefix += ["--fork", "--pid", "--kill-child", "--mount-proc"]
        if shutil.which("unshare") and subprocess.run([*prefix, "true"], capture_output=True).returncode == 0:
            return prefix
    print("no process namespace here: a change next to a kill() may meet other processes of yours", file=sys.stderr)
    return []


class Bench:
    """The copy, what is built of it, and the tests."""

    def __init__(self, options, folders):
        self.options = options
        self.tests = options.tests or f"^({'|'.join(sorted(folders))}):"
        self.log = TREE.parent / "log"
        self.contain = own_namespace()
        known = {folder.name for folder in (TOP / "tests").iterdir() if list(folder.glob("*_test.cpp"))}
        words = set(re.findall(r"\w+", self.tests))
        self.targets = sorted({f"test_{word}" for word in words & known} | ({"netsiftd"} if "e2e" in words else set()) |
                              ({"netsift", "api_host"} if "api" in words else set()))
        self.test_seconds = options.test_seconds

    def need(self, argv, what):
        if run(argv, None, self.log) != 0:
            sys.stderr.write(self.log.read_text(errors="replace")[-4000:])
            sys.exit(f"{what} fails without any change")

    def prepare(self):
        self.need(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DNETSIFT_SANITIZE=ON",
                   "-DNETSIFT_TESTS=ON"], "the configuration")
        self.need(self.build_command(), "the build")
        begun = time.monotonic()
        self.need(self.test_command(), f"the tests of -R '{self.tests}'")
        if self.test_seconds is None:
            self.test_seconds = 20 + 3 * (time.monotonic() - begun)

    def build_command(self):
        return ["ninja", "-C", BUILD, *self.targets]

    def test_command(self):
        return [*self.contain, "ctest", "--test-dir", BUILD, "-R", self.tests, "--no-tests=error", "--stop-on-failure",
                "-j", str(os.cpu_count())]

    def outcome(self):
        """The result of what is planted now, and what noticed it."""
        if run(self.build_command(), self.options.build_seconds, self.log, {"CCACHE_READONLY": "1"}) != 0:
            return "unbuildable", ""
        status = run(self.test_command(), self.test_seconds, self.log)
        if status == 0:
            return "survived", ""
        failed = re.findall(r"^\s+\d+ - (\S+) \(", self.log.read_text(errors="replace"), re.M)
        return "killed", "time" if status is None else ", ".join(failed) or "ctest"

    def plant(self, mutant):
        """Tries one change; the file is as before afterwards, whatever happens."""
        file, begun = TREE / mutant.file, time.monotonic()
        source = file.read_text()
        try:
            file.write_text(source[:mutant.start] + mutant.text + source[mutant.end:])
            result, by = self.outcome()
        finally:
            file.write_text(source)
        first = source.rfind("\n", 0, mutant.start) + 1
        last = source.find("\n", mutant.end)
        return {"file": mutant.file, "line": source.count("\n", 0, mutant.start) + 1, "what": mutant.what,
                "before": " ".join(source[first:last].split()),
                "after": " ".join((source[first:mutant.start] + mutant.text + source[mutant.end:last]).split()),
                "result": result, "by": by, "seconds": round(time.monotonic() - begun, 1)}


def progress(done, total, outcome, counts, begun):
    left = (time.monotonic() - begun) / done * (total - done) / 60
    line = (f"{done}/{total} {outcome['file']}:{outcome['line']} {outcome['what']}: {outcome['result']}  "
            f"({', '.join(f'{count} {result}' for result, count in sorted(counts.items()))}; {left:.0f} min left)")
    print(f"\r\033[K{line}" if sys.stderr.isatty() else line, end="" if sys.stderr.isatty() else "\n", file=sys.stderr,
          flush=True)


def tell(outcome):
    start = "\r\033[K" if sys.stderr.isatty() and sys.stdout.isatty() else ""
    print(f"{start}{outcome['file']}:{outcome['line']}: {outcome['result']} ({outcome['what']})\n"
          f"  - {outcome['before']}\n  + {outcome['after']}", flush=True)


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("places", nargs="*", metavar="PLACE", help="FILE, FILE:LINE, FILE:FROM-TO or a folder")
    parser.add_argument("--table", metavar="FILE", help="curated changes; with places, only those in these files")
    parser.add_argument("-R", "--tests", metavar="REGEX", help="names of the tests to run, as ctest -R has it")
    parser.add_argument("--sample", type=int, metavar="N", help="try N of the changes, chosen by --seed")
    parser.add_argument("--seed", type=int, default=1, metavar="N")
    parser.add_argument("--build-seconds", type=float, default=300, metavar="S", help="limit of a build (300)")
    parser.add_argument("--test-seconds", type=float, metavar="S",
                        help="limit of a change's tests (20 and three times what they take without a change)")
    parser.add_argument("--list", action="store_true", help="print the changes and try none")
    parser.add_argument("--json", action="store_true", help="all outcomes on standard output at the end, as JSON")
    options = parser.parse_args()
    if not options.places and not options.table:
        parser.error("a PLACE or --table is needed")
    return options


def chosen(options):
    mutants = [mutant for place in options.places for mutant in mutants_of(place)]
    if options.table:
        mutants = [mutant for mutant in mutants_of_table(options.table)
                   if not options.places or mutant.file in options.places]
    if options.sample is not None and options.sample < len(mutants):
        places = set(random.Random(options.seed).sample(range(len(mutants)), options.sample))
        mutants = [mutant for i, mutant in enumerate(mutants) if i in places]
    if not mutants:
        sys.exit("there is nothing to change")
    return mutants


def main():
    options = parse()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))
    copy_tree()
    mutants = chosen(options)
    if options.list:
        for mutant in mutants:
            source = (TREE / mutant.file).read_text()
            print(f"{mutant.file}:{source.count(chr(10), 0, mutant.start) + 1}: {mutant.what}: "
                  f"{' '.join(source[mutant.start:mutant.end].split())} ==> {mutant.text.strip()}")
        return 0
    bench = Bench(options, {mutant.file.split("/")[0] for mutant in mutants})
    bench.prepare()
    outcomes, counts, begun = [], Counter(), time.monotonic()
    for mutant in mutants:
        outcome = bench.plant(mutant)
        outcomes.append(outcome)
        counts[outcome["result"]] += 1
        if not options.json and outcome["result"] == "survived":
            tell(outcome)
        progress(len(outcomes), len(mutants), outcome, counts, begun)
    if options.json:
        print(json.dumps({"tests": bench.tests, **counts, "changes": outcomes}, indent=1))
    else:
        print(f"\n{counts['killed']} noticed, {counts['survived']} survived, {counts['unbuildable']} did not build")
    return 1 if counts["survived"] else 2 if not counts["killed"] else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except SystemExit as end:
        if isinstance(end.code, str):  # "nothing could be tried" has a status of its own
            print(end.code, file=sys.stderr)
            sys.exit(2)
        raise
    except KeyboardInterrupt:
        sys.exit(130)
