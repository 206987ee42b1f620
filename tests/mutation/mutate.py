"""Plants faults in src/, one at a time, and has the unit tests look for each: what none of them sees is a gap of the tests.

    mutate.py [HOW-MANY [SEED [PATH...]]]     plants so many, drawn by the seed, in the sources that the paths name or hold
    mutate.py --check                         only looks whether the explained faults can still be planted

A copy of the tree is built and changed below build/mutate; the tests of the changed folder come first, and all that are labelled
`unit` after them. A fault that nothing sees has to be explained in the file `explained` beside this one: the file, the line as it
is, the line as it would be (without it: whatever happens to the line), and the reason.
"""

import collections
import os
import pathlib
import random
import re
import resource
import shutil
import subprocess
import sys
import time

import faults

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXPLAINED = pathlib.Path(__file__).with_name("explained")
WORK = ROOT / "build" / "mutate"
TREE = WORK / "tree"
BUILD = TREE / "build" / "dev"  # as deep as in the tree itself, so that ccache knows what was compiled there
HOW_MANY = 100

# They take longer than all the others of their program together, and are about one folder each.
SLOW_TESTS = {"Threads.*": "addressmatch", "*RandomCases.*": "addressmatch", "RealLists.*": "addressmatch",
              "TreeMemory.*": "addressmatch", "VisibilityOfRandomInstallations.*": "entities"}
# Programs of the unit tests, and the folders of src/ that they are about; none: all.
PROGRAMS = {
    "address_index_tests": ("addressmatch",),
    "index_seed_tests": ("addressmatch",),
    "exhaustion_tests": ("addressmatch",),
    "unload_tests": ("addressmatch", "util"),
    "static_objects_program_first": ("addressmatch",),
    "static_objects_program_last": ("addressmatch",),
    "invalid_bit_map_call_test": ("vocabulary",),
    "no_sql_directory_test": ("policyserver",),
    "unit_tests": (),
}
# A quick program about a folder, to be asked first.
FIRST = {"addressmatch/index": "address_index_tests", "addressmatch/text": "address_index_tests"}
MEMORY = 4 << 30  # bytes that a faulty program may ask for

Explanation = collections.namedtuple("Explanation", "path before after reason number")


def explanations():
    found = []
    path, before, after, reason, number = None, None, None, [], 0

    def close():
        nonlocal before, after, reason
        if before is not None:
            found.append(Explanation(path, before, after, " ".join(reason), number))
        before, after, reason = None, None, []

    for count, line in enumerate(EXPLAINED.read_text(encoding="utf-8").splitlines(), 1):
        if line.startswith("#"):
            continue
        if not line.strip():
            close()
        elif line.startswith("- "):
            close()
            before, number = line[2:].strip(), count
        elif line.startswith("+ "):
            after = line[2:].strip()
        elif line.startswith(" "):
            reason.append(line.strip())
        else:
            path = line.strip()
    close()
    return found


def check():
    """Names what is explained and cannot be planted; answers whether there is any."""
    stale = False
    for one in explanations():
        source = ROOT / one.path
        text = source.read_text(encoding="utf-8") if source.is_file() else ""
        lines = {(line_before(text, fault), line_after(text, fault)) for fault in faults.faults_of(one.path, text)}
        if not any(before == one.before and one.after in (None, after) for before, after in lines):
            print(f"{EXPLAINED.name}:{one.number}: {one.path} has no such fault: {one.before} -> {one.after or 'any'}")
            stale = True
        if not one.reason:
            print(f"{EXPLAINED.name}:{one.number}: no reason is given")
            stale = True
    return stale


def line_before(source, fault):
    return faults.line_of(source, fault.begin)


def line_after(source, fault):
    return faults.line_of(faults.planted(source, fault), fault.begin)


