"""Runs the fuzz targets for a while and tells what came of it; `scripts/fuzz` is its front end.

Usage: run_targets.py [SECONDS [TARGET...]]     in the source tree, with ZARO_BIN naming the directory of the targets
"""

import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SEEDS = SOURCE / "tests/fuzz/corpus"
WORK = SOURCE / "build/fuzz"
# Of one input, on a machine that does other work as well; the slow matcher takes its time under the sanitizers.
LONGEST_INPUT_SECONDS = 120
MEMORY_MB = 2048
# Targets with a state, or with a slow comparison, need longer than the parsers of a field.
SHARES = {"address_matching": 8, "filter_session": 8, "http_connection": 4, "pattern_file": 8, "policy_answer": 8,
          "policy_document": 4, "policy_snapshot": 4}
CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


class Result:
    def __init__(self, target):
        self.target = target
        self.executions = self.edges = self.new = 0
        self.seconds = 0.0  # of the processor, which is shared with what else runs
        self.findings = []
        self.failure = ""  # why the target did not run as it should


def number(pattern, text):
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


def name_of(program):
    return program.name.removeprefix("fuzz_")


def processor_seconds(process):
    """What a process that runs has used of the processor, with the searches for leaks, which are children of it."""
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return sum(map(int, fields[11:15])) / CLOCK_TICKS


def wait_for(process, seconds):
    """Ends an engine that has had its time of the processor; answers its status and what it used."""
    asked = False
    while True:
        ended, status, usage = os.wait4(process.pid, os.WNOHANG)
        if ended:
            return os.waitstatus_to_exitcode(status), usage.ru_utime + usage.ru_stime
        if not asked and processor_seconds(process) >= seconds:
            process.send_signal(signal.SIGUSR1)
            asked = True
        time.sleep(0.05)


def run(program, seconds, running):
    """Fuzzes one target; answers what its last lines say."""
    result = Result(name_of(program))
    corpus = WORK / "corpus" / result.target
    findings = WORK / "findings" / result.target
    for directory in (corpus, findings):
        directory.mkdir(parents=True, exist_ok=True)
    known = set(findings.iterdir())
    command = [program, f"-timeout={LONGEST_INPUT_SECONDS}", f"-report_slow_units={LONGEST_INPUT_SECONDS}",
               f"-rss_limit_mb={MEMORY_MB}", f"-artifact_prefix={findings}/", "-print_final_stats=1", "-print_funcs=0", corpus]
    if (SEEDS / result.target).is_dir():
        command.append(SEEDS / result.target)
    log_path = WORK / "findings" / f"{result.target}.log"
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None
    with open(log_path, "wb") as log, tempfile.TemporaryDirectory(prefix="zaro-fuzz-", dir=memory) as scratch:
        process = subprocess.Popen(command, stdout=log, stderr=log, cwd=scratch, env={**os.environ, "TMPDIR": scratch})
        running.add(process)
        status, result.seconds = wait_for(process, seconds)
        running.discard(process)
        process.returncode = status
    log = log_path.read_text(errors="replace")
    result.executions = number(r"stat::number_of_executed_units:\s+(\d+)", log)
    result.new = number(r"stat::new_units_added:\s+(\d+)", log)
    result.edges = number(r"\bcov: (\d+)", log)
    result.findings = sorted(set(findings.iterdir()) - known)
    if status != 0 and not result.findings:
        result.failure = f"ended with status {status}; see {log_path}"
    elif status == 0:
        log_path.unlink()
    return result


def run_all(programs, share_seconds, jobs):
    waiting = list(reversed(programs))
    results = []
    running = set()
    lock = threading.Lock()

    def work():
        while True:
            with lock:
                if not waiting:
                    return
                program = waiting.pop()
            result = run(program, share_seconds * share_of(program), running)
            with lock:
                results.append(result)
                show(result)

    def stop(signum, _frame):
        waiting.clear()
        for process in list(running):
            process.send_signal(signal.SIGUSR1)
        signal.signal(signum, signal.SIG_DFL)

    for signum in (signal.SIGINT, signal.SIGTERM):
        signal.signal(signum, stop)
    threads = [threading.Thread(target=work) for _ in range(jobs)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return results


def share_of(program):
    return SHARES.get(name_of(program), 1)


ROW = "{:<24} {:>12} {:>8} {:>10} {:>8} {:>8} {:>9}"


def show(result):
    rate = result.executions / result.seconds if result.seconds else 0
    print(ROW.format(result.target, result.executions, f"{result.seconds:.1f}", f"{rate:.0f}", result.edges, result.new,
                     len(result.findings)), flush=True)


def chosen(names):
    programs = sorted(pathlib.Path(os.environ["ZARO_BIN"]).resolve().glob("fuzz_*"))
    if not names:
        return programs
    unknown = [name for name in names if not any(program.name == f"fuzz_{name}" for program in programs)]
    if unknown:
        sys.exit("no such target: " + " ".join(unknown))
    return [program for program in programs if name_of(program) in names]


def main():
    total = int(sys.argv[1]) if len(sys.argv) > 1 else 60
    programs = chosen(sys.argv[2:])
    if not programs:
        sys.exit(f"there are no fuzz targets in {os.environ['ZARO_BIN']}")
    share_seconds = max(1, total / sum(map(share_of, programs)))
    jobs = int(os.environ.get("ZARO_FUZZ_JOBS", "2"))
    print(ROW.format("target", "executions", "CPU s", "per CPU s", "edges", "new", "findings"))
    results = run_all(programs, share_seconds, jobs)
    findings = [path for result in results for path in result.findings]
    failures = [f"{result.target}: {result.failure}" for result in results if result.failure]
    executions = sum(result.executions for result in results)
    used = sum(result.seconds for result in results)
    print(f"{len(results)} targets, {used:.0f} s of CPU time, {executions} executions, {len(findings)} findings")
    for line in failures + [f"finding: {path}" for path in findings]:
        print(line)
    skipped = len(programs) - len(results)
    if skipped:
        print(f"{skipped} targets were not run")
    sys.exit(1 if findings or failures or skipped else 0)


if __name__ == "__main__":
    main()