def copy_tree():
    """What has not changed is left alone, so that it is not built again."""
    ignored = shutil.ignore_patterns("build", ".git", ".cache", "__pycache__")

    def copy(source, target):
        if not os.path.exists(target) or pathlib.Path(source).read_bytes() != pathlib.Path(target).read_bytes():
            shutil.copyfile(source, target)
            shutil.copymode(source, target)
        return target

    shutil.copytree(ROOT, TREE, ignore=ignored, copy_function=copy, dirs_exist_ok=True)
    for path in list(TREE.rglob("*")):
        if path.is_file() and BUILD not in path.parents and not (ROOT / path.relative_to(TREE)).exists():
            path.unlink()


def build(*targets, faulty=False):
    """Whether they compile, and what was said."""
    done = subprocess.run(["cmake", "--build", BUILD, "--target", *targets, "--", "-j1"], check=False, text=True,
                          env={**os.environ, "ZARO_FAULT": "1"} if faulty else None, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    return done.returncode == 0, done.stdout


def configure():
    # The library and its unit tests, in the flags of the preset `dev`; programs are not linked anew for another library.
    subprocess.run(["cmake", "--preset", "dev", "-S", TREE, "-B", BUILD, f"-DZAROPOLICY_CCACHE={TREE}/tests/mutation/launcher",
                    "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DZAROPOLICY_BUILD_RUNTIME=OFF", "-DZAROPOLICY_BUILD_APPS=OFF"],
                   cwd=TREE, check=True, stdout=subprocess.DEVNULL)


def program(name):
    return next(path for path in BUILD.rglob(name) if path.is_file() and os.access(path, os.X_OK))


def limit():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Tests:
    """A program with a filter, and how long it takes without a fault."""

    def __init__(self, target, selection="*"):
        self.target = target
        self.command = [program(target)]
        if not target.startswith("static_objects"):
            self.command += ["--gtest_brief=1", "--gtest_fail_fast", f"--gtest_filter={selection}"]
        self.patience = None

    def measure(self):
        began = time.monotonic()
        status, text = self._run(600)
        if status != 0:
            raise SystemExit(f"{self.target} fails without a fault:\n{text}")
        self.patience = 10 + 4 * (time.monotonic() - began)
        return self

    def see(self):
        """What becomes of them: None when they pass."""
        status, text = self._run(self.patience)
        if status == 0:
            return None
        if status is None:
            return "time limit"
        failed = re.search(r"\[  FAILED  \] (\S+)", text) or re.search(r"\[ RUN      \] (\S+)", text)
        return f"{self.target}{' ' + failed[1].rstrip(',') if failed else f' ended with {status}'}"

    def _run(self, patience):
        """The exit status, None when time is over, and what the program printed."""
        with subprocess.Popen(self.command, cwd=WORK, preexec_fn=limit, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, errors="replace") as running:
            try:
                text = running.communicate(timeout=patience)[0]
                return running.returncode, text
            except subprocess.TimeoutExpired:
                running.kill()
                return None, running.communicate()[0]


class Laboratory:
    """The copy that is changed, and what is run on it."""

    def __init__(self):
        copy_tree()
        configure()
        self.known = {}

    @staticmethod
    def source(fault):
        """As it was copied."""
        return (TREE / fault.path).read_text(encoding="utf-8")

    def place(self, fault):
        return f"{fault.path}:{faults.line_number(self.source(fault), fault.begin)}"

    def tests(self, target, selection):
        """Built and measured without a fault when they are first wanted."""
        if (target, selection) not in self.known:
            made, text = build(target)
            if not made:
                raise SystemExit(f"the tree does not build:\n{text}")
            self.known[target, selection] = Tests(target, selection).measure()
        return self.known[target, selection]

    def see(self, fault, stages):
        """What finds the fault; None when nothing does, and "" when it does not compile."""
        tests = [self.tests(*stage) for stage in stages]
        source = TREE / fault.path
        right = self.source(fault)
        source.write_text(faults.planted(right, fault), encoding="utf-8")
        try:
            for one in tests:
                if not build(one.target, faulty=True)[0]:
                    return ""
                if found := one.see():
                    return found
            return None
        finally:
            source.write_text(right, encoding="utf-8")


def quick_stages(path):
    """The quick tests of the fault's folder."""
    folders = pathlib.Path(path).parts[1:-1]
    stages = [("unit_tests", suites_of(folders[0]))]
    if first := FIRST.get("/".join(folders)):
        stages.insert(0, (first, "*"))
    return stages


def all_stages(path):
    """Every program that may see it, without slow tests about other folders."""
    folder = pathlib.Path(path).parts[1]
    others = ":".join(name for name, about in SLOW_TESTS.items() if about != folder)
    return [(target, "*" if about else f"*-{others}") for target, about in PROGRAMS.items() if not about or folder in about]


def suites_of(folder):
    """A filter with the quick suites that the tests of a folder define."""
    names = set()
    for path in (ROOT / "tests" / "unit" / folder).rglob("*Test.cpp"):
        text = path.read_text(encoding="utf-8")
        names.update(f"{name}.*" for name in re.findall(r"^TEST(?:_F)?\((\w+),", text, re.M))
        names.update(f"*{name}.*" for name in re.findall(r"^TEST_P\((\w+),", text, re.M))
    return ":".join(sorted(names - SLOW_TESTS.keys())) + "-" + ":".join(SLOW_TESTS) if names else ""


def count_killed(counts, found):
    counts["killed"] += 1
    counts["killed by the time limit"] += found == "time limit"


def drawn(how_many, seed, paths):
    wanted = [TREE / path for path in paths] or [TREE / "src"]
    sources = sorted(path for path in (TREE / "src").rglob("*") if path.suffix in (".cpp", ".h") and
                     any(path == one or one in path.parents for one in wanted))
    known = []
    for source in sources:
        known += faults.faults_of(str(source.relative_to(TREE)), source.read_text(encoding="utf-8"))
    chosen = random.Random(seed).sample(known, min(how_many, len(known)))
    # Faults of one file come together, so that the files before are not built once more.
    return sorted(chosen), len(known)


def main():
    if sys.argv[1:] == ["--check"]:
        sys.exit(1 if check() else 0)
    arguments = sys.argv[1:]
    how_many = int(arguments[0]) if arguments else HOW_MANY
    seed = int(arguments[1]) if len(arguments) > 1 and arguments[1] else random.SystemRandom().randrange(1 << 32)
    if check():
        sys.exit(1)
    laboratory = Laboratory()
    chosen, known = drawn(how_many, seed, arguments[2:])
    print(f"{len(chosen)} of {known} faults, drawn by the seed {seed}", flush=True)
    explained = explanations()
    counts = collections.Counter()
    began = time.monotonic()
    unseen = []
    for fault in chosen:
        found = laboratory.see(fault, quick_stages(fault.path))
        if found == "":
            counts["do not compile"] += 1
        elif found is None:
            unseen.append(fault)
        else:
            count_killed(counts, found)
            print(f"{laboratory.place(fault)}: killed by {found}", flush=True)
    for fault in unseen:
        source = laboratory.source(fault)
        before, after = line_before(source, fault), line_after(source, fault)
        reason = next((one.reason for one in explained if one.path == fault.path and one.before == before and
                       one.after in (None, after)), None)
        found = None if reason else laboratory.see(fault, all_stages(fault.path))
        if found:
            count_killed(counts, found)
            print(f"{laboratory.place(fault)}: killed by {found}", flush=True)
            continue
        counts["explained" if reason else "survived"] += 1
        print(f"{laboratory.place(fault)}: {f'explained: {reason}' if reason else 'SURVIVED'}\n    - {before}\n    + {after}", flush=True)
    counts["compile"] = len(chosen) - counts["do not compile"]
    names = ("compile", "do not compile", "killed", "killed by the time limit", "explained", "survived")
    print(f"{len(chosen)} faults in {time.monotonic() - began:.0f} s: " +
          ", ".join(f"{counts[name]} {name}" for name in names), flush=True)
    sys.exit(1 if counts["survived"] else 0)


if __name__ == "__main__":
    main()
